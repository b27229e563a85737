#include <Programs/vellum/Commands/CommandContext.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Items/FolderItems.h>
#include <Programs/vellum/Sync/PairOptions.h>
#include <Programs/vellum/Sync/PairStore.h>

#include <algorithm>
#include <ostream>

namespace {

struct CPairArguments {
    std::string pair;
    std::string source;
    std::string target;
    CPairOptions options;
};

constexpr const char* noPairs = "The profile has no pairs yet. Add one:  vellum pair add SOURCE TARGET";

int ListPairs(CCommandContext& context) {
    const auto pairs = CPairStore(context.Session()).Load();
    if (context.Json()) {
        Json array = Json::array();
        for (std::size_t i = 0; i < pairs.size(); ++i)
            array.push_back(PairToJson(pairs[i], i + 1));
        context.Console().Out() << JsonText(array);
        return Code(ExitCode::Done);
    }
    CListing listing({{"number", "No."},
                      {"name", "Name"},
                      {"active", "Active"},
                      {"source", "Source"},
                      {"direction", ""},
                      {"arrow", "Dir."},
                      {"target", "Target"},
                      {"options", "Options"},
                      {"query", "Query"}},
                     noPairs);
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const CTarnSetting& pair = pairs[i];
        const std::string direction = DirectionWord(pair);
        listing.AddRow({i + 1,
                        Utf8FromNarrow(pair.m_groupId),
                        {pair.Has(SYNC_ACTIVE), pair.Has(SYNC_ACTIVE) ? "yes" : "no"},
                        Utf8FromNarrow(pair.m_sourcePath),
                        direction,
                        direction == "both"        ? "<->"
                        : direction == "to-target" ? "->"
                        : direction == "none"      ? "-"
                                                   : "<-",
                        Utf8FromNarrow(pair.m_targetPath),
                        OptionWords(pair),
                        Utf8FromNarrow(pair.m_query)});
    }
    listing.PrintTable(context.Console());
    return Code(ExitCode::Done);
}

int ShowPair(CCommandContext& context, const std::string& word) {
    const auto pairs = CPairStore(context.Session()).Load();
    const std::size_t index = FindPair(pairs, word);
    const Json json = PairToJson(pairs[index], index + 1);
    if (context.Json()) {
        context.Console().Out() << JsonText(json);
        return Code(ExitCode::Done);
    }
    for (const auto& [key, value] : json.items()) {
        std::string label = key;
        std::replace(label.begin(), label.end(), '_', ' ');
        label += ":" + std::string(label.size() < 18 ? 18 - label.size() : 1, ' ');
        const std::string text = value.is_boolean()  ? (value.get<bool>() ? "yes" : "no")
                                 : value.is_string() ? OneLine(value.get<std::string>())
                                                     : value.dump();
        context.Console().Out() << context.Console().OnOut(CConsole::Style::Bold, label) << text << '\n';
    }
    return Code(ExitCode::Done);
}

// A name that no pair has yet, made of the source folder's.
std::string FreeName(const std::vector<CTarnSetting>& pairs, const std::string& sourcePath) {
    const auto names = SplitFolderPath(sourcePath);
    std::string base = names.empty() ? "pair" : names.back();
    // As the list can keep it.
    for (char& c : base)
        if (c == ';' || static_cast<unsigned char>(c) < ' ') c = c == ';' ? ',' : ' ';
    if (base.find_first_not_of(' ') == std::string::npos) base = "pair";
    if (base.find_first_not_of("0123456789") == std::string::npos) base = "pair " + base;
    std::string name = base;
    const auto taken = [&](const CTarnSetting& pair) { return pair.m_groupId == name; };
    for (int i = 2; std::any_of(pairs.begin(), pairs.end(), taken); ++i)
        name = base + " " + std::to_string(i);
    return name;
}

// What must hold between a pair and the others, with the pair at `own` left out of the comparison.
void CheckAgainstOthers(const std::vector<CTarnSetting>& pairs, std::size_t own, const CTarnSetting& pair) {
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        if (i == own) continue;
        const CTarnSetting& other = pairs[i];
        if (other.m_groupId == pair.m_groupId)
            throw CCommandError(ExitCode::Usage, "There is a pair \"" + pair.m_groupId + "\" already",
                                "Give another name with --name.");
        // The state of a pair lies in its source folder, so that folder can be the source of one pair only.
        if (other.m_sourceKey == pair.m_sourceKey)
            throw CCommandError(ExitCode::Usage,
                                "\"" + pair.m_sourcePath + "\" is already the source of the pair \"" +
                                    PairLabel(pairs, i) + "\"",
                                "Change that pair with 'vellum pair edit', or swap SOURCE and TARGET.");
        if (other.m_sourceKey == pair.m_targetKey && other.m_targetKey == pair.m_sourceKey)
            throw CCommandError(
                ExitCode::Usage,
                "The pair \"" + PairLabel(pairs, i) + "\" keeps these two folders in step already",
                "Change it with 'vellum pair edit'.");
    }
}

void CheckFolders(const CTarnSetting& pair) {
    if (pair.m_sourceKey == pair.m_targetKey)
        throw CCommandError(ExitCode::Usage,
                            "Source and target are the same folder, \"" + pair.m_sourcePath + "\"",
                            "Name two different folders.");
    const bool nested = IsSameOrBelow(pair.m_sourcePath, pair.m_targetPath) ||
                        IsSameOrBelow(pair.m_targetPath, pair.m_sourcePath);
    if (nested && pair.Has(SYNC_SUBFOLDERS))
        throw CCommandError(ExitCode::Usage,
                            "One of the folders \"" + pair.m_sourcePath + "\" and \"" + pair.m_targetPath +
                                "\" lies in the other, so subfolders would be copied into themselves",
                            "Leave --subfolders out, or choose folders side by side.");
}

