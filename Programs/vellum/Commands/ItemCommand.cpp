// Looking at items.
#include <Programs/vellum/Commands/CommandContext.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Items/FolderItems.h>
#include <Programs/vellum/Items/ItemReport.h>
#include <Programs/vellum/Items/PropertyReport.h>

#include <ostream>

namespace {

int ListFolderItems(CCommandContext& context, const std::string& path, const std::string& query) {
    CProfileSession& session = context.Session();
    const CFolderRef folder = session.OpenFolder(path);
    CListing listing({{"number", "No."},
                      {"date", "Date"},
                      {"from", "From"},
                      {"subject", "Subject"},
                      {"class", "Class"},
                      {"size", "Size"},
                      {"created", ""},
                      {"modified", ""},
                      {"id", ""}},
                     query.empty() ? "The folder \"" + folder.path + "\" is empty."
                                   : "No item in \"" + folder.path + "\" fits the query.");
    const auto time = [](const FILETIME& ft) {
        SPropValue value{};
        value.ulPropTag = PR_CREATION_TIME;
        value.Value.ft = ft;
        return ValueToJson(value);
    };
    for (const CItemRow& row : ListItems(folder, query))
        listing.AddRow({row.number,
                        {time(row.date), ShortTime(row.date)},
                        row.from,
                        row.subject,
                        Utf8FromNarrow(row.messageClass),
                        row.size,
                        time(row.created),
                        time(row.modified),
                        row.entryId.Hex()});
    listing.Print(context.Console(), context.Json());
    return Code(ExitCode::Done);
}

void PrintProperties(CConsole& console, const Json& properties) {
    CListing listing({{"name", "Property"}, {"type", "Type"}, {"value", "Value"}}, "It has no properties.");
    for (const Json& property : properties) {
        std::string name = property.value("set", "");
        if (!name.empty()) name += "/";
        name += property.contains("name") ? property["name"].get<std::string>()
                : property.contains("id") ? property["id"].get<std::string>()
                                          : property.value("tag", "");
        std::string text;
        if (property.contains("digest"))
            text = property["digest"].get<std::string>() + " (" + property["size"].dump() + " bytes)";
        else if (property.contains("error"))
            text = property["error"].get<std::string>();
        listing.AddRow(
            {name, property.value("type", ""),
             text.empty() ? CListing::Cell(property.value("value", Json())) : CListing::Cell(text)});
    }
    listing.PrintTable(console);
}

int ShowItem(CCommandContext& context, const std::string& path, const std::string& word, bool properties) {
    CProfileSession& session = context.Session();
    const CFolderRef folder = session.OpenFolder(path);
    const CItemRow row = FindItem(folder, word);
    const IMessagePtr message = OpenItem(folder, row, 0);
    if (context.Json()) {
        Json item = Json::object();
        item["id"] = row.entryId.Hex();
        item["folder"] = Utf8FromNarrow(folder.path);
        item.update(ItemToJson(message.Get()));
        context.Console().Out() << JsonText(item);
    } else if (properties) {
        PrintProperties(context.Console(), PropertiesToJson(message));
    } else {
        PrintItem(context.Console(), message);
    }
    return Code(ExitCode::Done);
}

}  // namespace

void AddItemCommands(CCommandTable& table) {
    struct Arguments {
        std::string folder;
        std::string item;
        std::string query;
        bool properties = false;
    };
    auto arguments = std::make_shared<Arguments>();
    CLI::App& group = table.AddGroup(
        "item", "Items of a folder. An item is named by its number in the list, its subject, or its id",
        "item list Home/Inbox");
    CLI::App& list =
        table.AddCommand(group, "list", "List the items of a folder",
                         "item list Home/Inbox --query 'Subject = substring \"invoice\"'",
                         [arguments](CCommandContext& context) {
                             return ListFolderItems(context, arguments->folder, arguments->query);
                         });
    list.add_option("FOLDER", arguments->folder, "The folder")->required();
    list.add_option("--query", arguments->query, "Only items that fit this query")->type_name("TEXT");

    CLI::App& show = table.AddCommand(
        group, "show", "Show an item; with --json every property, recipient and attachment",
        "item show Home/Inbox 3 --json", [arguments](CCommandContext& context) {
            return ShowItem(context, arguments->folder, arguments->item, arguments->properties);
        });
    show.add_option("FOLDER", arguments->folder, "The folder")->required();
    show.add_option("ITEM", arguments->item, "Number, subject or id")->required();
    show.add_flag("--properties", arguments->properties, "A table of all properties instead of the text");
    AddItemEditCommands(table, group);
}
