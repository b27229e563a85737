#include <support/AnotherProcess.h>
#include <support/TroubledRuns.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <set>
#include <string>

namespace {
struct CNamedTrouble {
    const char* name;
    RunTrouble kind;
    unsigned fewest;  // with every step taken, over the stories
};
constexpr CNamedTrouble kTroubles[] = {{"calls", RunTrouble::Calls, 60000},
                                       {"commits", RunTrouble::Commits, 4000},
                                       {"deaths", RunTrouble::Deaths, 40000}};

const CNamedTrouble* OfEnvironment() {
    const char* text = std::getenv("VELLUM_TROUBLE");
    for (const CNamedTrouble& trouble : kTroubles)
        if (text && trouble.name == std::string(text)) return &trouble;
    return nullptr;
}

// A trial whose stories meet nothing would pass as well.
class CTroublesWereMet : public ::testing::Environment {
public:
    void TearDown() override {
        const CNamedTrouble* trouble = OfEnvironment();
        if (!trouble) return;
        std::printf("%u troubles were met\n", TroublesMet());
        EXPECT_GT(TroublesMet() * Stride(), trouble->fewest);
    }
};
const auto* const g_troublesWereMet = ::testing::AddGlobalTestEnvironment(new CTroublesWereMet);

// What two folders hold, and every text that lies anywhere in their stores.
struct CContents {
    std::multiset<std::string> left, right;  // subject and body
    std::map<std::string, int> subjectsOfLeft, subjectsOfRight;
    std::set<std::string> texts;

    CContents(StorySide& leftSide, StorySide& rightSide) {
        Read(leftSide, left, subjectsOfLeft);
        Read(rightSide, right, subjectsOfRight);
        for (StorySide* side : {&leftSide, &rightSide})
            for (const CSeenItem& item : SeenAnywhere(side->Store()))
                texts.insert(item.body);
    }

private:
    static void Read(StorySide& side, std::multiset<std::string>& items,
                     std::map<std::string, int>& subjects) {
        for (const CSeenItem& item : SeenIn(side.Store(), side.Folder())) {
            items.insert(item.subject + ": " + item.body);
            ++subjects[item.subject];
        }
    }
};

int CountOf(const std::map<std::string, int>& subjects, const std::string& subject) {
    const auto found = subjects.find(subject);
    return found == subjects.end() ? 0 : found->second;
}

// A process that dies between the two memories, or a commit that is lost, leaves one of them behind. Who wins
// a conflict may be carried across then, and what was deleted on one side and changed on the other may go:
// each has its copy, and no item is there twice or on one side alone.
void ExpectAsMany(const CContents& found, const CContents& wanted) {
    const auto expect = [&](const auto& subjects, const auto& most, const auto& others) {
        for (const auto& [subject, count] : subjects)
            EXPECT_LE(count, CountOf(most, subject)) << subject;
        for (const auto& [subject, count] : most)
            EXPECT_GE(CountOf(subjects, subject), std::min(count, CountOf(others, subject))) << subject;
    };
    expect(found.subjectsOfLeft, wanted.subjectsOfLeft, wanted.subjectsOfRight);
    expect(found.subjectsOfRight, wanted.subjectsOfRight, wanted.subjectsOfLeft);
}

void ExpectTheSame(RunTrouble kind, const CContents& found, const CContents& wanted) {
    if (kind == RunTrouble::Calls) {
        EXPECT_EQ(found.left, wanted.left);
        EXPECT_EQ(found.right, wanted.right);
    } else {
        ExpectAsMany(found, wanted);
    }
    std::string gone;
    for (const std::string& text : wanted.texts)
        if (!found.texts.count(text)) gone += text + "; ";
    EXPECT_EQ(gone, "") << "texts that are gone";
}

std::string Told(const CRunTrouble& trouble) {
    const char* const what[] = {"", "failing call ", "lost commit ", "death at call "};
    return what[static_cast<int>(trouble.kind)] + std::to_string(trouble.step) +
           (trouble.inSource ? " of the source" : " of the target");
}
}  // namespace

RunTrouble TroubleOfRuns() {
    static const CNamedTrouble* const trouble = OfEnvironment();
    return trouble ? trouble->kind : RunTrouble::None;
}

unsigned& TroublesMet() {
    static unsigned met = 0;
    return met;
}

// Steps are counted from another one in each run, so that with a stride all are taken by some run.
void TwoFolders::MeetEachTrouble() {
    static unsigned runs = 0;
    const unsigned first = 1 + runs++ % Stride();
    const bool messagesBefore = std::exchange(expectMessages, true);
    m_inTrouble = true;
    Close();
    Disk().Keep();
    const auto startOver = [this] {
        Close();
        Disk().BringBack();
        Reopen();
    };
    Reopen();
    RunAlone();
    RunAlone();
    const CContents wanted(Left(), Right());
    for (const bool inSource : {true, false})
        for (ULONG step = first; !HasFailure(); step += Stride()) {
            const CRunTrouble trouble = {TroubleOfRuns(), inSource, step};
            SCOPED_TRACE(Told(trouble));
            startOver();
            if (!RunInTrouble(trouble)) break;
            ++TroublesMet();
            RunAlone();
            RunAlone();
            ExpectTheSame(trouble.kind, CContents(Left(), Right()), wanted);
        }
    startOver();
    m_inTrouble = false;
    expectMessages = messagesBefore;
}

// False if the run did not come so far.
bool TwoFolders::RunInTrouble(const CRunTrouble& trouble) {
    if (trouble.kind == RunTrouble::Deaths) return RunAndDie(trouble);
    const auto faults = FaultsOf((trouble.inSource ? Source() : Target()).Store());
    if (trouble.kind == RunTrouble::Calls) {
        Look();
        faults->SetFault(trouble.step, MAPI_E_NETWORK_ERROR, FALSE);
        RunAlone();
        const bool met = faults->CallCount() >= trouble.step;
        faults->SetFault(0, S_OK, FALSE);
        ExpectTheTruthWasTold();
        return met;
    }
    faults->SetSavesPerCommit(1);
    faults->SetCommitFault(trouble.step, MAPI_E_NOT_ENOUGH_DISK, FALSE);
    othersWrite = true;  // the disk takes back what was counted
    RunAlone();
    othersWrite = false;
    const bool met = faults->CommitCount() >= trouble.step;
    faults->SetCommitFault(0, S_OK, FALSE);
    faults->SetSavesPerCommit(0);
    return met;
}

namespace {
void Flush(IMsgStore* store) {
    TestRef<IStoreBatch> batch;
    if (store->QueryInterface(IID_IStoreBatch, reinterpret_cast<void**>(batch.Out())) == S_OK)
        batch->FlushBatch();
}
}  // namespace

// Which of the stores has brought to the disk what it gathered goes round with the steps.
bool TwoFolders::RunAndDie(const CRunTrouble& trouble) {
    struct CDeath {
        IMsgStore* flushed[2];
        static void Come(void* death) {
            for (IMsgStore* store : static_cast<CDeath*>(death)->flushed)
                if (store) Flush(store);
            LeaveProcess();
        }
    };
    Close();
    Disk().AwaitClosing();
    const bool died = DiesInAnotherProcess([&] {
        Reopen();
        CDeath death = {
            {trouble.step & 1 ? Source().Store() : nullptr, trouble.step & 2 ? Target().Store() : nullptr}};
        FaultsOf((trouble.inSource ? Source() : Target()).Store())
            ->SetInterruption(trouble.step, CDeath::Come, &death);
        RunAlone();
    });
    Reopen();
    return died;
}
