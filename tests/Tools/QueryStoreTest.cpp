// Queries against a real store: what a table keeps, and folders opened by path.
#include <MapiWrapper/HexText.h>
#include <MapiWrapper/MapiException.h>
#include <MapiWrapper/UserFields.h>
#include <Tools/CompileRestriction.h>
#include <Tools/INIQuerys.h>
#include <Tools/RestrictionTree.h>
#include <gtest/gtest.h>

#include <support/StoreFixture.h>
#include <set>

#include "QueryWriter.h"

namespace {

class QueryStore : public TwoStores {
protected:
    void SetUp() override {
        TwoStores::SetUp();
        compiler = std::make_unique<CCompileRestriction>();
        PrepareQueryCompiler(*compiler, left.Get(), session.Get(), nullptr);
        CUserFields& fields = compiler->UserFields();
        for (const char* name : {"a", "b", "c"})
            fields.AddStringNamed(name, name, PT_LONG, nullptr);
        fields.AddStringNamed("text", "text", PT_STRING8, nullptr);
    }

    void TearDown() override {
        compiler.reset();
        TwoStores::TearDown();
    }

    void Add(const std::string& subject, const CItem& item) {
        const auto message = NewMessage(left.Get(), subject);
        SetLong(message.Get(), NamedTag(message.Get(), L"a", PT_LONG), item.a);
        SetLong(message.Get(), NamedTag(message.Get(), L"b", PT_LONG), item.b);
        SetLong(message.Get(), NamedTag(message.Get(), L"c", PT_LONG), item.c);
        SetText(message.Get(), NamedTag(message.Get(), L"text", PT_STRING8), item.text);
        ASSERT_GE(message->SaveChanges(0), 0);
    }

    // Subjects of the rows that the compiled query keeps, in its order.
    std::vector<std::string> Rows(IMAPIContainer* folder) {
        TestRef<IMAPITable> table;
        EXPECT_GE(folder->GetContentsTable(0, table.Out()), 0);
        const TestRows rows(table.Get(), {PR_SUBJECT_A}, compiler->Restriction(), compiler->SortOrder());
        std::vector<std::string> subjects;
        for (ULONG i = 0; i < rows.Count(); ++i)
            subjects.push_back(rows.Text(i, 0));
        return subjects;
    }

    std::vector<std::string> Kept(const std::string& text) {
        EXPECT_TRUE(compiler->Compile(text)) << text << compiler->ErrorText();
        return Rows(compiler->Folder());
    }

    std::string Error(const std::string& text) {
        EXPECT_FALSE(compiler->Compile(text)) << text;
        return compiler->ErrorText();
    }

