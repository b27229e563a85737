#include <Tarn/Engine/FindMsg.h>
#include <gtest/gtest.h>

namespace {
struct Case {
    const char* name;
    std::vector<CFindMsg> candidates;
    std::string ours;
    int expected;
};

class ChooseCandidateTest : public testing::TestWithParam<Case> {};

TEST_P(ChooseCandidateTest, Decides) {
    EXPECT_EQ(ChooseCandidate(GetParam().candidates, GetParam().ours), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ChooseCandidateTest,
    testing::Values(Case{"NoneGivesNone", {}, "a", -1},
                    Case{"SingleWinsThoughLinkedElsewhere", {{7, "b"}}, "a", 7},
                    Case{"OursBeatsUnlinkedBehindIt", {{1, "b"}, {2, "a"}, {3, ""}}, "a", 2},
                    Case{"OursBeatsUnlinkedBeforeIt", {{1, ""}, {2, "a"}}, "a", 2},
                    Case{"FirstOfOursWins", {{4, "a"}, {5, "a"}}, "a", 4},
                    Case{"LastUnlinkedWins", {{1, ""}, {2, ""}, {3, "b"}}, "a", 2},
                    Case{"AllForeignGiveNone", {{1, "b"}, {2, "c"}}, "a", -1},
                    Case{"NoIdOfOursMatchesNoLink", {{1, "b"}, {2, "c"}}, "", -1},
                    Case{"RowZeroIsARow", {{0, ""}}, "", 0}),
    [](const auto& tested) { return std::string(tested.param.name); });
}  // namespace
