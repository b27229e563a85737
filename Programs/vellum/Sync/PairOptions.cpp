#include <Programs/vellum/Sync/PairOptions.h>

#include <Programs/vellum/Console/ExitCode.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Tools/QueryLexer.h>

#include <algorithm>

namespace {

struct COption {
    ULONG flag;
    const char* name;  // the switch, and with "_" the name in JSON
    const char* negative;
    const char* text;
};

constexpr COption options[] = {
    {SYNC_ACTIVE, "active", "inactive", "Take part in 'sync' without a PAIR"},
    {SYNC_DELETE_IN_TARGET, "delete", "no-delete", "Carry deletions across, too"},
    {SYNC_SUBFOLDERS, "subfolders", "no-subfolders", "With subfolders of equal name"},
    {SYNC_CREATE_SUBFOLDERS, "create-subfolders", "no-create-subfolders",
     "Create subfolders that one side lacks (implies --subfolders)"},
    {SYNC_STRIP_PRIVATE, "strip-private", "no-strip-private",
     "Take the text out of private appointments in the target"},
    {SYNC_SKIP_PRIVATE, "skip-private", "no-skip-private", "Leave private items behind"},
    {SYNC_ALWAYS_RENEW, "renew", "no-renew", "Replace changed items instead of rewriting them"},
    {SYNC_NEW_ONLY, "new-only", "no-new-only", "Look only at items changed since the last run"},
    {SYNC_AT_START, "at-start", "no-at-start", "Take part in 'sync --at-start'"},
    {SYNC_AT_SHUTDOWN, "at-shutdown", "no-at-shutdown", "Take part in 'sync --at-shutdown'"},
    {SYNC_CONTINUOUS_TO, "continuous-to", "no-continuous-to", "Taken by 'watch' without a PAIR"},
    {SYNC_CONTINUOUS_FROM, "continuous-from", "no-continuous-from",
     "The same, as the add-in keeps it for the target"},
};

constexpr ULONG bothDirections = SYNC_TO_TARGET | SYNC_FROM_TARGET;

void Put(CTarnSetting& pair, ULONG flags, bool on) {
    pair.m_flags = on ? pair.m_flags | flags : pair.m_flags & ~flags;
}

void CheckName(const std::string& name) {
    const bool digits = !name.empty() && name.find_first_not_of("0123456789") == std::string::npos;
    const bool blank = name.find_first_not_of(' ') == std::string::npos;
    const bool bad = blank || digits || std::any_of(name.begin(), name.end(), [](unsigned char c) {
                         return c < 0x20 || c == ';';
                     });
    if (bad)
        throw CCommandError(ExitCode::Usage, "\"" + name + "\" cannot be the name of a pair",
                            "A name is not empty, not a mere number, and holds no semicolon.");
}

void CheckQueryText(const std::string& query) {
    if (query.find_first_of(std::string(";\r\n\0", 4)) != std::string::npos)
        throw CCommandError(ExitCode::Usage, "A pair's query cannot hold semicolons or line breaks",
                            "Lists of values are written with commas, parts are joined by 'and' and 'or'.");
    if (HasOpenQuote(query))
        throw CCommandError(ExitCode::Usage, "A quote is not closed in the query: " + query,
                            "What follows it, up to the end, would be one text.");
}

}  // namespace

void CPairOptions::AddTo(CLI::App& command) {
    command.add_flag("--both", m_both, "Carry changes in both directions (default)");
    command.add_flag("--to-target", m_toTarget, "Carry changes from source to target only");
    command.add_flag("--from-target", m_fromTarget, "Carry changes from target to source only");
    m_switches.assign(std::size(options), {});
    for (std::size_t i = 0; i < std::size(options); ++i) {
        const COption& option = options[i];
        command.add_flag(std::string("--") + option.name, m_switches[i].on,
                         std::string(option.text) + " (off: --" + option.negative + ")");
        // Named above already: the list of options stays half as long.
        command.add_flag(std::string("--") + option.negative, m_switches[i].off)->group("");
    }
    command.add_option("--query", m_query, "Only items that fit this query; an empty text takes it away")
        ->type_name("TEXT");
    command.add_option("--name", m_name, "The pair's name")->type_name("NAME");
}

