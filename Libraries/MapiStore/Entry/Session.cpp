#include "Session.h"

#include <MapiStore/Core/MapiThreads.h>
#include <MapiStore/Objects/Folder.h>
#include <MapiStore/Objects/MsgStore.h>
#include <MapiStore/Storage/WellKnown.h>
#include <MapiStore/Tables/Tables.h>
#include "AddrBook.h"
#include "Admin.h"

namespace {

std::string StoreRow(const ProfileStore& store) {
    const StoreEntryId entry = MakeEntryId(store.uid, 0);
    const std::string_view entryBytes(reinterpret_cast<const char*>(&entry), sizeof entry);
    const std::uint16_t isDefault = store.isDefault;
    CPropertyBag bag;
    bag.Set(PROP_ID(PR_ENTRYID), PT_BINARY, entryBytes);
    bag.Set(PROP_ID(PR_STORE_ENTRYID), PT_BINARY, entryBytes);
    bag.Set(PROP_ID(PR_INSTANCE_KEY), PT_BINARY, store.uid.View());
    bag.Set(PROP_ID(PR_RECORD_KEY), PT_BINARY, store.uid.View());
    bag.Set(PROP_ID(PR_STORE_RECORD_KEY), PT_BINARY, store.uid.View());
    bag.SetText(PROP_ID(PR_DISPLAY_NAME), store.name);
    bag.SetText(PROP_ID(PR_PROVIDER_DISPLAY), "Vellum");
    bag.SetLong(PROP_ID(PR_RESOURCE_TYPE), MAPI_STORE_PROVIDER);
    bag.SetLong(PROP_ID(PR_RESOURCE_FLAGS), store.isDefault ? STATUS_DEFAULT_STORE : 0);
    bag.SetLong(PROP_ID(PR_OBJECT_TYPE), MAPI_STORE);
    bag.Set(PROP_ID(PR_DEFAULT_STORE), PT_BOOLEAN,
            {reinterpret_cast<const char*>(&isDefault), sizeof isDefault});
    bag.Set(PROP_ID(PR_MDB_PROVIDER), PT_BINARY,
            {reinterpret_cast<const char*>(&kStoreProvider), sizeof kStoreProvider});
    return bag.Build({}).small;
}

const std::vector<ULONG> kStoreColumns = {PR_DISPLAY_NAME,     PR_ENTRYID,         PR_RESOURCE_FLAGS,
                                          PR_DEFAULT_STORE,    PR_MDB_PROVIDER,    PR_OBJECT_TYPE,
                                          PR_RECORD_KEY,       PR_INSTANCE_KEY,    PR_RESOURCE_TYPE,
                                          PR_PROVIDER_DISPLAY, PR_STORE_RECORD_KEY};

void ParseEntry(ULONG cb, const ENTRYID* id, StoreUid& uid, ObjectId& number) {
    Require(cb != 0 && id, MAPI_E_INVALID_PARAMETER);
    Require(ParseEntryId(cb, id, uid, number), MAPI_E_INVALID_ENTRYID);
}

}  // namespace

void* CSession::FindInterface(REFIID riid) {
    return riid == IID_IUnknown || riid == IID_IMAPISession ? static_cast<IMAPISession*>(this) : nullptr;
}

namespace {
struct Shared {
    std::mutex mutex;
    const CSession* session = nullptr;
    std::string profile;
};
Shared& TheShared() {
    static auto* shared = new Shared;  // a session may outlast the statics
    return *shared;
}
}  // namespace

void CSession::Share(const std::string& profile) {
    Shared& shared = TheShared();
    const std::lock_guard lock(shared.mutex);
    if (shared.session == nullptr) shared.session = this, shared.profile = profile;
}

void CSession::Unshare() {
    Shared& shared = TheShared();
    const std::lock_guard lock(shared.mutex);
    if (shared.session == this) shared.session = nullptr, shared.profile.clear();
}

std::string CSession::SharedProfile() {
    Shared& shared = TheShared();
    const std::lock_guard lock(shared.mutex);
    return shared.profile;
}

void CSession::RequireLoggedOn() {
    const std::lock_guard lock(m_mutex);
    Require(!m_loggedOff, MAPI_E_END_OF_SESSION);
}

