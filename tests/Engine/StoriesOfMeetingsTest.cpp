// What becomes of items that meet without a link, or that are gone when the other side's change comes.
#include <Platform/Clock.h>
#include <support/TwoFolders.h>

namespace {
using Meetings = TwoFolders;
}

INSTANTIATE_TEST_SUITE_P(Stories, Meetings, ::testing::Bool(), [](const auto& which) {
    return std::string(which.param ? "RightIsSource" : "LeftIsSource");
});

TEST_P(Meetings, ChangedInTheSourceAndDeletedInTheTargetStaysUntilItChangesAgain) {
    Given(Both("A B"), Synced());
    When(Source().Changes("A", "changed"), Target().Deletes("A"));
    Then(Source().Has("A B"), Target().Has("B"), Source().Reads("A", "changed"));
    When(Source().Changes("A", "changed again"));
    Then(Both("A B"), Target().Reads("A", "changed again"));
}

TEST_P(Meetings, DeletedInTheSourceAndChangedInTheTargetIsHeld) {
    Given(Both("A B"), Synced());
    When(Source().Deletes("A"), Target().Changes("A", "changed"));
    expectMessages = true;  // the change finds its own item gone when its turn comes
    Run();
    expectMessages = false;
    Still(Both("B"), Target().Discards("A"));
    ExpectNothingMoves();
}

// The loser's change after a conflict replaces the winner, whose copy nobody keeps; its own earlier text lies
// among the conflicts.
TEST_P(Meetings, LoserOfAConflictTravelsWhenItChangesAgain) {
    Given(Both("A"), Synced());
    When(
        Left().Changes("A", "earlier"), Right().Changes("A", "later"), [this] { Run(); },
        Left().Changes("A", "the last word"));
    Then(Both("A"), Right().Reads("A", "the last word"), Left().KeepsConflictCopies("A"));
}

TEST_P(Meetings, FirstSyncOfCopiesThatWereChangedDoublesNothing) {
    Given(Left().Creates("A B"), Left().CopiesTo(Right(), "A"), Left().CopiesTo(Right(), "B"),
          Right().Changes("A", "changed"));
    Then(Both("A B"), Left().Reads("A", "text of A"), Right().Reads("A", "changed"),
         Left().KeepsConflictCopies("A"));
}

// In one direction there are no conflicts: the copy in the target is overwritten, and kept.
TEST_P(Meetings, CounterpartFoundByItsKeyIsKeptBeforeItIsReplaced) {
    setting.m_flags &= ~static_cast<ULONG>(SYNC_FROM_TARGET);
    Given(Source().Creates("A"), Source().CopiesTo(Target(), "A"), Target().Changes("A", "written here"));
    Then(Both("A"), Target().Reads("A", "text of A"), Target().Discards("A"));
}

TEST_P(Meetings, ItemsOfOneSubjectStaySeparate) {
    Given(Left().Creates("A A"), Right().Creates("A"));
    Then(Both("A A A"));
    When(Left().Deletes("A"));
    Then(Both(""));
}
