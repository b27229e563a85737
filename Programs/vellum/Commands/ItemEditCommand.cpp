// Changing items.
#include <Programs/vellum/Commands/CommandContext.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Items/FolderItems.h>
#include <Programs/vellum/Items/ItemEdit.h>
#include <Programs/vellum/Items/PropertyReport.h>
#include <Programs/vellum/Session/Explain.h>

#include <ostream>
#include <set>

namespace {

struct CEditArguments {
    std::string folder;
    std::string item;
    std::vector<std::string> items;
    std::string target;
    CItemChanges changes;
    bool permanently = false;
};

struct CClassOfContainer {
    const char* container;
    const char* message;
};
constexpr CClassOfContainer classes[] = {{"IPF.Appointment", "IPM.Appointment"},
                                         {"IPF.Contact", "IPM.Contact"},
                                         {"IPF.Task", "IPM.Task"},
                                         {"IPF.StickyNote", "IPM.StickyNote"},
                                         {"IPF.Journal", "IPM.Activity"}};

std::string DefaultClass(const CFolderRef& folder) {
    const std::string container = folder.folder.GetStrPropOrEmpty(PR_CONTAINER_CLASS_A);
    for (const CClassOfContainer& row : classes)
        if (container == row.container) return row.message;
    return "IPM.Note";
}

void PrintId(CCommandContext& context, const IMessagePtr& message) {
    if (!context.Json()) return;
    Json item = Json::object();
    item["id"] = message.GetBinProp(PR_ENTRYID).Hex();
    item["subject"] = ShownText(message, PR_SUBJECT_A);
    context.Console().Out() << JsonText(item);
}

int NewItem(CCommandContext& context, CEditArguments& arguments) {
    CProfileSession& session = context.Session();
    const CFolderRef folder = session.OpenFolder(arguments.folder);
    if (arguments.changes.messageClass.empty()) arguments.changes.messageClass = DefaultClass(folder);
    IMessagePtr message = folder.folder.CreateMessage(nullptr, 0);
    ApplyChanges(session, folder, message, arguments.changes);
    message.SaveChanges(KEEP_OPEN_READWRITE);
    context.Console().Note("Created an item in \"" + folder.path + "\".");
    PrintId(context, message);
    return Code(ExitCode::Done);
}

int SetItem(CCommandContext& context, const CEditArguments& arguments) {
    if (arguments.changes.IsEmpty())
        throw CCommandError(ExitCode::Usage, "Nothing is said about what to change",
                            "Name it, for example:  --subject TEXT, --body TEXT or --set NAME=VALUE");
    CProfileSession& session = context.Session();
    const CFolderRef folder = session.OpenFolder(arguments.folder);
    const CItemRow row = FindItem(folder, arguments.item);
    IMessagePtr message = OpenItem(folder, row, MAPI_MODIFY);
    ApplyChanges(session, folder, message, arguments.changes);
    message.SaveChanges(KEEP_OPEN_READWRITE);
    context.Console().Note("Changed " + ItemLabel(row) + ".");
    PrintId(context, message);
    return Code(ExitCode::Done);
}

// Entry IDs for the calls that take several items.
class CItemList {
public:
    CItemList(const CFolderRef& folder, const std::vector<std::string>& words) {
        std::set<std::string> named;  // one item may be named twice, by its number and by its subject
        for (const std::string& word : words) {
            CItemRow row = FindItem(folder, word);
            if (named.insert(row.entryId.Hex()).second) m_rows.push_back(std::move(row));
        }
        for (const CItemRow& row : m_rows)
            m_ids.push_back(row.entryId.Bin());
        m_list.cValues = static_cast<ULONG>(m_ids.size());
        m_list.lpbin = m_ids.data();
    }
    ENTRYLIST* Get() { return &m_list; }
    bool IsOne() const { return m_rows.size() == 1; }
    std::string Count() const { return std::to_string(m_rows.size()) + (IsOne() ? " item" : " items"); }

private:
    std::vector<CItemRow> m_rows;
    std::vector<SBinary> m_ids;
    ENTRYLIST m_list{};
};

int CopyItems(CCommandContext& context, const CEditArguments& arguments, bool move) {
    CProfileSession& session = context.Session();
    const CFolderRef source = session.OpenFolder(arguments.folder);
    const CFolderRef target = session.OpenFolder(arguments.target);
    CItemList items(source, arguments.items);
    CheckCall(source.folder->CopyMessages(items.Get(), nullptr, target.folder.Get(), 0, nullptr,
                                          move ? MESSAGE_MOVE : 0),
              "Items cannot be " + std::string(move ? "moved" : "copied") + " from \"" + source.path +
                  "\" to \"" + target.path + "\"",
              ExitCode::NotOpen);
    context.Console().Note((move ? "Moved " : "Copied ") + items.Count() + " to \"" + target.path + "\".");
    return Code(ExitCode::Done);
}

int DeleteItems(CCommandContext& context, const CEditArguments& arguments) {
    CProfileSession& session = context.Session();
    const CFolderRef folder = session.OpenFolder(arguments.folder);
    CItemList items(folder, arguments.items);
    const std::string failure = "Items in \"" + folder.path + "\" cannot be deleted";
    IMAPIFolderPtr bin;
    if (!arguments.permanently) bin = folder.store.GetWastebasket();
    const bool inBin =
        bin && folder.store.CompareEntryIDs(bin.GetBinProp(PR_ENTRYID).Bin(), folder.entryId.Bin());
    if (bin && !inBin)
        CheckCall(folder.folder->CopyMessages(items.Get(), nullptr, bin.Get(), 0, nullptr, MESSAGE_MOVE),
                  failure, ExitCode::NotOpen);
    else
        CheckCall(folder.folder->DeleteMessages(items.Get(), 0, nullptr, 0), failure, ExitCode::NotOpen);
    context.Console().Note("Deleted " + items.Count() + " from \"" + folder.path + "\"" +
                           (!bin || inBin   ? "."
                            : items.IsOne() ? "; it lies in the wastebasket."
                                            : "; they lie in the wastebasket."));
    return Code(ExitCode::Done);
}

void AddChangeOptions(CLI::App& command, CItemChanges& changes) {
    command.add_option("--subject", changes.subject, "Its subject")
        ->type_name("TEXT")
        ->each([&changes](const std::string&) { changes.hasSubject = true; });
    command.add_option("--body", changes.body, "Its text")
        ->type_name("TEXT")
        ->each([&changes](const std::string&) { changes.hasBody = true; });
    command
        .add_option("--class", changes.messageClass, "Its message class (default: as the folder suggests)")
        ->type_name("CLASS");
    command
        .add_option("--set", changes.assignments,
                    "Set a property: a query word, PR_ name or 0x tag, = and the value; may be repeated")
        ->type_name("NAME=VALUE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command.add_option("--unset", changes.removals, "Remove a property; may be repeated")
        ->type_name("NAME")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command.add_option("--to", changes.to, "Add a recipient; may be repeated")
        ->type_name("ADDRESS")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command.add_option("--cc", changes.cc, "Add a recipient of a copy; may be repeated")
        ->type_name("ADDRESS")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command.add_option("--attach", changes.attachments, "Attach a file; may be repeated")
        ->type_name("FILE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

}  // namespace

void AddItemEditCommands(CCommandTable& table, CLI::App& group) {
    auto arguments = std::make_shared<CEditArguments>();
    CLI::App& create =
        table.AddCommand(group, "new", "Create an item",
                         "item new Home/Inbox --subject Hello --body \"How are you?\" --to ann@example.org",
                         [arguments](CCommandContext& context) { return NewItem(context, *arguments); });
    create.add_option("FOLDER", arguments->folder, "The folder")->required();
    AddChangeOptions(create, arguments->changes);

    CLI::App& set = table.AddCommand(
        group, "set", "Change an item", "item set Home/Inbox 3 --subject \"Hello again\" --set Sensitivity=2",
        [arguments](CCommandContext& context) { return SetItem(context, *arguments); });
    set.add_option("FOLDER", arguments->folder, "The folder")->required();
    set.add_option("ITEM", arguments->item, "Number, subject or id")->required();
    AddChangeOptions(set, arguments->changes);

    CLI::App& remove = table.AddCommand(
        group, "delete", "Delete items: into the wastebasket, or for good", "item delete Home/Inbox 3 5",
        [arguments](CCommandContext& context) { return DeleteItems(context, *arguments); });
    remove.add_option("FOLDER", arguments->folder, "The folder")->required();
    remove.add_option("ITEM", arguments->items, "Numbers, subjects or ids")->required();
    remove.add_flag("--permanently", arguments->permanently, "Do not keep them in the wastebasket");

    const auto addTransfer = [&](const std::string& name, const std::string& text, bool move) {
        CLI::App& command = table.AddCommand(
            group, name, text, "item " + name + " Home/Inbox 3 5 --to Home/Archive",
            [arguments, move](CCommandContext& context) { return CopyItems(context, *arguments, move); });
        command.add_option("FOLDER", arguments->folder, "The folder they are in")->required();
        command.add_option("ITEM", arguments->items, "Numbers, subjects or ids")->required();
        command.add_option("--to", arguments->target, "The folder they go to")
            ->required()
            ->type_name("FOLDER");
    };
    addTransfer("move", "Move items to another folder, also of another store", true);
    addTransfer("copy", "Copy items to another folder, also of another store", false);
}
