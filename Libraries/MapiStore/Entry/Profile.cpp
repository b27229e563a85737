#include "Profile.h"

#include <Platform/Clock.h>
#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Platform/Machine.h>
#include <Platform/StoreExtensions.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <list>
#include <sstream>

#include <MapiStore/Core/StoreCall.h>
#include <MapiStore/Storage/StoreRestore.h>
#include <MapiStore/Values/PropertyCodec.h>

namespace {

constexpr char kFirstLine[] = "vellum profile 1";
constexpr unsigned kLockTimeoutMs = 10000;

std::string ProfilesDirectory() {
    return JoinPath(DataDirectory(), "profiles");
}

// Names of directories: what a file system might not take is written as %XX.
std::string Encoded(const std::string& name) {
    constexpr char kHex[] = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
                           (byte >= 'a' && byte <= 'z') || byte == '-' || byte == '_' || byte == ' ';
        if (plain)
            encoded += c;
        else
            (encoded += '%') += {kHex[byte >> 4], kHex[byte & 15]};
    }
    return encoded;
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

std::string Decoded(const std::string& text) {
    std::string name;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && HexDigit(text[i + 1]) >= 0 &&
            HexDigit(text[i + 2]) >= 0) {
            name += static_cast<char>(HexDigit(text[i + 1]) * 16 + HexDigit(text[i + 2]));
            i += 2;
        } else {
            name += text[i];
        }
    }
    return name;
}

void CheckName(const std::string& name) {
    const bool control = std::any_of(name.begin(), name.end(), [](char c) { return c > 0 && c < ' '; });
    Require(!name.empty() && !control, MAPI_E_INVALID_PARAMETER);
    Require(name.size() <= 4 * cchProfileNameMax, MAPI_E_STRING_TOO_LONG);
}

std::string DirectoryOf(const std::string& name) {
    return JoinPath(ProfilesDirectory(), Encoded(name));
}

class CProfilesLock {
public:
    CProfilesLock() {
        std::string holder;
        Require(MakePrivateDirectories(ProfilesDirectory()), MAPI_E_DISK_ERROR);
        Require(m_lock.TryLock(JoinPath(ProfilesDirectory(), "lock"), "profiles", holder, kLockTimeoutMs),
                MAPI_E_BUSY);
    }

private:
    CProcessLock m_lock;
};

std::string HexOf(const StoreUid& uid) {
    std::string hex;
    for (const std::uint8_t byte : uid.bytes)
        (hex += "0123456789ABCDEF"[byte >> 4]) += "0123456789ABCDEF"[byte & 15];
    return hex;
}

bool UidFrom(const std::string& hex, StoreUid& uid) {
    if (hex.size() != 2 * uid.bytes.size()) return false;
    for (std::size_t i = 0; i < uid.bytes.size(); ++i) {
        const int high = HexDigit(hex[2 * i]), low = HexDigit(hex[2 * i + 1]);
        if (high < 0 || low < 0) return false;
        uid.bytes[i] = static_cast<std::uint8_t>(high * 16 + low);
    }
    return true;
}

// A line is: store UID default-flag file display name
std::vector<ProfileStore> ReadStores(const std::string& directory) {
    std::string text;
    Require(ReadFileBytes(JoinPath(directory, "profile"), text), MAPI_E_NOT_FOUND);
    std::istringstream lines(text);
    std::string line;
    Require(std::getline(lines, line) && line == kFirstLine, MAPI_E_VERSION);
    std::vector<ProfileStore> stores;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string kind, uid, flag;
        ProfileStore store;
        if (!(words >> kind >> uid >> flag >> store.file) || kind != "store" || !UidFrom(uid, store.uid))
            continue;
        store.isDefault = flag == "1";
        words.get();
        std::getline(words, store.name);
        stores.push_back(std::move(store));
    }
    return stores;
}

void WriteStores(const std::string& directory, const std::vector<ProfileStore>& stores) {
    std::string text = std::string(kFirstLine) + "\n";
    for (const ProfileStore& store : stores)
        text += "store " + HexOf(store.uid) + (store.isDefault ? " 1 " : " 0 ") + store.file + " " +
                store.name + "\n";
    Require(WriteFileDurably(JoinPath(directory, "profile"), text), MAPI_E_DISK_ERROR);
}

constexpr const char* kTailsOfStore[] = {"", "-wal", "-shm"};

void RemoveStoreFile(const std::string& path) {
    for (const char* tail : kTailsOfStore)
        RemoveFile(path + tail);
}

