#include <MapiWrapper/MapiWrapper_std.h>
#include <Programs/vellum/Session/ProfileSession.h>

#include <Platform/StoreExtensions.h>
#include <Programs/vellum/Session/Explain.h>
#include <Programs/vellum/Session/ProfileAdmin.h>

#include <algorithm>

namespace {

constexpr std::size_t namesInHint = 12;

template <class Rows>
std::string NamesOf(const Rows& rows) {
    std::string text;
    for (std::size_t i = 0; i < rows.size() && i < namesInHint; ++i)
        text += (i ? ", " : "") + rows[i].name;
    return rows.size() > namesInHint ? text + " ..." : text;
}

CMapiBinary EntryIdOf(const CGenMapiPropPtr& object) {
    return object.GetBinProp(PR_ENTRYID);
}

}  // namespace

std::string CFolderRef::Key() const {
    return entryId.Hex() + ":" + storeEntryId.Hex();
}

std::vector<std::string> SplitFolderPath(const std::string& path) {
    std::vector<std::string> names;
    SplitToArray(path, path.find('\\') != std::string::npos ? "\\" : "/", names);
    return names;
}

CProfileSession::CProfileSession(const std::string& profile) {
    {
        const CProfileAdmin admin;
        m_name = admin.Resolve(profile);
    }
    CheckCall(LogonMapi(m_name, m_session), "The profile \"" + m_name + "\" cannot be opened",
              ExitCode::NotOpen);
}

CProfileSession::~CProfileSession() {
    LogoffMapi(m_session);
}

std::vector<CStoreInfo> CProfileSession::Stores() {
    IMAPITablePtr table;
    CheckCall(m_session->GetMsgStoresTable(0, table.Out()), "The stores of the profile cannot be listed",
              ExitCode::NotOpen);
    const CMapiRowSet rows =
        table.QueryRows({PR_DISPLAY_NAME_A, PR_ENTRYID, PR_DEFAULT_STORE, PR_RESOURCE_FLAGS});
    std::vector<CStoreInfo> stores;
    for (ULONG i = 0; i < rows.Count(); ++i) {
        CStoreInfo store;
        store.name = rows.Cell(i, 0).Str();
        store.entryId.Assign(rows.Cell(i, 1).Binary());
        store.isDefault = rows.Cell(i, 2).Bool() || (rows.Cell(i, 3).Long() & STATUS_DEFAULT_STORE) != 0;
        stores.push_back(std::move(store));
    }
    std::sort(stores.begin(), stores.end(),
              [](const CStoreInfo& a, const CStoreInfo& b) { return a.name < b.name; });
    return stores;
}

CStoreInfo CProfileSession::FindStore(const std::string& name) {
    const auto stores = Stores();
    for (const CStoreInfo& store : stores)
        if (store.name == name) return store;
    if (stores.empty())
        throw CCommandError(ExitCode::NotOpen, "The profile \"" + m_name + "\" has no stores yet",
                            "Create one:  vellum store create NAME");
    throw CCommandError(ExitCode::NotOpen,
                        "There is no store \"" + name + "\" in the profile \"" + m_name + "\"",
                        "There are: " + NamesOf(stores));
}

IMsgStorePtr CProfileSession::OpenStore(const CStoreInfo& store) {
    try {
        return m_session.OpenStore(store.entryId);
    } catch (const CMAPIException& e) {
        throw CCommandError(ExitCode::NotOpen,
                            "The store \"" + store.name + "\" cannot be opened: " + Explain(e));
    }
}

bool CProfileSession::IsInPlace(const CStoreInfo& store) {
    try {
        const IMsgStorePtr opened = m_session.OpenStore(store.entryId);
        void* found = nullptr;
        if (opened->QueryInterface(IID_IStoreCare, &found) < 0) return true;
        CComPtr<IStoreCare> care;
        care.Attach(static_cast<IStoreCare*>(found));
        return care->IsInPlace() != MAPI_E_OBJECT_DELETED;
    } catch (const CMAPIException&) {
        return true;
    }
}

void CProfileSession::SetDefaultStore(const CStoreInfo& store) {
    CheckCall(m_session->SetDefaultStore(MAPI_DEFAULT_STORE, store.entryId.Count(),
                                         reinterpret_cast<LPENTRYID>(store.entryId.Bin().lpb)),
              "The store \"" + store.name + "\" cannot be made the default one", ExitCode::NotOpen);
}

CFolderRef CProfileSession::TopFolder(const CStoreInfo& store) {
    CFolderRef top;
    top.path = store.name;
    top.storeEntryId = store.entryId;
    top.store = OpenStore(store);
    top.folder = top.store._getIPMRoot();
    top.entryId = EntryIdOf(top.folder);
    return top;
}

