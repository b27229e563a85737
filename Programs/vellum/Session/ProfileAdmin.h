// Profiles, and the stores that belong to them, through the published administration interfaces.
#pragma once
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
    ~CProfileAdmin();
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
    // `shortTermTables`: the store's tables give short-term entry IDs beside the long-term ones, as those
    // of some servers do.
    void CreateStore(const std::string& profile, const std::string& name, bool shortTermTables);
    void RemoveStore(const std::string& profile, const std::string& name);

private:
    CComPtr<IMsgServiceAdmin> Services(const std::string& profile) const;
    CComPtr<IProfAdmin> m_admin;
};
