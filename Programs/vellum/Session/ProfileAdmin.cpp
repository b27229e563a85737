#include <MapiWrapper/MapiWrapper_std.h>
#include <Programs/vellum/Session/ProfileAdmin.h>

#include <Platform/Directories.h>
#include <Platform/StoreExtensions.h>
#include <Programs/vellum/Session/Explain.h>

#include <algorithm>
#include <cstring>

namespace {

LPTSTR Narrow(const std::string& text) {
    return reinterpret_cast<LPTSTR>(const_cast<char*>(text.c_str()));
}

std::string Names(const std::vector<CProfileInfo>& profiles) {
    std::string text;
    for (const CProfileInfo& profile : profiles)
        text += (text.empty() ? "" : ", ") + profile.name;
    return text;
}

// Names become names of files in the embedded store and of registry keys elsewhere.
void CheckName(const std::string& name, const std::string& what) {
    const bool bad = name.empty() || name.size() > 64 || name.front() == ' ' || name.back() == ' ' ||
                     name == "." || name == ".." ||
                     std::any_of(name.begin(), name.end(), [](unsigned char c) {
                         return c < 0x20 || std::strchr("\\/:;*?\"<>|", c) != nullptr;
                     });
    if (bad)
        throw CCommandError(
            ExitCode::Usage, "\"" + name + "\" cannot be the name of a " + what,
            "A name has 1 to 64 characters, none of \\ / : ; * ? \" < > |, and no blank at its ends.");
}

std::vector<CServiceInfo> ReadServices(IMsgServiceAdmin* admin) {
    IMAPITablePtr table;
    CheckCall(admin->GetMsgServiceTable(0, table.Out()), "The stores of the profile cannot be listed",
              ExitCode::NotOpen);
    const CMapiRowSet rows = table.QueryRows({PR_DISPLAY_NAME_A, PR_SERVICE_NAME_A, PR_SERVICE_UID});
    std::vector<CServiceInfo> services;
    for (ULONG i = 0; i < rows.Count(); ++i) {
        const SBinary uid = rows.Cell(i, 2).Binary();
        if (rows.Cell(i, 1).Str() != kStoreServiceName || uid.cb != sizeof(MAPIUID)) continue;
        CServiceInfo service;
        service.name = rows.Cell(i, 0).Str();
        std::memcpy(&service.uid, uid.lpb, sizeof(MAPIUID));
        services.push_back(service);
    }
    return services;
}

void ConfigureStore(IMsgServiceAdmin* admin, MAPIUID uid, const std::string& name, bool shortTermTables) {
    SPropValue values[2]{};
    values[0].ulPropTag = PR_DISPLAY_NAME_A;
    values[0].Value.lpszA = const_cast<char*>(name.c_str());
    values[1].ulPropTag = PR_STORE_TABLES_SHORT_TERM;
    values[1].Value.b = TRUE;
    const HRESULT hr = admin->ConfigureMsgService(&uid, 0, 0, shortTermTables ? 2 : 1, values);
    if (hr >= 0) return;
    admin->DeleteMsgService(&uid);
    CheckCall(hr, "The store \"" + name + "\" cannot be created", ExitCode::NotOpen);
}

}  // namespace

CProfileAdmin::CProfileAdmin() {
    CheckCall(MAPIInitialize(nullptr), "The mail system does not start", ExitCode::NotOpen);
    const HRESULT hr = MAPIAdminProfiles(0, m_admin.Out());
    if (hr >= 0) return;
    MAPIUninitialize();
    CheckCall(hr, "The profiles in \"" + DataDirectory() + "\" cannot be opened", ExitCode::NotOpen);
}

CProfileAdmin::~CProfileAdmin() {
    m_admin.Free();
    MAPIUninitialize();
}

std::vector<CProfileInfo> CProfileAdmin::Profiles() const {
    IMAPITablePtr table;
    CheckCall(m_admin->GetProfileTable(0, table.Out()), "The profiles cannot be listed", ExitCode::NotOpen);
    const CMapiRowSet rows = table.QueryRows({PR_DISPLAY_NAME_A, PR_DEFAULT_PROFILE});
    std::vector<CProfileInfo> profiles;
    for (ULONG i = 0; i < rows.Count(); ++i)
        profiles.push_back({rows.Cell(i, 0).Str(), rows.Cell(i, 1).Bool()});
    std::sort(profiles.begin(), profiles.end(),
              [](const CProfileInfo& a, const CProfileInfo& b) { return a.name < b.name; });
    return profiles;
}

