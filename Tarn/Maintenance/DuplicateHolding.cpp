#include <Tarn/Engine/ItemKey.h>
#include <Tarn/Maintenance/DuplicateHolding.h>
#include <Tarn/Maintenance/Duplicates.h>

namespace {
// What a store refuses once it often does the next time.
template <class Open>
IMAPIFolderPtr TryTwice(Open open) {
    try {
        return open();
    } catch (const CMAPIException&) {
        return open();
    }
}

IMAPIFolderPtr Child(const IMAPIFolderPtr& parent, const std::string& name) {
    return TryTwice([&] { return parent.CreateFolder(FOLDER_GENERIC, name, "", OPEN_IF_EXISTS); });
}
}  // namespace

bool CDuplicateHolding::IsPossible() {
    try {
        return static_cast<bool>(TryTwice([&] { return m_of.store.GetWastebasket(); }));
    } catch (const CMAPIException&) {
        return false;
    }
}

// The name is one level whatever it holds, so no path is made of it.
IMAPIFolderPtr CDuplicateHolding::Make() {
    IMAPIFolderPtr folder = TryTwice([&] { return m_of.store.GetWastebasket(); });
    for (const char* name : kDuplicatesPath)
        folder = Child(folder, name);
    folder = Child(folder, m_of.folder.GetStrProp(PR_DISPLAY_NAME_A));
    const CMapiBinary own = m_of.folder.GetBinProp(PR_ENTRYID), other = folder.GetBinProp(PR_ENTRYID);
    return m_of.store.CompareEntryIDs(own, other) || own == other ? IMAPIFolderPtr() : folder;
}

bool CDuplicateHolding::Open() {
    if (!m_tried) {
        m_tried = true;
        try {
            m_folder = Make();
        } catch (const CMAPIException& e) {
            NoteException(e, "CDuplicateHolding");
        }
    }
    return static_cast<bool>(m_folder);
}
