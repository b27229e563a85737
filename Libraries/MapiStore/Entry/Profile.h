// Profiles on disk: a directory each below DataDirectory()/profiles, with the text file "profile" that
// lists the stores, and beside them the file "default" with the name of the default profile. Changes
// are made under a lock that all processes share, each file whole or not at all.
#pragma once
#include <MapiStore/Storage/EntryId.h>

#include <string>
#include <vector>

struct ProfileStore {
    StoreUid uid;
    std::string file;  // in the profile's directory
    std::string name;  // display name
    bool isDefault = false;
};

// --- all profiles; names are UTF-8. All throw CStoreError.
std::vector<std::string> ListProfiles();  // sorted by name
std::string DefaultProfile();             // empty if there is none
bool ProfileExists(const std::string& name);
void CreateProfileNamed(const std::string& name);  // MAPI_E_NO_ACCESS if it exists; the first is the default
void DeleteProfileNamed(const std::string& name);  // MAPI_E_NOT_FOUND; with all its stores
void RenameProfileTo(const std::string& from, const std::string& to);
void SetDefaultProfileName(const std::string& name);  // MAPI_E_NOT_FOUND

// One profile. Reads its file at every question: another process may have changed it.
class CProfile {
public:
    explicit CProfile(std::string name);  // MAPI_E_NOT_FOUND
    const std::string& Name() const { return m_name; }
    std::vector<ProfileStore> Stores() const;
    std::string PathOf(const ProfileStore& store) const;

    // Makes the store file and lists it; the first of a profile is the default store.
    StoreUid AddStore(const std::string& displayName);
    void RemoveStore(const StoreUid& uid);  // with its file; MAPI_E_NOT_FOUND
    void RenameStore(const StoreUid& uid, const std::string& displayName);
    void SetDefaultStore(const StoreUid& uid);
    // IStoreRestore of StoreExtensions.h; answers the path of what was replaced, empty if nothing was.
    std::string RestoreStore(const StoreUid& uid, const std::string& file, ULONG flags);

private:
    template <class Change>
    void Rewrite(Change&& change);

    std::string m_name;
    std::string m_directory;
};
