// What becomes of items that people create, change, delete, copy and move on either side of a pair.
#include <Platform/Clock.h>
#include <support/TwoFolders.h>

INSTANTIATE_TEST_SUITE_P(Stories, TwoFolders, ::testing::Bool(), [](const auto& which) {
    return std::string(which.param ? "RightIsSource" : "LeftIsSource");
});

STORY(NewItemsTravelToTheOtherSide) {
    Given(Left().Creates("A B"), Right().Creates("C"));
    Then(Both("A B C"), Right().Reads("A", "text of A"), Left().Reads("C", "text of C"));
}

STORY(NothingInEmptyFoldersIsNothingToDo) {
    Then(Both(""));
}

STORY(ChangeTravels) {
    Given(Both("A B"), Synced());
    When(Left().Changes("A", "new text"));
    Then(Both("A B"), Right().Reads("A", "new text"), Right().Reads("B", "text of B"));
}

STORY(RenamedItemKeepsItsCounterpart) {
    Given(Both("A B"), Synced());
    When(Left().Renames("A", "Z"));
    Then(Both("B Z"));
}

STORY(DeletionTravelsWhenOtherSideIsUntouched) {
    Given(Both("A B C"), Synced());
    When(Left().Deletes("B"));
    Then(Both("A C"), Right().Discards("B"));
}

STORY(DeletionStaysWithoutTheOption) {
    setting.m_flags &= ~static_cast<ULONG>(SYNC_DELETE_IN_TARGET);
    Given(Both("A B"), Synced());
    When(Left().Deletes("B"));
    Then(Left().Has("A"), Right().Has("A B"));
}

STORY(ItemDeletedOnBothSidesIsGone) {
    Given(Both("A B"), Synced());
    When(Left().Deletes("B"), Right().Deletes("B"));
    Then(Both("A"));
}

STORY(LaterOfTwoChangesStaysAndTheOtherIsKeptAside) {
    Given(Both("A B"), Synced());
    When(Left().Changes("A", "earlier"), Right().Changes("A", "later"));
    Then(Both("A B"), Left().Reads("A", "earlier"), Right().Reads("A", "later"),
         Left().KeepsConflictCopies("A"), Right().KeepsConflictCopies(""));
}

STORY(ChangeAfterAConflictTravelsAsUsual) {
    Given(Both("A"), Synced());
    When(Left().Changes("A", "earlier"), Right().Changes("A", "later"), Synced(),
         Right().Changes("A", "settled"));
    Then(Both("A"), Left().Reads("A", "settled"), Left().Discards(""));
}

// Nobody else has seen the winner so far, also where other items were carried meanwhile.
STORY(WinnerOfAConflictIsKeptWhenTheLoserReplacesIt) {
    if (Has(HABIT_CLOCK_SECONDS)) return;  // what may have been changed unseen is kept as well
    Given(Both("A B"), Synced());
    When(Left().Changes("A", "earlier"), Right().Changes("A", "later"), Synced(), Left().Changes("B", "new"),
         Synced(), Left().Changes("A", "settled"));
    Then(Both("A B"), Right().Reads("A", "settled"), Right().Discards("A"));
    When(Left().Changes("A", "and again"));
    Then(Right().Reads("A", "and again"), Right().Discards("A"));
}

