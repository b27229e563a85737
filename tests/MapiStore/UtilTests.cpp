// The published utility functions, as their description has them.
#include <Platform/Clock.h>
#include <Platform/Machine.h>
#include <Platform/MapiHeaders.h>
#include <Platform/Utf8.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

SPropValue Text(ULONG tag, const char* text) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.lpszA = const_cast<char*>(text);
    return value;
}

SPropValue Number(LONG number) {
    SPropValue value{};
    value.ulPropTag = PR_IMPORTANCE;
    value.Value.l = number;
    return value;
}

TEST(Util, HexadecimalTextGoesBothWays) {
    BYTE bytes[] = {0x00, 0x1F, 0xAB, 0xFF};
    char text[9];
    HexFromBin(bytes, 4, text);
    EXPECT_STREQ("001FABFF", text);
    BYTE back[4] = {};
    EXPECT_TRUE(FBinFromHex(text, back));
    EXPECT_EQ(0, std::memcmp(bytes, back, 4));
    EXPECT_TRUE(FBinFromHex(const_cast<char*>("001fabff"), back));
    EXPECT_FALSE(FBinFromHex(const_cast<char*>("0"), back));
    EXPECT_FALSE(FBinFromHex(const_cast<char*>("0G"), back));
    EXPECT_EQ(S_OK, ScBinFromHexBounded(text, back, 4));
    EXPECT_EQ(MAPI_E_CALL_FAILED, ScBinFromHexBounded(text, back, 3));
    ULONG cb = 0;
    LPENTRYID entry = nullptr;
    EXPECT_EQ(S_OK, HrEntryIDFromSz(text, &cb, &entry));
    EXPECT_EQ(4u, cb);
    LPTSTR again = nullptr;
    EXPECT_EQ(S_OK, HrSzFromEntryID(cb, entry, &again));
    EXPECT_STREQ(text, again);
    MAPIFreeBuffer(entry);
    MAPIFreeBuffer(again);
}

TEST(Util, PropertiesCompareByValue) {
    SPropValue one = Number(1), two = Number(2), wide{};
    EXPECT_TRUE(FPropCompareProp(&one, RELOP_LT, &two));
    EXPECT_FALSE(FPropCompareProp(&one, RELOP_GE, &two));
    EXPECT_FALSE(FPropCompareProp(&one, RELOP_RE, &one));
    EXPECT_LT(LPropCompareProp(&one, &two), 0);
    const std::string text = Utf8FromWide(L"\u00e4x");
    SPropValue narrow = Text(PR_SUBJECT_A, text.c_str());
    wide.ulPropTag = PR_SUBJECT_W;
    wide.Value.lpszW = const_cast<wchar_t*>(L"\u00e4x");
    EXPECT_TRUE(FPropCompareProp(&narrow, RELOP_EQ, &wide));
    EXPECT_FALSE(FPropCompareProp(&narrow, RELOP_EQ, &one));
    SPropValue part = Text(PR_SUBJECT_A, "X");
    EXPECT_TRUE(FPropContainsProp(&narrow, &part, FL_SUBSTRING | FL_IGNORECASE));
    EXPECT_FALSE(FPropContainsProp(&narrow, &part, FL_SUBSTRING));
}

TEST(Util, CopiesAreDeep) {
    char text[] = "text";
    BYTE bytes[] = {1, 2, 3};
    const char* words[] = {"one", "two"};
    SPropValue values[4] = {Text(PR_SUBJECT_A, text), {}, {}, Number(5)};
    values[1].ulPropTag = PR_SEARCH_KEY;
    values[1].Value.bin = {3, bytes};
    values[2].ulPropTag = PROP_TAG(PT_MV_STRING8, 0x8001);
    values[2].Value.MVszA = {2, const_cast<LPSTR*>(words)};
    ULONG counted = 0, copied = 0;
    ASSERT_EQ(S_OK, ScCountProps(4, values, &counted));
    std::string room(counted, '\0');
    ASSERT_EQ(S_OK, ScCopyProps(4, values, room.data(), &copied));
    EXPECT_EQ(counted, copied);
    LPSPropValue duplicate = nullptr;
    ASSERT_EQ(S_OK, ScDupPropset(4, values, MAPIAllocateBuffer, &duplicate));
    text[0] = bytes[0] = 0;
    EXPECT_STREQ("text", duplicate[0].Value.lpszA);
    EXPECT_EQ(1, duplicate[1].Value.bin.lpb[0]);
    EXPECT_STREQ("two", duplicate[2].Value.MVszA.lppszA[1]);
    EXPECT_EQ(5, duplicate[3].Value.l);

    // Moved as bytes, the pointers corrected afterwards.
    std::string moved = room;
    auto* there = reinterpret_cast<LPSPropValue>(moved.data());
    ASSERT_EQ(S_OK, ScRelocProps(4, there, room.data(), moved.data(), nullptr));
    EXPECT_STREQ("text", there[0].Value.lpszA);
    EXPECT_STREQ("one", there[2].Value.MVszA.lppszA[0]);
    EXPECT_GE(there[0].Value.lpszA, moved.data());

    SPropValue more{};
    EXPECT_EQ(S_OK, PropCopyMore(&more, &duplicate[2], MAPIAllocateMore, duplicate));
    EXPECT_STREQ("two", more.Value.MVszA.lppszA[1]);
    EXPECT_EQ(8u, UlPropSize(&more));
    MAPIFreeBuffer(duplicate);
}

