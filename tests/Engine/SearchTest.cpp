#include "CopyFixture.h"

namespace {
class SearchTest : public CopyFixture {
protected:
    static constexpr const char* Key = "0123456789abcdef";

    TestRef<IMessage> Keyed(const TestRef<IMAPIFolder>& folder, const std::string& subject,
                            const std::string& syncId = {}, const std::string& body = {}) {
        auto message = NewMessage(folder.Get(), subject, body);
        SetBytes(message.Get(), PR_SEARCH_KEY, Key);
        if (!syncId.empty()) SetText(message.Get(), NamedTag(message.Get(), L"LarchID", PT_STRING8), syncId);
        Save(message);
        return message;
    }
    // A record without key and ID, as an item that never was linked.
    std::unique_ptr<CSyncMessage> Sought(const std::string& subject, const std::string& syncId = {}) {
        auto record = Record(Rows(left), {subject, STATE_NEW});
        record->m_searchKey.Free();
        record->m_syncId = syncId;
        return record;
    }
    int Similar(CSyncMessage& record, const CMapiRowSet& rows) {
        return Engine().FindSimilarObject(&record, rows, Folder(left), Folder(right));
    }
    int Equal(CSyncMessage& record, const CMapiRowSet& rows) {
        return Engine().FindEqual(&record, rows, Folder(left), Folder(right));
    }
};

TEST_F(SearchTest, WithoutACommonKeyNothingIsSimilarHoweverEqual) {
    SavedMessage(left.Get(), "A", "text");
    SavedMessage(right.Get(), "A", "text");
    const CMapiRowSet rows = Rows(right);
    EXPECT_EQ(Similar(*Sought("A"), rows), -1);
    EXPECT_EQ(Equal(*Sought("A"), rows), 0);
}

TEST_F(SearchTest, KnownKeyWithoutARowOpensNothing) {
    SavedMessage(left.Get(), "A");
    SavedMessage(right.Get(), "A");
    const CMapiRowSet rows = Rows(right);
    const auto record = Record(Rows(left), {"A", STATE_NEW});
    const auto leftFaults = Faults(leftStore);
    const auto rightFaults = Faults(rightStore);
    leftFaults->SetFault(0, S_OK, FALSE);
    rightFaults->SetFault(0, S_OK, FALSE);
    EXPECT_EQ(Similar(*record, rows), -1);
    EXPECT_EQ(leftFaults->CallCount() + rightFaults->CallCount(), 0u);
}

TEST_F(SearchTest, SingleCandidateWinsThoughLinkedElsewhere) {
    Keyed(left, "A");
    Keyed(right, "A", "foreign");
    const CMapiRowSet rows = Rows(right);
    EXPECT_EQ(Similar(*Sought("A", "ours"), rows), 0);
}

TEST_F(SearchTest, OfSeveralTheLastUnlinkedRowWins) {
    Keyed(left, "A");
    Keyed(right, "A");
    Keyed(right, "A");
    Keyed(right, "A", "foreign");
    const CMapiRowSet rows = Rows(right);
    ULONG lastUnlinked = 0;
    for (ULONG i = 0; i < rows.Count(); ++i)
        if (rows.Cell(i, COL_SYNC_ID).IsError()) lastUnlinked = i;
    EXPECT_EQ(Similar(*Sought("A", "ours"), rows), static_cast<int>(lastUnlinked));
}

TEST_F(SearchTest, OfSeveralLinkedElsewhereNoneWins) {
    Keyed(left, "A");
    Keyed(right, "A", "one");
    Keyed(right, "A", "two");
    const CMapiRowSet rows = Rows(right);
    EXPECT_EQ(Similar(*Sought("A", "ours"), rows), -1);
    // Over the cache candidates count as unlinked, so the last one wins.
    EXPECT_EQ(Equal(*Sought("A", "ours"), rows), 1);
}

TEST_F(SearchTest, SubjectsCompareWithTheirCase) {
    Keyed(left, "Lunch");
    Keyed(right, "lunch");
    const CMapiRowSet rows = Rows(right);
    EXPECT_EQ(Similar(*Sought("Lunch"), rows), -1);
}

TEST_F(SearchTest, BodiesCountOverTheCacheOnly) {
    Keyed(left, "A", {}, "one body");
    Keyed(right, "A", {}, "another");
    const CMapiRowSet rows = Rows(right);
    EXPECT_EQ(Similar(*Sought("A"), rows), 0);
    EXPECT_EQ(Equal(*Sought("A"), rows), -1);
}

TEST_F(SearchTest, TargetWithoutSubjectIsFoundByItsDisplayName) {
    Keyed(left, "Anna");
    auto target = NewMessage(right.Get(), "x");
    SizedSPropTagArray(1, subject) = {1, {PR_SUBJECT_A}};
    target->DeleteProps(reinterpret_cast<SPropTagArray*>(&subject), nullptr);
    SetText(target.Get(), PR_DISPLAY_NAME_A, "Anna");
    SetBytes(target.Get(), PR_SEARCH_KEY, Key);
    Save(target);
    const CMapiRowSet rows = Rows(right);
    if (!rows.Cell(0, COL_SUBJECT).IsError()) GTEST_SKIP() << "this store gives every message a subject";
    EXPECT_EQ(Similar(*Sought("Anna"), rows), 0);
}

TEST_F(SearchTest, GuardsAnswerARowAndSayWhy) {
    SavedMessage(left.Get(), "A");
    const CMapiRowSet rows = Rows(left);
    CSyncMessage empty;
    EXPECT_EQ(Engine().FindSimilarObject(&empty, rows, IMAPIFolderPtr(), Folder(right)), 1);
    EXPECT_EQ(Engine().FindSimilarObject(nullptr, rows, Folder(left), Folder(right)), 1);
    EXPECT_EQ(Engine().FindSimilarObject(&empty, rows, Folder(left), Folder(right)), 1);
    ASSERT_EQ(m_ui.messages.size(), 3u);
    EXPECT_EQ(m_ui.messages[0].text, "Find similar object: Source folder is empty");
    EXPECT_EQ(m_ui.messages[1].text, "Find similar object: Source message NULL");
    EXPECT_EQ(m_ui.messages[2].text, "Find similar object: Source message EntryID empty");
    EXPECT_EQ(m_ui.messages[0].caption, "");
}

TEST_F(SearchTest, CounterpartNeedsTheSameKeyAndSender) {
    Keyed(left, "A");
    SavedMessage(right.Get(), "A");
    const CMapiRowSet leftRows = Rows(left);
    auto record = Sought("A");
    {
        const CMapiRowSet rows = Rows(right);
        Engine().FindCounterpart(*record, Folder(left), Folder(right), leftRows, 0, rows);
        EXPECT_EQ(record->m_state, STATE_NEW);
    }
    const auto twin = Keyed(right, "A");
    const CMapiRowSet rows = Rows(right);
    Engine().FindCounterpart(*record, Folder(left), Folder(right), leftRows, 0, rows);
    EXPECT_EQ(record->m_state, STATE_COUNTERPART_OLDER);
    EXPECT_EQ(record->m_secondEntryId.Hex(), IMessagePtr(twin.Get()).GetBinProp(PR_ENTRYID).Hex());
}
}  // namespace
