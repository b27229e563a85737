#include <Tarn/Engine/FolderKey.h>
#include <Tarn/Maintenance/MaintainedFolder.h>

CMaintainedFolder CMaintainedFolder::OfKey(const CMapiSession& session, const std::string& key) {
    const CFolderKey parts = CFolderKey::FromText(key);
    CMaintainedFolder maintained;
    if (parts.m_folder.IsEmpty()) return maintained;
    maintained.store = session.OpenStore(parts.m_store);
    maintained.folder = maintained.store.OpenEntry(parts.m_folder).As<IMAPIFolderPtr>();
    return maintained;
}
