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
// With all its stores. MAPI_E_NOT_FOUND; MAPI_E_BUSY if anybody has one of them open.
void DeleteProfileNamed(const std::string& name);
void RenameProfileTo(const std::string& from, const std::string& to);
void SetDefaultProfileName(const std::string& name);  // MAPI_E_NOT_FOUND

// One profile. Reads its file at every question: another process may have changed it.
class CProfile {
public:
    explicit CProfile(std::string name);  // MAPI_E_NOT_FOUND
    const std::string& Name() const { return m_name; }
    std::vector<ProfileStore> Stores() const;
    std::string PathOf(const ProfileStore& store) const;

    // Makes the store file and lists it; the first of a profile is the default store. MAPI_E_COLLISION if
    // the profile has a store of the name.
    StoreUid AddStore(const std::string& displayName);
    // With its file, unless another store has it too. MAPI_E_NOT_FOUND; MAPI_E_BUSY if anybody has it open.
    void RemoveStore(const StoreUid& uid);
    // MAPI_E_COLLISION if another store of the profile has the name.
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
