#include <Tarn/Engine/MessageCache.h>
#include <gtest/gtest.h>

namespace {
std::unique_ptr<CMessageCacheEntry> Entry(const std::string& key) {
    auto entry = std::make_unique<CMessageCacheEntry>();
    entry->m_key = key;
    return entry;
}
void AddNumbers(CMessageCache& cache, int first, int last) {
    for (int i = first; i <= last; ++i)
        cache.Add(Entry(std::to_string(i)));
}

TEST(MessageCacheRingTest, TheLastSlotIsOutOfSight) {
    CMessageCache cache;
    AddNumbers(cache, 0, 19);
    for (int i = 0; i < 19; ++i)
        EXPECT_TRUE(cache.Find(std::to_string(i))) << i;
    EXPECT_FALSE(cache.Find("19"));
}

TEST(MessageCacheRingTest, TheOldestEntryGivesWay) {
    CMessageCache cache;
    AddNumbers(cache, 0, 20);
    EXPECT_FALSE(cache.Find("0"));
    EXPECT_TRUE(cache.Find("20"));
    EXPECT_TRUE(cache.Find("1"));
    EXPECT_FALSE(cache.Find("19"));
}

// A hit does not renew an entry: the ring turns by age alone.
TEST(MessageCacheRingTest, AHitDoesNotRenew) {
    CMessageCache cache;
    AddNumbers(cache, 0, 19);
    ASSERT_TRUE(cache.Find("0"));
    AddNumbers(cache, 20, 20);
    EXPECT_FALSE(cache.Find("0"));
}

TEST(MessageCacheRingTest, RemoveLeavesAHoleAndUnknownKeysAlone) {
    CMessageCache cache;
    AddNumbers(cache, 0, 4);
    cache.Remove("nobody");
    cache.Remove("2");
    EXPECT_FALSE(cache.Find("2"));
    for (const char* key : {"0", "1", "3", "4"})
        EXPECT_TRUE(cache.Find(key)) << key;
    AddNumbers(cache, 5, 5);
    EXPECT_TRUE(cache.Find("5"));
}

TEST(MessageCacheRingTest, ClearStartsAtTheFirstSlotAgain) {
    CMessageCache cache;
    AddNumbers(cache, 0, 9);
    cache.Clear();
    for (int i = 0; i <= 9; ++i)
        EXPECT_FALSE(cache.Find(std::to_string(i)));
    AddNumbers(cache, 10, 28);
    EXPECT_TRUE(cache.Find("10"));
    EXPECT_TRUE(cache.Find("28"));
}

TEST(MessageCacheRingTest, ScalarFieldsDecideOneByOne) {
    CMessageCacheEntry a;
    a.m_class = "IPM.Note";
    a.m_to = "Anna";
    CMessageCacheEntry b;
    b.m_class = "IPM.Note";
    b.m_to = "Anna";
    EXPECT_EQ(CompareScalarFields(a, b), 1);
    for (std::string CMessageCacheEntry::*field :
         {&CMessageCacheEntry::m_class, &CMessageCacheEntry::m_bcc, &CMessageCacheEntry::m_cc,
          &CMessageCacheEntry::m_to, &CMessageCacheEntry::m_senderName, &CMessageCacheEntry::m_senderAddrType,
          &CMessageCacheEntry::m_senderAddress}) {
        const std::string kept = b.*field;
        b.*field = "other";
        EXPECT_EQ(CompareScalarFields(a, b), 0);
        b.*field = kept;
    }
    b.m_importance = 1;
    EXPECT_EQ(CompareScalarFields(a, b), 0);
    b.m_importance = 0;
    b.m_hasAttach = 1;
    EXPECT_EQ(CompareScalarFields(a, b), 0);
    b.m_hasAttach = 0;
    b.m_body = "a body is no scalar field";
    EXPECT_EQ(CompareScalarFields(a, b), 1);
}
}  // namespace
