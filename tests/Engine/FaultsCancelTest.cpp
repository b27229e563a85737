// A run that the person ends at each poll in turn.
#include "FaultsTrial.h"

#include <algorithm>

namespace {
class CCancelAtPoll : public CSyncProgressHidden {
public:
    explicit CCancelAtPoll(int poll) : m_poll(poll) {}
    int IsCancelled() override { return ++polls >= m_poll; }
    int polls = 0;

private:
    int m_poll;
};

using CancelTest = FaultsTrial;
}  // namespace

INSTANTIATE_TEST_SUITE_P(Cancels, CancelTest, ::testing::Bool(), [](const auto& which) {
    return std::string(which.param ? "RightIsSource" : "LeftIsSource");
});

TEST_P(CancelTest, NextRunFinishesWhatACancelledOneBegan) {
    constexpr int fewestPolls = 8;
    MakeChanges();
    LeaveStores();
    Disk().Keep();
    EnterStores();
    int poll = 1;
    for (bool cancelled = true; cancelled && !HasFailure(); ++poll) {
        CCancelAtPoll cancel(poll);
        progress = &cancel;
        Run();
        progress = nullptr;
        cancelled = outcome.cancelled;
        EXPECT_EQ(cancelled, cancel.polls >= poll);
        Run();
        ExpectWholeAfter(Trouble::Passing, "cancelling at poll " + std::to_string(poll));
        expectMessages = false;
        Run();
        ExpectNothingMoves();
        expectMessages = true;
        StartOver();
    }
    EXPECT_GT(poll, fewestPolls);
}

// Rows that fail are tried again at the end of a loop, with a poll before each.
TEST_P(CancelTest, ASecondTryOfFailedRowsIsCancelledAsWell) {
    constexpr int never = 100000;
    constexpr int fewestTries = 3;
    MakeChanges();
    LeaveStores();
    Disk().Keep();
    EnterStores();
    const auto run = [&](ULONG failingCall, int poll) {
        CCancelAtPoll cancel(poll);
        progress = &cancel;
        Look();
        FaultsOf(Target().Store())->SetFault(failingCall, MAPI_E_NETWORK_ERROR, TRUE);
        Run();
        FaultsOf(Target().Store())->SetFault(0, S_OK, FALSE);
        ExpectTheTruthWasTold();
        progress = nullptr;
        return cancel.polls;
    };
    const int withoutFaults = run(0, never);
    StartOver();
    int mostTries = 0;
    for (ULONG call = 20; call < 120 && !HasFailure(); call += 10 * std::min(Stride(), 3u)) {
        const int polls = run(call, never);
        mostTries = std::max(mostTries, polls - withoutFaults);
        StartOver();
        for (int poll = 1; poll <= polls && !HasFailure(); ++poll) {
            run(call, poll);
            EXPECT_TRUE(outcome.cancelled);
            Run();
            ExpectWholeAfter(Trouble::Passing, "cancelling at poll " + std::to_string(poll) +
                                                   " after failing call " + std::to_string(call));
            StartOver();
        }
    }
    EXPECT_GT(mostTries, fewestTries);
}
