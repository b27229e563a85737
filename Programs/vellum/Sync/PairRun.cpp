#include <Programs/vellum/Sync/PairRun.h>

#include <Programs/vellum/Console/Console.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Tarn/Dispatch/MassDeleteGuard.h>

#include <ostream>

namespace {

constexpr const char* conflictAdvice =
    "  Both versions of an item in conflict stay; a copy of the earlier one lies in \"Conflicts\" of its "
    "store.\n"
    "  To decide for a version, change it once more and run again.";

std::string Plural(unsigned count, const std::string& word) {
    return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

bool WasStopped(const CPairResult& result) {
    return result.guarded || !result.badQuery.empty();
}

void PrintProtocol(CConsole& console, const CPairResult& result) {
    CListing listing(
        {{"state", "What"}, {"arrow", "Dir."}, {"item", "Item"}, {"folder", "Folder"}, {"detail", "Done"}},
        "");
    for (const CSyncProtocolEntry& entry : result.protocol) {
        const std::string folder = entry.m_origin == entry.m_destination
                                       ? entry.m_origin
                                       : entry.m_origin + " to " + entry.m_destination;
        listing.AddRow({StateWord(entry.m_state), entry.m_toSource ? "<-" : "->",
                        Utf8FromNarrow(entry.m_subject), Utf8FromNarrow(folder),
                        Utf8FromNarrow(entry.m_done)});
    }
    listing.PrintTable(console);
}

void PrintSummary(CConsole& console, const CPairResult& result) {
    const CSyncOutcome& outcome = result.outcome;
    if (result.isDryRun && !WasStopped(result)) {
        console.Out() << "  "
                      << (result.protocol.IsEmpty() && result.missingFolders.empty()
                              ? "nothing to do"
                              : "nothing was changed: a dry run")
                      << '\n';
        return;
    }
    std::string text = Plural(outcome.sourceChanged, "change") + " in the source, " +
                       Plural(outcome.targetChanged, "change") + " in the target";
    if (outcome.duplicatesMoved > 0)
        text += ", " + Plural(outcome.duplicatesMoved, "duplicate") + " moved below the wastebasket";
    if (outcome.conflicts > 0) text += ", " + Plural(outcome.conflicts, "conflict");
    if (outcome.rowsFailed > 0)
        text += ", " + console.OnOut(CConsole::Style::Error, Plural(outcome.rowsFailed, "item") + " failed");
    if (outcome.phasesFailed > 0)
        text +=
            ", " + console.OnOut(CConsole::Style::Error, Plural(outcome.phasesFailed, "step") + " failed");
    if (outcome.cancelled) text += ", cancelled";
    if (WasStopped(result)) text += ", " + console.OnOut(CConsole::Style::Error, "stopped");
    if (result.protocol.IsEmpty() && outcome.sourceChanged + outcome.targetChanged == 0 &&
        outcome.duplicatesMoved == 0 && outcome.rowsFailed == 0 && outcome.phasesFailed == 0 &&
        !outcome.cancelled && !WasStopped(result))
        text = "nothing to do";
    console.Out() << "  " << text << '\n';
    if (outcome.conflicts > 0) console.Note(conflictAdvice);
}

}  // namespace

bool CanOpenPair(CProfileSession& session, CPairResult& result) {
    const CTarnSetting& pair = result.pair;
    CFolderRef folder;
    std::string problemOfStore;
    if (!session.OpenFolderByKey(pair.m_sourceKey, folder, &problemOfStore))
        result.problem = "The folder \"" + pair.m_sourcePath + "\" cannot be opened";
    else if (!session.OpenFolderByKey(pair.m_targetKey, folder, &problemOfStore))
        result.problem = "The folder \"" + pair.m_targetPath + "\" cannot be opened";
    if (result.problem.empty()) return true;
    // Whoever took the pair out of the list for that would lose it for a file that comes back.
    if (!problemOfStore.empty()) {
        result.problem = problemOfStore;
        return false;
    }
    result.advice = "If the folder was removed or renamed:  vellum pair remove \"" + result.label +
                    "\", then add the pair anew.";
    return false;
}

std::string StateWord(int state) {
    switch (state) {
        case STATE_NONE:
            return "kept";
        case STATE_NEW:
        case STATE_MOVED:
            return "new";
        case STATE_MODIFIED:
            return "changed";
        case STATE_CONFLICT:
            return "conflict";
        case STATE_DELETED:
            return "deleted";
        default:
            return "looked at";
    }
}

Json ResultToJson(const CPairResult& result) {
    Json json = Json::object();
    json["name"] = Utf8FromNarrow(result.label);
    json["source"] = Utf8FromNarrow(result.pair.m_sourcePath);
    json["target"] = Utf8FromNarrow(result.pair.m_targetPath);
    if (!result.busy.empty()) json["busy"] = Utf8FromNarrow(result.busy);
    if (result.guarded) json["guarded"] = Utf8FromNarrow(MassDeletionText(*result.guarded));
    if (!result.badQuery.empty()) json["bad_query"] = Utf8FromNarrow(result.badQuery);
    if (!result.problem.empty()) json["problem"] = Utf8FromNarrow(result.problem);
    Json entries = Json::array();
    for (const CSyncProtocolEntry& entry : result.protocol)
        entries.push_back({{"state", StateWord(entry.m_state)},
                           {"subject", Utf8FromNarrow(entry.m_subject)},
                           {"direction", entry.m_toSource ? "to-source" : "to-target"},
                           {"from", Utf8FromNarrow(entry.m_origin)},
                           {"to", Utf8FromNarrow(entry.m_destination)},
                           {"detail", Utf8FromNarrow(entry.m_done)}});
    json["protocol"] = std::move(entries);
    json["source_changed"] = result.outcome.sourceChanged;
    json["target_changed"] = result.outcome.targetChanged;
    json["conflicts"] = result.outcome.conflicts;
    json["duplicates_moved"] = result.outcome.duplicatesMoved;
    json["failed"] = result.outcome.rowsFailed + result.outcome.phasesFailed + result.outcome.pairsNotOpened;
    json["cancelled"] = result.outcome.cancelled;
    Json missing = Json::array();
    for (const std::string& path : result.missingFolders)
        missing.push_back(Utf8FromNarrow(path));
    json["missing_folders"] = std::move(missing);
    return json;
}

void PrintResult(CConsole& console, const CPairResult& result) {
    console.ClearTransient();
    console.Out() << console.OnOut(CConsole::Style::Bold, OneLine(Utf8FromNarrow(result.label))) << ": "
                  << OneLine(Utf8FromNarrow(result.pair.m_sourcePath)) << " and "
                  << OneLine(Utf8FromNarrow(result.pair.m_targetPath)) << '\n';
    if (!result.protocol.IsEmpty()) PrintProtocol(console, result);
    PrintSummary(console, result);
}