TEST(Util, FindingGoesByTagOrById) {
    SPropValue values[2] = {Text(PR_SUBJECT_A, "a"), Number(1)};
    EXPECT_EQ(&values[1], PpropFindProp(values, 2, PR_IMPORTANCE));
    EXPECT_EQ(nullptr, PpropFindProp(values, 2, PR_SUBJECT_W));
    EXPECT_EQ(&values[0], PpropFindProp(values, 2, CHANGE_PROP_TYPE(PR_SUBJECT_W, PT_UNSPECIFIED)));
    EXPECT_EQ(&values[0], LpValFindProp(PR_SUBJECT_W, 2, values));
}

TEST(Util, TimesAddAsOneNumber) {
    const FILETIME low = FileTimeOf(0xFFFFFFFF), one = FileTimeOf(1);
    EXPECT_EQ(0x100000000u, TicksOf(FtAddFt(low, one)));
    EXPECT_EQ(0xFFFFFFFFu, TicksOf(FtSubFt(FtAddFt(low, one), one)));
    EXPECT_EQ(0u, TicksOf(FtAddFt(FtNegFt(low), low)));
    EXPECT_EQ(0xFFFFFFFE00000001u, TicksOf(FtMulDwDw(0xFFFFFFFF, 0xFFFFFFFF)));
    EXPECT_EQ(30u, TicksOf(FtMulDw(3, FileTimeOf(10))));
}

TEST(Util, ConversationIndexGrowsByFiveBytesAReply) {
    ULONG cb = 0, cbReply = 0;
    LPBYTE index = nullptr, reply = nullptr;
    ASSERT_EQ(S_OK, ScCreateConversationIndex(0, nullptr, &cb, &index));
    EXPECT_EQ(22u, cb);
    EXPECT_EQ(1, index[0]);
    ASSERT_EQ(S_OK, ScCreateConversationIndex(cb, index, &cbReply, &reply));
    EXPECT_EQ(27u, cbReply);
    EXPECT_EQ(0, std::memcmp(index, reply, cb));
    MAPIFreeBuffer(index);
    MAPIFreeBuffer(reply);
}

TEST(Util, NamesAreEqualByWhatTheySay) {
    GUID set = PS_PUBLIC_STRINGS, other = PS_MAPI;
    MAPINAMEID a{}, b{};
    a.lpguid = b.lpguid = &set;
    a.ulKind = b.ulKind = MNID_STRING;
    std::wstring first = L"Name", second = L"Name";
    a.Kind.lpwstrName = first.data();
    b.Kind.lpwstrName = second.data();
    EXPECT_TRUE(FEqualNames(&a, &b));
    b.lpguid = &other;
    EXPECT_FALSE(FEqualNames(&a, &b));
    b = a;
    b.ulKind = MNID_ID;
    EXPECT_FALSE(FEqualNames(&a, &b));
}

TEST(Util, NotificationsAreCopiedWithAllTheyPointTo) {
    BYTE entry[] = {9, 8, 7, 6};
    SPropValue cell = Text(PR_SUBJECT_A, "row");
    NOTIFICATION notifications[2] = {};
    notifications[0].ulEventType = fnevObjectModified;
    notifications[0].info.obj.cbEntryID = 4;
    notifications[0].info.obj.lpEntryID = reinterpret_cast<LPENTRYID>(entry);
    notifications[1].ulEventType = fnevTableModified;
    notifications[1].info.tab.row.cValues = 1;
    notifications[1].info.tab.row.lpProps = &cell;
    ULONG cb = 0;
    ASSERT_EQ(S_OK, ScCountNotifications(2, notifications, &cb));
    std::string room(cb, '\0');
    ASSERT_EQ(S_OK, ScCopyNotifications(2, notifications, room.data(), nullptr));
    entry[0] = 0;
    cell.Value.lpszA = nullptr;
    const auto* copies = reinterpret_cast<const NOTIFICATION*>(room.data());
    EXPECT_EQ(9, reinterpret_cast<const BYTE*>(copies[0].info.obj.lpEntryID)[0]);
    EXPECT_STREQ("row", copies[1].info.tab.row.lpProps->Value.lpszA);
}

}  // namespace
