// Tables of a whole store, entered through the published interfaces.
#include <support/StoreFixture.h>

#include <vector>

namespace {

class StoreTables : public ::testing::Test {
protected:
    void SetUp() override {
        session = profile.LogOn();
        store = OpenTestStore(session.Get(), "Store 1");
        inbox = OpenReceiveFolder(store.Get());
    }
    void AddRecipient(IMessage* message, const char* name, LONG kind) {
        SPropValue props[2] = {};
        props[0].ulPropTag = PR_DISPLAY_NAME_A;
        props[0].Value.lpszA = const_cast<char*>(name);
        props[1].ulPropTag = PR_RECIPIENT_TYPE;
        props[1].Value.l = kind;
        ADRLIST list{};
        list.cEntries = 1;
        list.aEntries[0].cValues = 2;
        list.aEntries[0].rgPropVals = props;
        EXPECT_EQ(S_OK, message->ModifyRecipients(MODRECIP_ADD, &list));
    }
    void AddFile(IMessage* message, const char* name) {
        TestRef<IAttach> attach;
        ULONG number = 0;
        ASSERT_EQ(S_OK, message->CreateAttach(nullptr, 0, &number, attach.Out()));
        SPropValue value{};
        value.ulPropTag = PR_ATTACH_FILENAME_A;
        value.Value.lpszA = const_cast<char*>(name);
        EXPECT_EQ(S_OK, HrSetOneProp(attach.Get(), &value));
        EXPECT_EQ(S_OK, attach->SaveChanges(0));
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
        TestRef<IMAPITable> table;
        EXPECT_EQ(S_OK, inbox->GetContentsTable(0, table.Out()));
        EXPECT_EQ(S_OK, table->Restrict(&outer, TBL_BATCH));
        ULONG count = 0;
        EXPECT_EQ(S_OK, table->GetRowCount(0, &count));
        return count;
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
    AddRecipient(first.Get(), "Ann", MAPI_TO);
    AddRecipient(first.Get(), "Bob", MAPI_CC);
    AddFile(first.Get(), "plan.txt");
    EXPECT_EQ(S_OK, first->SaveChanges(0));
    const auto second = NewMessage(inbox.Get(), "second");
    AddRecipient(second.Get(), "Bob", MAPI_TO);
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

TEST_F(StoreTables, TimesAreAnsweredAlikeWithAndWithoutTheirBound) {
    std::vector<FILETIME> times;
    for (int i = 0; i < 20; ++i) {
        const auto message = SavedMessage(inbox.Get(), "m");
        LPSPropValue time = nullptr;
        ASSERT_EQ(S_OK, HrGetOneProp(message.Get(), PR_LAST_MODIFICATION_TIME, &time));
        times.push_back(time->Value.ft);
        MAPIFreeBuffer(time);
    }
    for (ULONG relop = RELOP_LT; relop <= RELOP_NE; ++relop) {
        const ULONG expected[] = {7, 8, 12, 13, 1, 19};
        SPropValue value{};
        value.ulPropTag = PR_LAST_MODIFICATION_TIME;
        value.Value.ft = times[7];
        SRestriction plain{}, twice[2] = {}, negated{};
        plain.rt = RES_PROPERTY;
        plain.res.resProperty = {relop, PR_LAST_MODIFICATION_TIME, &value};
        EXPECT_EQ(expected[relop], CountWhere(plain));
        twice[0].rt = RES_NOT;
        twice[0].res.resNot.lpRes = &plain;
        negated.rt = RES_NOT;
        negated.res.resNot.lpRes = &twice[0];
        EXPECT_EQ(expected[relop], CountWhere(negated));
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
