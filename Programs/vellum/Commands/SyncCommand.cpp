#include <Programs/vellum/Commands/CommandContext.h>
#include <Programs/vellum/Console/Interrupt.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Sync/DryRun.h>
#include <Programs/vellum/Sync/PairRun.h>
#include <Programs/vellum/Sync/PairStore.h>
#include <Programs/vellum/Sync/TerminalProgress.h>

#include <Platform/UserInterface.h>

#include <algorithm>
#include <ostream>

namespace {

struct CSyncArguments {
    std::vector<std::string> pairs;
    bool all = false;
    bool atStart = false;
    bool atShutdown = false;
    bool dryRun = false;
    bool extendedExit = false;
};

std::vector<std::size_t> ChoosePairs(const std::vector<CTarnSetting>& pairs,
                                     const CSyncArguments& arguments) {
    std::vector<std::size_t> chosen;
    for (const std::string& word : arguments.pairs) {
        const std::size_t index = FindPair(pairs, word);
        if (std::find(chosen.begin(), chosen.end(), index) == chosen.end()) chosen.push_back(index);
    }
    if (!arguments.pairs.empty()) return chosen;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const bool wanted = (arguments.all || pairs[i].Has(SYNC_ACTIVE)) &&
                            (!arguments.atStart || pairs[i].Has(SYNC_AT_START)) &&
                            (!arguments.atShutdown || pairs[i].Has(SYNC_AT_SHUTDOWN));
        if (wanted) chosen.push_back(i);
    }
    return chosen;
}

// The gravest of what happened decides; only cancelling stands before it.
ExitCode CodeOf(const CPairResult& result) {
    if (result.outcome.cancelled) return ExitCode::Cancelled;
    if (!result.problem.empty()) return ExitCode::NotOpen;
    if (!result.busy.empty()) return ExitCode::Busy;
    if (result.outcome.pairsNotOpened > 0) return ExitCode::NotOpen;
    if (result.outcome.notAvailable) return ExitCode::Usage;
    return result.outcome.rowsFailed + result.outcome.phasesFailed > 0 ? ExitCode::ItemsFailed
                                                                       : ExitCode::Done;
}

ExitCode Worse(ExitCode a, ExitCode b) {
    constexpr ExitCode order[] = {ExitCode::Done, ExitCode::ItemsFailed, ExitCode::Usage,
                                  ExitCode::Busy, ExitCode::NotOpen,     ExitCode::Cancelled};
    const auto rank = [&](ExitCode code) { return std::find(std::begin(order), std::end(order), code); };
    return rank(a) < rank(b) ? b : a;
}

void ReportProblem(CConsole& console, const CPairResult& result) {
    if (!result.busy.empty())
        console.Error("The pair \"" + result.label + "\" is being run already: " + result.busy,
                      "Wait until that run has ended, then try again.");
    if (!result.problem.empty())
        console.Error("Pair \"" + result.label + "\": " + result.problem,
                      "If the folder was removed or renamed:  vellum pair remove \"" + result.label +
                          "\", then add the pair anew.");
    if (result.outcome.notAvailable)
        console.Error("The pair \"" + result.label +
                      "\" travels by mail or directory, which this version does not run");
    if (!result.missingFolders.empty()) {
        ShowMissingFolders(result.missingFolders);
        if (!result.pair.Has(SYNC_CREATE_SUBFOLDERS))
            console.Note("  To have them created:  vellum pair edit \"" + result.label +
                     "\" --create-subfolders");
    }
}

int Sync(CCommandContext& context, const CSyncArguments& arguments) {
    CProfileSession& session = context.Session();
    CConsole& console = context.Console();
    const auto pairs = CPairStore(session).Load();
    const auto chosen = ChoosePairs(pairs, arguments);
    if (chosen.empty())
        console.Note(pairs.empty() ? "The profile has no pairs yet. Add one:  vellum pair add SOURCE TARGET"
                                   : "No pair is to be run. See:  vellum pair list");

    ExitCode code = ExitCode::Done;
    CSyncOutcome changed;
    Json json = Json::array();
    for (const std::size_t index : chosen) {
        if (InterruptRequested()) {
            code = ExitCode::Cancelled;
            break;
        }
        CPairResult result;
        result.pair = pairs[index];
        result.label = PairLabel(pairs, index);
        CTerminalProgress progress(console);
        result.isDryRun = arguments.dryRun;
        if (arguments.dryRun)
            DryRunPair(session, progress, result);
        else
            RunPair(session, progress, result);
        progress.Stop();
        if (InterruptRequested()) result.outcome.cancelled = true;
        ReportProblem(console, result);
        if (context.Json())
            json.push_back(ResultToJson(result));
        else if (result.busy.empty() && result.problem.empty())
            PrintResult(console, result);
        code = Worse(code, CodeOf(result));
        changed.sourceChanged += result.outcome.sourceChanged;
        changed.targetChanged += result.outcome.targetChanged;
    }
    if (context.Json()) console.Out() << JsonText(json);
    if (code == ExitCode::Cancelled)
        console.Note("Cancelled. What was carried over stays; the next run goes on from there.");
    if (!arguments.extendedExit) return Code(code);
    return Code(code) | (changed.sourceChanged > 0 ? kSourceChangedBit : 0) |
           (changed.targetChanged > 0 ? kTargetChangedBit : 0);
}

}  // namespace

void AddSyncCommand(CCommandTable& table) {
    auto arguments = std::make_shared<CSyncArguments>();
    CLI::App& command = table.AddCommand(
        table.App(), "sync",
        "Run pairs: make both folders of each hold the same items, and print what was done", "sync calendars",
        [arguments](CCommandContext& context) { return Sync(context, *arguments); });
    auto* pairs = command.add_option("PAIR", arguments->pairs,
                                     "Names, numbers or source folders (default: all active pairs)");
    command.add_flag("--all", arguments->all, "Also pairs that are not active")->excludes(pairs);
    command.add_flag("--at-start", arguments->atStart, "Only pairs that run at start")->excludes(pairs);
    command.add_flag("--at-shutdown", arguments->atShutdown, "Only pairs that run at shutdown")
        ->excludes(pairs);
    command.add_flag("--dry-run", arguments->dryRun, "Only say what would be done");
    command.add_flag("--ext-exit", arguments->extendedExit,
                     "Add 32 to the exit code if the source side was changed, 64 if the target side was");
}
