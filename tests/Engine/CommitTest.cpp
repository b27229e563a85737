// Every commit of a store fails in turn, in a run over changes of every kind: what was confirmed and is gone
// again must be known, and the run after it must bring everything.
#include "FaultsTrial.h"

namespace {
// How saves are gathered: as always; each by itself; or until the store's own thread comes by.
enum class Gathering { Usual, EachSave, OwnThread };

struct CPlan {
    Gathering gathering;
    bool inSource;
    HRESULT hr;
    bool forGood;
};

std::string Named(const CPlan& plan) {
    const char* const gathered[] = {" of a usual batch", " of single saves", " of the store's own thread"};
    return std::string(plan.inSource ? "the source's" : "the target's") +
           gathered[static_cast<int>(plan.gathering)] +
           (plan.hr == MAPI_E_NOT_ENOUGH_DISK ? ", no space" : ", broken disk") +
           (plan.forGood ? ", for good" : "");
}

class COwnThreadProgress : public CSyncProgressHidden {
public:
    explicit COwnThreadProgress(IMsgStore* store) : m_faults(FaultsOf(store)) {}
    void StepMessage() override { m_faults->CommitAsOwnThread(); }
    void SetMessageText(const std::string&) override { m_faults->CommitAsOwnThread(); }

private:
    TestRef<IStoreFaults> m_faults;
};

class CommitTest : public FaultsTrial {
protected:
    IMsgStore* StoreOf(const CPlan& plan) { return (plan.inSource ? Source() : Target()).Store(); }

    // False if the run made fewer commits.
    bool RunWithFault(const CPlan& plan, ULONG n) {
        const auto faults = FaultsOf(StoreOf(plan));
        COwnThreadProgress ownThread(StoreOf(plan));
        if (plan.gathering == Gathering::OwnThread) progress = &ownThread;
        faults->SetSavesPerCommit(plan.gathering == Gathering::EachSave    ? 1
                                  : plan.gathering == Gathering::OwnThread ? 1000000
                                                                           : 0);
        faults->SetCommitFault(n, plan.hr, plan.forGood);
        othersWrite = true;  // the disk takes back what was counted, and the run says that it did
        Run();
        othersWrite = false;
        const bool reached = faults->CommitCount() >= n;
        faults->SetCommitFault(0, S_OK, FALSE);
        faults->SetSavesPerCommit(0);
        progress = nullptr;
        return reached;
    }

    void ExpectLossIsTold(const CPlan& plan) {
        const std::string words =
            plan.hr == MAPI_E_NOT_ENOUGH_DISK ? "database or disk is full" : "disk I/O error";
        bool isTold = false;
        for (const auto& message : messages)
            isTold = isTold || message.text.find(words) != std::string::npos;
        EXPECT_TRUE(isTold) << "nobody told that the " << words;
        EXPECT_GT(outcome.phasesFailed, 0u);
    }

    void FailEachCommit(const CPlan& plan) {
        ULONG n = 1;
        for (;; n += Stride()) {
            SCOPED_TRACE("failing commit " + std::to_string(n) + " of " + Named(plan));
            const std::string sourceFile = SideFile("SourceID"), targetFile = SideFile("TargetID");
            if (!RunWithFault(plan, n)) break;
            ++m_faultsMet;
            ExpectLossIsTold(plan);
            EXPECT_FALSE(SideFile("SourceID") != sourceFile && SideFile("TargetID") != targetFile)
                << "the run is remembered";
            Run();
            EXPECT_EQ(outcome.phasesFailed, 0u);
            ExpectWholeAfter(Trouble::Deadly, "a lost commit");
            expectMessages = false;
            Run();
            ExpectNothingMoves();
            expectMessages = true;
            if (HasFailure()) return;
            StartOver();
        }
        StartOver();
    }

    unsigned m_faultsMet = 0;
};
}  // namespace

INSTANTIATE_TEST_SUITE_P(Commits, CommitTest, ::testing::Bool(), [](const auto& which) {
    return std::string(which.param ? "RightIsSource" : "LeftIsSource");
});

TEST_P(CommitTest, SavesThatAreLostAreKnownAndBroughtByTheNextRun) {
    MakeChanges();
    LeaveStores();
    Disk().Keep();
    EnterStores();
    unsigned fewest = 0;
    for (const Gathering gathering : {Gathering::Usual, Gathering::EachSave, Gathering::OwnThread})
        for (const bool inSource : {true, false})
            for (const bool forGood : {false, true}) {
                const HRESULT hr = inSource == forGood ? MAPI_E_NOT_ENOUGH_DISK : MAPI_E_DISK_ERROR;
                FailEachCommit({gathering, inSource, hr, forGood});
                if (HasFailure()) return;
                fewest += gathering == Gathering::Usual ? 1 : 5;
            }
    EXPECT_GE(m_faultsMet * Stride(), fewest);
    RecordProperty("faults", static_cast<int>(m_faultsMet));
}
