// The published entry points into sessions and profiles.
#include <MapiStore/Core/MapiThreads.h>
#include <MapiStore/Core/StoreCall.h>
#include <MapiStore/Values/PropertyCodec.h>
#include "Admin.h"
#include "Profile.h"
#include "Session.h"

namespace {

// The profile that a logon names; empty for the default one.
std::string ProfileToOpen(const char* name, ULONG flags) {
    const std::string given = Utf8FromArgument(name, flags);
    if (!given.empty()) return given;
    return flags & MAPI_USE_DEFAULT ? DefaultProfile() : std::string();
}

}  // namespace

extern "C" HRESULT STDAPICALLTYPE MAPIInitialize(LPVOID init) {
    const auto* given = static_cast<MAPIINIT_0*>(init);
    if (given && given->ulVersion != MAPI_INIT_VERSION) return MAPI_E_VERSION;
    EnterMapi(given ? given->ulFlags : 0);
    return S_OK;
}

extern "C" void STDAPICALLTYPE MAPIUninitialize(void) {
    LeaveMapi();
}

extern "C" HRESULT STDAPICALLTYPE MAPILogonEx(ULONG_PTR, LPTSTR name, LPTSTR, ULONG flags,
                                              LPMAPISESSION* session) {
    return GuardedCall([&] {
        Require(session, MAPI_E_INVALID_PARAMETER);
        *session = nullptr;
        Require(IsMapiThread(), MAPI_E_NOT_INITIALIZED);
        // Whoever does not ask for a session of its own gets the one that is shared, whatever it names.
        std::string profile = flags & MAPI_NEW_SESSION ? std::string() : CSession::SharedProfile();
        if (profile.empty()) profile = ProfileToOpen(name, flags);
        Require(ProfileExists(profile), MAPI_E_LOGON_FAILED);
        auto* opened = new CSession(CProfile(profile));
        if (flags & MAPI_ALLOW_OTHERS) opened->Share(profile);
        *session = opened;
        return S_OK;
    });
}

extern "C" HRESULT STDAPICALLTYPE MAPIAdminProfiles(ULONG flags, LPPROFADMIN* admin) {
    return GuardedCall([&] {
        Require(admin, MAPI_E_INVALID_PARAMETER);
        *admin = nullptr;
        Require(flags == 0, MAPI_E_UNKNOWN_FLAGS);
        Require(IsMapiThread(), MAPI_E_NOT_INITIALIZED);
        *admin = MakeProfileAdmin();
        return S_OK;
    });
}
