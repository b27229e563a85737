// Every call of a store fails once in turn, in a run over changes of every kind.
#include "FaultsTrial.h"

namespace {
// Fewer calls than this in a run would mean that the faults no longer reach what they are for.
constexpr ULONG kFewestCalls = 100;

class FaultsTest : public FaultsTrial {
protected:
    // A run in which the n-th call on one store fails; false if it made fewer.
    bool RunWithFault(bool inSource, ULONG n, bool forGood) {
        Look();
        const auto faults = FaultsOf((inSource ? Source() : Target()).Store());
        faults->SetFault(n, MAPI_E_NETWORK_ERROR, forGood);
        Run();
        const bool reached = faults->CallCount() >= n;
        faults->SetFault(0, S_OK, FALSE);
        ExpectTheTruthWasTold();
        ExpectMemoriesTellTheFolders();
        return reached;
    }

    void FailEachCall(bool inSource, bool forGood) {
        MakeChanges();
        LeaveStores();
        Disk().Keep();
        EnterStores();
        ULONG n = 1;
        for (; RunWithFault(inSource, n, forGood); n += Stride()) {
            Run();
            ExpectWholeAfter(forGood ? Trouble::Lasting : Trouble::Passing,
                             "failing call " + std::to_string(n) + " of the " +
                                 (inSource ? "source" : "target") + (forGood ? " for good" : ""));
            if (HasFailure()) return;
            StartOver();
        }
        EXPECT_GT(n, kFewestCalls);
    }
};
}  // namespace

INSTANTIATE_TEST_SUITE_P(Faults, FaultsTest, ::testing::Bool(), [](const auto& which) {
    return std::string(which.param ? "RightIsSource" : "LeftIsSource");
});

TEST_P(FaultsTest, ChangesWithoutFaultsArriveWhole) {
    MakeChanges();
    Run();
    EXPECT_TRUE(messages.empty());
    ExpectWholeAfter(Trouble::Passing, "no fault");
    expectMessages = false;
    Run();
    ExpectNothingMoves();
    ExpectWholeAfter(Trouble::Passing, "runs that moved nothing");
}

TEST_P(FaultsTest, SourceRefusesEachCallOnce) {
    FailEachCall(true, false);
}

TEST_P(FaultsTest, TargetRefusesEachCallOnce) {
    FailEachCall(false, false);
}

TEST_P(FaultsTest, SourceRefusesFromEachCallOn) {
    FailEachCall(true, true);
}

TEST_P(FaultsTest, TargetRefusesFromEachCallOn) {
    FailEachCall(false, true);
}
