#include "Admin.h"

#include <Platform/StoreExtensions.h>

#include <MapiStore/Core/StoreCall.h>
#include <MapiStore/Tables/Tables.h>
#include <MapiStore/Values/PropertyBag.h>
#include <MapiStore/Values/PropertyCodec.h>
#include <MapiStore/Values/UnknownImpl.h>
#include "Profile.h"

namespace {

constexpr HRESULT kNone = static_cast<HRESULT>(MAPI_E_NO_SUPPORT);

void CheckUnicodeOnly(ULONG flags) {
    Require((flags & ~static_cast<ULONG>(MAPI_UNICODE | MAPI_DIALOG | MAPI_DEFAULT_SERVICES)) == 0,
            MAPI_E_UNKNOWN_FLAGS);
}

std::string ServiceRow(const ProfileStore& store) {
    CPropertyBag bag;
    bag.Set(PROP_ID(PR_SERVICE_UID), PT_BINARY, store.uid.View());
    bag.Set(PROP_ID(PR_PROVIDER_UID), PT_BINARY, store.uid.View());
    bag.Set(PROP_ID(PR_INSTANCE_KEY), PT_BINARY, store.uid.View());
    bag.SetText(PROP_ID(PR_SERVICE_NAME), kStoreServiceName);
    bag.SetText(PROP_ID(PR_DISPLAY_NAME), store.name);
    bag.SetLong(PROP_ID(PR_RESOURCE_FLAGS), store.isDefault ? SERVICE_DEFAULT_STORE : 0);
    bag.SetLong(PROP_ID(PR_RESOURCE_TYPE), MAPI_STORE_PROVIDER);
    return bag.Build({}).small;
}

class CServiceAdmin : public CUnknownImpl<IMsgServiceAdmin, IStoreRestore> {
public:
    explicit CServiceAdmin(CProfile profile) : m_profile(std::move(profile)) {}

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT hr, ULONG flags, LPMAPIERROR* error) override {
        return GiveLastError(hr, flags, error);
    }
    HRESULT STDMETHODCALLTYPE GetMsgServiceTable(ULONG flags, LPMAPITABLE* table) override {
        return OpenTable(
            {PR_SERVICE_UID, PR_SERVICE_NAME, PR_DISPLAY_NAME, PR_RESOURCE_FLAGS, PR_INSTANCE_KEY}, flags,
            table);
    }
    HRESULT STDMETHODCALLTYPE CreateMsgService(LPTSTR service, LPTSTR name, ULONG_PTR, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE DeleteMsgService(LPMAPIUID uid) override;
    HRESULT STDMETHODCALLTYPE CopyMsgService(LPMAPIUID, LPTSTR, LPCIID, LPCIID, LPVOID, ULONG_PTR,
                                             ULONG) override {
        return kNone;
    }
    HRESULT STDMETHODCALLTYPE RenameMsgService(LPMAPIUID uid, ULONG flags, LPTSTR name) override;
    HRESULT STDMETHODCALLTYPE ConfigureMsgService(LPMAPIUID uid, ULONG_PTR, ULONG flags, ULONG count,
                                                  LPSPropValue values) override;
    HRESULT STDMETHODCALLTYPE OpenProfileSection(LPMAPIUID, LPCIID, ULONG, LPPROFSECT*) override {
        return kNone;
    }
    HRESULT STDMETHODCALLTYPE MsgServiceTransportOrder(ULONG, LPMAPIUID, ULONG) override { return kNone; }
    HRESULT STDMETHODCALLTYPE AdminProviders(LPMAPIUID, ULONG, LPPROVIDERADMIN*) override { return kNone; }
    HRESULT STDMETHODCALLTYPE Restore(const MAPIUID* store, const char* file, ULONG flags, char* kept,
                                      ULONG cbKept) override;
    HRESULT STDMETHODCALLTYPE SetPrimaryIdentity(LPMAPIUID, ULONG) override { return kNone; }
    HRESULT STDMETHODCALLTYPE GetProviderTable(ULONG flags, LPMAPITABLE* table) override {
        return OpenTable(
            {PR_PROVIDER_UID, PR_SERVICE_UID, PR_DISPLAY_NAME, PR_RESOURCE_TYPE, PR_RESOURCE_FLAGS}, flags,
            table);
    }

protected:
    void* FindInterface(REFIID riid) override {
        if (riid == IID_IStoreRestore) return static_cast<IStoreRestore*>(this);
        return riid == IID_IUnknown || riid == IID_IMsgServiceAdmin ? static_cast<IMsgServiceAdmin*>(this)
                                                                    : nullptr;
    }

private:
    HRESULT OpenTable(const std::vector<ULONG>& columns, ULONG flags, LPMAPITABLE* table);
    void ConfigureOne(const StoreUid& uid, const SPropValue& value);

    CProfile m_profile;
};

StoreUid UidOf(const MAPIUID* uid) {
    Require(uid, MAPI_E_INVALID_PARAMETER);
    StoreUid result;
    std::memcpy(result.bytes.data(), uid->ab, sizeof uid->ab);
    return result;
}

HRESULT CServiceAdmin::OpenTable(const std::vector<ULONG>& columns, ULONG flags, LPMAPITABLE* table) {
    return GuardedCall([&] {
        Require(table, MAPI_E_INVALID_PARAMETER);
        *table = nullptr;
        CheckUnicodeOnly(flags);
        std::vector<std::string> rows;
        for (const ProfileStore& store : m_profile.Stores())
            rows.push_back(ServiceRow(store));
        OpenRowsTable(nullptr, std::move(rows), columns, flags, table);
        return S_OK;
    });
}

HRESULT CServiceAdmin::CreateMsgService(LPTSTR service, LPTSTR name, ULONG_PTR, ULONG flags) {
    return GuardedCall([&] {
        Require(service, MAPI_E_INVALID_PARAMETER);
        const std::string wanted = Utf8FromArgument(service, flags);
        Require(wanted == kStoreServiceName, MAPI_E_NOT_FOUND);
        const std::string shown = Utf8FromArgument(name, flags);
        m_profile.AddStore(shown.empty() ? std::string("Store") : shown);
        return S_OK;
    });
}

HRESULT CServiceAdmin::DeleteMsgService(LPMAPIUID uid) {
    return GuardedCall([&] {
        m_profile.RemoveStore(UidOf(uid));
        return S_OK;
    });
}

HRESULT CServiceAdmin::Restore(const MAPIUID* store, const char* file, ULONG flags, char* kept,
                               ULONG cbKept) {
    return GuardedCall([&] {
        Require(file && (kept || cbKept == 0), MAPI_E_INVALID_PARAMETER);
        Require((flags & ~(STORE_RESTORE_DAMAGED | STORE_RESTORE_OTHER)) == 0, MAPI_E_UNKNOWN_FLAGS);
        const std::string path = m_profile.RestoreStore(UidOf(store), file, flags);
        if (cbKept > 0) kept[path.copy(kept, cbKept - 1)] = 0;
        return S_OK;
    });
}

HRESULT CServiceAdmin::RenameMsgService(LPMAPIUID uid, ULONG flags, LPTSTR name) {
    return GuardedCall([&] {
        Require(name, MAPI_E_INVALID_PARAMETER);
        m_profile.RenameStore(UidOf(uid), Utf8FromArgument(name, flags));
        return S_OK;
    });
}

HRESULT CServiceAdmin::ConfigureMsgService(LPMAPIUID uid, ULONG_PTR, ULONG, ULONG count,
                                           LPSPropValue values) {
    return GuardedCall([&] {
        Require(count == 0 || values, MAPI_E_INVALID_PARAMETER);
        const StoreUid store = UidOf(uid);
        for (ULONG i = 0; i < count; ++i)
            ConfigureOne(store, values[i]);
        return S_OK;
    });
}

void CServiceAdmin::ConfigureOne(const StoreUid& uid, const SPropValue& value) {
    switch (value.ulPropTag) {
        case PR_DISPLAY_NAME_A:
            m_profile.RenameStore(uid, Utf8FromNarrow(value.Value.lpszA));
            return;
        case PR_DISPLAY_NAME_W:
            m_profile.RenameStore(uid, Utf8FromWide(value.Value.lpszW));
            return;
        case PR_RESOURCE_FLAGS:
            if (value.Value.l & STATUS_DEFAULT_STORE) m_profile.SetDefaultStore(uid);
            return;
        case PR_STORE_HABITS:
            for (const ProfileStore& store : m_profile.Stores()) {
                if (!(store.uid == uid)) continue;
                const auto core = CStoreCore::Open(m_profile.PathOf(store));
                const CStoreLock lock(*core);
                core->SetHabits(CStoreHabits(static_cast<ULONG>(value.Value.l)));
                return;
            }
            throw CStoreError(MAPI_E_NOT_FOUND);
        default:
            throw CStoreError(MAPI_E_INVALID_PARAMETER);
    }
}

class CProfileAdmin : public CUnknownImpl<IProfAdmin> {
public:
    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT hr, ULONG flags, LPMAPIERROR* error) override {
        return GiveLastError(hr, flags, error);
    }
    HRESULT STDMETHODCALLTYPE GetProfileTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE CreateProfile(LPTSTR name, LPTSTR, ULONG_PTR, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE DeleteProfile(LPTSTR name, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE ChangeProfilePassword(LPTSTR, LPTSTR, LPTSTR, ULONG) override { return kNone; }
    HRESULT STDMETHODCALLTYPE CopyProfile(LPTSTR, LPTSTR, LPTSTR, ULONG_PTR, ULONG) override { return kNone; }
    HRESULT STDMETHODCALLTYPE RenameProfile(LPTSTR from, LPTSTR, LPTSTR to, ULONG_PTR, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE SetDefaultProfile(LPTSTR name, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE AdminServices(LPTSTR name, LPTSTR, ULONG_PTR, ULONG flags,
                                            LPSERVICEADMIN* admin) override;

protected:
    void* FindInterface(REFIID riid) override {
        return riid == IID_IUnknown || riid == IID_IProfAdmin ? static_cast<IProfAdmin*>(this) : nullptr;
    }
};

HRESULT CProfileAdmin::GetProfileTable(ULONG flags, LPMAPITABLE* table) {
    return GuardedCall([&] {
        Require(table, MAPI_E_INVALID_PARAMETER);
        *table = nullptr;
        CheckUnicodeOnly(flags);
        const std::string defaultName = DefaultProfile();
        std::vector<std::string> rows;
        for (const std::string& name : ListProfiles()) {
            const std::uint16_t isDefault = name == defaultName;
            CPropertyBag bag;
            bag.SetText(PROP_ID(PR_DISPLAY_NAME), name);
            bag.Set(PROP_ID(PR_INSTANCE_KEY), PT_BINARY, name);
            bag.Set(PROP_ID(PR_DEFAULT_PROFILE), PT_BOOLEAN,
                    {reinterpret_cast<const char*>(&isDefault), sizeof isDefault});
            rows.push_back(bag.Build({}).small);
        }
        OpenRowsTable(nullptr, std::move(rows), {PR_DISPLAY_NAME, PR_DEFAULT_PROFILE, PR_INSTANCE_KEY}, flags,
                      table);
        return S_OK;
    });
}

HRESULT CProfileAdmin::CreateProfile(LPTSTR name, LPTSTR, ULONG_PTR, ULONG flags) {
    return GuardedCall([&] {
        Require(name, MAPI_E_INVALID_PARAMETER);
        CheckUnicodeOnly(flags);
        CreateProfileNamed(Utf8FromArgument(name, flags));
        return S_OK;
    });
}

HRESULT CProfileAdmin::DeleteProfile(LPTSTR name, ULONG flags) {
    return GuardedCall([&] {
        Require(name, MAPI_E_INVALID_PARAMETER);
        DeleteProfileNamed(Utf8FromArgument(name, flags));
        return S_OK;
    });
}

HRESULT CProfileAdmin::RenameProfile(LPTSTR from, LPTSTR, LPTSTR to, ULONG_PTR, ULONG flags) {
    return GuardedCall([&] {
        Require(from && to, MAPI_E_INVALID_PARAMETER);
        RenameProfileTo(Utf8FromArgument(from, flags), Utf8FromArgument(to, flags));
        return S_OK;
    });
}

HRESULT CProfileAdmin::SetDefaultProfile(LPTSTR name, ULONG flags) {
    return GuardedCall([&] {
        SetDefaultProfileName(Utf8FromArgument(name, flags));  // none for a null name
        return S_OK;
    });
}

HRESULT CProfileAdmin::AdminServices(LPTSTR name, LPTSTR, ULONG_PTR, ULONG flags, LPSERVICEADMIN* admin) {
    return GuardedCall([&] {
        Require(name && admin, MAPI_E_INVALID_PARAMETER);
        *admin = nullptr;
        *admin = MakeServiceAdmin(Utf8FromArgument(name, flags));
        return S_OK;
    });
}

}  // namespace

IProfAdmin* MakeProfileAdmin() {
    return new CProfileAdmin;
}

IMsgServiceAdmin* MakeServiceAdmin(const std::string& profile) {
    return new CServiceAdmin(CProfile(profile));
}
