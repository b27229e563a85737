// Logging on to MAPI and off again.
#include <MapiWrapper/MapiSession.h>
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
    HRESULT hr = MAPIInitialize(nullptr);
    if (hr < 0) return hr;
    CComPtr<IMAPISession> raw;
    char password[1] = {0};
    hr = MAPILogonEx(0, reinterpret_cast<LPTSTR>(const_cast<char*>(profile.c_str())),
                     reinterpret_cast<LPTSTR>(password), MAPI_USE_DEFAULT, raw.Out());
    if (hr < 0) {
        raw.Free();
        MAPIUninitialize();
        return hr;
    }
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
