#include <MapiWrapper/NameTables.h>
#include <MapiWrapper/UserFields.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "FakeMapi.h"

namespace {

using namespace fakes;

TEST(NameTables, NamesWithoutSuffixHaveTheirNarrowType) {
    EXPECT_EQ(TagFromName("PR_SUBJECT"), 0x0037001Eu);
    EXPECT_EQ(TagFromName("PR_SUBJECT_W"), 0x0037001Fu);
    EXPECT_EQ(TagFromName("pr_subject"), 0u);
    EXPECT_EQ(TagFromName(""), 0u);
    EXPECT_EQ(TagFromName("0"), 0u);
    EXPECT_EQ(TagFromName("PR_FLAG_STATUS"), 0x10900003u);
    EXPECT_EQ(TagFromName("PR_REMINDER_FLAG"), 0x10950003u);
    EXPECT_EQ(TagFromName("PR_OFFICE_TELEPHONE_NUMBER"), 0x3A08001Eu);
    EXPECT_EQ(TagFromName("PR_EXCEPTION_STARTTIME", SecondaryNameTable()), 0x7FFB0040u);
}

// What a walk from the first row gives, which the indexes must not change.
ULONG WalkForTag(const std::string& name) {
    for (const CNameTable* table : {&MainNameTable(), &SecondaryNameTable()}) {
        for (const CNameRow& row : NameRows(*table)) {
            if (name == row.name) return row.tag;
        }
    }
    return 0;
}
std::string WalkForName(ULONG tag) {
    for (const CNameTable* table : {&MainNameTable(), &SecondaryNameTable()}) {
        for (const CNameRow& row : NameRows(*table)) {
            if (PROP_ID(row.tag) == PROP_ID(tag)) return row.name;
        }
    }
    return "";
}

TEST(NameTables, EveryRowIsFoundAsAWalkWouldFindIt) {
    size_t rows = 0;
    for (const CNameTable* table : {&MainNameTable(), &SecondaryNameTable()}) {
        for (const CNameRow& row : NameRows(*table)) {
            ++rows;
            ASSERT_EQ(TagFromName(row.name), WalkForTag(row.name)) << row.name;
            ASSERT_EQ(NameFromTag(row.tag), WalkForName(row.tag)) << row.name;
        }
    }
    EXPECT_GT(rows, 1200u);
    EXPECT_EQ(NameFromTag(0x0037001F), "PR_SUBJECT");
    EXPECT_EQ(NameFromTag(0x8A350003), "8a350003");
}

TEST(NameTables, OrderOfTheTwoTables) {
    const auto main = NameRows(MainNameTable());
    const auto byName = [](const CNameRow& a, const CNameRow& b) { return std::strcmp(a.name, b.name) < 0; };
    EXPECT_TRUE(std::is_sorted(main.begin(), main.end() - 2, byName));
    EXPECT_STREQ(main[main.size() - 2].name, "PR_FLAG_STATUS");
    EXPECT_STREQ(main.back().name, "PR_REMINDER_FLAG");
    const auto second = NameRows(SecondaryNameTable());
    const auto byTag = [](const CNameRow& a, const CNameRow& b) { return PROP_ID(a.tag) < PROP_ID(b.tag); };
    EXPECT_TRUE(std::is_sorted(second.begin(), second.end(), byTag));
    EXPECT_STREQ(second.front().name, "PR_ACKNOWLEDGEMENT_MODE");
    EXPECT_STREQ(second.back().name, "PR_ATTACHMENT_HIDDEN");
}

TEST(QueryWords, ComeFromTheNames) {
    EXPECT_EQ(QueryWordFromName("PR_MESSAGE_CLASS"), "MessageClass");
    EXPECT_EQ(QueryWordFromName("PR_SUBJECT"), "Subject");
    EXPECT_EQ(QueryWordFromName("PR"), "");
    CUserFields fields;
    fields.AddDefaults();
    std::vector<std::string> list;
    fields.FillNames(list);
    EXPECT_EQ(std::count(list.begin(), list.end(), "MessageClass"), 1);
    EXPECT_EQ(std::count(list.begin(), list.end(), "Entryid"), 0);  // binary
    EXPECT_EQ(std::count(list.begin(), list.end(), "ReminderSet"), 2);
    EXPECT_EQ(list.back(), "OtherAddress");
}

TEST(UserFields, ResolveTakesTheFirstRowOfExactlyThatName) {
    CUserFields fields;
    fields.AddTag("Tagged", 0x12340003);
    fields.AddDefaults();
    EXPECT_EQ(fields.Count(), 24u);
    CComPtr<CFakeObject> object;
    object.Attach(new CFakeObject);
    EXPECT_EQ(fields.Resolve(object.Get(), "private"), 0u);
    EXPECT_EQ(fields.Resolve(nullptr, "Tagged"), 0x12340003u);
    EXPECT_EQ(PROP_TYPE(fields.Resolve(object.Get(), "Private")), static_cast<ULONG>(PT_BOOLEAN));
    const ULONG categories = fields.Resolve(object.Get(), "Categories");
    EXPECT_EQ(PROP_TYPE(categories), static_cast<ULONG>(PT_MV_STRING8));
    ASSERT_EQ(object->names.size(), 1u);
    EXPECT_EQ(object->names[0], L"Keywords");
    EXPECT_NE(fields.Resolve(object.Get(), "Email1DisplayName"),
              fields.Resolve(object.Get(), "EMail1DisplayName"));
    EXPECT_THROW(fields.Resolve(nullptr, "Private"), CNullAccess);
    object->namesEmpty = true;
    EXPECT_THROW(fields.Resolve(object.Get(), "Private"), CMAPIException);
}

}  // namespace
