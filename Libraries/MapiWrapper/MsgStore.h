// A message store.
#pragma once
#include <MapiWrapper/GenMapiProp.h>
#include <MapiWrapper/MapiFolder.h>
#include <MapiWrapper/MapiTable.h>

#include <string>

class IMsgStorePtr : public CGenMapiPropPtr {
public:
    using Interface = IMsgStore;
    static const IID& InterfaceId() { return IID_IMsgStore; }

    IMsgStorePtr() = default;
    explicit IMsgStorePtr(IMsgStore* object) : m_object(object) {}  // adds a reference

    IMAPIProp* RawProp() const override { return m_object.Get(); }
    // Takes the caller's reference.
    void Attach(IMsgStore* object) {
        m_object.Attach(object);
        SetText(TextForm::Unknown);
    }
    IMsgStore* Detach() { return m_object.Detach(); }
    IMsgStore* Get() const { return m_object.Get(); }
    IMsgStore* operator->() const { return NotNull(m_object.Get(), "IMsgStorePtr"); }

    // Well-known folders, opened with MAPI_BEST_ACCESS. Throw; where the store has no such value,
    // MAPI_E_NOT_FOUND with the context "IMsgStorePtr::_getIPMRoot" or "IMsgStorePtr::GetWastebasket".
    IMAPIFolderPtr _getIPMRoot() const;
    IMAPIFolderPtr GetWastebasket() const;
    IMAPIFolderPtr GetReceiveFolder(const std::string& messageClass) const;  // throws
    IMAPITablePtr GetReceiveFolderTable() const;                             // throws
    // Throw. Success without an object gives an empty wrapper with flags given, CNullAccess without.
    IMAPIPropPtr OpenEntry(const SBinary& entryId, LPCIID iid, ULONG flags, ULONG* type = nullptr) const;
    IMAPIPropPtr OpenEntry(const SBinary& entryId) const;  // MAPI_BEST_ACCESS
    // True when the store says that both name the same object. Never throws.
    bool CompareEntryIDs(const SBinary& a, const SBinary& b) const;

private:
    IMAPIFolderPtr OpenKnownFolder(ULONG tag, const char* context) const;
    CComPtr<IMsgStore> m_object;
};

// What keeps a store: 0 unknown (no value), 1 any other, 2 a mailbox, 3 public folders, 4 personal
// folder files. Never throw.
int GetStoreKind(const IMsgStorePtr& store);
int GetStoreKindOf(const SBinary& mdbProvider);
