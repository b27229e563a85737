#include "CopyFixture.h"

namespace {
class CacheTest : public CopyFixture {
protected:
    CMessageCacheEntry* Lookup(CMessageCache& cache, const std::string& id) {
        return cache.Lookup(
            {static_cast<ULONG>(id.size()), reinterpret_cast<BYTE*>(const_cast<char*>(id.data()))});
    }
};

TEST_F(CacheTest, AnEntryHoldsWhatAComparisonNeeds) {
    auto message = SavedMessage(left.Get(), "A", "text");
    SetLong(message.Get(), PR_IMPORTANCE, 2);
    SetText(message.Get(), PR_SENDER_NAME_A, "Anna");
    SetText(message.Get(), NamedTag(message.Get(), L"LarchID", PT_STRING8), "linked");
    Attach(message, "a.txt", "data");
    Save(message);
    CMessageCache cache;
    cache.Bind(Folder(left));
    const CMessageCacheEntry* entry = Lookup(cache, BytesOf(message.Get(), PR_ENTRYID));
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->m_name, "A");
    EXPECT_EQ(entry->m_body, "text");
    EXPECT_EQ(entry->m_class, "IPM.Note");
    EXPECT_EQ(entry->m_senderName, "Anna");
    EXPECT_EQ(entry->m_importance, 2);
    EXPECT_EQ(entry->m_hasAttach, 1);
    EXPECT_EQ(entry->m_syncId, "");
    EXPECT_EQ(entry->m_key, IMessagePtr(message.Get()).GetBinProp(PR_ENTRYID).Hex());
}

TEST_F(CacheTest, ASecondLookupOpensNothing) {
    const std::string id = BytesOf(SavedMessage(left.Get(), "A").Get(), PR_ENTRYID);
    CMessageCache cache;
    cache.Bind(Folder(left));
    CMessageCacheEntry* first = Lookup(cache, id);
    const auto faults = Faults(leftStore);
    faults->SetFault(0, S_OK, FALSE);
    EXPECT_EQ(Lookup(cache, id), first);
    EXPECT_EQ(faults->CallCount(), 0u);
}

TEST_F(CacheTest, TheTwentiethMessageIsOpenedAgain) {
    CMessageCache cache;
    cache.Bind(Folder(left));
    std::vector<std::string> ids;
    for (int i = 0; i < 20; ++i) {
        ids.push_back(BytesOf(SavedMessage(left.Get(), "M" + std::to_string(i)).Get(), PR_ENTRYID));
        ASSERT_TRUE(Lookup(cache, ids.back()));
    }
    const auto faults = Faults(leftStore);
    faults->SetFault(0, S_OK, FALSE);
    EXPECT_EQ(Lookup(cache, ids[19])->m_name, "M19");
    EXPECT_GT(faults->CallCount(), 0u);
    // It took the place of the oldest.
    faults->SetFault(0, S_OK, FALSE);
    EXPECT_EQ(Lookup(cache, ids[1])->m_name, "M1");
    EXPECT_EQ(faults->CallCount(), 0u);
    EXPECT_EQ(Lookup(cache, ids[0])->m_name, "M0");
    EXPECT_GT(faults->CallCount(), 0u);
}

TEST_F(CacheTest, AMessageThatIsGoneGivesNothingAndLeavesTheRing) {
    const std::string kept = BytesOf(SavedMessage(left.Get(), "A").Get(), PR_ENTRYID);
    const std::string gone = BytesOf(SavedMessage(left.Get(), "B").Get(), PR_ENTRYID);
    DeleteBySubject(left.Get(), "B");
    CMessageCache cache;
    cache.Bind(Folder(left));
    CMessageCacheEntry* entry = Lookup(cache, kept);
    EXPECT_EQ(Lookup(cache, gone), nullptr);
    EXPECT_EQ(Lookup(cache, kept), entry);
}

TEST_F(CacheTest, NamedValuesAreReadOncePerList) {
    const auto message = SavedMessage(left.Get(), "A");
    CMessageCacheEntry entry;
    entry.m_message = IMessagePtr(message.Get());
    const SPropValue* values = entry.GetNamedValues(TaskTags);
    ASSERT_TRUE(values);
    EXPECT_EQ(entry.ValueCount(), 23u);
    const auto faults = Faults(leftStore);
    faults->SetFault(0, S_OK, FALSE);
    EXPECT_EQ(entry.GetNamedValues(TaskTags), values);
    EXPECT_EQ(faults->CallCount(), 0u);
    ASSERT_TRUE(entry.GetNamedValues(AppointmentTags));
    EXPECT_EQ(entry.ValueCount(), 20u);
}
}  // namespace
