// Every failing call, every poll and every commit: nothing is lost, what was told is true, and a second call
// finishes the work.
#include "MaintenanceFixture.h"

namespace {

struct CDone {
    unsigned done = 0;
    bool told = true;  // whether all was done, or something said that it was not
};

// A kind of maintenance, as these trials see it.
struct CWork {
    const char* name;
    std::function<CDone(const CMaintainedFolder&, IMaintenanceWatch*)> run;
    std::function<unsigned(const CMaintainedFolder&)> leftToDo;
    ULONG fewestCalls;
    unsigned fewestPolls;
};

CDone DoneBy(const CMaintenanceOutcome& outcome) {
    return {outcome.changed, outcome.failed > 0 || outcome.notRead || outcome.cancelled};
}

CDone DoneBy(const CDuplicateOutcome& outcome) {
    return {outcome.removed, outcome.failed > 0 || outcome.notRead || outcome.noHolding || outcome.cancelled};
}

CWork Duplicates(const char* name, bool fieldCompare, ULONG fewestCalls) {
    CDuplicateOptions options;
    options.fieldCompare = fieldCompare;
    CDuplicateOptions look = options;
    look.dryRun = true;
    return {name,
            [options](const CMaintainedFolder& folder, IMaintenanceWatch* watch) {
                return DoneBy(RemoveDuplicates(folder, options, watch));
            },
            [look](const CMaintainedFolder& folder) {
                return RemoveDuplicates(folder, look, nullptr).duplicates;
            },
            fewestCalls, 3};
}

const CWork kWorks[] = {
    Duplicates("duplicates", false, 8),
    Duplicates("duplicates with field compare", true, 30),
    {"marks",
     [](const CMaintainedFolder& folder, IMaintenanceWatch* watch) {
         return DoneBy(RemoveSyncMarks(folder, false, watch));
     },
     [](const CMaintainedFolder& folder) { return RemoveSyncMarks(folder, true, nullptr).found; }, 15, 1},
    {"memories",
     [](const CMaintainedFolder& folder, IMaintenanceWatch*) {
         return DoneBy(RemoveSyncFiles(folder, false));
     },
     [](const CMaintainedFolder& folder) { return RemoveSyncFiles(folder, true).found; }, 4, 0},
    {"times",
     [](const CMaintainedFolder& folder, IMaintenanceWatch*) {
         return DoneBy(ResetLastSyncTimes(folder, false));
     },
     [](const CMaintainedFolder& folder) { return ResetLastSyncTimes(folder, true).found; }, 12, 0},
    {"keys",
     [](const CMaintainedFolder& folder, IMaintenanceWatch* watch) {
         std::vector<CSharedKeyItem> shared;
         CDone done;
         done.told = !ListSharedKeys(folder, shared);
         std::vector<CMapiBinary> items;
         for (size_t i = 0; i + 1 < shared.size(); ++i)
             if (shared[i].searchKey == shared[i + 1].searchKey) items.push_back(shared[i].entryId);
         const CDone keys = DoneBy(GiveNewSearchKeys(folder, items, watch));
         return CDone{keys.done, done.told || keys.told};
     },
     [](const CMaintainedFolder& folder) {
         std::vector<CSharedKeyItem> shared;
         EXPECT_TRUE(ListSharedKeys(folder, shared));
         unsigned left = 0;
         for (size_t i = 0; i + 1 < shared.size(); ++i)
             left += shared[i].searchKey == shared[i + 1].searchKey;
         return left;
     },
     8, 3},
};

class TroubleTest : public MaintenanceTest {
protected:
    void SetUp() override {
        MaintenanceTest::SetUp();
        Given(Both("A B C D"), Synced(), Source().CopiesWithin("A"), Source().CopiesWithin("A"),
              Source().CopiesWithin("B"));
        m_texts = Texts();
        LeaveStores();
        Disk().Keep();
        EnterStores();
    }
    std::multiset<std::string> Texts() {
        std::multiset<std::string> texts;
        for (const CSeenItem& item : SeenAnywhere(Source().Store()))
            texts.insert(item.subject + "=" + item.body);
        return texts;
    }
    // Trouble is over: what was told is what has happened, nothing is lost, and the rest is done now.
    void ExpectTrueAndFinished(const CWork& work, unsigned before, const CDone& told) {
        const CMaintainedFolder folder = Of(Source());
        const unsigned rest = work.leftToDo(folder);
        EXPECT_EQ(told.done, before - rest);
        EXPECT_TRUE(told.told || rest == 0);
        EXPECT_EQ(Texts(), m_texts);
        EXPECT_EQ(work.run(folder, nullptr).done, rest);
        EXPECT_EQ(work.leftToDo(folder), 0u);
        EXPECT_EQ(Texts(), m_texts);
    }
    // `trouble` sets something for the n-th time, and answers afterwards whether it came to that.
    template <class Begin, class End>
    ULONG EachTrouble(const CWork& work, Begin begin, End end) {
        ULONG n = 1;
        for (bool reached = true; reached && !HasFailure(); n += reached ? Stride() : 0) {
            SCOPED_TRACE(std::string(work.name) + ", trouble " + std::to_string(n));
            const CRecordingUserInterface person;
            const unsigned before = work.leftToDo(Of(Source()));
            EXPECT_GT(before, 0u);
            CDone told;
            {
                const CMaintainedFolder folder = Of(Source());
                begin(n);
                told = work.run(folder, nullptr);
                reached = end(n);
            }
            ExpectTrueAndFinished(work, before, told);
            StartOver();
        }
        return n;
    }

private:
    std::multiset<std::string> m_texts;
};
INSTANTIATE_BOTH_WAYS(Faults, TroubleTest);

}  // namespace

TEST_P(TroubleTest, EachFailingCall) {
    for (const CWork& work : kWorks) {
        for (const BOOL forGood : {FALSE, TRUE}) {
            const ULONG calls = EachTrouble(
                work,
                [&](ULONG n) { FaultsOf(Source().Store())->SetFault(n, MAPI_E_NETWORK_ERROR, forGood); },
                [&](ULONG n) {
                    const auto faults = FaultsOf(Source().Store());
                    const bool reached = faults->CallCount() >= n;
                    faults->SetFault(0, S_OK, FALSE);
                    return reached;
                });
            EXPECT_GE(calls, work.fewestCalls) << work.name;
        }
    }
}

TEST_P(TroubleTest, EachFailingCommit) {
    for (const CWork& work : kWorks) {
        const ULONG commits = EachTrouble(
            work,
            [&](ULONG n) { FaultsOf(Source().Store())->SetCommitFault(n, MAPI_E_NOT_ENOUGH_DISK, FALSE); },
            [&](ULONG n) {
                const auto faults = FaultsOf(Source().Store());
                const bool reached = faults->CommitCount() >= n;
                faults->SetCommitFault(0, S_OK, FALSE);
                return reached;
            });
        EXPECT_GE(commits, 2u) << work.name;
    }
}

TEST_P(TroubleTest, EachPoll) {
    for (const CWork& work : kWorks) {
        unsigned poll = 1;
        for (bool reached = work.fewestPolls > 0; reached && !HasFailure(); ++poll) {
            SCOPED_TRACE(std::string(work.name) + ", poll " + std::to_string(poll));
            const unsigned before = work.leftToDo(Of(Source()));
            CCountingWatch watch(poll);
            const CDone told = work.run(Of(Source()), &watch);
            reached = watch.polls >= poll;
            ExpectTrueAndFinished(work, before, told);
            StartOver();
        }
        EXPECT_GE(poll, work.fewestPolls) << work.name;
    }
}
