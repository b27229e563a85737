// What counts as new, changed, moved and deleted, over rows and sync files made by hand.
#include <Tarn/Engine/syncfolder.h>
#include <support/StoreFixture.h>

#include "RowSets.h"

namespace {
// The folders are those of a real store, because only their presence counts here.
class ModifyList : public TwoStores {
protected:
    void SetUp() override {
        TwoStores::SetUp();
        m_own = IMAPIFolderPtr(left.Get());
        m_other = IMAPIFolderPtr(right.Get());
        run.m_setting = &setting;
        run.m_findDeletions = 1;
    }
    void TearDown() override {
        m_own = {};
        m_other = {};
        TwoStores::TearDown();
    }

    // One line for each record: state, origin, name, sync ID.
    std::string Compare(CMapiRowSet& ownRows, CMapiRowSet& otherRows, std::uint64_t lastSync = 0) {
        run.CreateModifyList("Source", list, ownData, otherData, m_own, m_other, ownRows, otherRows,
                             FileTimeOf(lastSync));
        std::string lines;
        for (size_t i = 0; i < list.Count(); ++i) {
            const CSyncMessage& record = list.At(i);
            lines += std::to_string(record.m_state) + " " + std::to_string(record.m_origin) + " " +
                     record.m_name + " " + record.m_syncId + "\n";
        }
        return lines;
    }
    void WithoutOtherFolder() { m_other = {}; }

    CSyncFolder run;
    CTarnSetting setting;
    CSyncMessages list;
    CSyncFileMap ownData, otherData;
    HandMadeRows nothing{};

private:
    IMAPIFolderPtr m_own, m_other;
};

std::string Hex(const std::string& bytes) {
    return HexFromBinary(
        {static_cast<ULONG>(bytes.size()), reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()))});
}
}  // namespace

TEST_F(ModifyList, NothingOfNothing) {
    EXPECT_EQ(Compare(nothing, nothing), "");
}

TEST_F(ModifyList, KnownTimeIsUnchangedAnyOtherIsAChange) {
    Remember(ownData, "A", "idA", 100);
    Remember(ownData, "B", "idB", 100);
    Remember(ownData, "C", "idC", 100);
    HandMadeRows own{Linked("A", "idA", 100), Linked("B", "idB", 101), Linked("C", "idC", 99)};
    EXPECT_EQ(Compare(own, nothing), "2 5201 item B idB\n2 5201 item C idC\n");
    EXPECT_EQ(TicksOf(list.At(0).m_modified), 101u);
    EXPECT_EQ(list.At(0).m_item.Hex(), Hex(EntryId("B")));
}

TEST_F(ModifyList, RememberedItemsThatAreGoneAreDeletedInKeyOrder) {
    Remember(ownData, "Z", "idZ", 1);
    Remember(ownData, "A", "idA", 1);
    Remember(ownData, "M", "idM", 1);
    HandMadeRows own{Linked("M", "idM", 1)};
    EXPECT_EQ(Compare(own, nothing), "6 5242 item A idA\n6 5242 item Z idZ\n");
    EXPECT_TRUE(list.At(0).m_item.IsEmpty());

    run.m_findDeletions = 0;
    EXPECT_EQ(Compare(own, nothing), "");
}

TEST_F(ModifyList, FirstSyncTakesASingleCounterpartByItsTime) {
    HandMadeRows own{Linked("A", "idA", 5), Linked("B", "idB", 5), Linked("C", "idC", 5),
                     Linked("D", "idD", 5)};
    HandMadeRows other{Linked("a", "idA", 5), Linked("b", "idB", 6), Linked("c1", "idC", 5),
                       Linked("c2", "idC", 5)};
    EXPECT_EQ(Compare(own, other), "2 5144 item B idB\n1 5122 item C idC\n1 5122 item D idD\n");
}

TEST_F(ModifyList, WithoutAnotherFolderWhatIsNotRememberedIsNew) {
    WithoutOtherFolder();
    HandMadeRows own{Linked("A", "idA", 5)};
    EXPECT_EQ(Compare(own, nothing), "1 5122 item A idA\n");
}

TEST_F(ModifyList, UnlinkedItemIsFoundByItsSearchKeyWithTheSameTime) {
    RowOf same = Linked("A", "", 5);
    same.stamp.reset();
    same.syncId.reset();
    RowOf changed = same;
    changed.entryId = EntryId("B");
    changed.searchKey = "key of B";
    changed.subject.reset();
    changed.displayName = "shown B";
    HandMadeRows own{same, changed};
    RowOf otherA = Linked("a", "idA", 5), otherB = Linked("b", "idB", 6);
    otherA.searchKey = "key of A";
    otherB.searchKey = "key of B";
    HandMadeRows other{otherA, otherB};
    EXPECT_EQ(Compare(own, other), "1 5076 shown B " + Hex("key of B") + "\n");
    EXPECT_EQ(list.At(0).m_searchKey.Hex(), Hex("key of B"));
}

TEST_F(ModifyList, RememberedTimeStandsBeforeTheOtherSidesTime) {
    RowOf row = Linked("A", "", 5);
    row.stamp.reset();
    row.syncId.reset();
    HandMadeRows own{row};
    RowOf twin = Linked("a", "idA", 77);
    twin.searchKey = "key of A";
    HandMadeRows other{twin};
    Remember(ownData, "A", "idA", 5);
    EXPECT_EQ(Compare(own, other), "");
}