// A store that somebody works in stays. Whatever else is wrong with its file, it is to go.
void HoldForRemoval(const std::string& path, std::list<CStoreAlone>& held) {
    try {
        held.emplace_back(path);
    } catch (const CStoreError& error) {
        if (error.Code() == MAPI_E_BUSY) throw;
    }
}

// An entry keeps its file's name while the file is away, on a drive that comes back. And the database would
// take a log that was left behind for that of the new file.
bool IsFree(const std::string& file, const std::string& directory, const std::vector<ProfileStore>& stores) {
    for (const ProfileStore& store : stores)
        if (store.file == file) return false;
    return std::all_of(std::begin(kTailsOfStore), std::end(kTailsOfStore),
                       [&](const char* tail) { return FileIsAbsent(JoinPath(directory, file + tail)); });
}

std::string NewStoreFile(const std::string& directory, const std::vector<ProfileStore>& stores) {
    for (unsigned i = 1;; ++i) {
        const std::string file = "store" + std::to_string(i) + ".vst";
        if (IsFree(file, directory, stores)) return file;
    }
}

// Stores are chosen by their names.
void CheckNameIsFree(const std::vector<ProfileStore>& stores, const std::string& name) {
    for (const ProfileStore& store : stores)
        Require(store.name != name, MAPI_E_COLLISION);
}

}  // namespace

// --- all profiles ----------------------------------------------------------------------------------

std::vector<std::string> ListProfiles() {
    std::vector<std::string> names;
    for (const auto& entry : ListDirectory(ProfilesDirectory()))
        if (entry.isDirectory && FileExists(JoinPath(JoinPath(ProfilesDirectory(), entry.name), "profile")))
            names.push_back(Decoded(entry.name));
    std::sort(names.begin(), names.end());
    return names;
}

std::string DefaultProfile() {
    std::string name;
    if (!ReadFileBytes(JoinPath(ProfilesDirectory(), "default"), name)) return {};
    return ProfileExists(name) ? name : std::string();
}

bool ProfileExists(const std::string& name) {
    return !name.empty() && FileExists(JoinPath(DirectoryOf(name), "profile"));
}

void CreateProfileNamed(const std::string& name) {
    CheckName(name);
    const CProfilesLock lock;
    Require(!ProfileExists(name), MAPI_E_NO_ACCESS);
    Require(MakePrivateDirectories(DirectoryOf(name)), MAPI_E_DISK_ERROR);
    WriteStores(DirectoryOf(name), {});
    if (DefaultProfile().empty())
        Require(WriteFileDurably(JoinPath(ProfilesDirectory(), "default"), name), MAPI_E_DISK_ERROR);
}

void DeleteProfileNamed(const std::string& name) {
    const CProfilesLock lock;
    Require(ProfileExists(name), MAPI_E_NOT_FOUND);
    {
        std::list<CStoreAlone> alone;
        for (const ProfileStore& store : ReadStores(DirectoryOf(name)))
            HoldForRemoval(JoinPath(DirectoryOf(name), store.file), alone);
    }
    const bool wasDefault = DefaultProfile() == name;
    Require(RemoveTree(DirectoryOf(name)), MAPI_E_NO_ACCESS);
    if (wasDefault) RemoveFile(JoinPath(ProfilesDirectory(), "default"));
}

void RenameProfileTo(const std::string& from, const std::string& to) {
    CheckName(to);
    const CProfilesLock lock;
    Require(ProfileExists(from), MAPI_E_NOT_FOUND);
    Require(!ProfileExists(to), MAPI_E_NO_ACCESS);
    const bool wasDefault = DefaultProfile() == from;
    Require(RenameFile(DirectoryOf(from), DirectoryOf(to)), MAPI_E_DISK_ERROR);
    if (wasDefault)
        Require(WriteFileDurably(JoinPath(ProfilesDirectory(), "default"), to), MAPI_E_DISK_ERROR);
}

void SetDefaultProfileName(const std::string& name) {
    const CProfilesLock lock;
    if (name.empty()) {
        RemoveFile(JoinPath(ProfilesDirectory(), "default"));
        return;
    }
    Require(ProfileExists(name), MAPI_E_NOT_FOUND);
    Require(WriteFileDurably(JoinPath(ProfilesDirectory(), "default"), name), MAPI_E_DISK_ERROR);
}

// --- one profile -----------------------------------------------------------------------------------

CProfile::CProfile(std::string name) : m_name(std::move(name)), m_directory(DirectoryOf(m_name)) {
    Require(ProfileExists(m_name), MAPI_E_NOT_FOUND);
}

