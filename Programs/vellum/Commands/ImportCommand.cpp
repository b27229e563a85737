#include <Programs/vellum/Commands/CommandContext.h>
#include <Programs/vellum/Console/Interrupt.h>
#include <Programs/vellum/Console/ProgressLine.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Items/MsgFile.h>
#include <Programs/vellum/Mailbox/MailboxImporter.h>
#include <Programs/vellum/Session/Explain.h>
#include <Tarn/Engine/StoreBatch.h>

#include <Platform/Files.h>

#include <ostream>

namespace {

// Refuses what is no mail before anything is written.
void CheckFiles(const std::vector<std::string>& files) {
    for (const std::string& file : files) {
        if (DirectoryExists(file))
            throw CCommandError(
                ExitCode::NotOpen, "\"" + file + "\" is a directory",
                "Name the files in it, for example:  vellum import " + file + "/*.msg --into FOLDER");
        if (!FileExists(file)) throw CCommandError(ExitCode::NotOpen, "There is no file \"" + file + "\"");
        if (IsMsgFile(file)) continue;
        const std::string problem = MailboxProblem(file);
        if (!problem.empty())
            throw CCommandError(ExitCode::NotOpen, "The file \"" + file + "\" cannot be imported: " + problem,
                                "Items in files of their own (.msg) can be imported, and on Linux mailbox "
                                "files (.pst, .ost).");
    }
}

class CImport {
public:
    CImport(CCommandContext& context, const CFolderRef& folder)
        : m_context(context), m_folder(folder), m_progress(context.Console()) {}

    void TakeFile(const std::string& file) {
        if (IsMsgFile(file))
            TakeMsg(file);
        else
            TakeMailbox(file);
    }
    const CImportResult& Total() const { return m_total; }

private:
    void Warn(const std::string& text) { m_context.Console().Warn(Utf8FromNarrow(text)); }
    void TakeMsg(const std::string& file) {
        m_progress.Show(file, m_total.items, 0);
        try {
            ImportMsgFile(file, m_folder);
            ++m_total.items;
        } catch (const CCommandError& e) {
            ++m_total.failed;
            Warn(e.what());
        }
    }
    void TakeMailbox(const std::string& file) {
        std::string problem;
        const auto reader = OpenMailbox(file, problem);
        if (!reader) {
            ++m_total.failed;
            return Warn("The file \"" + file + "\" cannot be imported: " + problem);
        }
        CMailboxImporter::Hooks hooks;
        hooks.warn = [this](const std::string& text) { Warn(text); };
        hooks.cancelled = InterruptRequested;
        hooks.progress = [this](const std::string& folder, unsigned done, unsigned total) {
            m_progress.Show(Utf8FromNarrow(folder), done, total);
        };
        const CImportResult result = CMailboxImporter(m_context.Session(), m_folder, hooks).Run(*reader);
        m_total.items += result.items;
        m_total.folders += result.folders;
        m_total.failed += result.failed;
        m_total.cancelled = result.cancelled;
    }

    CCommandContext& m_context;
    const CFolderRef& m_folder;
    CProgressLine m_progress;
    CImportResult m_total;
};

int Import(CCommandContext& context, const std::vector<std::string>& files, const std::string& path,
           bool create) {
    CheckFiles(files);
    CProfileSession& session = context.Session();
    bool created = false;
    const CFolderRef folder = create ? session.CreateFolder(path, "", created) : session.OpenFolder(path);
    CImportResult result;
    {
        CStoreBatch batch;
        batch.Begin(folder.store);
        CImport import(context, folder);
        for (const std::string& file : files) {
            if (import.Total().cancelled || InterruptRequested()) break;
            import.TakeFile(file);
        }
        result = import.Total();
        CheckCall(batch.Flush(), "The last items could not be written to \"" + folder.path + "\"",
                  ExitCode::NotOpen);
    }
    result.cancelled = result.cancelled || InterruptRequested();
    if (context.Json()) {
        Json json = Json::object();
        json["folder"] = Utf8FromNarrow(folder.path);
        json["items"] = result.items;
        json["folders"] = result.folders;
        json["failed"] = result.failed;
        json["cancelled"] = result.cancelled;
        context.Console().Out() << JsonText(json);
    } else {
        context.Console().Note("Imported " + std::to_string(result.items) + " item(s) and " +
                               std::to_string(result.folders) + " folder(s) into \"" + folder.path + "\"" +
                               (result.cancelled ? "; then it was cancelled." : "."));
    }
    if (result.cancelled) return Code(ExitCode::Cancelled);
    return Code(result.failed > 0 ? ExitCode::ItemsFailed : ExitCode::Done);
}

}  // namespace

void AddImportCommand(CCommandTable& table) {
    struct Arguments {
        std::vector<std::string> files;
        std::string folder;
        bool create = false;
    };
    auto arguments = std::make_shared<Arguments>();
    CLI::App& command = table.AddCommand(
        table.App(), "import", "Import mailbox files (.pst, .ost) with their folders, or items (.msg)",
        "import mail.pst --into Home/Inbox", [arguments](CCommandContext& context) {
            return Import(context, arguments->files, arguments->folder, arguments->create);
        });
    command.add_option("FILE", arguments->files, "The files")->required();
    command.add_option("--into", arguments->folder, "The folder they go to")->required()->type_name("FOLDER");
    command.add_flag("--create", arguments->create, "Create that folder if it is missing");
}
