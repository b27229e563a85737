// IMAPISession on a profile.
#pragma once
#include <map>
#include <mutex>

#include <MapiStore/Core/StoreCall.h>
#include <MapiStore/Values/UnknownImpl.h>
#include "Profile.h"

class CSession : public CUnknownImpl<IMAPISession> {
public:
    explicit CSession(CProfile profile) : m_profile(std::move(profile)) {}
    ~CSession() override { Unshare(); }

    // Lets later logons of this process take part in the session, until it is logged off.
    void Share(const std::string& profile);
    // The profile of the session that is shared; empty if none is.
    static std::string SharedProfile();

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG, LPMAPIERROR* error) override;
    HRESULT STDMETHODCALLTYPE GetMsgStoresTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE OpenMsgStore(ULONG_PTR, ULONG cb, LPENTRYID id, LPCIID iid, ULONG flags,
                                           LPMDB* store) override;
    HRESULT STDMETHODCALLTYPE OpenAddressBook(ULONG_PTR, LPCIID iid, ULONG flags, LPADRBOOK* book) override;
    HRESULT STDMETHODCALLTYPE OpenProfileSection(LPMAPIUID, LPCIID, ULONG, LPPROFSECT*) override {
        return kNone;
    }
    HRESULT STDMETHODCALLTYPE GetStatusTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG cb, LPENTRYID id, LPCIID iid, ULONG flags, ULONG* type,
                                        LPUNKNOWN* object) override;
    HRESULT STDMETHODCALLTYPE CompareEntryIDs(ULONG cb1, LPENTRYID id1, ULONG cb2, LPENTRYID id2, ULONG flags,
                                              ULONG* result) override;
    HRESULT STDMETHODCALLTYPE Advise(ULONG cb, LPENTRYID id, ULONG mask, LPMAPIADVISESINK sink,
                                     ULONG* connection) override;
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG connection) override;
    HRESULT STDMETHODCALLTYPE MessageOptions(ULONG_PTR, ULONG, LPTSTR, LPMESSAGE) override { return kNone; }
    HRESULT STDMETHODCALLTYPE QueryDefaultMessageOpt(LPTSTR, ULONG, ULONG*, LPSPropValue*) override {
        return kNone;
    }
    HRESULT STDMETHODCALLTYPE EnumAdrTypes(ULONG, ULONG*, LPTSTR**) override { return kNone; }
    HRESULT STDMETHODCALLTYPE QueryIdentity(ULONG* cb, LPENTRYID* id) override;
    HRESULT STDMETHODCALLTYPE Logoff(ULONG_PTR, ULONG flags, ULONG) override;
    HRESULT STDMETHODCALLTYPE SetDefaultStore(ULONG flags, ULONG cb, LPENTRYID id) override;
    HRESULT STDMETHODCALLTYPE AdminServices(ULONG flags, LPSERVICEADMIN* admin) override;
    HRESULT STDMETHODCALLTYPE ShowForm(ULONG_PTR, LPMDB, LPMAPIFOLDER, LPCIID, ULONG, LPMESSAGE, ULONG, ULONG,
                                       ULONG, ULONG, LPSTR) override {
        return kNone;
    }
    HRESULT STDMETHODCALLTYPE PrepareForm(LPCIID, LPMESSAGE, ULONG*) override { return kNone; }

protected:
    void* FindInterface(REFIID riid) override;

private:
    struct OpenStore {
        std::shared_ptr<CStoreCore> core;
        bool isDefault = false;
    };
    // The store of the profile with that UID. MAPI_E_NOT_FOUND if the profile has none such.
    OpenStore StoreOf(const StoreUid& uid);
    void RequireLoggedOn();
    void Unshare();
    IUnknown* OpenStoreObject(const OpenStore& store, const IID* iid, bool writable);

    static constexpr HRESULT kNone = static_cast<HRESULT>(MAPI_E_NO_SUPPORT);
    const CProfile m_profile;
    std::mutex m_mutex;  // guards the two below
    bool m_loggedOff = false;
    std::map<StoreUid, OpenStore> m_stores;  // kept open until Logoff
};
