// What the last run did.
#include <Programs/vellum/Commands/CommandContext.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Session/ProfileAdmin.h>
#include <Programs/vellum/Sync/LastProtocol.h>
#include <Programs/vellum/Sync/PairRun.h>
#include <Tarn/Settings/ProtocolText.h>

#include <map>
#include <ostream>

namespace {

const std::map<std::string, ProtocolFilter> filters = {{"all", ProtocolFilter::All},
                                                       {"conflicts", ProtocolFilter::Conflicts},
                                                       {"changed", ProtocolFilter::Changed},
                                                       {"new", ProtocolFilter::New},
                                                       {"deleted", ProtocolFilter::Deleted}};

struct CProtocolArguments {
    std::string filter = "all";
    bool csv = false;
};

// The whole protocol, as the file that the protocol dialog saves.
void PrintCsv(CConsole& console, const CKeptRun& run) {
    console.Out() << Utf8FromNarrow(ProtocolCsvLine(ProtocolCaptions()));
    for (const CKeptPair& pair : run.pairs)
        for (const CSyncProtocolEntry& entry : pair.protocol)
            console.Out() << Utf8FromNarrow(ProtocolCsvLine(ProtocolValues(entry)));
}

Json PairJson(const CKeptPair& pair, ProtocolFilter filter) {
    Json entries = Json::array();
    for (const CSyncProtocolEntry& entry : pair.protocol) {
        if (!IsShown(entry, filter)) continue;
        entries.push_back({{"to", Utf8FromNarrow(entry.m_destination)},
                           {"from", Utf8FromNarrow(entry.m_origin)},
                           {"subject", Utf8FromNarrow(entry.m_subject)},
                           {"state", StateWord(entry.m_state)},
                           {"direction", entry.m_toSource ? "to-source" : "to-target"},
                           {"detail", Utf8FromNarrow(entry.m_done)},
                           {"sync_id", Utf8FromNarrow(entry.m_syncId)}});
    }
    Json json = {{"name", Utf8FromNarrow(pair.label)},
                 {"source", Utf8FromNarrow(pair.source)},
                 {"target", Utf8FromNarrow(pair.target)}};
    if (!pair.remark.empty()) json["remark"] = Utf8FromNarrow(pair.remark);
    json["protocol"] = std::move(entries);
    return json;
}

void PrintJson(CConsole& console, const CKeptRun& run, ProtocolFilter filter) {
    Json pairs = Json::array();
    for (const CKeptPair& pair : run.pairs)
        pairs.push_back(PairJson(pair, filter));
    const Json json = {
        {"ended", run.ended}, {"computer", Utf8FromNarrow(run.computer)}, {"pairs", std::move(pairs)}};
    console.Out() << JsonText(json);
}

void PrintTables(CConsole& console, const CKeptRun& run, ProtocolFilter filter) {
    const auto captions = ProtocolCaptions();
    console.Note("The run that ended " + run.ended + " UTC on " + run.computer + ":");
    for (const CKeptPair& pair : run.pairs) {
        console.Out() << console.OnOut(CConsole::Style::Bold, OneLine(Utf8FromNarrow(pair.label))) << ": "
                      << OneLine(Utf8FromNarrow(pair.source)) << " and "
                      << OneLine(Utf8FromNarrow(pair.target)) << '\n';
        if (!pair.remark.empty()) console.Out() << "  " << OneLine(Utf8FromNarrow(pair.remark)) << '\n';
        // The identity in the last column is for machines.
        std::vector<CListing::Column> columns;
        for (std::size_t i = 0; i + 1 < captions.size(); ++i)
            columns.push_back({"", Utf8FromNarrow(captions[i])});
        CListing listing(columns, pair.remark.empty() ? "  nothing to show" : "");
        for (const CSyncProtocolEntry& entry : pair.protocol) {
            if (!IsShown(entry, filter)) continue;
            std::vector<CListing::Cell> cells;
            CSyncProtocolEntry shown = entry;
            shown.m_detail = entry.m_done;
            const auto values = ProtocolValues(shown);
            for (std::size_t i = 0; i + 1 < values.size(); ++i)
                cells.emplace_back(Utf8FromNarrow(values[i]));
            listing.AddRow(std::move(cells));
        }
        listing.PrintTable(console);
    }
}

int ShowProtocol(CCommandContext& context, const CProtocolArguments& arguments) {
    CConsole& console = context.Console();
    const CKeptRun run = LastRun(CProfileAdmin().Resolve(context.Options().profile));
    const ProtocolFilter filter = filters.at(arguments.filter);
    if (arguments.csv) {
        if (filter != ProtocolFilter::All) console.Note("The file holds all entries, whatever the filter.");
        PrintCsv(console, run);
    } else if (context.Json()) {
        PrintJson(console, run, filter);
    } else {
        PrintTables(console, run, filter);
    }
    return Code(ExitCode::Done);
}

}  // namespace

void AddProtocolCommand(CCommandTable& table) {
    auto arguments = std::make_shared<CProtocolArguments>();
    CLI::App& command =
        table.AddCommand(table.App(), "protocol", "Show what the last run of sync, watch or timer did",
                         "protocol --filter conflicts",
                         [arguments](CCommandContext& context) { return ShowProtocol(context, *arguments); });
    command.add_option("--filter", arguments->filter, "Show only items of this kind (default: all)")
        ->check(CLI::IsMember({"all", "conflicts", "changed", "new", "deleted"}))
        ->type_name("all|conflicts|changed|new|deleted");
    command.add_flag("--csv", arguments->csv, "The whole protocol as semicolon-separated lines");
}
