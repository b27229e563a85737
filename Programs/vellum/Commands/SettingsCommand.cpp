// The values of the installation, and the list of pairs as text.
#include <Platform/CodePage.h>
#include <Platform/Files.h>
#include <Platform/Registry.h>
#include <Programs/vellum/Commands/CommandContext.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Sync/PairStore.h>
#include <Tarn/Dispatch/MassDeleteGuard.h>
#include <Tarn/Engine/FolderKey.h>
#include <Tarn/Settings/TarnSettings.h>
#include <Tools/QueryLexer.h>

#include <algorithm>
#include <charconv>
#include <ostream>
#include <vector>

namespace {

// One value of the registry. `fallback` is what holds where the value is not there.
struct CValue {
    const char* name;      // on the command line and in JSON
    const char* registry;  // the value's name
    const char* key;
    bool isText;
    DWORD last;  // the greatest number allowed
    DWORD fallback;
    const char* meaning;
};

constexpr char vellumKey[] = "Software\\Ostrand\\Vellum";
constexpr char vellumwareKey[] = "Software\\Ostrand\\Vellumware";
constexpr char tarnKey[] = "Software\\Ostrand\\Tarn";

constexpr CValue values[] = {
    {"store-in-ini", "StoreInIni", vellumKey, false, 1, 0,
     "1: the pairs lie in the file VellumCfg.ini instead of the mailbox"},
    {"show-protocol", "ShowProtocol", vellumKey, false, 2, SHOW_PROTOCOL_ALWAYS,
     "Add-in: the protocol after a run, 0 never, 1 always, 2 for conflicts"},
    {"pump", "Pump", vellumKey, false, 1, 1, "Kept for the add-in"},
    {"find-duplicates", "FindDuplicates", vellumKey, false, 1, 0,
     "1: every run first moves duplicates in the folders of its pairs below the wastebasket"},
    {"directory", "Directory", vellumKey, true, 0, 0, "Directory of the pairs that travel as files"},
    {"mass-delete-guard", "MassDeleteGuard", vellumKey, false, 100, kMassDeleteShare,
     "A run that would delete more than so many per cent of one side is stopped; 0: never"},
    {"query-guard", "QueryGuard", vellumKey, false, 1, 1,
     "1: a pair whose query does not select is stopped; 0: it carries everything. The add-in asks only where "
     "it is set"},
    {"hard-delete", "HardDelete", vellumwareKey, false, 1, 0,
     "1: what a run removes is destroyed instead of kept below the wastebasket"},
    {"profile", "Profil", tarnKey, true, 0, 0, "Add-in: the profile of a logon of its own"},
};

const CValue& ValueOf(const std::string& name) {
    std::string names;
    for (const CValue& value : values) {
        if (value.name == name) return value;
        names += std::string(names.empty() ? "" : ", ") + value.name;
    }
    throw CCommandError(ExitCode::Usage, "There is no value \"" + name + "\"", "There are: " + names);
}

// What the registry holds; null where it holds nothing of that name.
Json Stored(const CValue& value) {
    CRegistryKey key;
    if (key.Open(RegistryRoot::CurrentUser, value.key) != ERROR_SUCCESS) return nullptr;
    if (value.isText) {
        const auto text = key.ReadString(value.registry);
        return text ? Json(Utf8FromNarrow(*text)) : Json(nullptr);
    }
    const auto number = key.ReadDword(value.registry);
    return number ? Json(*number) : Json(nullptr);
}

// What holds. A key without the value ShowProtocol counts as "never".
Json Effective(const CValue& value) {
    const Json stored = Stored(value);
    if (!stored.is_null()) return stored;
    if (value.isText) return "";
    CRegistryKey key;
    const bool keyIsThere = key.Open(RegistryRoot::CurrentUser, value.key) == ERROR_SUCCESS;
    if (keyIsThere && std::string(value.name) == "show-protocol") return SHOW_PROTOCOL_NEVER;
    return value.fallback;
}

int ShowSettings(CCommandContext& context) {
    CListing listing({{"name", "Name"}, {"value", "Value"}, {"set", "Set"}, {"meaning", "Meaning"}}, "");
    for (const CValue& value : values) {
        const Json effective = Effective(value);
        const bool isSet = !Stored(value).is_null();
        listing.AddRow({value.name,
                        {effective, effective.is_string() ? effective.get<std::string>() : effective.dump()},
                        {isSet, isSet ? "yes" : ""},
                        value.meaning});
    }
    listing.Print(context.Console(), context.Json());
    return Code(ExitCode::Done);
}

void CheckWritten(LONG code, const CValue& value) {
    if (code != ERROR_SUCCESS)
        throw CCommandError(ExitCode::NotOpen, std::string("The value \"") + value.name +
                                                   "\" could not be written: " + LastFileError());
}

DWORD NumberOf(const CValue& value, const std::string& text) {
    DWORD number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number > value.last)
        throw CCommandError(ExitCode::Usage, "\"" + text + "\" is no value for \"" + value.name + "\"",
                            "It takes a number from 0 to " + std::to_string(value.last) + ".");
    return number;
}

