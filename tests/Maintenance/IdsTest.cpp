// Marks, memories, keys and times: taken away, and found again by the next run.
#include "MaintenanceFixture.h"

#include <Platform/Machine.h>
#include <Tarn/Engine/SyncTrace.h>

namespace {
using IdsTest = MaintenanceTest;
INSTANTIATE_BOTH_WAYS(Maintenance, IdsTest);

unsigned HiddenIn(const StorySide& side, const std::string& subject) {
    const TestRows rows = ContentsOf(side.Folder(), {PR_SUBJECT_A}, MAPI_ASSOCIATED);
    unsigned count = 0;
    for (ULONG row = 0; row < rows.Count(); ++row)
        count += rows.Text(row, 0) == subject;
    return count;
}

void AddHidden(const StorySide& side, const std::string& messageClass, const std::string& subject) {
    TestRef<IMessage> message;
    ASSERT_EQ(side.Folder()->CreateMessage(nullptr, MAPI_ASSOCIATED, message.Out()), S_OK);
    SetText(message.Get(), PR_MESSAGE_CLASS_A, messageClass);
    SetText(message.Get(), PR_SUBJECT_A, subject);
    SetTime(message.Get(), NamedTag(message.Get(), L"VellumTimeSource", PT_SYSTIME), FileTimeOf(1));
    ASSERT_EQ(message->SaveChanges(0), S_OK);
}
}  // namespace

// Twins, whose contents and keys do not tell them apart, and changes that the memories do not know.
TEST_P(IdsTest, TheNextRunFindsEveryCounterpartAgain) {
    WithEachHabit([this] {
        Given(Both("A B C D"), Left().CopiesWithin("D"), Synced(), Left().Deletes("C"), Right().Creates("E"),
              Synced());
        const bool choices[][2] = {{true, true}, {true, false}, {false, true}};
        for (const auto& [marks, files] : choices) {
            ForgetRuns(marks, files);
            const std::string before = Left().Items();
            Run();
            EXPECT_EQ(outcome.sourceChanged + outcome.targetChanged + outcome.conflicts, 0u)
                << "marks " << marks << " files " << files;
            EXPECT_EQ(Left().Items(), before);
            EXPECT_EQ(Right().Items(), before);
            ExpectNothingMoves();
        }
        // And it is a pair again.
        When(Left().Changes("A", "once more"), Right().Deletes("B"));
        Then(Both("A D D E"), Right().Reads("A", "once more"));
    });
}

TEST_P(IdsTest, OnlyMarkedItemsAreOpened) {
    Given(Both("A B C"), Synced());
    SavedMessage(Left().Folder(), "Unmarked");
    EXPECT_EQ(RemoveSyncMarks(Of(Left()), true, nullptr).found, 3u);
    EXPECT_EQ(RemoveSyncMarks(Of(Left()), false, nullptr).changed, 3u);
    const auto faults = FaultsOf(Left().Store());
    faults->SetFault(0, S_OK, FALSE);
    EXPECT_EQ(RemoveSyncMarks(Of(Left()), false, nullptr).found, 0u);
    const ULONG few = faults->CallCount();
    for (int i = 0; i < 50; ++i)
        SavedMessage(Left().Folder(), "More" + std::to_string(i));
    faults->SetFault(0, S_OK, FALSE);
    RemoveSyncMarks(Of(Left()), false, nullptr);
    EXPECT_LE(faults->CallCount(), few + 2);
}

TEST_P(IdsTest, MemoriesOfAllPairsAndOfThisComputerGoAlone) {
    Given(Both("A"), Synced());
    EXPECT_EQ(RemoveSyncFiles(Of(Target()), false).found, 0u);
    const std::string own = "." + ComputerName();
    AddHidden(Source(), "IPM.Vellum.IDs", "SourceID");
    AddHidden(Source(), "IPM.Vellum.IDs", "TargetID" + own);  // of another target
    AddHidden(Source(), "IPM.Vellum.IDs", "SourceID.another");
    AddHidden(Source(), "IPM.Other", "SourceID");
    EXPECT_EQ(RemoveSyncFiles(Of(Source()), true).found, 4u);
    EXPECT_EQ(RemoveSyncFiles(Of(Source()), false).changed, 4u);
    EXPECT_EQ(HiddenIn(Source(), "SourceID"), 1u);
    EXPECT_EQ(HiddenIn(Source(), "SourceID.another"), 1u);
    EXPECT_EQ(HiddenIn(Source(), "TargetID" + own), 0u);
    EXPECT_EQ(RemoveSyncFiles(Of(Source()), false).found, 0u);
}

TEST_P(IdsTest, AResetMakesAnIncrementalPairLookAtEverything) {
    setting.m_flags = SYNC_TO_TARGET | SYNC_FROM_TARGET | SYNC_NEW_ONLY | SYNC_ACTIVE;
    Given(Both("A B"), Synced());
    AddHidden(Source(), "IPM.VellumSettings", "");
    CLastSyncTimes times;
    EXPECT_EQ(ReadLastSyncTimes(Of(Source()), times), S_OK);
    EXPECT_EQ(TicksOf(times.source), 1u);
    EXPECT_GE(times.looks, 1u);
    const unsigned known = times.looks + 1;
    EXPECT_EQ(ResetLastSyncTimes(Of(Source()), true).found, known);
    // Changed without a sign of it: only a look at everything finds that.
    When(Source().ChangesAt("A", "in secret", FileTimeOf(126000000000000000)));
    const bool isDated = !Has(HABIT_MODIFIED_COMPUTED) && !Has(HABIT_TIMES_COMPUTED);
    EXPECT_EQ(ResetLastSyncTimes(Of(Source()), false).changed, known);
    EXPECT_EQ(ReadLastSyncTimes(Of(Source()), times), S_OK);
    EXPECT_TRUE(times.IsEmpty());
    EXPECT_EQ(ResetLastSyncTimes(Of(Source()), false).found, 0u);
    EXPECT_EQ(ResetLastSyncTimes(Of(Target()), false).found, 0u);
    Run();
    if (isDated) Still(Target().Reads("A", "in secret"));
    ExpectNothingMoves();
}

TEST_P(IdsTest, NewKeysEndWhatCopiesShare) {
    Given(Left().Creates("A B"), Left().CopiesWithin("A"), Left().CopiesWithin("A"));
    std::vector<CSharedKeyItem> shared;
    ASSERT_TRUE(ListSharedKeys(Of(Left()), shared));
    ASSERT_EQ(shared.size(), 3u) << "each of a group once";
    EXPECT_EQ(shared[0].name, "A");
    EXPECT_EQ(GiveNewSearchKeys(Of(Left()), {shared[0].entryId}, nullptr).changed, 1u);
    ASSERT_TRUE(ListSharedKeys(Of(Left()), shared));
    ASSERT_EQ(shared.size(), 2u);
    EXPECT_EQ(GiveNewSearchKeys(Of(Left()), {shared[0].entryId}, nullptr).changed, 1u);
    ASSERT_TRUE(ListSharedKeys(Of(Left()), shared));
    EXPECT_TRUE(shared.empty());
    EXPECT_EQ(Clean(Left()).removed, 0u);
    Still(Left().Has("A A A B"));
}
