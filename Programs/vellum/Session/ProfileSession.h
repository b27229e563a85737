// A profile logged on, with its stores and folders found by the names that a person gives.
#pragma once
#include <MapiWrapper/MapiWrapper.h>

#include <string>
#include <vector>

struct CStoreInfo {
    std::string name;
    CMapiBinary entryId;
    bool isDefault = false;
};

// An open folder and how it is named.
struct CFolderRef {
    std::string path;  // "Store\Folder\Sub"; the store's name alone for its top folder
    IMsgStorePtr store;
    IMAPIFolderPtr folder;
    CMapiBinary entryId;
    CMapiBinary storeEntryId;

    // "folder:store" in hexadecimal, the form in which a pair keeps a folder.
    std::string Key() const;
};

struct CFolderEntry {
    std::string name;
    CMapiBinary entryId;
    std::string containerClass;
    LONG items = 0;
    LONG unread = 0;
    bool hasSubfolders = false;
};

// The names of a path, split at "\", or at "/" where there is no "\". Empty names are dropped.
std::vector<std::string> SplitFolderPath(const std::string& path);

// What opens something throws CCommandError with NotOpen, naming it and what there is instead.
class CProfileSession {
public:
    // Empty: the default profile. Usage where there is no such profile.
    explicit CProfileSession(const std::string& profile);
    ~CProfileSession();
    CProfileSession(const CProfileSession&) = delete;
    CProfileSession& operator=(const CProfileSession&) = delete;

    const std::string& Name() const { return m_name; }
    CMapiSession& Mapi() { return m_session; }

    std::vector<CStoreInfo> Stores();
    CStoreInfo FindStore(const std::string& name);
    IMsgStorePtr OpenStore(const CStoreInfo& store);
    void SetDefaultStore(const CStoreInfo& store);
    // False where the store's file, open in this session, was moved away or replaced. True for a store that
    // cannot tell or does not open.
    bool IsInPlace(const CStoreInfo& store);

    CFolderRef OpenFolder(const std::string& path);
    // Opens the last folder of the path after creating what is missing below the store. `containerClass`
    // is given to folders that are created; empty: that of the folder above.
    CFolderRef CreateFolder(const std::string& path, const std::string& containerClass, bool& created);
    // The folder of that name below `parent`, created if it is missing.
    CFolderRef CreateSubfolder(const CFolderRef& parent, const std::string& name,
                               const std::string& containerClass, bool& created);
    // False where the store or the folder is not there any more; nothing is thrown for that. A store of the
    // profile that does not open is told in `problemOfStore`.
    bool OpenFolderByKey(const std::string& key, CFolderRef& folder, std::string* problemOfStore = nullptr);
    CFolderRef OpenSubfolder(const CFolderRef& parent, const CFolderEntry& row);

    // The folders directly below, ordered by name.
    std::vector<CFolderEntry> Subfolders(const IMAPIFolderPtr& folder);

private:
    CFolderRef TopFolder(const CStoreInfo& store);
    std::string PathOf(const CFolderRef& folder, const std::string& storeName);

    std::string m_name;
    CMapiSession m_session;
};
