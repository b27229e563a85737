#include "CopyFixture.h"

namespace {
// Counts what the loop reports and cancels at a poll.
class CScriptedProgress : public CSyncProgressHidden {
public:
    void StepMessage() override { ++steps; }
    void SetMessageText(const std::string&) override { ++texts; }
    int IsCancelled() override { return ++polls == cancelAtPoll; }
    int steps = 0;
    int texts = 0;
    int polls = 0;
    int cancelAtPoll = -1;
};

class CopyLoopTest : public CopyFixture {};

TEST_F(CopyLoopTest, NewItemIsCopiedAndBothBearOneSyncId) {
    SavedMessage(left.Get(), "A", "text");
    CopyRight({{"A", STATE_NEW}});
    EXPECT_EQ(SubjectsIn(right.Get()), "A");
    const auto source = Open(left, "A");
    const auto target = Open(right, "A");
    EXPECT_EQ(StreamOf(target.Get(), PR_BODY_A), "text");
    EXPECT_FALSE(SyncIdOf(source).empty());
    EXPECT_EQ(SyncIdOf(source), SyncIdOf(target));
    EXPECT_EQ(
        CompareFileTimes(TimeOf(source.Get(), PR_CREATION_TIME), TimeOf(target.Get(), PR_CREATION_TIME)), 0);
    // Each stamp is the item's own.
    for (const auto* item : {&source, &target})
        EXPECT_EQ(BytesOf(item->Get(), NamedTag(item->Get(), L"LarchEid", PT_BINARY)),
                  BytesOf(item->Get(), PR_ENTRYID));
    EXPECT_EQ(Engine().m_outcome.targetChanged, 1u);
    EXPECT_EQ(Engine().m_outcome.rowsFailed, 0u);
    EXPECT_TRUE(m_ui.messages.empty());
}

TEST_F(CopyLoopTest, AnEmptyListNeitherOpensFoldersNorReports) {
    CScriptedProgress progress;
    Engine().m_progress = &progress;
    CSyncMessages list;
    CopyList(left, right, list);
    EXPECT_EQ(progress.steps + progress.texts + progress.polls, 0);
    EXPECT_FALSE(FindSubfolder(
        IMAPIFolderPtr(OpenStoreFolder(rightStore.Get(), PR_IPM_WASTEBASKET_ENTRYID).Get()), "Vellumware"));
}

TEST_F(CopyLoopTest, CancellingIsAskedForAtEveryEighthRow) {
    std::vector<Item> items;
    for (int i = 0; i < 20; ++i) {
        SavedMessage(left.Get(), "M" + std::to_string(i));
        items.push_back({"M" + std::to_string(i), STATE_NEW});
    }
    CScriptedProgress progress;
    progress.cancelAtPoll = 2;
    Engine().m_progress = &progress;
    CopyRight(items);
    EXPECT_EQ(ContentsOf(right.Get(), {PR_ENTRYID}).Count(), 8u);
    EXPECT_EQ(progress.steps, 8);
}

TEST_F(CopyLoopTest, DeletionTakesTheLinkedTargetAlone) {
    SavedMessage(left.Get(), "A");
    SavedMessage(left.Get(), "B");
    CopyRight({{"A", STATE_NEW}, {"B", STATE_NEW}});
    SavedMessage(right.Get(), "Unlinked");
    CSyncMessages list;
    for (const std::string& syncId : {SyncIdOf(Open(right, "A")), std::string("nobody"), std::string()}) {
        auto record = std::make_unique<CSyncMessage>();
        record->m_state = STATE_DELETED;
        record->m_syncId = syncId;
        list.Add(std::move(record));
    }
    m_protocol.Clear();
    CopyList(left, right, list);
    EXPECT_EQ(Held(rightStore, "Deleted", "Right"), "A");
    EXPECT_EQ(ContentsOf(right.Get(), {PR_ENTRYID}).Count(), 2u);
    ASSERT_EQ(m_protocol.Count(), 3u);
    // A row without a status of its own repeats the one before.
    EXPECT_EQ(m_protocol.At(0).m_detail, LoadText(TEXT_DELETED));
    EXPECT_EQ(m_protocol.At(1).m_detail, LoadText(TEXT_DELETED));
}

TEST_F(CopyLoopTest, ModifiedItemRewritesItsTargetInPlace) {
    auto source = SavedMessage(left.Get(), "A", "old");
    Attach(source, "old.txt", "old");
    AddRecipient(source, "Bert");
    Save(source);
    CopyRight({{"A", STATE_NEW}});
    const std::string targetId = BytesOf(Open(right, "A").Get(), PR_ENTRYID);

    source = Open(left, "A");
    SetText(source.Get(), PR_SUBJECT_A, "A2");
    SetText(source.Get(), PR_BODY_A, "new");
    Attach(source, "new.txt", "new");
    Save(source);
    CopyRight({{"A2", STATE_MODIFIED}});

    const auto target = OpenOnly(right);
    EXPECT_EQ(BytesOf(target.Get(), PR_ENTRYID), targetId);
    EXPECT_EQ(TextOf(target.Get(), PR_SUBJECT_A), "A2");
    EXPECT_EQ(StreamOf(target.Get(), PR_BODY_A), "new");
    EXPECT_EQ(AttachmentsOf(target), 2u);
    EXPECT_EQ(RecipientsOf(target), 1u);
    EXPECT_EQ(SyncIdOf(target), SyncIdOf(Open(left, "A2")));
    EXPECT_EQ(m_protocol.At(1).m_detail, LoadText(TEXT_TARGET_REWRITTEN));
}

TEST_F(CopyLoopTest, ModifiedItemWhoseTargetIsGoneIsCopiedAsNew) {
    SavedMessage(left.Get(), "A");
    CopyRight({{"A", STATE_NEW}});
    DeleteBySubject(right.Get(), "A");
    Change(left, "A", "A2");
    CopyRight({{"A2", STATE_MODIFIED}});
    EXPECT_EQ(SubjectsIn(right.Get()), "A2");
    EXPECT_EQ(SyncIdOf(Open(right, "A2")), SyncIdOf(Open(left, "A2")));
}

TEST_F(CopyLoopTest, AlwaysRenewLeavesOneItemAndKeepsTheOldVersion) {
    SavedMessage(left.Get(), "A");
    CopyRight({{"A", STATE_NEW}});
    const std::string oldId = BytesOf(Open(right, "A").Get(), PR_ENTRYID);
    Flags(SYNC_TO_TARGET | SYNC_ALWAYS_RENEW);
    Change(left, "A", "A2");
    CopyRight({{"A2", STATE_MODIFIED}});
    const auto target = OpenOnly(right);
    EXPECT_EQ(TextOf(target.Get(), PR_SUBJECT_A), "A2");
    EXPECT_NE(BytesOf(target.Get(), PR_ENTRYID), oldId);
    EXPECT_EQ(BytesOf(target.Get(), NamedTag(target.Get(), L"LarchEid", PT_BINARY)),
              BytesOf(target.Get(), PR_ENTRYID));
    EXPECT_EQ(Overwritten(rightStore, "Right"), "A");
}

// Found by its key: an item without a link, changed at another time than its counterpart.
TEST_F(CopyLoopTest, CounterpartByKeyIsRewritten) {
    auto source = SavedMessage(left.Get(), "A", "new");
    auto target = NewMessage(right.Get(), "Old title", "old");
    SetBytes(target.Get(), PR_SEARCH_KEY, BytesOf(source.Get(), PR_SEARCH_KEY));
    Save(target);
    const std::string targetId = BytesOf(target.Get(), PR_ENTRYID);
    CopyRight({{"A", STATE_NEW}});
    target = OpenOnly(right);
    EXPECT_EQ(BytesOf(target.Get(), PR_ENTRYID), targetId);
    EXPECT_EQ(TextOf(target.Get(), PR_SUBJECT_A), "A");
    EXPECT_EQ(m_protocol.At(0).m_detail, LoadText(TEXT_COPIED_TO_COUNTERPART));
    // The key occurs once on each side, which links them well enough.
    EXPECT_TRUE(SyncIdOf(Open(left, "A")).empty());
}

TEST_F(CopyLoopTest, EqualTimesGiveAnIdAndNoCopy) {
    auto source = SavedMessage(left.Get(), "A", "left text");
    auto target = NewMessage(right.Get(), "A", "right text");
    SetBytes(target.Get(), PR_SEARCH_KEY, BytesOf(source.Get(), PR_SEARCH_KEY));
    SetTime(target.Get(), PR_LAST_MODIFICATION_TIME, TimeOf(source.Get(), PR_LAST_MODIFICATION_TIME));
    Save(target);
    const FILETIME before = TimeOf(target.Get(), PR_LAST_MODIFICATION_TIME);
    CopyRight({{"A", STATE_NEW}});
    target = OpenOnly(right);
    EXPECT_EQ(StreamOf(target.Get(), PR_BODY_A), "right text");
    EXPECT_EQ(CompareFileTimes(TimeOf(target.Get(), PR_LAST_MODIFICATION_TIME), before), 0);
    EXPECT_FALSE(SyncIdOf(Open(left, "A")).empty());
    EXPECT_EQ(m_protocol.At(0).m_detail, LoadText(TEXT_TIMES_IDENTICAL));
    EXPECT_EQ(Engine().m_outcome.targetChanged, 0u);
}

TEST_F(CopyLoopTest, SkippingLeavesPrivateAppointmentsAndNothingElse) {
    Flags(SYNC_TO_TARGET | SYNC_SKIP_PRIVATE);
    SavedAppointment(left, "Private", 2);
    SavedAppointment(left, "Personal", 1);
    auto note = NewMessage(left.Get(), "Note");
    SetLong(note.Get(), PR_SENSITIVITY, 2);
    Save(note);
    CopyRight({{"Private", STATE_NEW}, {"Personal", STATE_NEW}, {"Note", STATE_NEW}});
    EXPECT_EQ(ContentsOf(right.Get(), {PR_ENTRYID}).Count(), 2u);
    Open(right, "Personal");
    Open(right, "Note");
}

TEST_F(CopyLoopTest, ARowThatFailsLeavesTheOthersAlone) {
    SavedMessage(left.Get(), "A");
    SavedMessage(left.Get(), "B");
    const CMapiRowSet rows = Rows(left);
    CSyncMessages list;
    auto lost = Record(rows, {"A", STATE_MOVED});
    std::string key(lost->m_item.View().Bytes());
    key.back() ^= 0x55;
    lost->m_item = CItemKeyView::OfKept(key);
    list.Add(std::move(lost));
    list.Add(Record(rows, {"B", STATE_NEW}));
    CopyList(left, right, list);
    EXPECT_EQ(SubjectsIn(right.Get()), "B");
    EXPECT_EQ(m_protocol.Count(), 2u);
    EXPECT_EQ(Engine().m_outcome.rowsFailed, 1u);
    ASSERT_EQ(m_ui.messages.size(), 1u);
    EXPECT_NE(m_ui.messages[0].text.find("CSyncFolder::SyncModifiedElement"), std::string::npos);
}
}  // namespace
