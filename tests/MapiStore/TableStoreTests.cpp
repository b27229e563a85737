// Tables of a whole store, entered through the published interfaces.
#include <vector>

#include "ItemParts.h"

namespace {

class StoreTables : public ::testing::Test {
protected:
    void SetUp() override {
        session = profile.LogOn();
        store = OpenTestStore(session.Get(), "Store 1");
        inbox = OpenReceiveFolder(store.Get());
    }
    // How many messages of the inbox have a recipient or attachment whose `tag` is `text`.
    ULONG CountWith(ULONG subObject, ULONG tag, const char* text) {
        SPropValue value{};
        value.ulPropTag = tag;
        value.Value.lpszA = const_cast<char*>(text);
        SRestriction inner{}, outer{};
        inner.rt = RES_PROPERTY;
        inner.res.resProperty = {RELOP_EQ, tag, &value};
        outer.rt = RES_SUBRESTRICTION;
        outer.res.resSub = {subObject, &inner};
        return CountWhere(outer);
    }
    ULONG CountWhere(SRestriction& restriction) {
        TestRef<IMAPITable> table;
        EXPECT_EQ(S_OK, inbox->GetContentsTable(0, table.Out()));
        EXPECT_EQ(S_OK, table->Restrict(&restriction, 0));
        ULONG count = 0;
        EXPECT_EQ(S_OK, table->GetRowCount(0, &count));
        return count;
    }

    TestProfile profile{"Tables", 1};
    TestRef<IMAPISession> session;
    TestRef<IMsgStore> store;
    TestRef<IMAPIFolder> inbox;
};

TEST_F(StoreTables, RestrictionsLookAtRecipientsAndAttachments) {
    const auto first = NewMessage(inbox.Get(), "first");
    EXPECT_EQ(S_OK, ModifyRecipient(first.Get(), MODRECIP_ADD, "Ann", MAPI_TO));
    EXPECT_EQ(S_OK, ModifyRecipient(first.Get(), MODRECIP_ADD, "Bob", MAPI_CC));
    EXPECT_EQ(S_OK, AddAttachment(first.Get(), "plan.txt", "plan")->SaveChanges(0));
    EXPECT_EQ(S_OK, first->SaveChanges(0));
    const auto second = NewMessage(inbox.Get(), "second");
    EXPECT_EQ(S_OK, ModifyRecipient(second.Get(), MODRECIP_ADD, "Bob", MAPI_TO));
    EXPECT_EQ(S_OK, second->SaveChanges(0));
    SavedMessage(inbox.Get(), "third");
    EXPECT_EQ(1u, CountWith(PR_MESSAGE_RECIPIENTS, PR_DISPLAY_NAME_A, "Ann"));
    EXPECT_EQ(2u, CountWith(PR_MESSAGE_RECIPIENTS, PR_DISPLAY_NAME_A, "Bob"));
    EXPECT_EQ(0u, CountWith(PR_MESSAGE_RECIPIENTS, PR_DISPLAY_NAME_A, "Eve"));
    EXPECT_EQ(1u, CountWith(PR_MESSAGE_ATTACHMENTS, PR_ATTACH_FILENAME_A, "plan.txt"));
}

TEST_F(StoreTables, RestrictionsLookAtLongTextWhole) {
    SavedMessage(inbox.Get(), "long", std::string(100000, 'x') + "needle");
    SavedMessage(inbox.Get(), "short", "hay");
    SPropValue value{};
    value.ulPropTag = PR_BODY_A;
    value.Value.lpszA = const_cast<char*>("NEEDLE");
    SRestriction content{};
    content.rt = RES_CONTENT;
    content.res.resContent = {FL_SUBSTRING | FL_IGNORECASE, PR_BODY_A, &value};
    EXPECT_EQ(1u, CountWhere(content));
    SRestriction size{};
    size.rt = RES_SIZE;
    size.res.resSize = {RELOP_GT, PR_BODY_A, 100000};
    EXPECT_EQ(1u, CountWhere(size));
}

TEST_F(StoreTables, TimesCompareByValue) {
    std::vector<FILETIME> times;
    for (int i = 0; i < 20; ++i) {
        const auto message = SavedMessage(inbox.Get(), "m");
        times.push_back(TimeOf(message.Get(), PR_LAST_MODIFICATION_TIME));
    }
    for (ULONG relop = RELOP_LT; relop <= RELOP_NE; ++relop) {
        const ULONG expected[] = {7, 8, 12, 13, 1, 19};
        SPropValue value{};
        value.ulPropTag = PR_LAST_MODIFICATION_TIME;
        value.Value.ft = times[7];
        SRestriction plain{};
        plain.rt = RES_PROPERTY;
        plain.res.resProperty = {relop, PR_LAST_MODIFICATION_TIME, &value};
        EXPECT_EQ(expected[relop], CountWhere(plain));
    }
}

TEST_F(StoreTables, FoldersCountWhatChangesInThem) {
    const auto parent = MakeFolder(inbox.Get(), "parent");
    TestRef<IMAPITable> table;
    ASSERT_EQ(S_OK, inbox->GetHierarchyTable(0, table.Out()));
    SizedSPropTagArray(3, columns) = {3, {PR_DISPLAY_NAME_A, PR_CONTENT_COUNT, PR_SUBFOLDERS}};
    for (LONG count = 0; count < 3; ++count) {
        SRowSet* rows = nullptr;
        ASSERT_EQ(S_OK, HrQueryAllRows(table.Get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr,
                                       nullptr, 0, &rows));
        ASSERT_EQ(1u, rows->cRows);
        EXPECT_STREQ("parent", rows->aRow[0].lpProps[0].Value.lpszA);
        EXPECT_EQ(count, rows->aRow[0].lpProps[1].Value.l);
        EXPECT_EQ(count > 0, rows->aRow[0].lpProps[2].Value.b != 0);
        FreeProws(rows);
        SavedMessage(parent.Get(), "m");
        if (count == 0) MakeFolder(parent.Get(), "child");
    }
}

}  // namespace