std::vector<ProfileStore> CProfile::Stores() const {
    return ReadStores(m_directory);
}

std::string CProfile::PathOf(const ProfileStore& store) const {
    return JoinPath(m_directory, store.file);
}

template <class Change>
void CProfile::Rewrite(Change&& change) {
    const CProfilesLock lock;
    auto stores = ReadStores(m_directory);
    change(stores);
    WriteStores(m_directory, stores);
}

namespace {
std::vector<ProfileStore>::iterator FindStore(std::vector<ProfileStore>& stores, const StoreUid& uid) {
    const auto found = std::find_if(stores.begin(), stores.end(),
                                    [&uid](const ProfileStore& store) { return store.uid == uid; });
    Require(found != stores.end(), MAPI_E_NOT_FOUND);
    return found;
}
}  // namespace

StoreUid CProfile::AddStore(const std::string& displayName) {
    CheckName(displayName);
    ProfileStore store;
    Rewrite([&](std::vector<ProfileStore>& stores) {
        CheckNameIsFree(stores, displayName);
        store.file = NewStoreFile(m_directory, stores);
        store.name = displayName;
        store.isDefault =
            std::none_of(stores.begin(), stores.end(), [](const auto& one) { return one.isDefault; });
        CStoreCore::Create(PathOf(store), displayName);
        store.uid = CStoreCore::Open(PathOf(store))->Uid();
        stores.push_back(store);
    });
    return store.uid;
}

void CProfile::RemoveStore(const StoreUid& uid) {
    std::string path;
    {
        std::list<CStoreAlone> alone;  // until nobody finds the file any more
        Rewrite([&](std::vector<ProfileStore>& stores) {
            const auto found = FindStore(stores, uid);
            const std::string file = found->file;
            HoldForRemoval(PathOf(*found), alone);
            stores.erase(found);
            // Older programs gave two stores one file when that of the first was away.
            if (std::none_of(stores.begin(), stores.end(),
                             [&](const ProfileStore& other) { return other.file == file; }))
                path = JoinPath(m_directory, file);
        });
    }
    if (!path.empty()) RemoveStoreFile(path);
}

void CProfile::RenameStore(const StoreUid& uid, const std::string& displayName) {
    CheckName(displayName);
    Rewrite([&](std::vector<ProfileStore>& stores) {
        const auto found = FindStore(stores, uid);
        if (found->name != displayName) CheckNameIsFree(stores, displayName);
        const auto core = CStoreCore::Open(PathOf(*found));
        const CStoreLock lock(*core);
        if (core->DisplayName() != displayName) core->SetDisplayName(displayName);
        found->name = displayName;
    });
}

void CProfile::SetDefaultStore(const StoreUid& uid) {
    Rewrite([&](std::vector<ProfileStore>& stores) {
        FindStore(stores, uid);
        for (ProfileStore& store : stores)
            store.isDefault = store.uid == uid;
    });
}

namespace {
// "store1.vst.kept-20261123-145012", of local time, and unlike any file that is there.
std::string NameOfKept(const std::string& path) {
    const SYSTEMTIME now = LocalNow();
    char stamp[32];
    std::snprintf(stamp, sizeof stamp, "%04u%02u%02u-%02u%02u%02u", now.wYear, now.wMonth, now.wDay,
                  now.wHour, now.wMinute, now.wSecond);
    std::string name = path + ".kept-" + stamp;
    for (unsigned i = 2; FileExists(name); ++i)
        name = path + ".kept-" + stamp + "-" + std::to_string(i);
    return name;
}
}  // namespace

std::string CProfile::RestoreStore(const StoreUid& uid, const std::string& file, ULONG flags) {
    std::string kept;
    Rewrite([&](std::vector<ProfileStore>& stores) {
        const auto found = FindStore(stores, uid);
        const std::string path = PathOf(*found);
        const CCheckedBackup backup(file, path + ".restore", (flags & STORE_RESTORE_DAMAGED) != 0);
        if (!(backup.Uid() == uid)) {
            for (const ProfileStore& store : stores)
                Require(!(store.uid == backup.Uid()), MAPI_E_COLLISION);
            Require((flags & STORE_RESTORE_OTHER) != 0, MAPI_E_UNKNOWN_ENTRYID);
        }
        if (FileExists(path)) kept = NameOfKept(path);
        backup.Replace(path, kept);
        found->uid = backup.Uid();
    });
    return kept;
}
