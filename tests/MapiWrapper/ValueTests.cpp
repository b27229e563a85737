// Values in memory: binaries, deep copies, text and variants.
#include "FakeMapi.h"

#include <Platform/Clock.h>
#include <gtest/gtest.h>

namespace {

using namespace fakes;

TEST(Binary, ParsesUpperCasePairsAndDropsHalfAPair) {
    CMapiBinary bin;
    bin.ParseHex("ABC");
    ASSERT_EQ(bin.Count(), 1u);
    EXPECT_EQ(bin.Data()[0], 0xAB);
    bin.ParseHex("");
    EXPECT_TRUE(bin.IsEmpty());
    EXPECT_EQ(bin.Hex(), "");
    bin.ParseHex(std::string("01FF\0AA", 7));
    EXPECT_EQ(bin.Hex(), "01FF");
    bin.ParseHex("z!\xFF~");  // senseless, but within its bytes
    EXPECT_EQ(bin.Count(), 2u);
}

template <class Binary>
class BothBinaries : public testing::Test {};
using BinaryForms = testing::Types<CMapiBinary, CMapiBufferBinary>;
TYPED_TEST_SUITE(BothBinaries, BinaryForms);

TYPED_TEST(BothBinaries, CopyMoveAndCompare) {
    TypeParam a;
    a.ParseHex("0102");
    TypeParam b(a);
    EXPECT_TRUE(a == b);
    EXPECT_NE(a.Data(), b.Data());
    b.ParseHex("010201");
    EXPECT_TRUE(a < b);
    a = b.Bin();
    EXPECT_TRUE(a == b);
    a.Assign(a.Data() + 1, 2);  // out of itself
    EXPECT_EQ(a.Hex(), "0201");
    TypeParam c(std::move(a));
    EXPECT_TRUE(a.IsEmpty());
    EXPECT_EQ(c.Hex(), "0201");
    c = c;
    EXPECT_EQ(c.Hex(), "0201");
    EXPECT_TRUE(TypeParam() == TypeParam());
    c.Assign(nullptr, 7);
    EXPECT_EQ(c.Count(), 0u);
}

TEST(Hex, LongAndEmptyValues) {
    EXPECT_EQ(HexFromBinary(SBinary{5, nullptr}), "");
    const std::string bytes(500, '\x9F');
    const std::string hex = HexFromBinary(View(bytes));
    ASSERT_EQ(hex.size(), 1000u);
    EXPECT_EQ(hex.find_first_not_of("9F"), std::string::npos);
    EXPECT_EQ(HexFromBinaryStd(View(bytes)), hex);
    EXPECT_TRUE(EqualBinary(BinaryFromHex(hex), View(bytes)));
    EXPECT_EQ(HexToLong("8A350003x"), 0x8A350003u);
    EXPECT_EQ(HexDigitValue('g'), -1);
    EXPECT_EQ(HexDigitValue('f'), 15);
}

TEST(Guids, TextWithAndWithoutBraceAndHexForm) {
    const GUID guid = {0x00062008, 0x1234, 0xABCD, {0xC0, 1, 2, 3, 4, 5, 6, 0x46}};
    const std::string text = "00062008-1234-ABCD-C001-020304050646";
    EXPECT_EQ(GuidToText(guid), text);
    GUID read{};
    EXPECT_TRUE(GuidFromText(text, read));
    EXPECT_TRUE(IsEqualGUID(read, guid));
    read = {};
    EXPECT_TRUE(GuidFromText("{" + text + "}", read));
    EXPECT_TRUE(IsEqualGUID(read, guid));
    EXPECT_FALSE(GuidFromText("{0006", read));
    EXPECT_EQ(read.Data2, 0);
    EXPECT_TRUE(
        GuidFromHex("08200600"
                    "1234"
                    "ABCD"
                    "C001020304050646",
                    read));
    EXPECT_TRUE(IsEqualGUID(read, guid));
    EXPECT_FALSE(GuidFromHex("0820", read));
}

TEST(PropValue, ANullPointerReadsAsErrorAndEverythingEmpty) {
    const CMapiPropValue value;
    EXPECT_EQ(value.Type(), static_cast<ULONG>(PT_ERROR));
    EXPECT_EQ(value.Long(), 0);
    EXPECT_EQ(value.Text(), "");
    EXPECT_EQ(value.Binary().cb, 0u);
    EXPECT_EQ(CMapiPropValue(PR_SUBJECT_A).Tag(), static_cast<ULONG>(PR_SUBJECT_A));
}

TEST(PropValue, CopyOfAViewIsAViewAndOfAnOwnerIsDeep) {
    const CMapiPropValue owner = Text(PR_SUBJECT_A, "subject");
    const CMapiPropValue view(owner.Get(), false);
    const CMapiPropValue viewCopy(view);
    EXPECT_EQ(viewCopy.Get(), owner.Get());
    CMapiPropValue deep(owner);
    EXPECT_NE(deep.Get(), owner.Get());
    deep.Get()->Value.lpszA[0] = 'S';
    EXPECT_EQ(owner.Str(), "subject");
    EXPECT_EQ(deep.Str(), "Subject");
}

// One value of each kind that has memory behind it.
struct CRichValues {
    LONG longs[3] = {1, -2, 3};
    char* texts[2] = {const_cast<char*>("one"), const_cast<char*>("two")};
    wchar_t* wides[1] = {const_cast<wchar_t*>(L"w\u00FC")};
    BYTE bytes[3] = {1, 2, 0xAB};
    SBinary binaries[2] = {{2, bytes}, {1, bytes + 2}};
    GUID guid = {1, 2, 3, {4}};
    FILETIME times[1] = {{5, 6}};

