#include <Programs/vellum/Commands/CommandContext.h>
#include <Programs/vellum/Commands/FolderTree.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Session/Explain.h>

namespace {

int ListFolders(CCommandContext& context, const std::string& path) {
    CProfileSession& session = context.Session();
    CListing listing(
        {{"path", "Folder"}, {"class", "Class"}, {"items", "Items"}, {"unread", "Unread"}},
        "The profile \"" + session.Name() + "\" has no stores yet. Create one:  vellum store create NAME");
    const auto list = [&](const CFolderRef& top) {
        WalkFolders(session, top, [&](const CFolderRef& folder, const CFolderEntry& row, int depth) {
            const std::string name = depth == 0 ? folder.path : row.name;
            listing.AddRow({{Utf8FromNarrow(folder.path),
                             std::string(2 * static_cast<std::size_t>(depth), ' ') + Utf8FromNarrow(name)},
                            Utf8FromNarrow(row.containerClass),
                            row.items,
                            row.unread});
        });
    };
    if (!path.empty()) {
        list(session.OpenFolder(path));
    } else {
        for (const CStoreInfo& store : session.Stores())
            list(session.OpenFolder(store.name));
    }
    listing.Print(context.Console(), context.Json());
    return Code(ExitCode::Done);
}

int CreateFolder(CCommandContext& context, const std::string& path, const std::string& containerClass) {
    bool created = false;
    const CFolderRef folder = context.Session().CreateFolder(path, containerClass, created);
    if (!created) throw CCommandError(ExitCode::Usage, "There is a folder \"" + folder.path + "\" already");
    context.Console().Note("Created the folder \"" + folder.path + "\".");
    return Code(ExitCode::Done);
}

int RemoveFolder(CCommandContext& context, const std::string& path, bool force) {
    CProfileSession& session = context.Session();
    const CFolderRef folder = session.OpenFolder(path);
    const auto cut = folder.path.rfind('\\');
    if (cut == std::string::npos)
        throw CCommandError(ExitCode::Usage, "\"" + folder.path + "\" is a store, not a folder",
                            "A store is removed with:  vellum store remove \"" + folder.path + "\"");
    const CFolderEntry row = RowOfFolder(folder);
    if (!force && (row.items > 0 || !session.Subfolders(folder.folder).empty()))
        throw CCommandError(ExitCode::Guarded,
                            "The folder \"" + folder.path + "\" is not empty: it holds " +
                                std::to_string(row.items) + " item(s) and possibly subfolders",
                            "If all of it shall go, say so with --force.");
    const CFolderRef parent = session.OpenFolder(folder.path.substr(0, cut));
    CheckCall(parent.folder->DeleteFolder(folder.entryId.Count(),
                                          reinterpret_cast<LPENTRYID>(folder.entryId.Bin().lpb), 0, nullptr,
                                          DEL_FOLDERS | DEL_MESSAGES),
              "The folder \"" + folder.path + "\" cannot be removed", ExitCode::NotOpen);
    context.Console().Note("Removed the folder \"" + folder.path + "\".");
    return Code(ExitCode::Done);
}

}  // namespace

void AddFolderCommands(CCommandTable& table) {
    struct Arguments {
        std::string path;
        std::string containerClass;
        bool force = false;
    };
    auto arguments = std::make_shared<Arguments>();
    CLI::App& group = table.AddGroup("folder", "Folders of the stores", "folder list Home");
    table
        .AddCommand(group, "list", "List folders as a tree, with counts of items", "folder list Home/Inbox",
                    [arguments](CCommandContext& context) { return ListFolders(context, arguments->path); })
        .add_option("FOLDER", arguments->path, "Store or folder to begin at (default: all stores)");

    CLI::App& create =
        table.AddCommand(group, "create", "Create a folder, with those above it where they are missing",
                         "folder create Home/Inbox/Projects", [arguments](CCommandContext& context) {
                             return CreateFolder(context, arguments->path, arguments->containerClass);
                         });
    create.add_option("FOLDER", arguments->path, "Where")->required();
    create.add_option("--class", arguments->containerClass,
                      "Container class, such as IPF.Appointment (default: that of the folder above)");

    CLI::App& remove =
        table.AddCommand(group, "remove", "Remove a folder", "folder remove Home/Inbox/Projects --force",
                         [arguments](CCommandContext& context) {
                             return RemoveFolder(context, arguments->path, arguments->force);
                         });
    remove.add_option("FOLDER", arguments->path, "Which")->required();
    remove.add_flag("--force", arguments->force, "With all items and subfolders in it");
}