std::vector<CFolderEntry> CProfileSession::Subfolders(const IMAPIFolderPtr& folder) {
    const CMapiRowSet rows =
        folder._rawHierrarchyTable().QueryRows({PR_DISPLAY_NAME_A, PR_ENTRYID, PR_CONTAINER_CLASS_A,
                                                PR_CONTENT_COUNT, PR_CONTENT_UNREAD, PR_SUBFOLDERS});
    std::vector<CFolderEntry> children;
    for (ULONG i = 0; i < rows.Count(); ++i) {
        CFolderEntry child;
        child.name = rows.Cell(i, 0).Str();
        child.entryId.Assign(rows.Cell(i, 1).Binary());
        child.containerClass = rows.Cell(i, 2).Str();
        child.items = rows.Cell(i, 3).Long();
        child.unread = rows.Cell(i, 4).Long();
        child.hasSubfolders = rows.Cell(i, 5).Bool();
        children.push_back(std::move(child));
    }
    std::sort(children.begin(), children.end(),
              [](const CFolderEntry& a, const CFolderEntry& b) { return a.name < b.name; });
    return children;
}

CFolderRef CProfileSession::OpenSubfolder(const CFolderRef& parent, const CFolderEntry& row) {
    CFolderRef child;
    child.path = parent.path + "\\" + row.name;
    child.store = parent.store;
    child.storeEntryId = parent.storeEntryId;
    child.entryId = row.entryId;
    try {
        child.folder = parent.folder.OpenEntryv(row.entryId.Bin()).As<IMAPIFolderPtr>();
    } catch (const CMAPIException& e) {
        throw CCommandError(ExitCode::NotOpen,
                            "The folder \"" + child.path + "\" cannot be opened: " + Explain(e));
    }
    return child;
}

CFolderRef CProfileSession::OpenFolder(const std::string& path) {
    const auto names = SplitFolderPath(path);
    if (names.empty())
        throw CCommandError(ExitCode::Usage, "The name of a folder is missing",
                            "A folder is written Store\\Folder\\Subfolder or Store/Folder/Subfolder.");
    CFolderRef folder = TopFolder(FindStore(names[0]));
    for (std::size_t i = 1; i < names.size(); ++i) {
        const auto children = Subfolders(folder.folder);
        const auto child = std::find_if(children.begin(), children.end(),
                                        [&](const CFolderEntry& row) { return row.name == names[i]; });
        if (child == children.end())
            throw CCommandError(
                ExitCode::NotOpen, "There is no folder \"" + names[i] + "\" in \"" + folder.path + "\"",
                children.empty() ? "That folder has no subfolders." : "There are: " + NamesOf(children));
        folder = OpenSubfolder(folder, *child);
    }
    return folder;
}

CFolderRef CProfileSession::CreateSubfolder(const CFolderRef& parent, const std::string& name,
                                            const std::string& containerClass, bool& created) {
    const auto children = Subfolders(parent.folder);
    const auto child = std::find_if(children.begin(), children.end(),
                                    [&](const CFolderEntry& row) { return row.name == name; });
    created = child == children.end();
    if (!created) return OpenSubfolder(parent, *child);

    CFolderRef folder = parent;
    folder.path = parent.path + "\\" + name;
    try {
        const std::string inherited = parent.folder.GetStrPropOrEmpty(PR_CONTAINER_CLASS_A);
        const std::string& wanted = containerClass.empty() ? inherited : containerClass;
        folder.folder = parent.folder.CreateFolder(FOLDER_GENERIC, name, "", 0);
        if (!wanted.empty()) folder.folder.SetStrProp(PR_CONTAINER_CLASS_A, wanted);
        folder.folder.SaveChanges(KEEP_OPEN_READWRITE);
    } catch (const CMAPIException& e) {
        throw CCommandError(ExitCode::NotOpen,
                            "The folder \"" + folder.path + "\" cannot be created: " + Explain(e));
    }
    folder.entryId = EntryIdOf(folder.folder);
    return folder;
}

CFolderRef CProfileSession::CreateFolder(const std::string& path, const std::string& containerClass,
                                         bool& created) {
    const auto names = SplitFolderPath(path);
    created = false;
    if (names.size() < 2) return OpenFolder(path);
    CFolderRef folder = TopFolder(FindStore(names[0]));
    for (std::size_t i = 1; i < names.size(); ++i)
        folder = CreateSubfolder(folder, names[i], containerClass, created);
    return folder;
}

std::string CProfileSession::PathOf(const CFolderRef& folder, const std::string& storeName) {
    const std::string below = GetFolderPath(m_session, folder.folder, '\\');
    return below.empty() ? storeName : storeName + "\\" + below;
}

bool CProfileSession::OpenFolderByKey(const std::string& key, CFolderRef& folder,
                                      std::string* problemOfStore) {
    const auto colon = key.find(':');
    if (colon == std::string::npos) return false;
    folder.entryId = BinaryFromHex(key.substr(0, colon));
    folder.storeEntryId = BinaryFromHex(key.substr(colon + 1));
    for (const CStoreInfo& store : Stores()) {
        if (!(store.entryId == folder.storeEntryId)) continue;
        try {
            folder.store = OpenStore(store);
            folder.folder = folder.store.OpenEntry(folder.entryId.Bin()).As<IMAPIFolderPtr>();
            if (!folder.folder) return false;
            folder.path = PathOf(folder, store.name);
            return true;
        } catch (const CMAPIException&) {
            return false;
        } catch (const CCommandError& e) {
            if (problemOfStore) *problemOfStore = e.what();
            return false;
        }
    }
    return false;
}
