// Habits of stores and options of pairs in random combinations, and trouble of some kind at a random moment.
// VELLUM_COMBINATIONS says how many there are; VELLUM_COMBINATION_SEED runs one of them alone.
#include "Dice.h"
#include "FaultsTrial.h"

namespace {
constexpr unsigned kCombinations = 100;

class CombinationsTest : public FaultsTrial {
protected:
    void Try(unsigned seed) {
        CDice dice(seed);
        std::string told = "VELLUM_COMBINATION_SEED=" + std::to_string(seed) + ", left:";
        const ULONG ofLeft = dice.Habits(told);
        told += ", right:";
        StartOver(ofLeft, dice.Habits(told));
        TakeOptions(dice, told);
        MakeChanges();
        const Trouble kind = RunInTrouble(dice, told);
        Run();
        ExpectWholeAfter(kind, told);
    }
    unsigned Met() const { return m_met; }

private:
    void TakeOptions(CDice& dice, std::string& told) {
        setting.m_flags = SYNC_ACTIVE | SYNC_TO_TARGET | SYNC_FROM_TARGET | SYNC_DELETE_IN_TARGET;
        setting.m_query.clear();
        const auto maybe = [&](ULONG flag, const char* name) {
            if (!dice.OneIn(3)) return;
            setting.m_flags |= flag;
            told += name;
        };
        maybe(SYNC_ALWAYS_RENEW, ", renew");
        maybe(SYNC_STRIP_PRIVATE, ", strip private");
        maybe(SYNC_SKIP_PRIVATE, ", skip private");
        if (!dice.OneIn(3)) return;
        setting.m_query = "exists Subject";
        told += ", query";
    }

    // A run in which a call fails, once or from then on.
    Trouble RunInTrouble(CDice& dice, std::string& told) {
        const bool inSource = dice.OneIn(2);
        const bool forGood = dice.OneIn(3);
        const ULONG call = 1 + dice.Below(400);
        told += ", call " + std::to_string(call) + (inSource ? " of source" : " of target") +
                (forGood ? " fails for good" : " fails");
        const auto faults = FaultsOf((inSource ? Source() : Target()).Store());
        Look();
        faults->SetFault(call, MAPI_E_NETWORK_ERROR, forGood);
        Run();
        const bool reached = faults->CallCount() >= call;
        faults->SetFault(0, S_OK, FALSE);
        ExpectTheTruthWasTold();
        m_met += reached;
        return reached && forGood ? Trouble::Lasting : Trouble::Passing;
    }

    unsigned m_met = 0;
};
}  // namespace

INSTANTIATE_TEST_SUITE_P(Combinations, CombinationsTest, ::testing::Bool(), [](const auto& which) {
    return std::string(which.param ? "RightIsSource" : "LeftIsSource");
});

TEST_P(CombinationsTest, NothingIsLostOrDoubled) {
    LeaveStores();
    Disk().Keep();
    EnterStores();
    const unsigned only = NumberOf("VELLUM_COMBINATION_SEED", 0);
    const unsigned count = only ? 1 : NumberOf("VELLUM_COMBINATIONS", kCombinations) / Stride() + 1;
    for (unsigned i = 1; i <= count && !HasFailure(); ++i)
        Try(only ? only : i);
    if (only) return;
    EXPECT_GT(Met(), count / 3) << "the troubles no longer reach what they are for";
}
