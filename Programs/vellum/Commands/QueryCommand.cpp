// The query language on the command line.
#include <Programs/vellum/Commands/QueryCommand.h>

#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Programs/vellum/Commands/CommandContext.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Items/PropertyReport.h>
#include <Programs/vellum/Items/QueryReport.h>
#include <Tools/QueryWrite.h>
#include <Tools/RestrictionTree.h>

#include <cstdio>
#include <optional>
#include <ostream>

namespace {

// A folder that can number named properties: the one given, or else the top of the default store. Without
// a profile or a store there is none, and only words for named properties miss it.
struct CScope {
    CScope(CCommandContext& context, const std::string& path) {
        if (!path.empty()) {
            folder = context.Session().OpenFolder(path).folder;
            session = context.Session().Mapi();
            return;
        }
        try {
            session = context.Session().Mapi();
            const IMsgStorePtr store = session.OpenDefaultStore();
            if (store.IsValid()) folder = store._getIPMRoot();
        } catch (const CCommandError&) {
        } catch (const CMAPIException&) {
        }
    }
    CMapiSession session;
    IMAPIFolderPtr folder;
};

// The part behind the end of the expression, on one line; mostly empty.
std::string Unread(const CCompileRestriction& compiler, const std::string& text) {
    const std::string rest = text.substr(compiler.EndOffset());
    return rest.find_first_not_of(" \t\r\n") == std::string::npos ? std::string()
                                                                  : OneLine(Utf8FromNarrow(rest));
}

void WarnOfDoubts(CCommandContext& context, const CQueryCompiler& query) {
    for (const std::string& doubt : query.Doubts())
        context.Console().Warn(doubt + ".");
    if (!query.compiler.Restriction())
        context.Console().Note("The query restricts nothing: every item fits.");
}

// A text is read as far as it is one expression. That is no error, but seldom what was meant.
void WarnOfWhatIsNotRead(CCommandContext& context, const CQueryCompiler& query, const std::string& text) {
    const std::string rest = Unread(query.compiler, text);
    if (!rest.empty()) context.Console().Warn("The query ends before \"" + rest + "\", which is not read.");
    WarnOfDoubts(context, query);
}

// Throws CCommandError where the query cannot be used whole. Not tried on a folder where there is none.
void RequireCorrect(CQueryCompiler& query, const std::string& text, const std::string& path) {
    query.Compile(text);
    const std::string rest = Unread(query.compiler, text);
    if (!rest.empty())
        throw CCommandError(ExitCode::Usage, "The query ends before \"" + rest + "\", which is not read",
                            "Conditions are joined by 'and' and 'or'.");
    const bool isBlank = text.find_first_not_of(" \t\r\n") == std::string::npos;
    const bool saysNothing =
        !isBlank && !query.compiler.Restriction() && !query.compiler.Columns() && !query.compiler.SortOrder();
    if (saysNothing || query.compiler.IsLoneValue())
        throw CCommandError(ExitCode::Usage, "The query holds no condition, so every item would fit",
                            "A condition compares a field with a value:  Subject = \"Plan\"");
    if (query.compiler.Folder()) query.TryOn(IMAPIContainerPtr(query.compiler.Folder()), path);
}

// "correct" is null where nothing can be said, for want of a store to ask.
Json CheckedToJson(const CQueryCompiler& query, const std::string& error) {
    const CCompileRestriction& compiler = query.compiler;
    Json result = Json::object();
    result["correct"] = !error.empty() ? Json(false) : compiler.Folder() ? Json(true) : Json();
    if (compiler.HasError())
        result.update({{"error", query.Message()}, {"offset", compiler.ErrorOffset()}});
    else
        result["end"] = compiler.EndOffset();
    if (!error.empty() && !compiler.HasError()) result["error"] = error;
    if (!compiler.ErrorHint().empty()) result["hint"] = OneLine(Utf8FromNarrow(compiler.ErrorHint()));
    result["warnings"] = query.Doubts();
    return result;
}

int CheckQueryText(CCommandContext& context, const std::string& text, const std::string& path) {
    const CScope scope(context, path);
    CQueryCompiler query(scope.folder, scope.session);
    const auto print = [&](const std::string& error) {
        if (context.Json()) context.Console().Out() << JsonText(CheckedToJson(query, error));
    };
    try {
        RequireCorrect(query, text, path.empty() ? "the top of the store" : path);
    } catch (const CCommandError& e) {
        print(e.what());
        if (!scope.folder.IsValid())
            context.Console().Warn(
                "There is no store here, so words for named properties (Private, Categories) are unknown.");
        throw;
    }
    print({});
    WarnOfDoubts(context, query);
    context.Console().Note(query.compiler.Folder()
                               ? "The query is correct."
                               : "The query can be understood; there is no store here to try it on.");
    return Code(ExitCode::Done);
}

// The text that compiles to the same again; where the language has none, one that only comes close, and
// false.
bool QueryTextOf(const CQueryCompiler& query, const CScope& scope, std::string& text) {
    text = WriteQuery(query.compiler, query.compiler.Restriction());
    CQueryCompiler again(scope.folder, scope.session);
    again.compiler.SetFolder(query.compiler.Folder());  // which the text may have chosen
    if (again.compiler.Compile(text) &&
        RestrictionTree(again.compiler.Restriction()) == RestrictionTree(query.compiler.Restriction()))
        return true;
    text = query.compiler.PrintRestriction(query.compiler.Restriction());
    return false;
}

int PrintQueryText(CCommandContext& context, const std::string& text, const std::string& path) {
    const CScope scope(context, path);
    CQueryCompiler query(scope.folder, scope.session);
    query.Compile(text);
    WarnOfWhatIsNotRead(context, query, text);
    std::string printed;
    const bool compiles = QueryTextOf(query, scope, printed);
    if (!compiles)
        context.Console().Warn(
            "What is printed does not compile to the same query; the tree shows what is meant.");
    Json json = {{"text", Utf8FromNarrow(printed)}, {"compiles", compiles}};
    json.update(QueryToJson(query.compiler));
    if (context.Json())
        context.Console().Out() << JsonText(json);
    else
        PrintQuery(context.Console(), json);
    return Code(ExitCode::Done);
}

// The folder that the query is to run over, unless its text will name it.
CFolderRef FolderOfQuery(CCommandContext& context, const std::optional<std::string>& inText,
                         const std::string& path) {
    if (inText && !path.empty())
        throw CCommandError(ExitCode::Usage,
                            "The query names a folder (from \"" + *inText + "\"), and so does --in.",
                            "Leave one of the two out.");
    if (!inText && path.empty())
        throw CCommandError(
            ExitCode::Usage, "The query does not say which folder it is about.",
            "Name it with --in FOLDER, or in the text: select Subject from \"Store\\Folder\" where ...");
    return inText ? CFolderRef{*inText, {}, {}, {}, {}} : context.Session().OpenFolder(path);
}

int RunQueryText(CCommandContext& context, const std::string& text, const std::string& path) {
    const CFolderRef folder = FolderOfQuery(context, FolderInQuery(text), path);
    CQueryCompiler query(folder.folder, context.Session().Mapi());
    query.Compile(text);
    if (!query.compiler.Folder())
        throw CCommandError(ExitCode::NotOpen, "There is no folder \"" + folder.path + "\".",
                            "In the text of a query it is written with a backslash: \"Store\\Folder\".");
    WarnOfWhatIsNotRead(context, query, text);
    RunQuery(query.compiler, folder.path).Print(context.Console(), context.Json());
    return Code(ExitCode::Done);
}

int ListFields(CCommandContext& context) {
    CListing listing({{"word", "Word"}, {"type", "Type"}, {"tag", "Property"}}, "There are no fields.");
    for (const CFieldWord& field : FieldWords()) {
        char tag[16];
        std::snprintf(tag, sizeof(tag), "0x%08X", static_cast<unsigned>(field.tag));
        const CListing::Cell property =
            field.tag ? CListing::Cell(Json(tag)) : CListing::Cell(Json(), "named property");
        listing.AddRow({Json(field.word), Json(TypeName(field.type)), property});
    }
    listing.Print(context.Console(), context.Json());
    return Code(ExitCode::Done);
}

int ListStoredQueries(CCommandContext& context) {
    CListing listing({{"name", "Name"},
                      {"parameters", "Parameters"},
                      {"comment", "Comment"},
                      {"query", "Query"},
                      {"visible", ""},
                      {"recursive", ""}},
                     "There are no stored queries. They are read from " +
                         JoinPath(ModuleDirectory(), kStoredQueryFile) + ".");
    const CINIQuerys queries = LoadStoredQueries();
    for (const auto& query : queries.Queries()) {
        Json parameters = Json::array();
        std::string names;
        for (const auto& parameter : query->parameters) {
            parameters.push_back({{"name", Utf8FromNarrow(parameter->name)},
                                  {"text", Utf8FromNarrow(parameter->text)},
                                  {"expression", Utf8FromNarrow(parameter->expression)},
                                  {"field", Utf8FromNarrow(parameter->field)},
                                  {"editor", Utf8FromNarrow(parameter->editor)},
                                  {"options", parameter->options}});
            names += (names.empty() ? "" : ", ") + Utf8FromNarrow(parameter->name);
        }
        listing.AddRow({Json(Utf8FromNarrow(query->name)),
                        {parameters, names},
                        Json(Utf8FromNarrow(query->comment)),
                        Json(Utf8FromNarrow(query->query)),
                        Json(query->visible),
                        Json(query->recursive)});
    }
    listing.Print(context.Console(), context.Json());
    return Code(ExitCode::Done);
}

}  // namespace

