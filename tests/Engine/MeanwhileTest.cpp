// What other people and other processes do to the folders while a run is writing its memory.
#include <Tarn/Engine/SyncProgress.h>
#include <support/TwoFolders.h>

#include <utility>

namespace {

class CMeddlingProgress : public CSyncProgressHidden {
public:
    std::function<void()> meddle;

    void SetMessageText(const std::string& text) override {
        if (text == "writing files" && meddle) std::exchange(meddle, {})();
    }
};

class Meanwhile : public TwoFolders {
protected:
    template <class... Steps>
    void DuringTheRun(Steps... steps) {
        CMeddlingProgress meddling;
        meddling.meddle = [&] { (steps(), ...); };
        progress = &meddling;
        Run();
        progress = nullptr;
        ASSERT_FALSE(meddling.meddle) << "the run wrote no memory";
    }
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

INSTANTIATE_TEST_SUITE_P(Stories, Meanwhile, ::testing::Bool(),
                         [](const auto& which) { return std::string(which.param ? "RightIsSource" : "LeftIsSource"); });

}  // namespace