TEST_F(ModifyList, StampOfAnotherPlaceMakesAMovedItem) {
    RowOf moved = Linked("A", "idA", 5);
    moved.stamp = EntryId("elsewhere");
    RowOf noId = Linked("B", "idB", 5);
    noId.syncId.reset();
    HandMadeRows own{moved, noId};
    EXPECT_EQ(Compare(own, nothing),
              "9 5076 item A " + Hex("key of A") + "\n1 5076 item B " + Hex("key of B") + "\n");
}

TEST_F(ModifyList, LongTermIdentifierStandsForTheItem) {
    RowOf row = Linked("long", "idA", 5);
    row.entryId = EntryId("short");
    row.longTermId = EntryId("long");
    HandMadeRows own{row};
    Remember(ownData, "long", "idA", 4);
    EXPECT_EQ(Compare(own, nothing), "2 5201 item long idA\n");
    EXPECT_EQ(list.At(0).m_item.Hex(), Hex(EntryId("long")));
}

TEST_F(ModifyList, CreationTimeIsTakenOutOfTheRow) {
    RowOf row = Linked("A", "idA", 5);
    row.created = 3;
    HandMadeRows own{row};
    Compare(own, nothing);
    EXPECT_EQ(TicksOf(list.At(0).m_created), 3u);
    EXPECT_EQ(own.Get().Cell(0, COL_CREATED).Tag(), PROP_TAG(PT_NULL, 0));
}

TEST_F(ModifyList, IncrementalRunSkipsWhatIsOlderThanTheLastSync) {
    setting.m_flags = SYNC_NEW_ONLY;
    run.m_findDeletions = 0;
    const std::uint64_t last = 0x200000005ull;
    HandMadeRows own{Linked("old", "id1", last - 1), Linked("same", "id2", last),
                     Linked("high", "id3", last + (1ull << 32))};
    EXPECT_EQ(Compare(own, nothing, last), "1 5122 item same id2\n1 5122 item high id3\n");
    EXPECT_EQ(list.Count(), 2u);
    Compare(own, nothing, 0);
    EXPECT_EQ(list.Count(), 3u);
}

// Rows that were not had are not the same as none: a copy of everything would follow.
TEST_F(ModifyList, WithoutTheOtherSidesRowsNothingIsNew) {
    HandMadeRows own{Linked("A", "idA", 5)};
    CMapiRowSet missing;
    EXPECT_EQ(Compare(own, missing), "");
    EXPECT_EQ(run.m_outcome.phasesFailed, 1u);
    EXPECT_EQ(Compare(missing, nothing), "");
}

// --- conflicts ---------------------------------------------------------------------------------------

namespace {
CSyncMessage& AddTo(CSyncMessages& list, const std::string& syncId, LONG state, std::uint64_t modified) {
    auto message = std::make_unique<CSyncMessage>();
    message->m_syncId = syncId;
    message->m_state = state;
    message->m_modified = FileTimeOf(modified);
    return list.Add(std::move(message));
}

struct ConflictCase {
    LONG sourceState, targetState;
    std::uint64_t sourceTime, targetTime;
    LONG sourceAfter, targetAfter;
};
class Conflicts : public ::testing::TestWithParam<ConflictCase> {};
}  // namespace

TEST_P(Conflicts, AreSettledByTheTimeAlone) {
    const ConflictCase& c = GetParam();
    CSyncFolder run;
    CSyncMessages source, target;
    CSyncMessage& ours = AddTo(source, "id", c.sourceState, c.sourceTime);
    CSyncMessage& theirs = AddTo(target, "id", c.targetState, c.targetTime);
    AddTo(source, "another", STATE_NEW, 1);
    run.FindConflicts(source, target);
    EXPECT_EQ(ours.m_state, c.sourceAfter);
    EXPECT_EQ(theirs.m_state, c.targetAfter);
    EXPECT_EQ(source.At(1).m_state, STATE_NEW);
}

INSTANTIATE_TEST_SUITE_P(Rules, Conflicts,
                         ::testing::Values(ConflictCase{2, 2, 5, 4, 0, 5},  // later source stays
                                           ConflictCase{2, 2, 4, 5, 5, 0},  // later target stays
                                           ConflictCase{2, 2, 5, 5, 0, 5},  // equal times keep the source
                                           ConflictCase{1, 1, 4, 5, 5, 0},  // two new items with one ID
                                           ConflictCase{2, 6, 5, 0, 0, 5},  // a change wins over a deletion
                                           ConflictCase{6, 2, 0, 5, 6,
                                                        2},  // a deletion in the source is none
                                           ConflictCase{9, 2, 5, 4, 9, 2}));  // nor is a moved item

TEST(ConflictLists, LaterOfTwoRecordsWithOneIdTakesPart) {
    CSyncFolder run;
    CSyncMessages source, target;
    AddTo(source, "id", STATE_MODIFIED, 5);
    CSyncMessage& first = AddTo(target, "id", STATE_MODIFIED, 1);
    CSyncMessage& second = AddTo(target, "id", STATE_MODIFIED, 2);
    run.FindConflicts(source, target);
    EXPECT_EQ(first.m_state, STATE_MODIFIED);
    EXPECT_EQ(second.m_state, STATE_CONFLICT);
    target.Clear();
    EXPECT_EQ(target.Find("id"), nullptr);
}