bool CPairOptions::IsEmpty() const {
    const auto isGiven = [](const Switch& one) { return one.on || one.off; };
    return !m_both && !m_toTarget && !m_fromTarget && !m_query && !m_name &&
           std::none_of(m_switches.begin(), m_switches.end(), isGiven);
}

void CPairOptions::Apply(CTarnSetting& pair) const {
    if (m_both + m_toTarget + m_fromTarget > 1)
        throw CCommandError(ExitCode::Usage, "--both, --to-target and --from-target exclude each other");
    if (m_both || m_toTarget || m_fromTarget) {
        Put(pair, bothDirections, false);
        Put(pair, m_both ? bothDirections : m_toTarget ? SYNC_TO_TARGET : SYNC_FROM_TARGET, true);
    }
    bool createGiven = false;
    bool subfoldersRefused = false;
    for (std::size_t i = 0; i < m_switches.size(); ++i) {
        const COption& option = options[i];
        const Switch& given = m_switches[i];
        if (given.on && given.off)
            throw CCommandError(ExitCode::Usage, std::string("--") + option.name + " and --" +
                                                     option.negative + " exclude each other");
        if (!given.on && !given.off) continue;
        Put(pair, option.flag, given.on);
        createGiven = createGiven || (option.flag == SYNC_CREATE_SUBFOLDERS && given.on);
        subfoldersRefused = subfoldersRefused || (option.flag == SYNC_SUBFOLDERS && given.off);
    }
    if (createGiven && subfoldersRefused)
        throw CCommandError(ExitCode::Usage, "--create-subfolders and --no-subfolders exclude each other");
    if (createGiven) Put(pair, SYNC_SUBFOLDERS, true);
    if (subfoldersRefused) Put(pair, SYNC_CREATE_SUBFOLDERS, false);
    if (pair.Has(SYNC_NEW_ONLY) && pair.Has(SYNC_DELETE_IN_TARGET))
        throw CCommandError(
            ExitCode::Usage,
            "--new-only and --delete do not go together: every item that was not changed since the "
            "last run would be taken for deleted",
            "Choose one, for example:  --delete --no-new-only");
    if (m_query) {
        CheckQueryText(*m_query);
        pair.m_query = *m_query;
    }
    if (m_name) {
        CheckName(*m_name);
        pair.m_groupId = *m_name;
    }
}

std::string DirectionWord(const CTarnSetting& pair) {
    switch (pair.m_flags & bothDirections) {
        case bothDirections:
            return "both";
        case SYNC_TO_TARGET:
            return "to-target";
        case SYNC_FROM_TARGET:
            return "from-target";
        default:
            return "none";
    }
}

std::string OptionWords(const CTarnSetting& pair) {
    std::string words;
    for (const COption& option : options)
        if (option.flag != SYNC_ACTIVE && pair.Has(option.flag))
            words += (words.empty() ? "--" : " --") + std::string(option.name);
    return words;
}

Json PairToJson(const CTarnSetting& pair, std::size_t number) {
    Json json = Json::object();
    json["number"] = number;
    json["name"] = Utf8FromNarrow(pair.m_groupId);
    json["source"] = Utf8FromNarrow(pair.m_sourcePath);
    json["target"] = Utf8FromNarrow(pair.m_targetPath);
    json["direction"] = DirectionWord(pair);
    for (const COption& option : options) {
        std::string key = option.name;
        std::replace(key.begin(), key.end(), '-', '_');
        json[key] = pair.Has(option.flag);
    }
    json["query"] = Utf8FromNarrow(pair.m_query);
    return json;
}
