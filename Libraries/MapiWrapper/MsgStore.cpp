#include <MapiWrapper/MsgStore.h>
#include <MapiWrapper/OpenObject.h>

#include <cstring>

IMAPIFolderPtr IMsgStorePtr::OpenKnownFolder(ULONG tag, const char* context) const {
    IMsgStore* raw = NotNull(m_object.Get(), context);
    CMapiPropValue value;
    THROW_ON_FAILURE_FOR(GetOneProp(tag, value), raw);
    if (value.Type() != PT_BINARY) throw CMAPIException(MAPI_E_NOT_FOUND, context, raw);
    return OpenEntry(value.Binary()).As<IMAPIFolderPtr>();
}

IMAPIFolderPtr IMsgStorePtr::_getIPMRoot() const {
    return OpenKnownFolder(PR_IPM_SUBTREE_ENTRYID, "IMsgStorePtr::_getIPMRoot");
}

IMAPIFolderPtr IMsgStorePtr::GetWastebasket() const {
    return OpenKnownFolder(PR_IPM_WASTEBASKET_ENTRYID, "IMsgStorePtr::GetWastebasket");
}

IMAPIFolderPtr IMsgStorePtr::GetReceiveFolder(const std::string& messageClass) const {
    IMsgStore* raw = NotNull(m_object.Get(), "IMsgStorePtr::GetReceiveFolder");
    ULONG cb = 0;
    ENTRYID* entryId = nullptr;
    CStoreText text(Text());
    THROW_ON_FAILURE_FOR(
        raw->GetReceiveFolder(text.Argument(messageClass), text.Flag(), &cb, &entryId, nullptr), raw);
    CMapiBinary copy;
    copy.Assign(entryId, cb);
    if (entryId) MAPIFreeBuffer(entryId);
    return OpenEntry(copy).As<IMAPIFolderPtr>();
}

IMAPITablePtr IMsgStorePtr::GetReceiveFolderTable() const {
    IMsgStore* raw = NotNull(m_object.Get(), "IMsgStorePtr::GetReceiveFolderTable");
    IMAPITablePtr table;
    THROW_ON_FAILURE_FOR(raw->GetReceiveFolderTable(0, table.Out()), raw);
    table.SetText(Text());
    return table;
}

IMAPIPropPtr IMsgStorePtr::OpenEntry(const SBinary& entryId, LPCIID iid, ULONG flags, ULONG* type) const {
    IMsgStore* raw = NotNull(m_object.Get(), "IMsgStorePtr::OpenEntry");
    IMAPIPropPtr object;
    THROW_ON_FAILURE_FOR(OpenObject(raw, entryId, iid, flags, type, object), raw);
    object.SetText(Text());
    return object;
}

IMAPIPropPtr IMsgStorePtr::OpenEntry(const SBinary& entryId) const {
    IMAPIPropPtr object = OpenEntry(entryId, nullptr, MAPI_BEST_ACCESS);
    NotNull(object.Get(), "IMsgStorePtr::OpenEntry");
    return object;
}

bool IMsgStorePtr::CompareEntryIDs(const SBinary& a, const SBinary& b) const {
    if (!m_object) return false;
    ULONG equal = 0;
    const HRESULT hr = m_object->CompareEntryIDs(a.cb, reinterpret_cast<ENTRYID*>(a.lpb), b.cb,
                                                 reinterpret_cast<ENTRYID*>(b.lpb), 0, &equal);
    return hr >= 0 && equal != 0;
}

namespace {

struct CProvider {
    int kind;
    BYTE uid[16];
};

constexpr CProvider kProviders[] = {
    {2, {0x54, 0x94, 0xA1, 0xC0, 0x29, 0x7F, 0x10, 0x1B, 0xA5, 0x87, 0x08, 0x00, 0x2B, 0x2A, 0x25, 0x17}},
    {2, {0x9E, 0xB4, 0x77, 0x00, 0x74, 0xE4, 0x11, 0xCE, 0x8C, 0x5E, 0x00, 0xAA, 0x00, 0x42, 0x54, 0xE2}},
    {3, {0x78, 0xB2, 0xFA, 0x70, 0xAF, 0xF7, 0x11, 0xCD, 0x9B, 0xC8, 0x00, 0xAA, 0x00, 0x2F, 0xC4, 0x5A}},
    {4, {0x7B, 0xE3, 0xC3, 0x80, 0x5B, 0x0A, 0x11, 0xCE, 0xB4, 0xE1, 0x00, 0xAA, 0x00, 0x51, 0x0E, 0x3B}},
};

}  // namespace

int GetStoreKind(const IMsgStorePtr& store) {
    CMapiPropValue value;
    if (store.GetOneProp(PR_MDB_PROVIDER, value) < 0 || value.Type() != PT_BINARY) return 0;
    return GetStoreKindOf(value.Binary());
}

int GetStoreKindOf(const SBinary& mdbProvider) {
    for (const CProvider& provider : kProviders) {
        if (mdbProvider.lpb && mdbProvider.cb >= 16 && std::memcmp(mdbProvider.lpb, provider.uid, 16) == 0)
            return provider.kind;
    }
    return 1;
}