// A key without the value ShowProtocol means "never"; making the key for another value must not switch the
// protocol off.
void MakeKey(CRegistryKey& key, const CValue& value) {
    const bool isNew = key.Open(RegistryRoot::CurrentUser, value.key) != ERROR_SUCCESS;
    CheckWritten(key.Create(RegistryRoot::CurrentUser, value.key), value);
    if (isNew && std::string(value.key) == vellumKey) key.WriteDword("ShowProtocol", SHOW_PROTOCOL_ALWAYS);
}

// Whoever switches the place of the list takes the list along.
void MovePairs(CCommandContext& context, const CValue& value, DWORD number) {
    CRegistryKey key;
    MakeKey(key, value);
    const DWORD former = key.ReadDword(value.registry).value_or(value.fallback);
    const auto choose = [&](DWORD place) { CheckWritten(key.WriteDword(value.registry, place), value); };
    CPairStore(context.Session()).Move([&] { choose(number); }, [&] { choose(former); });
}

// A change of the list writes some of the values with it, so nobody may be at one meanwhile.
void WriteValue(const CValue& value, const std::string& text, DWORD number) {
    const auto write = [&] {
        CRegistryKey key;
        MakeKey(key, value);
        CheckWritten(
            value.isText ? key.WriteString(value.registry, text) : key.WriteDword(value.registry, number),
            value);
    };
    if (!CTarnSettings::Exclusively(write))
        throw CCommandError(ExitCode::NotOpen,
                            std::string("The value \"") + value.name + "\" could not be written");
}

int SetValue(CCommandContext& context, const std::string& name, const std::string& text) {
    const CValue& value = ValueOf(name);
    const DWORD number = value.isText ? 0 : NumberOf(value, text);
    if (name == "store-in-ini")
        MovePairs(context, value, number);
    else
        WriteValue(value, text, number);
    context.Console().Note("\"" + name + "\" is " + (text.empty() ? "empty" : text) + " now.");
    return Code(ExitCode::Done);
}

int ExportSettings(CCommandContext& context, const std::string& path) {
    CPairStore store(context.Session());
    const std::size_t count = store.Load().size();
    std::string text = store.Text();
    if (!store.Settings().WasReadWhole())
        context.Console().Warn("The list holds text that is not understood; it is not in the export");
    // As the file of the list ends; without it nothing tells that a file is whole.
    if (path != "-" || !context.Console().Settings().outIsTerminal) text.push_back('\0');
    if (path == "-") {
        context.Console().Out() << text;
        return Code(ExitCode::Done);
    }
    if (!WriteFileDurably(path, text))
        throw CCommandError(ExitCode::NotOpen, "\"" + path + "\" could not be written: " + LastFileError());
    context.Console().Note("Wrote " + std::to_string(count) + " pair(s) to \"" + path + "\".");
    return Code(ExitCode::Done);
}

struct CSettingsFile {
    std::string text;
    bool isEnded;  // by the zero byte that every writer puts there: nothing was cut off
};

CSettingsFile ReadSettingsFile(const std::string& path) {
    std::string text;
    if (!ReadFileBytes(path, text))
        throw CCommandError(ExitCode::NotOpen, "\"" + path + "\" cannot be read: " + LastFileError());
    const bool isEnded = !text.empty() && text.back() == '\0';
    if (isEnded) text.pop_back();
    return {Utf8FromFile(text), isEnded};
}

struct CImportArguments {
    std::string file;
    bool replace = false;
    bool partly = false;
};

bool IsTaken(const std::vector<CTarnSetting>& pairs, const std::string& name) {
    return std::any_of(pairs.begin(), pairs.end(),
                       [&](const CTarnSetting& pair) { return pair.m_groupId == name; });
}

// In a file of another kind any line with enough marks in it would pass for a pair.
bool NamesItsSource(const CTarnSetting& pair) {
    const std::string& key = pair.m_sourceKey;
    const CFolderKey folder = CFolderKey::FromText(key);
    return key.find_first_not_of("0123456789ABCDEFabcdef:") == std::string::npos &&
           !folder.m_folder.IsEmpty() && !folder.m_store.IsEmpty();
}

bool IsPair(const CTarnSetting& record) {
    return NamesItsSource(record) && !HasOpenQuote(record.m_query);
}

// What is known to stand in the file as it was written.
struct CFoundPairs {
    std::vector<CTarnSetting> pairs;
    std::size_t leftOut = 0;
};

