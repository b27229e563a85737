#include <Platform/Files.h>
#include <Platform/Machine.h>
#include <Platform/Utf8.h>
#include <Programs/vellum/Commands/CommandContext.h>
#include <Programs/vellum/Commands/FolderTree.h>
#include <Programs/vellum/Console/Interrupt.h>
#include <Programs/vellum/Console/ProgressLine.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Items/FolderItems.h>
#include <Programs/vellum/Items/MsgFile.h>

#include <cstdio>
#include <cstring>
#include <ostream>

namespace {

constexpr std::size_t nameLength = 60;

// A name that every file system takes, from a text in UTF-8.
std::string FileNameFrom(const std::string& text) {
    const std::string shown = Utf8Shorten(OneLine(text), nameLength);
    std::string name = Utf8FromNarrow(shown);
    for (char& c : name)
        if (std::strchr("\\/:*?\"<>|", c)) c = '_';
    while (!name.empty() && (name.back() == ' ' || name.back() == '.'))
        name.pop_back();
    return name;
}

class CExport {
public:
    CExport(CCommandContext& context, const std::string& query)
        : m_context(context), m_query(query), m_progress(context.Console()) {}

    void Folder(const CFolderRef& folder, const std::string& directory) {
        const auto items = ListItems(folder, m_query);
        if (!items.empty() && !MakeDirectories(directory))
            throw CCommandError(ExitCode::NotOpen,
                                "The directory \"" + directory + "\" cannot be created: " + LastFileError());
        for (std::size_t i = 0; i < items.size() && !InterruptRequested(); ++i) {
            m_progress.Show(Utf8FromNarrow(folder.path), static_cast<unsigned>(i),
                            static_cast<unsigned>(items.size()));
            Item(folder, items[i], directory);
        }
    }
    unsigned Items() const { return m_items; }
    unsigned Failed() const { return m_failed; }

private:
    // The number in front keeps the names apart and the files in the folder's order.
    static std::string PathFor(const CItemRow& row, const std::string& directory) {
        char number[16];
        std::snprintf(number, sizeof(number), "%05u", row.number);
        const std::string subject = FileNameFrom(row.subject);
        return JoinPath(directory, subject.empty() ? std::string(number) + ".msg"
                                                   : std::string(number) + " " + subject + ".msg");
    }
    void Item(const CFolderRef& folder, const CItemRow& row, const std::string& directory) {
        const std::string path = PathFor(row, directory);
        try {
            if (FileExists(path))
                throw CCommandError(ExitCode::NotOpen,
                                    "The file \"" + path + "\" is there already and stays as it is");
            ExportMsgFile(OpenItem(folder, row, 0), path);
            ++m_items;
        } catch (const CCommandError& e) {
            ++m_failed;
            m_context.Console().Warn(Utf8FromNarrow(e.what()));
        }
    }

    CCommandContext& m_context;
    const std::string& m_query;
    CProgressLine m_progress;
    unsigned m_items = 0;
    unsigned m_failed = 0;
};

struct CExportArguments {
    std::string folder;
    std::string directory;
    std::string query;
    bool subfolders = false;
};

int Export(CCommandContext& context, const CExportArguments& arguments) {
    CProfileSession& session = context.Session();
    const CFolderRef top = session.OpenFolder(arguments.folder);
    if (!MakeDirectories(arguments.directory))
        throw CCommandError(ExitCode::NotOpen, "The directory \"" + arguments.directory +
                                                   "\" cannot be created: " + LastFileError());
    CExport out(context, arguments.query);
    WalkFolders(session, top, [&](const CFolderRef& folder, const CFolderEntry&, int depth) {
        if ((depth > 0 && !arguments.subfolders) || !folder.folder) return;
        std::string directory = arguments.directory;
        for (const std::string& name : SplitFolderPath(folder.path.substr(top.path.size())))
            directory = JoinPath(directory, FileNameFrom(Utf8FromNarrow(name)));
        out.Folder(folder, directory);
    });
    if (context.Json()) {
        Json json = Json::object();
        json["directory"] = Utf8FromNarrow(arguments.directory);
        json["items"] = out.Items();
        json["failed"] = out.Failed();
        context.Console().Out() << JsonText(json);
    } else {
        context.Console().Note("Exported " + std::to_string(out.Items()) + " item(s) to \"" +
                               arguments.directory + "\".");
    }
    if (InterruptRequested()) return Code(ExitCode::Cancelled);
    return Code(out.Failed() > 0 ? ExitCode::ItemsFailed : ExitCode::Done);
}

}  // namespace

void AddExportCommand(CCommandTable& table) {
    auto arguments = std::make_shared<CExportArguments>();
    CLI::App& command =
        table.AddCommand(table.App(), "export", "Export the items of a folder as files (.msg)",
                         "export Home/Inbox --to backup",
                         [arguments](CCommandContext& context) { return Export(context, *arguments); });
    command.add_option("FOLDER", arguments->folder, "The folder")->required();
    command.add_option("--to", arguments->directory, "Directory for the files; created if it is missing")
        ->required()
        ->type_name("DIR");
    command.add_option("--query", arguments->query, "Only items that fit this query")->type_name("TEXT");
    command.add_flag("--subfolders", arguments->subfolders,
                     "With all folders below, each in a directory of its own");
}
