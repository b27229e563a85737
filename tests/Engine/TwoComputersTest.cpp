// Two computers that synchronise one pair of folders, each by its own memory.
#include "FaultsTrial.h"

#include <Platform/Machine.h>

namespace {
class TwoComputersTest : public FaultsTrial {
protected:
    void SetUp() override {
        FaultsTrial::SetUp();
        expectMessages = false;
    }
    void TearDown() override {
        SetComputerNameForTest("");
        FaultsTrial::TearDown();
    }
    Step RunsOn(const std::string& computer) {
        return [this, computer] {
            SetComputerNameForTest(computer);
            Run();
        };
    }
    // Neither computer finds anything left to do.
    void BothAreDone() {
        for (const char* computer : {"DESK", "LAPTOP"}) {
            RunsOn(computer)();
            ExpectNothingMoves();
        }
    }
};
}  // namespace

INSTANTIATE_TEST_SUITE_P(Computers, TwoComputersTest, ::testing::Bool(), [](const auto& which) {
    return std::string(which.param ? "RightIsSource" : "LeftIsSource");
});

TEST_P(TwoComputersTest, SecondComputerDoublesNothingOnItsFirstRun) {
    Given(Left().Creates("A B"), Right().Creates("C"), RunsOn("DESK"));
    When(RunsOn("LAPTOP"));
    Still(Both("A B C"));
    BothAreDone();
    Still(Both("A B C"));
}

TEST_P(TwoComputersTest, WhatTheOneDidIsNoChangeByAPersonToTheOther) {
    Given(Both("A B C"), RunsOn("DESK"), RunsOn("LAPTOP"), RunsOn("DESK"));
    When(Left().Changes("A", "changed"), Left().Deletes("B"), Right().Creates("D"), RunsOn("DESK"),
         RunsOn("LAPTOP"));
    Still(Both("A C D"), Left().Reads("A", "changed"), Right().Reads("A", "changed"));
    BothAreDone();
    Still(Both("A C D"), Left().Reads("A", "changed"), Right().Reads("A", "changed"));
}

TEST_P(TwoComputersTest, ComputerThatWasAwayBringsNothingBack) {
    Given(Both("A B C"), RunsOn("DESK"), RunsOn("LAPTOP"));
    When(Left().Deletes("A"), RunsOn("DESK"), Right().Deletes("B"), RunsOn("DESK"), Left().Creates("D"),
         RunsOn("DESK"), RunsOn("LAPTOP"));
    Still(Both("C D"));
    BothAreDone();
    Still(Both("C D"));
}