// Of a file without its end the last line may be cut anywhere, between two fields as well: a pair without
// its query carries everything.
CFoundPairs PairsIn(const CSettingsFile& file) {
    const std::size_t lastLine = file.text.find_last_of("\r\n") + 1;
    const bool isCut = !file.isEnded && lastLine < file.text.size();
    CTarnSettings read;
    CFoundPairs found;
    found.leftOut = read.ParseWholeRecords(isCut ? file.text.substr(0, lastLine) : file.text) + isCut;
    for (std::size_t i = 0; i < read.Count(); ++i)
        if (IsPair(read.At(i)))
            found.pairs.push_back(read.At(i));
        else
            ++found.leftOut;
    return found;
}

void RequireWhole(const CSettingsFile& file, const CFoundPairs& found, const CImportArguments& arguments) {
    const std::string name = "\"" + arguments.file + "\"";
    if (found.pairs.empty() && (found.leftOut != 0 || !file.isEnded))
        throw CCommandError(ExitCode::NotOpen, name + " holds no pair: it is no settings file, or damaged",
                            "Settings files are what 'vellum settings export' writes, and VellumCfg.ini.");
    if (arguments.partly || (file.isEnded && found.leftOut == 0)) return;
    throw CCommandError(ExitCode::Guarded,
                        name +
                            (file.isEnded ? " is not wholly understood: " : " is cut, its end is missing: ") +
                            std::to_string(found.pairs.size()) + " pair(s) were found, and " +
                            std::to_string(found.leftOut) + " record(s) that are none or not whole",
                        "To take the pairs that are whole:  --partly");
}

// False if the pair's source folder has a pair that stays.
bool TakePair(std::vector<CTarnSetting>& pairs, CTarnSetting pair, bool replace) {
    const auto known = std::find_if(pairs.begin(), pairs.end(), [&](const CTarnSetting& other) {
        return other.m_sourceKey == pair.m_sourceKey;
    });
    if (known != pairs.end()) {
        if (replace) *known = std::move(pair);
        return replace;
    }
    const std::string name = pair.m_groupId;
    for (int i = 2; !name.empty() && IsTaken(pairs, pair.m_groupId); ++i)
        pair.m_groupId = name + " " + std::to_string(i);
    pairs.push_back(std::move(pair));
    return true;
}

int ImportSettings(CCommandContext& context, const CImportArguments& arguments) {
    const CSettingsFile file = ReadSettingsFile(arguments.file);
    const CFoundPairs found = PairsIn(file);
    RequireWhole(file, found, arguments);
    unsigned added = 0, known = 0;
    CPairStore(context.Session()).Change([&](CPairStore::Pairs& pairs) {
        for (const CTarnSetting& pair : found.pairs)
            ++(TakePair(pairs, pair, arguments.replace) ? added : known);
        return added != 0;
    });
    std::string text = "Imported " + std::to_string(added) + " pair(s)";
    if (known != 0)
        text +=
            "; " + std::to_string(known) + " stayed as they were, whose source folders have pairs already";
    if (found.leftOut != 0) text += "; " + std::to_string(found.leftOut) + " record(s) were left out";
    context.Console().Note(text + ".");
    return Code(ExitCode::Done);
}

}  // namespace

void AddSettingsCommands(CCommandTable& table) {
    struct Arguments {
        std::string name;
        std::string value;
        std::string file;
        CImportArguments import;
    };
    auto arguments = std::make_shared<Arguments>();
    CLI::App& group = table.AddGroup("settings", "Values of the installation, and the pairs as text",
                                     "settings set mass-delete-guard 30");
    table.AddCommand(group, "show", "Show the values", "settings show --json", ShowSettings);
    CLI::App& set = table.AddCommand(group, "set", "Change a value", "settings set mass-delete-guard 30",
                                     [arguments](CCommandContext& context) {
                                         return SetValue(context, arguments->name, arguments->value);
                                     });
    set.add_option("NAME", arguments->name, "As in 'settings show'")->required();
    set.add_option("VALUE", arguments->value, "The new value")->required();
    table
        .AddCommand(
            group, "export", "Write the pairs to a text file", "settings export pairs.ini",
            [arguments](CCommandContext& context) { return ExportSettings(context, arguments->file); })
        .add_option("FILE", arguments->file, "The file, replaced if it is there; - for standard output")
        ->required();
    CLI::App& import = table.AddCommand(
        group, "import", "Add the pairs of a text file", "settings import pairs.ini",
        [arguments](CCommandContext& context) { return ImportSettings(context, arguments->import); });
    import.add_option("FILE", arguments->import.file, "A file of 'settings export', or a VellumCfg.ini")
        ->required();
    import.add_flag("--replace", arguments->import.replace, "Replace pairs of the same source folder");
    import.add_flag("--partly", arguments->import.partly, "Also where the file is not wholly understood");
}