std::string CProfileAdmin::Resolve(const std::string& name) const {
    const auto profiles = Profiles();
    for (const CProfileInfo& profile : profiles)
        if (name.empty() ? profile.isDefault : profile.name == name) return profile.name;
    if (profiles.empty())
        throw CCommandError(ExitCode::Usage,
                            name.empty() ? "There is no profile yet" : "There is no profile \"" + name + "\"",
                            "Create one:  vellum profile create NAME");
    if (name.empty())
        throw CCommandError(ExitCode::Usage, "None of the profiles is the default one: " + Names(profiles),
                            "Choose one:  vellum profile default NAME");
    throw CCommandError(ExitCode::Usage, "There is no profile \"" + name + "\"",
                        "There are: " + Names(profiles));
}

void CProfileAdmin::Create(const std::string& name) {
    CheckName(name, "profile");
    const auto profiles = Profiles();
    for (const CProfileInfo& profile : profiles)
        if (profile.name == name)
            throw CCommandError(
                ExitCode::Usage, "There is a profile \"" + name + "\" already",
                "Give another name, or remove the old one:  vellum profile remove \"" + name + "\"");
    CheckCall(m_admin->CreateProfile(Narrow(name), nullptr, 0, 0),
              "The profile \"" + name + "\" cannot be created", ExitCode::NotOpen);
    if (profiles.empty()) SetDefault(name);
}

void CProfileAdmin::Remove(const std::string& name) {
    CheckCall(m_admin->DeleteProfile(Narrow(Resolve(name)), 0),
              "The profile \"" + name + "\" cannot be removed", ExitCode::NotOpen);
}

void CProfileAdmin::SetDefault(const std::string& name) {
    CheckCall(m_admin->SetDefaultProfile(Narrow(Resolve(name)), 0),
              "The profile \"" + name + "\" cannot be made the default one", ExitCode::NotOpen);
}

CComPtr<IMsgServiceAdmin> CProfileAdmin::Services(const std::string& profile) const {
    CComPtr<IMsgServiceAdmin> admin;
    CheckCall(m_admin->AdminServices(Narrow(profile), nullptr, 0, 0, admin.Out()),
              "The profile \"" + profile + "\" cannot be opened", ExitCode::NotOpen);
    return admin;
}

std::vector<CServiceInfo> CProfileAdmin::Stores(const std::string& profile) const {
    return ReadServices(Services(profile).Get());
}

void CProfileAdmin::CreateStore(const std::string& profile, const std::string& name, bool shortTermTables) {
    CheckName(name, "store");
    const auto admin = Services(profile);
    const auto before = ReadServices(admin.Get());
    for (const CServiceInfo& service : before)
        if (service.name == name)
            throw CCommandError(ExitCode::Usage, "There is a store \"" + name + "\" in the profile \"" +
                                                     profile + "\" already");
    CheckCall(admin->CreateMsgService(Narrow(kStoreServiceName), Narrow(name), 0, 0),
              "The store \"" + name + "\" cannot be created", ExitCode::NotOpen);
    for (const CServiceInfo& service : ReadServices(admin.Get())) {
        const bool isOld = std::any_of(before.begin(), before.end(), [&](const CServiceInfo& old) {
            return std::memcmp(&old.uid, &service.uid, sizeof(MAPIUID)) == 0;
        });
        if (!isOld) return ConfigureStore(admin.Get(), service.uid, name, shortTermTables);
    }
    throw CCommandError(ExitCode::Internal, "The new store \"" + name + "\" does not turn up in the profile");
}

void CProfileAdmin::RemoveStore(const std::string& profile, const std::string& name) {
    const auto admin = Services(profile);
    for (CServiceInfo& service : ReadServices(admin.Get()))
        if (service.name == name)
            return CheckCall(admin->DeleteMsgService(&service.uid),
                             "The store \"" + name + "\" cannot be removed", ExitCode::NotOpen);
    throw CCommandError(ExitCode::NotOpen,
                        "There is no store \"" + name + "\" in the profile \"" + profile + "\"",
                        "See:  vellum store list");
}