    std::vector<SPropValue> All() {
        std::vector<SPropValue> all(7, SPropValue{});
        all[0].ulPropTag = PROP_TAG(PT_MV_LONG, 1);
        all[0].Value.MVl = {3, longs};
        all[1].ulPropTag = PROP_TAG(PT_MV_STRING8, 2);
        all[1].Value.MVszA = {2, texts};
        all[2].ulPropTag = PROP_TAG(PT_MV_UNICODE, 3);
        all[2].Value.MVszW = {1, wides};
        all[3].ulPropTag = PROP_TAG(PT_MV_BINARY, 4);
        all[3].Value.MVbin = {2, binaries};
        all[4].ulPropTag = PROP_TAG(PT_CLSID, 5);
        all[4].Value.lpguid = &guid;
        all[5].ulPropTag = PROP_TAG(PT_MV_SYSTIME, 6);
        all[5].Value.MVft = {1, times};
        all[6].ulPropTag = PROP_TAG(PT_UNICODE, 7);
        all[6].Value.lpszW = wides[0];
        return all;
    }
};

TEST(CopyPropValue, CopiesTheMemoryBehindEveryKind) {
    CRichValues rich;
    for (const SPropValue& source : rich.All()) {
        CMapiPropValue copy(source.ulPropTag);
        ASSERT_EQ(CopyPropValue(copy.Get(), &source), S_OK);
        EXPECT_EQ(copy.Text(), ValueText(&source)) << std::hex << source.ulPropTag;
        const bool array = (source.ulPropTag & MV_FLAG) != 0;
        EXPECT_NE(array ? static_cast<void*>(copy.Get()->Value.MVl.lpl) : copy.Get()->Value.lpguid,
                  array ? static_cast<void*>(source.Value.MVl.lpl) : source.Value.lpguid);
    }
    CMapiPropValue texts(PROP_TAG(PT_MV_STRING8, 2));
    CopyPropValue(texts.Get(), &rich.All()[1]);
    EXPECT_NE(texts.Get()->Value.MVszA.lppszA[1], rich.texts[1]);
    EXPECT_EQ(texts.Text(), "one; two");
}

TEST(CopyPropValue, WithoutAParentOneFreeOfTheArrayFreesAll) {
    CRichValues rich;
    for (void* parent :
         {static_cast<void*>(nullptr), reinterpret_cast<void*>(-1), reinterpret_cast<void*>(-2)}) {
        SPropValue copy{};
        ASSERT_EQ(CopyPropValue(&copy, &rich.All()[3], parent), S_OK);
        EXPECT_EQ(ValueText(&copy), "0102; AB");
        MAPIFreeBuffer(copy.Value.MVbin.lpbin);
    }
}

TEST(CopyPropValue, CountsWithoutMemoryAreNotFollowed) {
    SPropValue hostile{};
    hostile.ulPropTag = PROP_TAG(PT_MV_STRING8, 2);
    hostile.Value.MVszA = {3, nullptr};
    CMapiPropValue copy(hostile.ulPropTag);
    EXPECT_EQ(CopyPropValue(copy.Get(), &hostile), S_OK);
    EXPECT_EQ(copy.Text(), "; ; ");
    hostile.ulPropTag = PROP_TAG(PT_BINARY, 3);
    hostile.Value.bin = {100, nullptr};
    EXPECT_EQ(CopyPropValue(copy.Get(), &hostile), S_OK);
    EXPECT_EQ(copy.Binary().cb, 0u);
}

TEST(CopyBinary, ReplacesTheOldBytes) {
    SBinary target{0, nullptr};
    const std::string first = "abc";
    const SBinary source = View(first);
    ASSERT_EQ(HrCopySBinary(&target, &source, nullptr), S_OK);
    ASSERT_EQ(HrCopySBinary(&target, &source, nullptr), S_OK);
    EXPECT_TRUE(EqualBinary(target, source));
    MAPIFreeBuffer(target.lpb);
}

TEST(Variants, TextForms) {
    EXPECT_EQ(CVariant().Text(), "");
    EXPECT_EQ(CVariant(std::int32_t{-5}).Text(), "-5");
    EXPECT_EQ(CVariant(1.5).Text(), "1.5");
    EXPECT_EQ(CVariant(0.1f).Text(), "0.1");
    EXPECT_EQ(CVariant(true).Text(), "-1");
    EXPECT_EQ(CVariant(false).Text(), "0");
    EXPECT_EQ(CVariant(CVariantCurrency{-123400}).Text(), "-12.34");
    EXPECT_EQ(CVariant(CVariantDate{36526.5}).Text(), "2000-01-01 12:00:00");
    EXPECT_EQ(CVariant(CVariantDate{0}).Text(), "1899-12-30");
    EXPECT_EQ(CVariant(CVariantDate{-1.25}).Text(), "1899-12-29 06:00:00");
    EXPECT_EQ(CVariant(CVariantDate{1e300}).Text(), "");
}

TEST(Variants, DatesSurviveTheWayThroughTextAndFileTime) {
    for (const char* text :
         {"1999-12-31 23:59:59", "1899-12-29 06:30:00", "1601-01-02", "9999-12-31 00:00:01"}) {
        double date = 0;
        ASSERT_TRUE(CVariant(text).ToDate(date)) << text;
        EXPECT_EQ(CVariant(CVariantDate{date}).Text(), text);
        FILETIME ft;
        ASSERT_TRUE(FileTimeFromDate(date, ft));
        EXPECT_EQ(DateFromFileTime(ft), date);
    }
    double date = 0;
    EXPECT_TRUE(CVariant(" 31.12.1999 23:59 ").ToDate(date));
    for (const char* text : {"", "1999-13-01", "1999-02-30", "1999-01-01x", "1999-01-01 25:00", "noon"})
        EXPECT_FALSE(CVariant(text).ToDate(date)) << text;
}

struct CTextCase {
    const char* text;
    ULONG tag;
    const char* expected;  // text of the value afterwards
};

TEST(VariantToValue, TextBecomesTheTargetType) {
    const CTextCase cases[] = {
        {"0A0B", PROP_TAG(PT_BINARY, 1), "0A0B"},
        {" 12 ", PROP_TAG(PT_LONG, 1), "12"},
        {"2.5", PROP_TAG(PT_LONG, 1), "2"},
        {"twelve", PROP_TAG(PT_LONG, 1), "77"},
        {"9999999999", PROP_TAG(PT_LONG, 1), "77"},
        {"abc", PROP_TAG(PT_STRING8, 1), "abc"},
        {"\xC3\xA4", PROP_TAG(PT_UNICODE, 1), "\xC3\xA4"},
        {"1;-2;x", PROP_TAG(PT_MV_LONG, 1), "1; -2; 0"},
        {"5", PROP_TAG(PT_MV_LONG, 1), "5"},
        {"a;b;;c", PROP_TAG(PT_MV_STRING8, 1), "a; b; c"},
        {"01;02", PROP_TAG(PT_MV_BINARY, 1), "01; 02"},
        {"2001-02-03", PROP_TAG(PT_SYSTIME, 1), "2001-02-03"},
    };
    for (const CTextCase& c : cases) {
        CMapiPropValue value(c.tag);
        value.Get()->Value.l = 77;
        ASSERT_EQ(VariantToValue(CVariant(c.text), value.Get(), value.Get()), S_OK);
        EXPECT_EQ(value.Text(), c.expected) << c.text;
    }
}

TEST(VariantToValue, EmptyAndOtherKinds) {
    CMapiPropValue value(PROP_TAG(PT_SYSTIME, 0x3007));
    VariantToValue(CVariant(), value.Get(), nullptr);
    EXPECT_EQ(value.Tag(), PROP_TAG(PT_ERROR, 0x3007));
    value = Number(PROP_TAG(PT_LONG, 1), 7);
    VariantToValue(CVariant(), value.Get(), nullptr);
    EXPECT_EQ(value.Long(), 0);
    value = Number(PROP_TAG(PT_DOUBLE, 1), 7);
    VariantToValue(CVariant(), value.Get(), nullptr);
    EXPECT_EQ(value.Get()->Value.l, 7);  // stays as it was
    value = CMapiPropValue(PROP_TAG(PT_BOOLEAN, 1));
    VariantToValue(CVariant(true), value.Get(), nullptr);
    EXPECT_TRUE(value.Bool());
    value = CMapiPropValue(PROP_TAG(PT_SYSTIME, 1));
    VariantToValue(CVariant(CVariantDate{1.0}), value.Get(), nullptr);
    EXPECT_EQ(value.Text(), "1899-12-31");
}

TEST(Texts, ListsAndWideText) {
    std::vector<std::string> list;
    SplitToArray(",a,,b;c,", ",", list);
    EXPECT_EQ(list, (std::vector<std::string>{"a", "b;c"}));
    list.clear();
    TextToList("", list);
    TextToList("a;b", list);
    EXPECT_EQ(list, (std::vector<std::string>{"", "a", "b"}));
    EXPECT_EQ(Utf8FromWide(static_cast<const wchar_t*>(nullptr)), "");
    EXPECT_EQ(WideFromUtf8("abc"), L"abc");
    EXPECT_EQ(Utf16BytesFromUtf8("a\xE2\x82\xAC"), std::string("a\0\xAC\x20", 4));
}

}  // namespace
