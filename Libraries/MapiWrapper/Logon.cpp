// Logging on to MAPI and off again.
#include <MapiWrapper/MapiSession.h>
#include <MapiWrapper/MapiThread.h>
#include <MapiWrapper/StoreText.h>
#include <Platform/Registry.h>

namespace {
constexpr size_t kProfileNameLimit = 209;
}

std::string ConfiguredProfileName() {
    CRegistryKey key;
    if (key.Open(RegistryRoot::CurrentUser, "\\Software\\Ostrand\\Tarn") != ERROR_SUCCESS &&
        key.Open(RegistryRoot::CurrentUser, "Software\\Ostrand\\Tarn") != ERROR_SUCCESS)
        return {};
    return key.ReadString("Profil").value_or("").substr(0, kProfileNameLimit);
}

HRESULT LogonMapi(CMapiSession& session) {
    return LogonMapi(ConfiguredProfileName(), session);
}

HRESULT LogonMapi(const std::string& profile, CMapiSession& session) {
    CMapiThread mapi;
    if (FAILED(mapi.Hr())) return mapi.Hr();
    CComPtr<IMAPISession> raw;
    CStoreText text(TextFormOfSystem());
    // Without the flags a session that some program shares would be taken, whatever its profile.
    const FLAGS named = MAPI_NEW_SESSION | MAPI_EXPLICIT_PROFILE;
    const FLAGS flags = MAPI_EXTENDED | (profile.empty() ? MAPI_USE_DEFAULT : named);
    const HRESULT hr =
        MAPILogonEx(0, text.Argument(profile), text.Argument({}), flags | text.Flag(), raw.Out());
    if (FAILED(hr)) return hr;
    mapi.Keep();
    session.Free();
    session.Attach(raw.Detach());
    return S_OK;
}

void LogoffMapi(CMapiSession& session) {
    if (!session) return;
    session->Logoff(0, 0, 0);
    session.Free();
    MAPIUninitialize();
}
