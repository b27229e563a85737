#include <Tarn/Engine/MessageComparison.h>
#include <gtest/gtest.h>

#include <cmath>
#include <set>

namespace {
SPropValue Value(ULONG type) {
    SPropValue value{};
    value.ulPropTag = PROP_TAG(type, 0x6000);
    return value;
}
SPropValue Text(const char* text) {
    SPropValue value = Value(PT_STRING8);
    value.Value.lpszA = const_cast<char*>(text);
    return value;
}
SPropValue Time(DWORD low, DWORD high) {
    SPropValue value = Value(PT_SYSTIME);
    value.Value.ft = {low, high};
    return value;
}
SPropValue Double(double number) {
    SPropValue value = Value(PT_DOUBLE);
    value.Value.dbl = number;
    return value;
}
SPropValue Texts(std::vector<char*>& texts) {
    SPropValue value = Value(PT_MV_STRING8);
    value.Value.MVszA = {static_cast<ULONG>(texts.size()), texts.data()};
    return value;
}

TEST(EqualPropValuesTest, TextIsComparedByteForByte) {
    EXPECT_TRUE(EqualPropValues(Text("Anna"), Text("Anna")));
    EXPECT_FALSE(EqualPropValues(Text("Anna"), Text("anna")));
    EXPECT_FALSE(EqualPropValues(Text("Anna"), Text("Anna ")));
    EXPECT_FALSE(EqualPropValues(Text("Anna"), Text(nullptr)));
}

TEST(EqualPropValuesTest, OneTickMakesTimesDifferent) {
    EXPECT_TRUE(EqualPropValues(Time(1, 2), Time(1, 2)));
    EXPECT_FALSE(EqualPropValues(Time(1, 2), Time(2, 2)));
    EXPECT_FALSE(EqualPropValues(Time(1, 2), Time(1, 3)));
}

TEST(EqualPropValuesTest, NothingEqualsNotANumber) {
    EXPECT_TRUE(EqualPropValues(Double(0.5), Double(0.5)));
    EXPECT_FALSE(EqualPropValues(Double(std::nan("")), Double(std::nan(""))));
}

// A boolean has 16 bits; what stands beside it in the union is nobody's.
TEST(EqualPropValuesTest, BooleansCompareSixteenBits) {
    SPropValue a = Value(PT_BOOLEAN);
    SPropValue b = Value(PT_BOOLEAN);
    a.Value.l = 0x00010001;
    b.Value.l = 0x00020001;
    EXPECT_TRUE(EqualPropValues(a, b));
    b.Value.l = 0x00010000;
    EXPECT_FALSE(EqualPropValues(a, b));
}

TEST(EqualPropValuesTest, BytesNeverMakeADifference) {
    BYTE one[] = {1};
    BYTE two[] = {2, 3};
    SPropValue a = Value(PT_BINARY);
    SPropValue b = Value(PT_BINARY);
    a.Value.bin = {1, one};
    b.Value.bin = {2, two};
    EXPECT_TRUE(EqualPropValues(a, b));
    EXPECT_TRUE(EqualPropValues(a, Text("x")));
}

TEST(EqualPropValuesTest, AnotherTypeIsNotReadAsTheFirst) {
    SPropValue number = Value(PT_LONG);
    number.Value.l = 1;
    EXPECT_FALSE(EqualPropValues(Text("1"), number));
    EXPECT_FALSE(EqualPropValues(number, Text("1")));
}

TEST(EqualPropValuesTest, TextListsCompareCountAndTexts) {
    std::vector<char*> first = {const_cast<char*>("a"), const_cast<char*>("b")};
    std::vector<char*> same = first;
    std::vector<char*> shorter = {const_cast<char*>("a")};
    std::vector<char*> other = {const_cast<char*>("a"), const_cast<char*>("c")};
    EXPECT_TRUE(EqualPropValues(Texts(first), Texts(same)));
    EXPECT_FALSE(EqualPropValues(Texts(first), Texts(shorter)));
    EXPECT_FALSE(EqualPropValues(Texts(first), Texts(other)));
}

// The lists decide which items are one and the same, so a slip in them makes duplicates.
TEST(TagListTest, ListsHaveTheirLengthsSetsAndRepeats) {
    EXPECT_EQ(CountTagList(HeaderTags), 9u);
    EXPECT_EQ(CountTagList(AppointmentTags), 20u);
    EXPECT_EQ(CountTagList(ContactTags), 20u);
    EXPECT_EQ(CountTagList(TaskTags), 23u);
    for (ULONG i = 0; i < CountTagList(HeaderTags); ++i)
        EXPECT_NE(HeaderTags[i].tag, 0u);
    for (ULONG i = 0; i < CountTagList(TaskTags); ++i)
        EXPECT_EQ(TaskTags[i].set, TaskTags[i].id >= 0x8500 ? &SetCommon : &SetTask) << i;
    std::set<LONG> contactIds;
    for (ULONG i = 0; i < CountTagList(ContactTags); ++i)
        contactIds.insert(ContactTags[i].id);
    EXPECT_EQ(contactIds.size(), 20u);
    EXPECT_EQ(AppointmentTags[6].id, AppointmentTags[8].id);
    EXPECT_EQ(TaskTags[20].id, TaskTags[21].id);
}
}  // namespace
