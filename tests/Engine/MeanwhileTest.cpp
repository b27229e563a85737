// What other people and other processes do to the folders while a run is under way.
#include <Tarn/Engine/SyncProgress.h>
#include <support/Letters.h>

#include <utility>

#include "FaultsTrial.h"

namespace {

class CMeddlingProgress : public CSyncProgressHidden {
public:
    std::function<void()> meddle;

    void SetMessageText(const std::string& text) override {
        if (text == "writing files" && meddle) std::exchange(meddle, {})();
    }
};

class Meanwhile : public FaultsTrial {
protected:
    void SetUp() override {
        FaultsTrial::SetUp();
        expectMessages = false;
    }

    template <class... Steps>
    void DuringTheRun(Steps... steps) {
        CMeddlingProgress meddling;
        meddling.meddle = [&] { (steps(), ...); };
        progress = &meddling;
        othersWrite = true;
        Run();
        othersWrite = false;
        progress = nullptr;
        ASSERT_FALSE(meddling.meddle) << "the run wrote no memory";
    }

    // A run in which something happens before the n-th call on a store; false if it made fewer.
    bool RunInterrupted(StorySide& where, ULONG n, Step meddle) {
        const auto faults = FaultsOf(where.Store());
        faults->SetInterruption(
            n, [](void* step) { (*static_cast<Step*>(step))(); }, &meddle);
        othersWrite = true;
        Run();
        othersWrite = false;
        const bool reached = faults->CallCount() >= n;
        faults->SetInterruption(0, nullptr, nullptr);
        return reached;
    }

    // One run for each moment that it has: something is prepared under a name of its own, the run is
    // interrupted in that moment, and another one follows.
    void InEachMoment(const std::function<void(const std::string& name)>& prepare, const Step& meddle,
                      const Step& expect) {
        for (StorySide* where : {&Left(), &Right()})
            for (ULONG n = 1; !HasFailure(); n += Stride()) {
                const std::string name = "New" + std::to_string(++m_trials);
                SCOPED_TRACE(name + ", before call " + std::to_string(n) + " on the " + where->Name());
                prepare(name);
                const bool reached = RunInterrupted(*where, n, meddle);
                if (!reached) meddle();
                Run();
                ExpectNothingMoves();
                expect();
                if (!reached) break;
            }
    }

    bool IsAnywhere(const std::string& body) {
        for (StorySide* side : {&Left(), &Right()})
            for (const CSeenItem& item : SeenAnywhere(side->Store()))
                if (item.body == Spelled(body)) return true;
        return false;
    }

private:
    int m_trials = 0;
};

TEST_P(Meanwhile, ChangesAreCarriedByTheNextRun) {
    Given(Both("A B C"), Synced());
    When(Source().Changes("A", "first"));
    DuringTheRun(Source().Changes("A", "later"), Source().Changes("B", "source"),
                 Target().Changes("C", "target"));
    Then(Both("A B C"), Target().Reads("A", "later"), Target().Reads("B", "source"),
         Source().Reads("C", "target"));
}

TEST_P(Meanwhile, ANewItemThatIsChangedAgainIsCarriedAsItIsThen) {
    Given(Both("A"), Synced());
    When(Source().Creates("B"), Target().Creates("C"));
    DuringTheRun(Source().Changes("B", "later"), Target().Changes("C", "later"), Source().Creates("D"));
    Then(Both("A B C D"), Target().Reads("B", "later"), Source().Reads("C", "later"));
}

TEST_P(Meanwhile, DeletionsTravelWithTheNextRun) {
    Given(Both("A B C D"), Synced());
    When(Source().Changes("A", "first"), Target().Creates("E"), Source().Deletes("D"));
    DuringTheRun(Source().Deletes("A"), Source().Deletes("B"), Target().Deletes("C"), Target().Deletes("E"));
    Then(Both(""));
}

TEST_P(Meanwhile, ANewItemStaysOneWheneverItIsChanged) {
    for (StorySide* from : {&Left(), &Right()})
        for (StorySide* touched : {&Left(), &Right()}) {
            std::string item;
            bool isChanged = false;
            InEachMoment(
                [&](const std::string& name) {
                    if (!item.empty()) from->Deletes(item)();
                    from->Creates(item = name)();
                },
                [&] {
                    isChanged = touched->Holds(item);
                    if (isChanged) touched->Changes(item, "later")();
                },
                [&] {
                    Still(Both(item));
                    for (StorySide* side : {&Left(), &Right()})
                        side->Reads(item, isChanged ? "later" : "text of " + item)();
                });
            from->Deletes(item)();
        }
}

TEST_P(Meanwhile, ANewItemThatIsDeletedLeavesNoCopy) {
    for (StorySide* from : {&Left(), &Right()}) {
        std::string item;
        InEachMoment([&](const std::string& name) { from->Creates(item = name)(); },
                     [&] { from->Deletes(item)(); }, [&] { Still(Both("")); });
    }
}

// It is made once more, or the item goes as well.
TEST_P(Meanwhile, ACopyThatIsDeletedLeavesBothSidesInStep) {
    for (StorySide* from : {&Left(), &Right()}) {
        StorySide& to = from == &Left() ? Right() : Left();
        std::string item;
        InEachMoment([&](const std::string& name) { from->Creates(item = name)(); },
                     [&] {
                         if (to.Holds(item)) to.Deletes(item)();
                     },
                     [&] {
                         EXPECT_EQ(Left().Items(), Right().Items());
                         if (from->Holds(item)) from->Deletes(item)();
                     });
    }
}

// A change that comes behind the look is no conflict of this run, but it is somebody's work.
TEST_P(Meanwhile, AChangeThatIsOverwrittenIsKept) {
    Given(Both("A"), Synced());
    expectMessages = true;  // where the target changes under the run's hands
    for (StorySide* touched : {&Left(), &Right()}) {
        StorySide& other = touched == &Left() ? Right() : Left();
        std::string theirs;
        InEachMoment(
            [&](const std::string& name) {
                theirs = "by somebody before " + name;
                other.Changes("A", "carried by " + name)();
            },
            [&] { touched->Changes("A", theirs)(); }, [&] { EXPECT_TRUE(IsAnywhere(theirs)) << theirs; });
    }
}

INSTANTIATE_TEST_SUITE_P(Stories, Meanwhile, ::testing::Bool(), [](const auto& which) {
    return std::string(which.param ? "RightIsSource" : "LeftIsSource");
});

}  // namespace

// The next look begins where this one ended, not where the run did: its own writes come later.
TEST_P(Meanwhile, IncrementalRunsHideNoEdit) {
    setting.m_flags = (setting.m_flags | SYNC_NEW_ONLY) & ~static_cast<ULONG>(SYNC_DELETE_IN_TARGET);
    Given(Both("A B C"), Synced(), Synced());
    for (StorySide* touched : {&Left(), &Right()}) {
        StorySide& other = touched == &Left() ? Right() : Left();
        std::string theirs;
        InEachMoment(
            [&](const std::string& name) {
                theirs = "by somebody before " + name;
                Left().Changes("A", "carried by " + name)();
                Right().Changes("C", "carried by " + name)();
            },
            [&] { touched->Changes("B", theirs)(); }, [&] { EXPECT_EQ(other.BodyOf("B"), theirs); });
    }
}
