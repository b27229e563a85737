// A run that the person ends at each poll in turn.
#include "FaultsTrial.h"

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