void CheckPairQuery(CConsole& console, const CTarnSetting& pair, const CFolderRef& source,
                    const CFolderRef& target) {
    if (pair.m_query.empty()) return;
    CheckQuery(target, pair.m_query);
    for (const std::string& doubt : CheckQuery(source, pair.m_query))
        console.Warn(doubt + ".");
}

int AddPair(CCommandContext& context, const CPairArguments& arguments) {
    CProfileSession& session = context.Session();
    const CFolderRef source = session.OpenFolder(arguments.source);
    const CFolderRef target = session.OpenFolder(arguments.target);
    CTarnSetting pair;
    pair.m_flags = SYNC_TO_TARGET | SYNC_FROM_TARGET | SYNC_ACTIVE;
    pair.m_sourceKey = source.Key();
    pair.m_sourcePath = source.path;
    pair.m_targetKey = target.Key();
    pair.m_targetPath = target.path;
    arguments.options.Apply(pair);
    CheckFolders(pair);
    CheckPairQuery(context.Console(), pair, source, target);
    std::size_t number = 0;
    CPairStore(session).Change([&](CPairStore::Pairs& pairs) {
        if (!arguments.options.Name()) pair.m_groupId = FreeName(pairs, source.path);
        CheckAgainstOthers(pairs, pairs.size(), pair);
        pairs.push_back(pair);
        number = pairs.size();
        return true;
    });
    context.Console().Note("Added the pair \"" + pair.m_groupId + "\".");
    if (context.Json()) context.Console().Out() << JsonText(PairToJson(pair, number));
    return Code(ExitCode::Done);
}

// A query that stays is not looked at: other options can be changed although it is broken.
void CheckEditedQuery(CCommandContext& context, const CPairArguments& arguments, const CTarnSetting& pair) {
    if (!arguments.options.Query()) return;
    CFolderRef source;
    CFolderRef target;
    CProfileSession& session = context.Session();
    if (session.OpenFolderByKey(pair.m_sourceKey, source) &&
        session.OpenFolderByKey(pair.m_targetKey, target))
        CheckPairQuery(context.Console(), pair, source, target);
}

int EditPair(CCommandContext& context, const CPairArguments& arguments) {
    if (arguments.options.IsEmpty())
        throw CCommandError(ExitCode::Usage, "Nothing is said about what to change",
                            "Name it, for example:  --delete, --to-target or --query TEXT");
    CTarnSetting pair;
    std::string label;
    std::size_t index = 0;
    CPairStore(context.Session()).Change([&](CPairStore::Pairs& pairs) {
        index = FindPair(pairs, arguments.pair);
        pair = pairs[index];
        arguments.options.Apply(pair);
        CheckFolders(pair);
        CheckAgainstOthers(pairs, index, pair);
        CheckEditedQuery(context, arguments, pair);
        pairs[index] = pair;
        label = PairLabel(pairs, index);
        return true;
    });
    context.Console().Note("Changed the pair \"" + label + "\".");
    if (context.Json()) context.Console().Out() << JsonText(PairToJson(pair, index + 1));
    return Code(ExitCode::Done);
}

int RemovePair(CCommandContext& context, const std::string& word) {
    std::string label;
    CPairStore(context.Session()).Change([&](CPairStore::Pairs& pairs) {
        const std::size_t index = FindPair(pairs, word);
        label = PairLabel(pairs, index);
        pairs.erase(pairs.begin() + static_cast<std::ptrdiff_t>(index));
        return true;
    });
    context.Console().Note("Removed the pair \"" + label + "\"; its folders stay as they are.");
    return Code(ExitCode::Done);
}

}  // namespace

void AddPairCommands(CCommandTable& table) {
    auto arguments = std::make_shared<CPairArguments>();
    auto editArguments = std::make_shared<CPairArguments>();
    CLI::App& group = table.AddGroup(
        "pair", "Folder pairs. A pair is named by its name, its number in the list, or its source folder",
        "pair add Home/Inbox Office/Inbox");
    table.AddCommand(group, "list", "List the pairs", "pair list --json", ListPairs);

    CLI::App& add =
        table.AddCommand(group, "add", "Add a pair (default: --both --active)",
                         "pair add Home/Calendar Office/Calendar --delete --skip-private --name calendars",
                         [arguments](CCommandContext& context) { return AddPair(context, *arguments); });
    add.add_option("SOURCE", arguments->source, "The folder that keeps the pair's state")->required();
    add.add_option("TARGET", arguments->target, "The other folder")->required();
    arguments->options.AddTo(add);

    table
        .AddCommand(group, "show", "Show a pair with all options", "pair show calendars",
                    [arguments](CCommandContext& context) { return ShowPair(context, arguments->pair); })
        .add_option("PAIR", arguments->pair, "Name, number or source folder")
        ->required();

    CLI::App& edit = table.AddCommand(
        group, "edit", "Change options of a pair; those not named stay",
        "pair edit calendars --to-target --no-delete",
        [editArguments](CCommandContext& context) { return EditPair(context, *editArguments); });
    edit.add_option("PAIR", editArguments->pair, "Name, number or source folder")->required();
    editArguments->options.AddTo(edit);

    table
        .AddCommand(group, "remove", "Remove a pair; the folders keep their items", "pair remove calendars",
                    [arguments](CCommandContext& context) { return RemovePair(context, arguments->pair); })
        .add_option("PAIR", arguments->pair, "Name, number or source folder")
        ->required();
}
