#include <Programs/vellum/Commands/FolderTree.h>

#include <Programs/vellum/Console/ExitCode.h>

namespace {

// A store whose folders go round in a circle must not keep us for ever.
constexpr int maxDepth = 200;

void Walk(CProfileSession& session, const CFolderRef& folder, const CFolderEntry& row, int depth,
          const std::function<void(const CFolderRef&, const CFolderEntry&, int)>& visit) {
    visit(folder, row, depth);
    if (!folder.folder || depth >= maxDepth) return;
    for (const CFolderEntry& childRow : session.Subfolders(folder.folder)) {
        CFolderRef child;
        try {
            child = session.OpenSubfolder(folder, childRow);
        } catch (const CCommandError&) {
            child.path = folder.path + "\\" + childRow.name;
        }
        Walk(session, child, childRow, depth + 1, visit);
    }
}

}  // namespace

CFolderEntry RowOfFolder(const CFolderRef& folder) {
    CFolderEntry row;
    const auto cut = folder.path.rfind('\\');
    row.name = cut == std::string::npos ? folder.path : folder.path.substr(cut + 1);
    row.entryId = folder.entryId;
    row.containerClass = folder.folder.GetStrPropOrEmpty(PR_CONTAINER_CLASS_A);
    row.items = folder.folder.GetLongPropOr0(PR_CONTENT_COUNT);
    row.unread = folder.folder.GetLongPropOr0(PR_CONTENT_UNREAD);
    return row;
}

void WalkFolders(CProfileSession& session, const CFolderRef& top,
                 const std::function<void(const CFolderRef&, const CFolderEntry&, int)>& visit) {
    Walk(session, top, RowOfFolder(top), 0, visit);
}