void AddQueryCommands(CCommandTable& table) {
    struct Arguments {
        std::string text;
        std::string folder;
    };
    using Run = int (*)(CCommandContext&, const std::string& text, const std::string& path);
    auto arguments = std::make_shared<Arguments>();
    CLI::App& group = table.AddGroup("query", "The language in which pairs and listings choose items",
                                     "query run 'Subject = substring \"invoice\"' --in Home/Inbox");
    const auto add = [&](const char* name, const char* text, const char* example, Run run) -> CLI::App& {
        CLI::App& command =
            table.AddCommand(group, name, text, example, [arguments, run](CCommandContext& context) {
                return run(context, arguments->text, arguments->folder);
            });
        command.add_option("TEXT", arguments->text, "The query")->required();
        return command;
    };
    const char* scope = "Folder whose store knows the named properties (default: the default store)";
    add("check", "Say whether a query is correct, and where it is not", "query check 'Importance = 2'",
        CheckQueryText)
        .add_option("--in", arguments->folder, scope)
        ->type_name("FOLDER");
    add("print", "Show what a query compiles to, as text and as a tree",
        "query print 'not (Private=1 or Sensitivity=2)'", PrintQueryText)
        .add_option("--in", arguments->folder, scope)
        ->type_name("FOLDER");
    add("run", "List the items of a folder that fit a query",
        "query run 'MessageSize > 10000 order by descending MessageSize' --in Home/Inbox", RunQueryText)
        .add_option("--in", arguments->folder,
                    "The folder; not where the text says it: select ... from \"Store\\Folder\" where ...")
        ->type_name("FOLDER");
    table.AddCommand(group, "fields", "List the words that name a field", "query fields", ListFields);
    table.AddCommand(group, "stored", "List the stored queries with their parameters", "query stored",
                     ListStoredQueries);
}