CSession::OpenStore CSession::StoreOf(const StoreUid& uid) {
    const std::lock_guard lock(m_mutex);
    Require(!m_loggedOff, MAPI_E_END_OF_SESSION);
    const auto open = m_stores.find(uid);
    if (open != m_stores.end()) return open->second;
    for (const ProfileStore& store : m_profile.Stores()) {
        if (!(store.uid == uid)) continue;
        OpenStore opened{CStoreCore::Open(m_profile.PathOf(store)), store.isDefault};
        Require(opened.core->Uid() == uid, MAPI_E_CORRUPT_STORE);
        m_stores.emplace(uid, opened);
        return opened;
    }
    throw CStoreError(MAPI_E_NOT_FOUND);
}

HRESULT CSession::GetLastError(HRESULT hr, ULONG flags, LPMAPIERROR* error) {
    return GiveLastError(hr, flags, error);
}

HRESULT CSession::GetMsgStoresTable(ULONG flags, LPMAPITABLE* table) {
    return GuardedCall([&] {
        Require(table, MAPI_E_INVALID_PARAMETER);
        *table = nullptr;
        Require((flags & ~static_cast<ULONG>(MAPI_UNICODE)) == 0, MAPI_E_UNKNOWN_FLAGS);
        RequireLoggedOn();
        std::vector<std::string> rows;
        for (const ProfileStore& store : m_profile.Stores())
            rows.push_back(StoreRow(store));
        OpenRowsTable(nullptr, std::move(rows), kStoreColumns, flags, table);
        return S_OK;
    });
}

IUnknown* CSession::OpenStoreObject(const OpenStore& store, const IID* iid, bool writable) {
    auto object = CRef<CMsgStore>::Take(new CMsgStore(store.core, writable, store.isDefault));
    void* asked = nullptr;
    const HRESULT hr = object->QueryInterface(iid ? *iid : IID_IMsgStore, &asked);
    if (FAILED(hr)) throw CStoreError(hr);
    return static_cast<IUnknown*>(asked);
}

HRESULT CSession::OpenMsgStore(ULONG_PTR, ULONG cb, LPENTRYID id, LPCIID iid, ULONG flags, LPMDB* store) {
    return GuardedCall([&] {
        Require(store, MAPI_E_INVALID_PARAMETER);
        *store = nullptr;
        Require(IsMapiThread(), MAPI_E_NOT_INITIALIZED);
        constexpr ULONG known =
            MDB_NO_DIALOG | MDB_WRITE | MDB_TEMPORARY | MDB_NO_MAIL | MAPI_BEST_ACCESS | MAPI_DEFERRED_ERRORS;
        Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
        StoreUid uid;
        ObjectId number = 0;
        ParseEntry(cb, id, uid, number);
        const OpenStore open = StoreOf(uid);
        const CStoreCall call(*open.core);
        Require(!(flags & MDB_WRITE) || (flags & MAPI_BEST_ACCESS) || !open.core->IsReadOnly(),
                MAPI_E_NO_ACCESS);
        *store = static_cast<IMsgStore*>(
            OpenStoreObject(open, iid, (flags & (MDB_WRITE | MAPI_BEST_ACCESS)) != 0));
        return S_OK;
    });
}

HRESULT CSession::OpenEntry(ULONG cb, LPENTRYID id, LPCIID iid, ULONG flags, ULONG* type, LPUNKNOWN* object) {
    return GuardedCall([&] {
        Require(object, MAPI_E_INVALID_PARAMETER);
        *object = nullptr;
        constexpr ULONG known = MAPI_MODIFY | MAPI_BEST_ACCESS | MAPI_DEFERRED_ERRORS;
        Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
        RequireLoggedOn();
        OneOff one;
        if (ParseOneOff(cb, id, one)) {
            *object = OpenOneOff(cb, id, iid);
            if (type) *type = MAPI_MAILUSER;
            return S_OK;
        }
        StoreUid uid;
        ObjectId number = 0;
        ParseEntry(cb, id, uid, number);
        const OpenStore open = StoreOf(uid);
        const CStoreCall call(*open.core);
        const bool writable = (flags & (MAPI_MODIFY | MAPI_BEST_ACCESS)) != 0;
        if (number == 0) {
            *object = OpenStoreObject(open, iid, writable);
            if (type) *type = MAPI_STORE;
        } else {
            OpenById(open.core, number, iid, flags, writable && !open.core->IsReadOnly(), type, object);
        }
        return S_OK;
    });
}

