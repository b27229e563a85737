#include <Programs/vellum/Commands/RunPairs.h>

#include <Platform/Files.h>
#include <Platform/UserInterface.h>
#include <Programs/vellum/Console/Interrupt.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Sync/DryRun.h>
#include <Programs/vellum/Sync/LastProtocol.h>
#include <Programs/vellum/Sync/PairRun.h>
#include <Programs/vellum/Sync/PairStore.h>
#include <Programs/vellum/Sync/TerminalProgress.h>

#include <algorithm>
#include <ostream>

namespace {

// The gravest of what happened decides; only cancelling stands before it.
ExitCode CodeOf(const CPairResult& result) {
    if (result.outcome.cancelled) return ExitCode::Cancelled;
    if (!result.problem.empty()) return ExitCode::NotOpen;
    if (!result.busy.empty()) return ExitCode::Busy;
    if (result.guarded) return ExitCode::Guarded;
    if (result.outcome.pairsNotOpened > 0) return ExitCode::NotOpen;
    if (result.outcome.notAvailable) return ExitCode::Usage;
    return result.outcome.rowsFailed + result.outcome.phasesFailed > 0 ? ExitCode::ItemsFailed
                                                                       : ExitCode::Done;
}

ExitCode Worse(ExitCode a, ExitCode b) {
    constexpr ExitCode order[] = {ExitCode::Done,     ExitCode::ItemsFailed, ExitCode::Usage,
                                  ExitCode::Busy,     ExitCode::Guarded,     ExitCode::NotOpen,
                                  ExitCode::Cancelled};
    const auto rank = [&](ExitCode code) { return std::find(std::begin(order), std::end(order), code); };
    return rank(a) < rank(b) ? b : a;
}

void ReportMissing(CConsole& console, const CPairResult& result) {
    const bool create = result.pair.Has(SYNC_CREATE_SUBFOLDERS);
    if (create && result.isDryRun) {
        for (const std::string& path : result.missingFolders)
            console.Note("The folder \"" + Utf8FromNarrow(path) + "\" would be created on the other side.");
        return;
    }
    ShowMissingFolders(result.missingFolders);
    if (!create)
        console.Note("  To have them created:  vellum pair edit \"" + result.label +
                     "\" --create-subfolders");
}

void ReportProblem(CConsole& console, const CPairResult& result) {
    if (!result.busy.empty())
        console.Error("The pair \"" + result.label + "\" is being run already: " + result.busy,
                      "To wait until that run has ended:  vellum sync \"" + result.label + "\" --wait");
    if (result.guarded)
        console.Error("The pair \"" + result.label + "\" was stopped: " + MassDeletionText(*result.guarded) +
                          (result.outcome.sourceChanged + result.outcome.targetChanged == 0
                               ? ". Nothing was changed."
                               : ". Nothing was changed in that folder."),
                      "If they are meant to be:  vellum sync \"" + result.label + "\" --allow-mass-delete");
    if (!result.problem.empty())
        console.Error("Pair \"" + result.label + "\": " + result.problem,
                      "If the folder was removed or renamed:  vellum pair remove \"" + result.label +
                          "\", then add the pair anew.");
    if (result.outcome.notAvailable)
        console.Error("The pair \"" + result.label +
                      "\" travels by mail or directory, which this version does not run");
    if (!result.missingFolders.empty()) ReportMissing(console, result);
}

bool WasIdle(const CPairResult& result) {
    return result.protocol.IsEmpty() && CodeOf(result) == ExitCode::Done;
}

CPairRunOptions PairOptionsOf(CConsole& console, const std::string& label, const CRunOptions& options) {
    CPairRunOptions pair;
    pair.patience.seconds = options.waitSeconds;
    pair.patience.onWait = [&console, label](const std::string& holder) {
        console.Note("The pair \"" + label + "\" waits for another run: " + holder);
    };
    pair.massDeleteShare = options.massDeleteShare;
    if (!options.inBackground && console.CanAsk())
        pair.isItMeant = [&console, label](const CPlannedDeletions& planned) {
            return console.Ask("The pair \"" + label + "\": " + MassDeletionText(planned) + ". Go on?");
        };
    return pair;
}

void RunOne(CCommandContext& context, CPairResult& result, const CRunOptions& options) {
    CTerminalProgress progress(context.Console(), !options.inBackground);
    if (options.dryRun)
        DryRunPair(context.Session(), progress, result);
    else
        RunPair(context.Session(), progress, PairOptionsOf(context.Console(), result.label, options), result);
    progress.Stop();
    if (InterruptRequested()) result.outcome.cancelled = true;
    ReportProblem(context.Console(), result);
}

}  // namespace

unsigned MassDeleteShare(const CTarnSettings& settings) {
    return static_cast<unsigned>(settings.m_massDeleteGuard.value_or(kMassDeleteShare));
}

CBatchResult RunPairs(CCommandContext& context, const std::vector<CTarnSetting>& pairs,
                      const std::vector<std::size_t>& chosen, const CRunOptions& options) {
    CBatchResult batch;
    Json json = Json::array();
    std::vector<CKeptPair> kept;
    bool idle = true;
    for (const std::size_t index : chosen) {
        if (InterruptRequested()) {
            batch.code = ExitCode::Cancelled;
            break;
        }
        CPairResult result;
        result.pair = pairs[index];
        result.label = PairLabel(pairs, index);
        result.isDryRun = options.dryRun;
        RunOne(context, result, options);
        batch.code = Worse(batch.code, CodeOf(result));
        batch.sourceChanged = batch.sourceChanged || result.outcome.sourceChanged > 0;
        batch.targetChanged = batch.targetChanged || result.outcome.targetChanged > 0;
        kept.push_back(KeptPairOf(result));
        idle = idle && WasIdle(result);
        if (options.inBackground && WasIdle(result)) continue;
        if (context.Json())
            json.push_back(ResultToJson(result));
        else if (result.busy.empty() && result.problem.empty())
            PrintResult(context.Console(), result);
    }
    // A run that finds nothing to do must not wipe out the last one that did something.
    const bool keep = !options.dryRun && !(idle && HasLastRun(context.Session().Name()));
    if (keep && !KeepLastRun(context.Session().Name(), kept))
        context.Console().Warn("The protocol of the run could not be kept: " + LastFileError());
    if (context.Json() && !(options.inBackground && json.empty())) context.Console().Out() << JsonText(json);
    context.Console().Out().flush();
    return batch;
}
