#include <MapiWrapper/MapiWrapper_std.h>
#include <Programs/vellum/Session/ProfileAdmin.h>

#include <Platform/Directories.h>
#include <Platform/StoreExtensions.h>
#include <Programs/vellum/Session/Explain.h>

#include <algorithm>
#include <cstring>

namespace {

// Not every mail system takes the names of profiles and stores as wide text.
template <class Call>
HRESULT InEitherForm(Call call) {
    CStoreText text(TextFormOfSystem());
    const HRESULT hr = call(text);
    if (hr != MAPI_E_BAD_CHARWIDTH && hr != MAPI_E_UNKNOWN_FLAGS) return hr;
    CStoreText narrow(TextForm::Narrow);
    return call(narrow);
}

std::string Names(const std::vector<CProfileInfo>& profiles) {
    std::string text;
    for (const CProfileInfo& profile : profiles)
        text += (text.empty() ? "" : ", ") + profile.name;
    return text;
}

[[noreturn]] void ThrowInUse(const std::string& what) {
    throw CCommandError(ExitCode::Busy, what,
                        "End the programs that work with it (\"vellum watch\", for one), then try again.");
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

bool IsThere(const std::vector<CServiceInfo>& services, const std::string& name) {
    return std::any_of(services.begin(), services.end(),
                       [&](const CServiceInfo& service) { return service.name == name; });
}

ULONG HabitsOf(const std::vector<std::string>& names) {
    ULONG habits = 0;
    for (const std::string& name : names) {
        ULONG known = 0;
        std::string all;
        for (const CStoreHabitName& habit : kStoreHabits) {
            if (name == habit.name) known = habit.habit;
            all += std::string(all.empty() ? "" : ", ") + habit.name;
        }
        if (!known)
            throw CCommandError(ExitCode::Usage, "There is no habit \"" + name + "\"",
                                "There are: " + all + ".");
        habits |= known;
    }
    return habits;
}

void ConfigureStore(IMsgServiceAdmin* admin, MAPIUID uid, const std::string& name, ULONG habits) {
    SPropValue values[2]{};
    values[0].ulPropTag = PR_DISPLAY_NAME_A;
    values[0].Value.lpszA = const_cast<char*>(name.c_str());
    values[1].ulPropTag = PR_STORE_HABITS;
    values[1].Value.l = static_cast<LONG>(habits);
    const HRESULT hr = InEitherForm([&](CStoreText& text) {
        return admin->ConfigureMsgService(&uid, 0, 0, habits ? 2 : 1, text.Values(values, 2));
    });
    if (hr >= 0) return;
    admin->DeleteMsgService(&uid);
    CheckCall(hr, "The store \"" + name + "\" cannot be created", ExitCode::NotOpen);
}

}  // namespace

CProfileAdmin::CProfileAdmin() {
    CheckCall(m_mapi.Hr(), "The mail system does not start", ExitCode::NotOpen);
    CheckCall(MAPIAdminProfiles(0, m_admin.Out()),
              "The profiles in \"" + DataDirectory() + "\" cannot be opened", ExitCode::NotOpen);
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
    CheckCall(InEitherForm([&](CStoreText& text) {
                  return m_admin->CreateProfile(text.Argument(name), nullptr, 0, text.Flag());
              }),
              "The profile \"" + name + "\" cannot be created", ExitCode::NotOpen);
    if (profiles.empty()) SetDefault(name);
}

void CProfileAdmin::Remove(const std::string& name) {
    const std::string known = Resolve(name);
    const HRESULT hr = InEitherForm(
        [&](CStoreText& text) { return m_admin->DeleteProfile(text.Argument(known), text.Flag()); });
    if (hr == MAPI_E_BUSY) ThrowInUse("A store of the profile \"" + name + "\" is in use");
    CheckCall(hr, "The profile \"" + name + "\" cannot be removed", ExitCode::NotOpen);
}

void CProfileAdmin::SetDefault(const std::string& name) {
    const std::string known = Resolve(name);
    CheckCall(InEitherForm([&](CStoreText& text) {
                  return m_admin->SetDefaultProfile(text.Argument(known), text.Flag());
              }),
              "The profile \"" + name + "\" cannot be made the default one", ExitCode::NotOpen);
}

CComPtr<IMsgServiceAdmin> CProfileAdmin::Services(const std::string& profile) const {
    CComPtr<IMsgServiceAdmin> admin;
    CheckCall(InEitherForm([&](CStoreText& text) {
                  return m_admin->AdminServices(text.Argument(profile), nullptr, 0, text.Flag(), admin.Out());
              }),
              "The profile \"" + profile + "\" cannot be opened", ExitCode::NotOpen);
    return admin;
}

std::vector<CServiceInfo> CProfileAdmin::Stores(const std::string& profile) const {
    return ReadServices(Services(profile).Get());
}

void CProfileAdmin::CreateStore(const std::string& profile, const std::string& name,
                                const std::vector<std::string>& habitNames) {
    CheckName(name, "store");
    const ULONG habits = HabitsOf(habitNames);
    const auto admin = Services(profile);
    const auto before = ReadServices(admin.Get());
    HRESULT hr = IsThere(before, name) ? MAPI_E_COLLISION : S_OK;
    if (hr >= 0)
        hr = InEitherForm([&](CStoreText& text) {
            return admin->CreateMsgService(text.Argument(kStoreServiceName), text.Argument(name), 0,
                                           text.Flag());
        });
    if (hr == MAPI_E_COLLISION)
        throw CCommandError(ExitCode::Usage,
                            "There is a store \"" + name + "\" in the profile \"" + profile + "\" already");
    CheckCall(hr, "The store \"" + name + "\" cannot be created", ExitCode::NotOpen);
    // Others may have created stores in the meantime.
    for (const CServiceInfo& service : ReadServices(admin.Get()))
        if (service.name == name) return ConfigureStore(admin.Get(), service.uid, name, habits);
    throw CCommandError(ExitCode::Internal, "The new store \"" + name + "\" does not turn up in the profile");
}

void CProfileAdmin::RemoveStore(const std::string& profile, const std::string& name) {
    const auto admin = Services(profile);
    for (CServiceInfo& service : ReadServices(admin.Get())) {
        if (service.name != name) continue;
        const HRESULT hr = admin->DeleteMsgService(&service.uid);
        if (hr == MAPI_E_BUSY) ThrowInUse("The store \"" + name + "\" is in use");
        return CheckCall(hr, "The store \"" + name + "\" cannot be removed", ExitCode::NotOpen);
    }
    throw CCommandError(ExitCode::NotOpen,
                        "There is no store \"" + name + "\" in the profile \"" + profile + "\"",
                        "See:  vellum store list");
}

namespace {

void CheckRestored(HRESULT hr, const std::string& name, const std::string& file) {
    switch (hr) {
        case MAPI_E_BUSY:
            ThrowInUse("The store \"" + name + "\" is in use");
        case MAPI_E_UNABLE_TO_COMPLETE:
            throw CCommandError(ExitCode::NotOpen, "\"" + file + "\" is a store that is in use, no backup",
                                "Write a backup of it first:  vellum store backup NAME FILE");
        case MAPI_E_CORRUPT_STORE:
            throw CCommandError(ExitCode::NotOpen, "\"" + file + "\" is damaged, or no backup of a store",
                                "Nothing was changed. --force takes a damaged backup all the same.");
        case MAPI_E_UNKNOWN_ENTRYID:
            throw CCommandError(ExitCode::Guarded,
                                "\"" + file + "\" is the backup of another store than \"" + name + "\"",
                                "If it is to take the place of this one, say so with --force.");
        case MAPI_E_COLLISION:
            throw CCommandError(ExitCode::Guarded,
                                "\"" + file + "\" is the backup of another store of the profile",
                                "Restore it in the place of that store.");
        default:
            CheckCall(hr, "The store \"" + name + "\" cannot be restored from \"" + file + "\"",
                      ExitCode::NotOpen);
    }
}

}  // namespace

std::string CProfileAdmin::RestoreStore(const std::string& profile, const std::string& name,
                                        const std::string& file, bool force) {
    const auto admin = Services(profile);
    void* found = nullptr;
    if (admin->QueryInterface(IID_IStoreRestore, &found) < 0)
        throw CCommandError(ExitCode::NotOpen,
                            "The stores of the profile \"" + profile + "\" cannot be restored");
    CComPtr<IStoreRestore> restore;
    restore.Attach(static_cast<IStoreRestore*>(found));
    for (const CServiceInfo& service : ReadServices(admin.Get())) {
        if (service.name != name) continue;
        char kept[4096] = {};
        const ULONG flags = force ? STORE_RESTORE_DAMAGED | STORE_RESTORE_OTHER : 0;
        CheckRestored(restore->Restore(&service.uid, file.c_str(), flags, kept, sizeof kept), name, file);
        return kept;
    }
    throw CCommandError(ExitCode::NotOpen,
                        "There is no store \"" + name + "\" in the profile \"" + profile + "\"",
                        "See:  vellum store list");
}
