// The session: the stores of the profile and what lies in them.
#pragma once
#include <MapiWrapper/MapiFolder.h>
#include <MapiWrapper/MsgStore.h>
#include <Platform/MapiHeaders.h>

#include <string>

// A copy shares the session. Operations on an empty one throw CNullAccess unless told otherwise.
class CMapiSession {
public:
    CMapiSession() = default;
    explicit CMapiSession(IMAPISession* session) : m_session(session) {}  // adds a reference

    void Attach(IMAPISession* session) { m_session.Attach(session); }  // takes the caller's reference
    void Free();
    IMAPISession* Raw() const { return m_session.Get(); }
    IMAPISession* operator->() const { return NotNull(m_session.Get(), "CMapiSession"); }
    bool IsValid() const { return static_cast<bool>(m_session); }
    explicit operator bool() const { return IsValid(); }

    // The HRESULT of IMAPISession::OpenEntry. The second form uses MAPI_BEST_ACCESS.
    HRESULT OpenEntry(const SBinary& entryId, LPCIID iid, ULONG flags, ULONG* type,
                      CComPtr<IUnknown>& out) const;
    HRESULT OpenEntry(const SBinary& entryId, CComPtr<IUnknown>& out) const;

    IMsgStorePtr OpenStore(const SBinary& entryId) const;  // MAPI_BEST_ACCESS; throws
    // The first store of the table whose display name equals `name`. MAPI_E_NOT_FOUND when none does;
    // `store` is then empty. Throws only where the store table cannot be had.
    HRESULT OpenStoreByName(const std::string& name, IMsgStorePtr& store) const;
    // Empty where there is none or it does not open. Never throws.
    IMsgStorePtr OpenDefaultStore() const;
    // In the given store, or with a null store in the one whose record key equals bytes 4 to 19 of the
    // entry ID. Throws MAPI_E_NOT_FOUND where no store is found, also for an entry ID of fewer than 20
    // bytes.
    IMAPIPropPtr OpenEntryInAnyStore(const SBinary& entryId, const SBinary* storeEntryId, ULONG flags,
                                     ULONG* type = nullptr) const;
    // The entry ID of that store; empty where none is found. Throws only from the table.
    CMapiBinary GetStoreEntryId(const SBinary& entryId) const;

    // Folders of the default store. Throw; CNullAccess where there is no default store.
    IMAPIFolderPtr GetInbox() const;
    IMAPIFolderPtr GetOutbox() const;
    IMAPIFolderPtr GetSentMail() const;

private:
    CComPtr<IUnknown> m_companion;
    CComPtr<IMAPISession> m_session;
};

// 1 outbox, 2 and 4 sent items (as IPM folder and as the store's own), 3 wastebasket, 0 none of them.
// Throws.
int GetFolderKind(const IMAPIFolderPtr& folder, const CMapiSession& session);

// The folder's path below the IPM root, the empty text for the root itself. What was gathered so far when
// a call fails. Throws only where the folder's store or its root cannot be opened.
std::string GetFolderPath(const CMapiSession& session, const IMAPIFolderPtr& folder, char separator);
// With "\" and up to the store's top, without looking for the IPM root.
std::string GetFolderPathOf(const CMapiSession& session, const IMAPIFolderPtr& folder);

// --- logon -----------------------------------------------------------------------------------------
// MAPIInitialize, then MAPILogonEx: with a name a session of its own on that profile, without one the session
// that is shared on the machine or one on the default profile. The first form takes the name from the value
// "Profil" of Software\Ostrand\Tarn. S_OK, or the failing code with `session` untouched and MAPI left.
// Whoever gets S_OK calls LogoffMapi once, on the same thread; other threads that use the session have a
// CMapiThread each.
HRESULT LogonMapi(CMapiSession& session);
HRESULT LogonMapi(const std::string& profile, CMapiSession& session);
// Logs off, drops the session and leaves MAPI.
void LogoffMapi(CMapiSession& session);
// The profile name of the registry, at most 209 bytes; empty if there is none.
std::string ConfiguredProfileName();
