// The session, its stores and the way from a folder to its path.
#include "FakeStore.h"

#include <gtest/gtest.h>

namespace {

using namespace fakes;

const std::string kUid = "0123456789abcdef";
const std::string kOtherUid = "ffffffffffffffff";

class Sessions : public NoFakeOutlives {
protected:
    Sessions() {
        m_session.Attach(m_fake);
        m_store = m_world.Add("store", new CFakeMsgStore(m_world));
        m_other = m_world.Add("other", new CFakeMsgStore(m_world));
        m_fake->AddStore("other", "Mail", kOtherUid, 0);
        m_fake->AddStore("store", "Mail", kUid, STATUS_DEFAULT_STORE);
        m_root = AddFolder("root", "Top of store", "top");
        AddFolder("top", "", "top");
        AddFolder("a", "A", "root");
        AddFolder("b", "B", "a");
        m_store->values[PR_IPM_SUBTREE_ENTRYID] = Bytes(PR_IPM_SUBTREE_ENTRYID, "root");
        m_store->values[PR_IPM_OUTBOX_ENTRYID] = Bytes(PR_IPM_OUTBOX_ENTRYID, "a");
        m_store->values[PR_IPM_SENTMAIL_ENTRYID] = Bytes(PR_IPM_SENTMAIL_ENTRYID, "b");
        m_store->values[PR_SENTMAIL_ENTRYID] = Bytes(PR_SENTMAIL_ENTRYID, "root");
        m_store->receiveFolder = "a";
    }
    CFakeFolder* AddFolder(const std::string& id, const char* name, const std::string& parent) {
        CFakeFolder* folder = m_world.Add(id, new CFakeFolder(m_world));
        folder->values[PR_DISPLAY_NAME_A] = Text(PR_DISPLAY_NAME_A, name);
        folder->values[PR_PARENT_ENTRYID] = Bytes(PR_PARENT_ENTRYID, parent);
        folder->values[PR_STORE_ENTRYID] = Bytes(PR_STORE_ENTRYID, "store");
        return folder;
    }
    IMAPIFolderPtr Folder(const char* id) {
        return IMAPIFolderPtr(static_cast<IMAPIFolder*>(m_world.objects[id].Get()));
    }
    CFakeWorld m_world;
    CFakeSession* m_fake = new CFakeSession(m_world);
    CMapiSession m_session;
    CFakeMsgStore *m_store, *m_other;
    CFakeFolder* m_root;
};

TEST_F(Sessions, OfTwoStoresOfOneNameTheFirstOpens) {
    IMsgStorePtr store;
    EXPECT_EQ(m_session.OpenStoreByName("Mail", store), S_OK);
    EXPECT_EQ(store.Get(), m_other);
    EXPECT_EQ(m_session.OpenStoreByName("mail", store), static_cast<HRESULT>(MAPI_E_NOT_FOUND));
    EXPECT_FALSE(store.IsValid());
    m_fake->tableResult = static_cast<HRESULT>(MAPI_E_NO_ACCESS);
    EXPECT_THROW(m_session.OpenStoreByName("Mail", store), CMAPIException);
}

TEST_F(Sessions, TheDefaultStoreAndItsFolders) {
    const ULONG before = m_store->References();
    EXPECT_EQ(m_session.OpenDefaultStore().Get(), m_store);
    EXPECT_EQ(m_session.GetInbox().Get(), Folder("a").Get());
    EXPECT_EQ(m_session.GetOutbox().Get(), Folder("a").Get());
    EXPECT_EQ(m_session.GetSentMail().Get(), Folder("b").Get());
    EXPECT_EQ(m_store->References(), before);
    m_fake->stores.pop_back();
    EXPECT_FALSE(m_session.OpenDefaultStore().IsValid());
    EXPECT_THROW(m_session.GetInbox(), CNullAccess);
    EXPECT_THROW(m_session.GetSentMail(), CNullAccess);
    m_fake->tableResult = static_cast<HRESULT>(MAPI_E_NO_ACCESS);
    EXPECT_FALSE(m_session.OpenDefaultStore().IsValid());
    EXPECT_FALSE(CMapiSession().OpenDefaultStore().IsValid());
}

TEST_F(Sessions, AnEntryIsFoundInTheStoreWhoseKeyItCarries) {
    const std::string entry = std::string(4, '\0') + kUid + "item";
    m_world.Add(entry, new CFakeMessage);
    EXPECT_EQ(m_session.GetStoreEntryId(View(entry)).Hex(), HexFromBinary(View("store")));
    EXPECT_TRUE(
        m_session.OpenEntryInAnyStore(View(entry), nullptr, MAPI_BEST_ACCESS).As<IMessagePtr>().IsValid());
    const std::string storeId = "other";
    const SBinary store = View(storeId);
    EXPECT_TRUE(m_session.OpenEntryInAnyStore(View(entry), &store, MAPI_BEST_ACCESS).IsValid());
}

TEST_F(Sessions, ShortAndForeignEntryIdsAreNotFound) {
    for (const std::string& entry :
         {std::string(), std::string("short"), std::string(4, '\0') + kUid.substr(1), std::string(30, 'z')}) {
        EXPECT_TRUE(m_session.GetStoreEntryId(View(entry)).IsEmpty());
        EXPECT_THROW(m_session.OpenEntryInAnyStore(View(entry), nullptr, 0), CMAPIException);
    }
}

TEST_F(Sessions, WellKnownFoldersOfAStore) {
    const IMsgStorePtr store(m_store);
    EXPECT_EQ(store._getIPMRoot().Get(), m_root);
    EXPECT_THROW(store.GetWastebasket(), CMAPIException);
    m_store->values[PR_IPM_WASTEBASKET_ENTRYID] = Bytes(PR_IPM_WASTEBASKET_ENTRYID, "b");
    EXPECT_EQ(store.GetWastebasket().Get(), Folder("b").Get());
    EXPECT_EQ(store.GetReceiveFolder("IPM").Get(), Folder("a").Get());
    EXPECT_TRUE(store.CompareEntryIDs(View("x"), View("x")));
    EXPECT_FALSE(store.CompareEntryIDs(View("x"), View("y")));
    EXPECT_FALSE(store.CompareEntryIDs(View("x"), View("")));
    m_store->values[PR_IPM_SUBTREE_ENTRYID] = Number(PR_IMPORTANCE, 1);
    ExpectThrows(
        "IMsgStorePtr::_getIPMRoot", [&] { store._getIPMRoot(); }, static_cast<HRESULT>(MAPI_E_NOT_FOUND));
}

TEST_F(Sessions, KindsOfStoresAndFolders) {
    const IMsgStorePtr store(m_store);
    EXPECT_EQ(GetStoreKind(store), 0);
    const char* const providers[] = {"5494A1C0297F101BA58708002B2A2517", "9EB4770074E411CE8C5E00AA004254E2",
                                     "78B2FA70AFF711CD9BC800AA002FC45A", "7BE3C3805B0A11CEB4E100AA00510E3B"};
    const int kinds[] = {2, 2, 3, 4};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(GetStoreKindOf(BinaryFromHex(providers[i])), kinds[i]);
    EXPECT_EQ(GetStoreKindOf(BinaryFromHex("00")), 1);
    m_store->values[PR_MDB_PROVIDER] = Bytes(PR_MDB_PROVIDER, "something else..");
    EXPECT_EQ(GetStoreKind(store), 1);
    EXPECT_EQ(GetFolderKind(Folder("a"), m_session), 1);
    EXPECT_EQ(GetFolderKind(Folder("b"), m_session), 2);
    EXPECT_EQ(GetFolderKind(Folder("root"), m_session), 4);
    AddFolder("bin", "Bin", "root");
    m_store->values[PR_IPM_WASTEBASKET_ENTRYID] = Bytes(PR_IPM_WASTEBASKET_ENTRYID, "bin");
    EXPECT_EQ(GetFolderKind(Folder("bin"), m_session), 3);
    EXPECT_EQ(GetFolderKind(Folder("top"), m_session), 0);
}

TEST_F(Sessions, ThePathEndsAtTheRootOfTheStore) {
    EXPECT_EQ(GetFolderPath(m_session, Folder("b"), '\\'), "A\\B");
    EXPECT_EQ(GetFolderPath(m_session, Folder("a"), '/'), "A");
    EXPECT_EQ(GetFolderPath(m_session, Folder("root"), '\\'), "");
    EXPECT_EQ(GetFolderPathOf(m_session, Folder("b")), "Top of store\\A\\B");
}

TEST_F(Sessions, AWalkThatFailsOrRunsInACircleEnds) {
    AddFolder("orphan", "Orphan", "gone");
    EXPECT_EQ(GetFolderPath(m_session, Folder("orphan"), '\\'), "Orphan");
    AddFolder("egg", "Egg", "hen");
    AddFolder("hen", "Hen", "egg");
    EXPECT_EQ(GetFolderPath(m_session, Folder("egg"), '\\').substr(0, 3), "Hen");
    AddFolder("self", "Self", "self");
    EXPECT_EQ(GetFolderPathOf(m_session, Folder("self")), "Self");
}

}  // namespace