    std::unique_ptr<CCompileRestriction> compiler;
};

TEST_F(QueryStore, ATableKeepsWhatTheTextMeans) {
    std::vector<CItem> items;
    CQueryWriter values(1, true);
    for (int i = 0; i < 25; ++i) {
        items.push_back(values.Item());
        Add(std::to_string(i), items.back());
    }
    size_t matched = 0;
    for (unsigned seed = 0; seed < 500; ++seed) {
        const CQuery query = CQueryWriter(seed, true).Expression(4);
        std::set<std::string> expected;
        for (size_t i = 0; i < items.size(); ++i)
            if (query.meaning(items[i])) expected.insert(std::to_string(i));
        const auto kept = Kept(query.text);
        ASSERT_EQ(std::set<std::string>(kept.begin(), kept.end()), expected)
            << query.text << "\n"
            << RestrictionTree(compiler->Restriction());
        matched += kept.size();
    }
    EXPECT_GT(matched, 1000u);
    EXPECT_LT(matched, 500 * items.size() - 1000);
}

TEST_F(QueryStore, SelectOpensAFolderByItsPath) {
    const auto sub = MakeFolder(right.Get(), "Sub Folder");
    ASSERT_TRUE(SavedMessage(sub.Get(), "there"));
    const std::string condition = " where exists Subject";
    EXPECT_EQ(Kept("select Importance from \"sTORE 2\\rIGHT\\sub folder\"" + condition),
              (std::vector<std::string>{"there"}));
    ASSERT_NE(compiler->Columns(), nullptr);
    EXPECT_EQ(compiler->Columns()->aulPropTag[0], PR_IMPORTANCE);
    EXPECT_EQ(compiler->Columns()->cValues, 2u) << "the used tag behind";
    EXPECT_EQ(BytesOf(compiler->Folder(), PR_ENTRYID), BytesOf(sub.Get(), PR_ENTRYID));

    EXPECT_EQ(Kept("select Subject from \"\\\\Store 1\\\\Left\\\"" + condition), std::vector<std::string>{});
    EXPECT_EQ(BytesOf(compiler->Folder(), PR_ENTRYID), BytesOf(left.Get(), PR_ENTRYID))
        << "separators that follow each other count as one";
    EXPECT_EQ(Error("select Subject from \"Store 3\\Right\"" + condition), " MsgStore Store 3 not found");
    EXPECT_EQ(Error("select Subject from \"Store 2\\Right\\Sub\"" + condition), " Folder Sub not found");
    EXPECT_EQ(Error("select Subject from \"\\\\\"" + condition), " Fatal Error in OpenTable");
    EXPECT_EQ(Error("select Subject from = where"), " Expected a table path");
    EXPECT_EQ(Error("select Subject from \"Store 2\\Right\" Subject=x"), " Expected WHERE");
}

TEST_F(QueryStore, NamesAreResolvedInTheFolderThatSelectOpened) {
    Add("x", {7, 0, 0, ""});
    const ULONG there = NamedTag(right.Get(), L"a", PT_LONG);
    ASSERT_NE(there, 0u);
    ASSERT_TRUE(compiler->Compile("a=7"));
    ASSERT_TRUE(compiler->Compile("select Subject from \"Store 2\\Right\" where a=7"))
        << compiler->ErrorText();
    EXPECT_EQ(compiler->Restriction()->res.resProperty.ulPropTag, there);
}

TEST_F(QueryStore, AHexadecimalPathNamesItsStoreAlone) {
    const std::string before = BytesOf(compiler->Folder(), PR_ENTRYID);
    EXPECT_TRUE(compiler->Compile("select Subject from 00112233 where Importance=1"))
        << "no store of that UID is no error" << compiler->ErrorText();
    EXPECT_TRUE(compiler->Compile("select Subject from \"" + std::string(64, '0') + "\" where Importance=1"));
    EXPECT_EQ(BytesOf(compiler->Folder(), PR_ENTRYID), before);
    std::string entryId = BytesOf(right.Get(), PR_ENTRYID);
    const std::string hex =
        HexFromBinary(SBinary{static_cast<ULONG>(entryId.size()), reinterpret_cast<BYTE*>(entryId.data())});
    // Only the UID in it counts, and the store's own entry ID names no folder.
    EXPECT_EQ(Error("select Subject from " + hex + " where Importance=1"), " MAPI_E_INVALID_ENTRYID");
    EXPECT_EQ(BytesOf(compiler->Folder(), PR_ENTRYID), before) << "an error leaves the folder";
}

TEST_F(QueryStore, AQueryThatIsOnlyLookedAtNamesNothingInTheStore) {
    const auto known = [&] {
        MAPINAMEID name{};
        name.lpguid = const_cast<GUID*>(&PS_PUBLIC_STRINGS);
        name.ulKind = MNID_STRING;
        std::wstring text = L"Typo";
        name.Kind.lpwstrName = text.data();
        MAPINAMEID* names[] = {&name};
        SPropTagArray* tags = nullptr;
        EXPECT_GE(left->GetIDsFromNames(1, names, 0, &tags), 0);
        const bool found = tags && PROP_TYPE(tags->aulPropTag[0]) != PT_ERROR;
        MAPIFreeBuffer(tags);
        return found;
    };
    Add("x", {7, 0, 0, ""});
    compiler->SetCreateNames(false);
    EXPECT_EQ(Kept("userfield(Typo, long) = 1 or a = 7"), std::vector<std::string>{"x"});
    EXPECT_EQ(compiler->AbsentNames(), std::vector<std::string>{"Typo"});
    EXPECT_FALSE(known());
    compiler->SetCreateNames(true);
    compiler->SetFolder(left.Get());
    EXPECT_EQ(Kept("userfield(Typo, long) = 1"), std::vector<std::string>{});
    EXPECT_TRUE(known()) << "or the test looks for another name";
}

// Fails the n-th call of the stores while a query with a path compiles: an error, never a fault, and nothing
// held that was not held before.
TEST_F(QueryStore, EveryFailureOfTheStoreBecomesAnError) {
    TestRef<IStoreFaults> faults;
    if (rightStore->QueryInterface(IID_IStoreFaults, reinterpret_cast<void**>(faults.Out())) < 0)
        GTEST_SKIP() << "the stores here don't fail on request";
    const std::string text = "select Subject from \"Store 2\\Right\" where userfield(n)=x and Importance=1";
    ULONG n = 1;
    for (;; ++n) {
        ASSERT_LT(n, 200u);
        faults->SetFault(n, MAPI_E_NOT_ENOUGH_RESOURCES, FALSE);
        const bool compiled = compiler->Compile(text);
        const bool reached = faults->CallCount() >= n;
        faults->SetFault(0, S_OK, FALSE);
        if (!reached) break;
        if (compiled) continue;  // what form of text the store takes has an answer without it, too
        EXPECT_FALSE(compiler->ErrorText().empty()) << n;
        EXPECT_EQ(compiler->Restriction(), nullptr) << n;
    }
    EXPECT_GT(n, 3u) << "some calls were made to fail";
}

}  // namespace
