// The published entry points into sessions and profiles.
#include <atomic>

#include "Admin.h"
#include "Profile.h"
#include "PropertyCodec.h"
#include "Session.h"
#include "StoreCall.h"

namespace {

std::atomic<int> g_initialized{0};

// The profile that a logon names; empty for the default one.
std::string ProfileToOpen(const char* name, ULONG flags) {
    const std::string given = Utf8FromArgument(name, flags);
    if (!given.empty()) return given;
    return flags & MAPI_USE_DEFAULT ? DefaultProfile() : std::string();
}

}  // namespace

extern "C" HRESULT STDAPICALLTYPE MAPIInitialize(LPVOID init) {
    if (const auto* version = static_cast<MAPIINIT_0*>(init)) {
        if (version->ulVersion != MAPI_INIT_VERSION) return MAPI_E_VERSION;
    }
    ++g_initialized;
    return S_OK;
}

extern "C" void STDAPICALLTYPE MAPIUninitialize(void) {
    if (g_initialized > 0) --g_initialized;
}

extern "C" HRESULT STDAPICALLTYPE MAPILogonEx(ULONG_PTR, LPTSTR name, LPTSTR, ULONG flags,
                                              LPMAPISESSION* session) {
    return GuardedCall([&] {
        Require(session, MAPI_E_INVALID_PARAMETER);
        *session = nullptr;
        Require(g_initialized > 0, MAPI_E_NOT_INITIALIZED);
        const std::string profile = ProfileToOpen(name, flags);
        Require(ProfileExists(profile), MAPI_E_LOGON_FAILED);
        *session = new CSession(CProfile(profile));
        return S_OK;
    });
}

extern "C" HRESULT STDAPICALLTYPE MAPIAdminProfiles(ULONG flags, LPPROFADMIN* admin) {
    return GuardedCall([&] {
        Require(admin, MAPI_E_INVALID_PARAMETER);
        *admin = nullptr;
        Require(flags == 0, MAPI_E_UNKNOWN_FLAGS);
        Require(g_initialized > 0, MAPI_E_NOT_INITIALIZED);
        *admin = MakeProfileAdmin();
        return S_OK;
    });
}
