#include "CopyFixture.h"

namespace {
class CompareTest : public CopyFixture {
protected:
    TestRef<IMessage> Item(const TestRef<IMAPIFolder>& folder, const std::string& messageClass) {
        auto message = NewMessage(folder.Get(), "A");
        SetText(message.Get(), PR_MESSAGE_CLASS_A, messageClass);
        Save(message);
        return message;
    }
    static int Compare(const TestRef<IMessage>& a, const TestRef<IMessage>& b) {
        return CompareMessages(IMessagePtr(a.Get()), IMessagePtr(b.Get()));
    }
    static int CompareCached(const TestRef<IMessage>& a, const TestRef<IMessage>& b) {
        CMessageCacheEntry first;
        CMessageCacheEntry second;
        first.m_message = IMessagePtr(a.Get());
        second.m_message = IMessagePtr(b.Get());
        first.Fill();
        second.Fill();
        return CompareCacheEntries(first, second, nullptr);
    }
};

TEST_F(CompareTest, BodiesDecideOverTheCacheOnly) {
    const auto a = SavedMessage(left.Get(), "A", "one");
    const auto b = SavedMessage(right.Get(), "A", "two");
    EXPECT_EQ(Compare(a, b), 1);
    EXPECT_EQ(CompareCached(a, b), 0);
    const auto empty = SavedMessage(right.Get(), "A");
    EXPECT_EQ(CompareCached(a, empty), 1);
}

TEST_F(CompareTest, BodiesTooLongForAValueAreComparedWhole) {
    const std::string longBody(100000, 'x');
    const auto a = SavedMessage(left.Get(), "A");
    const auto b = SavedMessage(right.Get(), "A");
    SetStream(a.Get(), PR_BODY_A, longBody + "1");
    SetStream(b.Get(), PR_BODY_A, longBody + "2");
    Save(a);
    Save(b);
    EXPECT_EQ(CompareCached(a, b), 0);
}

TEST_F(CompareTest, HeaderDecides) {
    const auto a = SavedMessage(left.Get(), "A");
    const auto b = SavedMessage(right.Get(), "A");
    ASSERT_EQ(Compare(a, b), 1);
    SetText(b.Get(), PR_SENDER_NAME_A, "Anna");
    EXPECT_EQ(Compare(a, b), 0);
    SetText(a.Get(), PR_SENDER_NAME_A, "Anna");
    EXPECT_EQ(Compare(a, b), 1);
    SetLong(a.Get(), PR_IMPORTANCE, 2);
    SetLong(b.Get(), PR_IMPORTANCE, 0);
    EXPECT_EQ(Compare(a, b), 0);
}

// The two stores number the name differently, and one of them may not know it at all.
TEST_F(CompareTest, ContactsCompareByNameNotByNumber) {
    const auto a = Item(left, "IPM.Contact");
    const auto b = Item(right, "IPM.Contact");
    NamedTag(b.Get(), L"Something", PT_STRING8);
    EXPECT_EQ(Compare(a, b), 1);
    SetText(a.Get(), NamedTag(a.Get(), AddressProps, 0x8083, PT_STRING8), "anna@example.org");
    EXPECT_EQ(Compare(a, b), 0);
    SetText(b.Get(), NamedTag(b.Get(), AddressProps, 0x8083, PT_STRING8), "anna@example.org");
    EXPECT_EQ(Compare(a, b), 1);
    EXPECT_EQ(CompareCached(a, b), 1);
    SetText(b.Get(), NamedTag(b.Get(), AddressProps, 0x8083, PT_STRING8), "Anna@example.org");
    EXPECT_EQ(Compare(a, b), 0);
    EXPECT_EQ(CompareCached(a, b), 0);
}

TEST_F(CompareTest, ADerivedClassGetsTheHeaderTestAlone) {
    const auto a = Item(left, "IPM.Contact.Customer");
    const auto b = Item(right, "IPM.Contact.Customer");
    SetText(a.Get(), NamedTag(a.Get(), AddressProps, 0x8083, PT_STRING8), "anna@example.org");
    EXPECT_EQ(Compare(a, b), 1);
}

TEST_F(CompareTest, AppointmentsAreNeverEqualOverTheCache) {
    const auto a = Item(left, "IPM.Appointment");
    const auto b = Item(right, "IPM.Appointment");
    EXPECT_EQ(Compare(a, b), 1);
    EXPECT_EQ(CompareCached(a, b), 0);
    SetTime(a.Get(), NamedTag(a.Get(), AppointmentProps, 0x820D, PT_SYSTIME), FILETIME{1, 2});
    SetTime(b.Get(), NamedTag(b.Get(), AppointmentProps, 0x820D, PT_SYSTIME), FILETIME{2, 2});
    EXPECT_EQ(Compare(a, b), 0);
}

TEST_F(CompareTest, APropertyThatFailsDifferentlyIsADifference) {
    const auto a = Item(left, "IPM.Contact");
    const auto b = Item(right, "IPM.Contact");
    const ULONG tag = NamedTag(a.Get(), AddressProps, 0x801B, PT_STRING8);
    // Absent on one side, there but too long for a value on the other.
    ASSERT_EQ(SetStream(a.Get(), tag, std::string(50000, 'x')), S_OK);
    Save(a);
    EXPECT_EQ(Compare(a, b), 0);
}
}  // namespace
