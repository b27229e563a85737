// What a folder is and where it lies.
#include <MapiWrapper/MapiSession.h>

namespace {

// No real tree is deeper; a store whose parents run in a circle ends here.
constexpr int kDeepestFolder = 1000;

IMsgStorePtr StoreOf(const CMapiSession& session, const IMAPIFolderPtr& folder) {
    return session.OpenStore(folder.GetBinProp(PR_STORE_ENTRYID));
}

// Walks up from `folder` until a level has the entry ID `end` (also that of a parent, if `endAtParent`), or
// no name. A failing call ends the walk.
std::string PathUpTo(const IMsgStorePtr& store, IMAPIFolderPtr folder, const CMapiBinary& end,
                     bool endAtParent, char separator) {
    std::string path;
    try {
        for (int level = 0; folder && level < kDeepestFolder; ++level) {
            const CMapiBinary entryId = folder.GetBinProp(PR_ENTRYID);
            if (!endAtParent && entryId == end) break;
            const std::string name = folder.GetStrProp(PR_DISPLAY_NAME_A);
            if (name.empty()) break;
            path = level == 0 ? name : name + separator + path;
            const CMapiBinary parent = folder.GetBinProp(PR_PARENT_ENTRYID);
            // The top of a store is its own parent.
            if (parent == entryId || (endAtParent && parent == end)) break;
            folder = store.OpenEntry(parent).As<IMAPIFolderPtr>();
        }
    } catch (const CMAPIException&) {
    }
    return path;
}

}  // namespace

int GetFolderKind(const IMAPIFolderPtr& folder, const CMapiSession& session) {
    const CMapiPropValues own = folder.GetProps({PR_DISPLAY_NAME_A, PR_ENTRYID, PR_STORE_ENTRYID});
    const IMsgStorePtr store = session.OpenStore(own[2].Binary());
    const CMapiPropValues known = store.GetProps(
        {PR_IPM_OUTBOX_ENTRYID, PR_IPM_SENTMAIL_ENTRYID, PR_IPM_WASTEBASKET_ENTRYID, PR_SENTMAIL_ENTRYID});
    for (ULONG i = 0; i < known.Count(); ++i) {
        if (known[i].Type() == PT_BINARY && EqualBinary(known[i].Binary(), own[1].Binary()))
            return static_cast<int>(i) + 1;
    }
    return 0;
}

std::string GetFolderPath(const CMapiSession& session, const IMAPIFolderPtr& folder, char separator) {
    const IMsgStorePtr store = StoreOf(session, folder);
    const CMapiBinary root = store._getIPMRoot().GetBinProp(PR_ENTRYID);
    return PathUpTo(store, folder, root, false, separator);
}

std::string GetFolderPathOf(const CMapiSession& session, const IMAPIFolderPtr& folder) {
    const IMsgStorePtr store = StoreOf(session, folder);
    const CMapiBinary end = folder.GetBinProp(PR_STORE_ENTRYID);
    return PathUpTo(store, folder, end, true, '\\');
}
