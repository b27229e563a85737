#include <MapiWrapper/MapiSession.h>
#include <MapiWrapper/OpenObject.h>

#include <cstring>

namespace {

// Where the provider's UID stands in a published entry ID.
constexpr ULONG kUidOffset = 4;
constexpr ULONG kUidSize = 16;

IMAPITablePtr StoresTable(IMAPISession* session) {
    IMAPITablePtr table;
    THROW_ON_FAILURE_FOR(session->GetMsgStoresTable(0, table.Out()), session);
    return table;
}

// The row of the store in which an entry ID lies, or -1.
int RowOfStore(const CMapiRowSet& rows, const SBinary& entryId) {
    if (!entryId.lpb || entryId.cb < kUidOffset + kUidSize) return -1;
    return rows.FindRowByBinary(0, SBinary{kUidSize, entryId.lpb + kUidOffset});
}

}  // namespace

void CMapiSession::Free() {
    m_session.Free();
    m_companion.Free();
}

HRESULT CMapiSession::OpenEntry(const SBinary& entryId, LPCIID iid, ULONG flags, ULONG* type,
                                CComPtr<IUnknown>& out) const {
    ULONG unused = 0;
    return (*this)->OpenEntry(entryId.cb, reinterpret_cast<ENTRYID*>(entryId.lpb), iid, flags,
                              type ? type : &unused, out.Out());
}

HRESULT CMapiSession::OpenEntry(const SBinary& entryId, CComPtr<IUnknown>& out) const {
    return OpenEntry(entryId, nullptr, MAPI_BEST_ACCESS, nullptr, out);
}

IMsgStorePtr CMapiSession::OpenStore(const SBinary& entryId) const {
    IMAPISession* raw = NotNull(m_session.Get(), "CMapiSession::OpenStore");
    IMAPIPropPtr object;
    THROW_ON_FAILURE_FOR(OpenObject(raw, entryId, nullptr, MAPI_BEST_ACCESS, nullptr, object), raw);
    return object.As<IMsgStorePtr>();
}

HRESULT CMapiSession::OpenStoreByName(const std::string& name, IMsgStorePtr& store) const {
    store = IMsgStorePtr();
    IMAPISession* raw = NotNull(m_session.Get(), "CMapiSession::OpenStoreByName");
    const IMAPITablePtr table = StoresTable(raw);
    CMapiRowSet rows;
    HRESULT hr = table.QueryAllWithRestriction(nullptr, nullptr, rows, {PR_ENTRYID, PR_DISPLAY_NAME_A});
    if (hr < 0) return hr;
    const int row = rows.FindRowByText(1, name);
    if (row < 0) return static_cast<HRESULT>(MAPI_E_NOT_FOUND);
    IMAPIPropPtr object;
    hr = OpenObject(raw, rows.Cell(static_cast<ULONG>(row), 0).Binary(), nullptr, MAPI_BEST_ACCESS, nullptr,
                    object);
    if (hr >= 0) store = object.As<IMsgStorePtr>();
    return hr;
}

IMsgStorePtr CMapiSession::OpenDefaultStore() const {
    try {
        const IMAPITablePtr table = StoresTable(NotNull(m_session.Get(), "CMapiSession::OpenDefaultStore"));
        CMapiRowSet rows;
        if (!table || table.QueryAllWithRestriction(nullptr, nullptr, rows,
                                                    {PR_ENTRYID, PR_DISPLAY_NAME_A, PR_RESOURCE_FLAGS}) < 0)
            return {};
        for (ULONG row = 0; row < rows.Count(); ++row) {
            if ((static_cast<ULONG>(rows.Cell(row, 2).Long()) & STATUS_DEFAULT_STORE) != 0)
                return OpenStore(rows.Cell(row, 0).Binary());
        }
    } catch (const CMAPIException&) {
    } catch (const CNullAccess&) {
    }
    return {};
}

CMapiBinary CMapiSession::GetStoreEntryId(const SBinary& entryId) const {
    const IMAPITablePtr table = StoresTable(NotNull(m_session.Get(), "CMapiSession::GetStoreEntryId"));
    const CMapiRowSet rows = table.QueryRows({PR_STORE_RECORD_KEY, PR_ENTRYID, PR_DISPLAY_NAME_A});
    const int row = RowOfStore(rows, entryId);
    return row < 0 ? CMapiBinary() : CMapiBinary(rows.Cell(static_cast<ULONG>(row), 1).Binary());
}

IMAPIPropPtr CMapiSession::OpenEntryInAnyStore(const SBinary& entryId, const SBinary* storeEntryId,
                                               ULONG flags, ULONG* type) const {
    IMsgStorePtr store;
    if (storeEntryId) {
        store = OpenStore(*storeEntryId);
    } else {
        const CMapiBinary found = GetStoreEntryId(entryId);
        if (!found.IsEmpty()) store = OpenStore(found);
    }
    if (!store) THROW_ON_FAILURE_FOR(static_cast<HRESULT>(MAPI_E_NOT_FOUND), m_session.Get());
    return store.OpenEntry(entryId, nullptr, flags, type);
}

namespace {

IMsgStorePtr RequireDefaultStore(const CMapiSession& session, const char* where) {
    IMsgStorePtr store = session.OpenDefaultStore();
    NotNull(store.Get(), where);
    return store;
}

IMAPIFolderPtr OpenByTag(const IMsgStorePtr& store, ULONG tag) {
    CMapiPropValue value;
    THROW_ON_FAILURE_FOR(store.GetOneProp(tag, value), store.Get());
    return store.OpenEntry(value.Binary()).As<IMAPIFolderPtr>();
}

}  // namespace

IMAPIFolderPtr CMapiSession::GetInbox() const {
    return RequireDefaultStore(*this, "CMapiSession::GetInbox").GetReceiveFolder("");
}

IMAPIFolderPtr CMapiSession::GetOutbox() const {
    return OpenByTag(RequireDefaultStore(*this, "CMapiSession::GetOutbox"), PR_IPM_OUTBOX_ENTRYID);
}

IMAPIFolderPtr CMapiSession::GetSentMail() const {
    return OpenByTag(RequireDefaultStore(*this, "CMapiSession::GetSentMail"), PR_IPM_SENTMAIL_ENTRYID);
}
