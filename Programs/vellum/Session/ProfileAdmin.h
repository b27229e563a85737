// Profiles, and the stores that belong to them, through the published administration interfaces.
#pragma once
#include <MapiWrapper/MapiThread.h>
#include <MapiWrapper/MapiWrapper.h>

#include <string>
#include <vector>

struct CProfileInfo {
    std::string name;
    bool isDefault = false;
};

struct CServiceInfo {
    std::string name;
    MAPIUID uid{};
};

// All operations throw CCommandError: Usage for a name that is unknown or taken, NotOpen where the
// system refuses.
class CProfileAdmin {
public:
    CProfileAdmin();
    CProfileAdmin(const CProfileAdmin&) = delete;
    CProfileAdmin& operator=(const CProfileAdmin&) = delete;

    std::vector<CProfileInfo> Profiles() const;
    // The profile of that name, or with an empty name the default one.
    std::string Resolve(const std::string& name) const;
    // The first profile becomes the default one.
    void Create(const std::string& name);
    void Remove(const std::string& name);
    void SetDefault(const std::string& name);

    // Stores of a profile. The first one becomes its default store.
    std::vector<CServiceInfo> Stores(const std::string& profile) const;
    // `habits`: names of StoreExtensions.h; a name that is not there is an error of usage.
    void CreateStore(const std::string& profile, const std::string& name,
                     const std::vector<std::string>& habits);
    void RemoveStore(const std::string& profile, const std::string& name);
    // Puts a backup in the store's place and answers where what it held is kept. Busy where the store is
    // open, Guarded for the backup of another store (unless `force`), NotOpen for a file that is no good.
    std::string RestoreStore(const std::string& profile, const std::string& name, const std::string& file,
                             bool force);

private:
    CComPtr<IMsgServiceAdmin> Services(const std::string& profile) const;
    const CMapiThread m_mapi;
    CComPtr<IProfAdmin> m_admin;
};