HRESULT CSession::CompareEntryIDs(ULONG cb1, LPENTRYID id1, ULONG cb2, LPENTRYID id2, ULONG flags,
                                  ULONG* result) {
    return GuardedCall([&] {
        Require(result, MAPI_E_INVALID_PARAMETER);
        Require(flags == 0, MAPI_E_UNKNOWN_FLAGS);
        *result = SameEntry(cb1, id1, cb2, id2);
        return S_OK;
    });
}

HRESULT CSession::Advise(ULONG cb, LPENTRYID id, ULONG mask, LPMAPIADVISESINK sink, ULONG* connection) {
    return GuardedCall([&] {
        Require(sink && connection, MAPI_E_INVALID_PARAMETER);
        Require(cb != 0, MAPI_E_NO_SUPPORT);  // the session itself has nothing to tell
        StoreUid uid;
        ObjectId number = 0;
        ParseEntry(cb, id, uid, number);
        const OpenStore open = StoreOf(uid);
        const CStoreCall call(*open.core);
        *connection = AdviseObject(open.core, number, mask, sink);
        return S_OK;
    });
}

HRESULT CSession::Unadvise(ULONG connection) {
    return GuardedCall([&] {
        UnadviseObject(connection);
        return S_OK;
    });
}

HRESULT CSession::OpenAddressBook(ULONG_PTR, LPCIID iid, ULONG, LPADRBOOK* book) {
    return GuardedCall([&] {
        Require(book, MAPI_E_INVALID_PARAMETER);
        *book = nullptr;
        Require(!iid || *iid == IID_IAddrBook, MAPI_E_INTERFACE_NOT_SUPPORTED);
        RequireLoggedOn();
        *book = new CAddrBook;
        return S_OK;
    });
}

HRESULT CSession::GetStatusTable(ULONG flags, LPMAPITABLE* table) {
    return GuardedCall([&] {
        Require(table, MAPI_E_INVALID_PARAMETER);
        *table = nullptr;
        RequireLoggedOn();
        OpenRowsTable(nullptr, {}, {PR_DISPLAY_NAME, PR_RESOURCE_TYPE, PR_STATUS_CODE}, flags & MAPI_UNICODE,
                      table);
        return S_OK;
    });
}

HRESULT CSession::QueryIdentity(ULONG* cb, LPENTRYID* id) {
    if (!cb || !id) return MAPI_E_INVALID_PARAMETER;
    *cb = 0;
    *id = nullptr;
    return MAPI_W_NO_SERVICE;  // no service of the profile stands for a person
}

HRESULT CSession::Logoff(ULONG_PTR, ULONG, ULONG) {
    return GuardedCall([&] {
        std::map<StoreUid, OpenStore> stores;
        Unshare();
        {
            const std::lock_guard lock(m_mutex);
            m_loggedOff = true;
            stores.swap(m_stores);
        }
        for (auto& [uid, store] : stores) {
            const CStoreLock lock(*store.core);
            store.core->CommitGathered();
        }
        return S_OK;
    });
}

HRESULT CSession::SetDefaultStore(ULONG flags, ULONG cb, LPENTRYID id) {
    return GuardedCall([&] {
        Require(flags == MAPI_DEFAULT_STORE, MAPI_E_NO_SUPPORT);
        RequireLoggedOn();
        StoreUid uid;
        ObjectId number = 0;
        ParseEntry(cb, id, uid, number);
        CProfile(m_profile.Name()).SetDefaultStore(uid);
        const std::lock_guard lock(m_mutex);
        for (auto& [one, store] : m_stores)
            store.isDefault = one == uid;
        return S_OK;
    });
}

HRESULT CSession::AdminServices(ULONG flags, LPSERVICEADMIN* admin) {
    return GuardedCall([&] {
        Require(admin, MAPI_E_INVALID_PARAMETER);
        *admin = nullptr;
        Require((flags & ~static_cast<ULONG>(MAPI_UNICODE)) == 0, MAPI_E_UNKNOWN_FLAGS);
        RequireLoggedOn();
        *admin = MakeServiceAdmin(m_profile.Name());
        return S_OK;
    });
}