STORY(EqualTimesKeepTheSource) {
    if (Has(HABIT_MODIFIED_COMPUTED) || Has(HABIT_TIMES_COMPUTED)) return;
    const FILETIME sameTime = FileTimeOf(TicksOf(UtcNow()) + 10'000'000'000ull);
    Given(Both("A"), Synced());
    When(Left().ChangesAt("A", "on the left", sameTime), Right().ChangesAt("A", "on the right", sameTime));
    Then(Both("A"), Left().Reads("A", "on the left"), Right().Reads("A", "on the right"),
         Target().KeepsConflictCopies("A"), Source().KeepsConflictCopies(""));
}

// They bear the search key of their original and are equal to it, but its counterpart is linked with it.
STORY(CopiesWithinAFolderTravelAsItemsOfTheirOwn) {
    Given(Both("A B"), Synced());
    When(Left().CopiesWithin("A"), Left().CopiesWithin("A"));
    Then(Both("A A A B"), Right().Discards(""));
}

// As after a run that carried the change and died before it remembered that.
STORY(TheSameChangeOnBothSidesIsNoConflict) {
    Given(Both("A B"), Synced());
    When(Left().Changes("A", "new"), Right().Changes("A", "new"), Left().Changes("B", "left"),
         Right().Changes("B", "right"));
    Run();
    EXPECT_EQ(outcome.conflicts, 1u);
    EXPECT_EQ(SaidOf("A"), LoadText(TEXT_SAME_CHANGE) + "; " + LoadText(TEXT_SAME_CHANGE));
    EXPECT_EQ(Left().ConflictCopies() + Right().ConflictCopies(), "B");
    Then(Both("A B"));
}

// Changed before the run sees it, it is no longer equal and travels as an item of its own.
STORY(CopyThatWasChangedTravelsAsANewItem) {
    Given(Both("A B"), Synced());
    When(Left().CopiesWithin("A"), Left().RenamesNewest("A", "Copy"));
    Then(Both("A B Copy"));
}

STORY(CopyWhoseOriginalWasChangedDoesNotShareTheCounterpart) {
    Given(Both("A B"), Synced());
    When(Left().Renames("A", "Original"), Left().CopiesWithin("Original"),
         Left().RenamesNewest("Original", "A"));
    Then(Both("A B Original"));
}

STORY(ItemMovedOutIsDeletedOnTheOtherSide) {
    Given(Both("A B"), Synced());
    When(Left().MovesOut("A"));
    Then(Both("B"), Right().Discards("A"));
}

STORY(ItemMovedInWithAStaleStampIsCopiedAgain) {
    Given(Both("A B"), Synced(), Left().MovesOut("A"), Synced());
    When(Left().MovesIn("A"));
    Then(Both("A B"), Right().Reads("A", "text of A"));
}

STORY(ItemMovedOutAndBackBetweenTwoRunsStaysOne) {
    Given(Both("A B"), Synced());
    When(Left().MovesOut("A"), Left().MovesIn("A"), Synced());
    // The counterpart came with the item's old stamp and gets its own in the run after.
    Then(Both("A B"));
}

STORY(FirstSyncOfFoldersThatHoldTheSameCopiesNothing) {
    Given(Left().Creates("A B"), Left().CopiesTo(Right(), "A"), Left().CopiesTo(Right(), "B"));
    const std::string before = Left().Fingerprint() + Right().Fingerprint();
    Then(Both("A B"));
    if (!Has(HABIT_COPIES_TOUCH)) {
        EXPECT_EQ(before, Left().Fingerprint() + Right().Fingerprint());
    }
}

STORY(OneWayPairTakesNothingBack) {
    setting.m_flags &= ~static_cast<ULONG>(SYNC_FROM_TARGET);
    Given(Source().Creates("A"), Target().Creates("B"));
    Then(Source().Has("A"), Target().Has("A B"));
    setting.m_flags |= SYNC_FROM_TARGET;
    Run();
    Still(Both("A B"));
    EXPECT_EQ(protocol.Count(), 1u) << "what was remembered without a link has not gone";
}

// The memory tells of the edit as seen as soon as anything is carried.
STORY(OneWayPairKeepsTheEditThatItReplaces) {
    if (Has(HABIT_CLOCK_SECONDS)) return;
    setting.m_flags &= ~static_cast<ULONG>(GetParam() ? SYNC_TO_TARGET : SYNC_FROM_TARGET);
    Given(Left().Creates("A B C"), Synced());
    When(Right().Changes("A", "of the right"), Left().Changes("B", "new"), Synced());
    Still(Right().Reads("A", "of the right"), Left().Reads("A", "text of A"), Right().Discards(""));
    When(Left().Changes("A", "of the left"), Right().Changes("C", "same"), Left().Changes("C", "same"));
    Then(Right().Reads("A", "of the left"), Right().Discards("A"));
    When(Left().Changes("A", "and again"));
    Then(Right().Reads("A", "and again"), Right().Discards("A"));
}

STORY(WhatIsToldOfAChangeAgainstADeletion) {
    Given(Both("A B"), Synced());
    When(Source().Changes("A", "new"), Target().Deletes("A"), Target().Changes("B", "new"),
         Source().Deletes("B"));
    Run();
    EXPECT_EQ(outcome.conflicts + outcome.rowsFailed, 0u);
    EXPECT_EQ(SaidOf("A"), LoadText(TEXT_CHANGE_STAYS) + "; " + LoadText(TEXT_DELETION_LOST));
    EXPECT_EQ(SaidOf("B"), LoadText(TEXT_DELETED) + "; " + LoadText(TEXT_CHANGE_DELETED));
    Still(Source().Has("A"), Target().Has(""), Target().Discards("B"), Source().KeepsConflictCopies(""));
    ExpectNothingMoves();
}
