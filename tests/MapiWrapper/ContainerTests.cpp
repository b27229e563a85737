// Folders, tables and row sets.
#include "FakeStore.h"

#include <gtest/gtest.h>

namespace {

using namespace fakes;

const HRESULT kFailure = static_cast<HRESULT>(MAPI_E_NO_ACCESS);

CFakeTable::CRow Row(const char* entryId, const char* name, LONG number) {
    return {{PR_ENTRYID, Bytes(PR_ENTRYID, entryId)},
            {PR_DISPLAY_NAME_A, Text(PR_DISPLAY_NAME_A, name)},
            {PR_IMPORTANCE, Number(PR_IMPORTANCE, number)}};
}

class RowSets : public NoFakeOutlives {
protected:
    CMapiRowSet Query(std::vector<CFakeTable::CRow> rows) {
        IMAPITablePtr table;
        table.Attach(new CFakeTable(std::move(rows)));
        return table.QueryRows({PR_ENTRYID, PR_DISPLAY_NAME_A, PR_IMPORTANCE, PR_SUBJECT_A});
    }
};

TEST_F(RowSets, IndexesFindEveryKindOfCell) {
    const CMapiRowSet rows = Query({Row("\x01\xAB", "a", 7), Row("\x02", "b", -7), Row("\x03", "a", 7)});
    ASSERT_EQ(rows.Count(), 3u);
    EXPECT_EQ(rows.FindRow(0, "01AB"), 0);
    EXPECT_EQ(rows.FindRowBinary(0, View("\x03")), 2);
    EXPECT_EQ(rows.FindRow(1, "b"), 1);
    EXPECT_EQ(rows.FindRow(2, "-7"), 1);
    EXPECT_EQ(rows.FindRow(1, "A"), -1);
    EXPECT_EQ(rows.FindRow(3, ""), -1);  // errors are not indexed
    std::vector<ULONG> found = {9};
    EXPECT_EQ(rows.FindRows(1, "a", found), 2);
    EXPECT_EQ(found, (std::vector<ULONG>{0, 2}));
    EXPECT_EQ(rows.FindRows(1, "c", found), 0);
    EXPECT_EQ(rows.FindRows(4, "a", found), -1);
    EXPECT_EQ(rows.FindRowByText(2, "-7"), 1);
    EXPECT_EQ(rows.FindRowByBinary(0, View("\x02")), 1);
    EXPECT_EQ(rows.FindRowByBinary(1, View("b")), -1);
}

TEST_F(RowSets, CellsOutOfRangeAreNullViews) {
    const CMapiRowSet rows = Query({Row("1", "a", 7)});
    EXPECT_TRUE(rows.Cell(1, 0).IsNull());
    EXPECT_TRUE(rows.Cell(0, 4).IsNull());
    EXPECT_EQ(rows.Cell(1, 0).Type(), static_cast<ULONG>(PT_ERROR));
    EXPECT_FALSE(rows.Cell(0, 0).Owns());
}

TEST_F(RowSets, EmptyAndAbsentRows) {
    const CMapiRowSet none = Query({});
    EXPECT_EQ(none.Count(), 0u);
    EXPECT_EQ(none.FindRow(0, "x"), -1);
    CMapiRowSet absent;
    EXPECT_THROW(absent.Count(), CNullAccess);
    EXPECT_EQ(absent.FindRow(0, "x"), -1);
    EXPECT_EQ(absent.FindRowByText(0, "x"), -1);
    EXPECT_TRUE(absent.Cell(0, 0).IsNull());
}

TEST_F(RowSets, MoveViewDetachAndAttach) {
    CMapiRowSet rows = Query({Row("1", "a", 7)});
    EXPECT_EQ(rows.FindRow(1, "a"), 0);
    CMapiRowSet moved(std::move(rows));
    EXPECT_FALSE(rows.IsValid());
    EXPECT_EQ(moved.FindRow(1, "a"), 0);
    CMapiRowSet view;
    view.View(moved.Get());
    view.Free();
    EXPECT_EQ(moved.Count(), 1u);
    rows.Attach(moved.Detach());
    EXPECT_FALSE(moved.IsValid());
    rows = Query({});  // the former index goes with its rows
    EXPECT_EQ(rows.FindRow(1, "a"), -1);
}

TEST_F(RowSets, FailuresThrowOrReturnAsTheyShould) {
    IMAPITablePtr table;
    CFakeTable* fake = new CFakeTable({Row("1", "a", 7), Row("2", "b", 7)});
    table.Attach(fake);
    CMapiRowSet rows;
    EXPECT_EQ(table.SetColumnsAndQuery(rows, 1, 0, {PR_DISPLAY_NAME_A}), S_OK);
    EXPECT_EQ(rows.Count(), 1u);
    EXPECT_EQ(fake->columns, std::vector<ULONG>{PR_DISPLAY_NAME_A});
    EXPECT_EQ(table.SeekRow(1, BOOKMARK_BEGINNING), 1);
    EXPECT_EQ(table.QueryRows().Count(), 2u);  // the columns that the table has
    EXPECT_EQ(fake->columns, std::vector<ULONG>{PR_DISPLAY_NAME_A});
    fake->queryResult = kFailure;
    EXPECT_EQ(table.SetColumnsAndQuery(rows, 1, 0, {PR_DISPLAY_NAME_A}), kFailure);
    EXPECT_FALSE(rows.IsValid());
    EXPECT_EQ(ExpectThrows("IMAPITablePtr::QueryRows", [&] { table.QueryRows({PR_ENTRYID}); }), fake);
    EXPECT_THROW(table.SeekRow(1, BOOKMARK_BEGINNING), CMAPIException);
    EXPECT_THROW(IMAPITablePtr().QueryRows({PR_ENTRYID}), CNullAccess);
}

class Folders : public NoFakeOutlives {
protected:
    Folders() {
        m_fake = m_world.Add("folder", new CFakeFolder(m_world));
        m_child = m_world.Add("child", new CFakeFolder(m_world));
        m_store = m_world.Add("store", new CFakeMsgStore(m_world));
        m_folder = IMAPIFolderPtr(m_fake);
    }
    CFakeWorld m_world;
    CFakeFolder *m_fake, *m_child;
    CFakeMsgStore* m_store;
    IMAPIFolderPtr m_folder;
};

TEST_F(Folders, WhoOpensHoldsExactlyOneReference) {
    const ULONG before = m_child->References();
    {
        IMAPIPropPtr opened = m_folder.OpenEntryv(View("child"));
        EXPECT_EQ(m_child->References(), before + 1);
        IMAPIFolderPtr folder = opened.As<IMAPIFolderPtr>();
        EXPECT_EQ(m_child->References(), before + 2);
        opened = folder;
        EXPECT_EQ(m_child->References(), before + 2);
    }
    EXPECT_EQ(m_child->References(), before);
    ULONG type = 0;
    EXPECT_TRUE(m_folder.OpenEntry(View("child"), nullptr, 0, &type).IsValid());
    EXPECT_EQ(type, static_cast<ULONG>(MAPI_FOLDER));
    EXPECT_EQ(m_world.openFlags, (std::vector<ULONG>{MAPI_BEST_ACCESS, 0}));
}

TEST_F(Folders, ValuesThatAreNoEntryIdsAreNotFound) {
    SPropValue error{};
    error.ulPropTag = PROP_TAG(PT_ERROR, PROP_ID(PR_ENTRYID));
    ExpectThrows("CGenMapiContPtr::OpenEntryv", [&] { m_folder.OpenEntryv(error); });
    ExpectThrows("CGenMapiContPtr::OpenEntryv", [&] { m_folder.OpenEntryv(CMapiPropValue()); });
    ExpectThrows("CGenMapiContPtr::OpenEntry", [&] { m_folder.OpenEntry(error, nullptr, 0); });
    ExpectThrows("CGenMapiContPtr::OpenEntryv", [&] { m_folder.OpenEntryv(View("nobody")); });
    ExpectThrows("CGenMapiContPtr::OpenEntry", [&] { m_folder.OpenEntry(View("nobody"), nullptr, 0); });
}

TEST_F(Folders, SuccessWithoutAnObject) {
    m_world.emptySuccess = true;
    EXPECT_FALSE(m_folder.OpenEntryv(View("child"), MAPI_MODIFY).IsValid());
    EXPECT_FALSE(m_folder.OpenEntry(View("child"), nullptr, 0).IsValid());
    EXPECT_THROW(m_folder.OpenEntryv(View("child")), CNullAccess);
}

TEST_F(Folders, TablesNameThemselvesWhenTheyFail) {
    m_fake->contents = {Row("1", "a", 1)};
    EXPECT_EQ(m_folder._rawContentsTable().QueryRows({PR_ENTRYID}).Count(), 1u);
    EXPECT_EQ(m_folder._rawAssociatedTable().QueryRows({PR_ENTRYID}).Count(), 0u);
    m_fake->tableResult = kFailure;
    ExpectThrows("CGenMapiContPtr::_rawContentsTable", [&] { m_folder._rawContentsTable(); });
    ExpectThrows("CGenMapiContPtr::_rawAssociatedTable", [&] { m_folder._rawAssociatedTable(); });
    ExpectThrows("CGenMapiContPtr::_rawHierrarchyTable", [&] { m_folder._rawHierrarchyTable(); });
    EXPECT_FALSE(IMAPIFolderPtr()._rawContentsTable().IsValid());
    EXPECT_THROW(IMAPIFolderPtr()._rawHierrarchyTable(), CNullAccess);
}

TEST_F(Folders, ParentAndStoreByTheirEntryIds) {
    EXPECT_THROW(m_folder.Parent(m_store), CMAPIException);  // no such property
    m_fake->values[PR_PARENT_ENTRYID] = Bytes(PR_PARENT_ENTRYID, "child");
    EXPECT_EQ(m_folder.Parent(m_store).Get(), m_child);
    CComPtr<CFakeSession> session;
    session.Attach(new CFakeSession(m_world));
    EXPECT_EQ(m_folder.Parent(session.Get()).Get(), m_child);
    m_fake->values[PR_STORE_ENTRYID] = Bytes(PR_STORE_ENTRYID, "store");
    EXPECT_EQ(m_folder.MsgStore(session.Get()).Get(), m_store);
    m_fake->values[PR_PARENT_ENTRYID] = Number(PR_IMPORTANCE, 1);
    ExpectThrows("CGenMapiContPtr::Parent", [&] { m_folder.Parent(m_store); });
}

TEST_F(Folders, APathIsCreatedLevelByLevel) {
    const std::string path = "one/two//three/";
    IMAPIPropPtr last = CreateFolderPath(m_folder, path, '/');
    EXPECT_EQ(last.Get(), static_cast<IMAPIProp*>(m_fake));
    EXPECT_EQ(m_fake->createdFolders, (std::vector<std::string>{"one", "two", "", "three"}));
    EXPECT_EQ(m_fake->createFlags, (std::vector<ULONG>(4, OPEN_IF_EXISTS)));
    ExpectThrows("IMAPIFolderPtr::CreateFolder", [&] { CreateFolderPath(m_folder, "a/forbidden/b", '/'); });
    EXPECT_EQ(CreateFolderPath(m_folder, "", '/').Get(), static_cast<IMAPIProp*>(m_fake));
}

TEST_F(Folders, ASubfolderIsFoundByNameOrNot) {
    m_fake->children = {Row("folder", "other", 0), Row("child", "wanted", 0)};
    EXPECT_EQ(FindSubfolder(m_folder, "wanted").Get(), m_child);
    EXPECT_FALSE(FindSubfolder(m_folder, "absent").IsValid());
}

TEST_F(Folders, HiddenMessagesAreFoundOrCreated) {
    const IMessagePtr none = FindOrCreateHidden(m_folder, "files", "IPM.Vellum.IDs", false);
    EXPECT_FALSE(none.IsValid());
    const IMessagePtr made = FindOrCreateHidden(m_folder, "files", "IPM.Vellum.IDs", true);
    EXPECT_EQ(made.GetStrProp(PR_SUBJECT_A), "files");
    EXPECT_EQ(made.GetStrProp(PR_MESSAGE_CLASS_A), "IPM.Vellum.IDs");
    EXPECT_EQ(m_fake->createFlags, std::vector<ULONG>{MAPI_ASSOCIATED});
    CFakeMessage* hidden = m_world.Add("hidden", new CFakeMessage);
    const auto row = [](const char* id, const char* subject, const char* cls) {
        return CFakeTable::CRow{{PR_ENTRYID, Bytes(PR_ENTRYID, id)},
                                {PR_SUBJECT_A, Text(PR_SUBJECT_A, subject)},
                                {PR_MESSAGE_CLASS_A, Text(PR_MESSAGE_CLASS_A, cls)}};
    };
    m_fake->associated = {row("child", "files", "IPM.Other"), row("hidden", "files", "IPM.Vellum.IDs")};
    EXPECT_EQ(FindOrCreateHidden(m_folder, "files", "IPM.Vellum.IDs", true).Get(), hidden);
}

}  // namespace
