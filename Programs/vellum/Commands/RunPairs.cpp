#include <Programs/vellum/Commands/RunPairs.h>

#include <Platform/Files.h>
#include <Platform/UserInterface.h>
#include <Programs/vellum/Console/Interrupt.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Session/Explain.h>
#include <Programs/vellum/Sync/DryRun.h>
#include <Programs/vellum/Sync/LastProtocol.h>
#include <Programs/vellum/Sync/PairRun.h>
#include <Programs/vellum/Sync/PairStore.h>
#include <Programs/vellum/Sync/TerminalProgress.h>
#include <Tarn/Dispatch/RunDispatch.h>
#include <Tarn/Settings/TarnContext.h>

#include <algorithm>
#include <ostream>

namespace {

// The gravest of what happened decides; only cancelling stands before it.
ExitCode CodeOf(const CPairResult& result) {
    if (result.outcome.cancelled) return ExitCode::Cancelled;
    if (!result.problem.empty()) return result.problemCode;
    if (!result.busy.empty()) return ExitCode::Busy;
    if (result.guarded || !result.badQuery.empty()) return ExitCode::Guarded;
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
    // Those of a run have been named by then.
    if (result.isDryRun) ShowMissingFolders(result.missingFolders);
    if (!create)
        console.Note("  To have them created:  vellum pair edit \"" + result.label +
                     "\" --create-subfolders");
}

bool Changed(const CPairResult& result) {
    return result.outcome.sourceChanged + result.outcome.targetChanged > 0;
}

void ReportProblem(CConsole& console, const CPairResult& result) {
    if (!result.busy.empty())
        console.Error("The pair \"" + result.label + "\" is being run already: " + result.busy,
                      "To wait until that run has ended:  vellum sync \"" + result.label + "\" --wait");
    if (result.guarded)
        console.Error(
            "The pair \"" + result.label + "\" was stopped: " + MassDeletionText(*result.guarded) +
                (Changed(result) ? ". Nothing was changed in that folder." : ". Nothing was changed."),
            "If they are meant to be:  vellum sync \"" + result.label + "\" --allow-mass-delete");
    if (!result.badQuery.empty())
        console.Error(
            "The pair \"" + result.label + "\" was stopped: " + OneLine(Utf8FromNarrow(result.badQuery)) +
                (Changed(result) ? ". Nothing was changed in that folder." : ". Nothing was changed."),
            "To mend it:  vellum pair edit \"" + result.label +
                "\" --query TEXT\n  To carry all items all the same:  vellum sync \"" + result.label +
                "\" --ignore-bad-query");
    if (!result.problem.empty())
        console.Error("Pair \"" + result.label + "\": " + result.problem, result.advice);
    if (result.outcome.notAvailable)
        console.Error("The pair \"" + result.label +
                      "\" travels by mail or directory, which this version does not run");
    if (!result.missingFolders.empty()) ReportMissing(console, result);
}

bool WasIdle(const CPairResult& result) {
    return result.protocol.IsEmpty() && CodeOf(result) == ExitCode::Done;
}

// What comes of the pairs of one command, printed as it comes.
class CBatch {
public:
    CBatch(CCommandContext& context, const CRunOptions& options) : m_context(context), m_options(options) {}

    void Take(CPairResult& result) {
        if (InterruptRequested()) result.outcome.cancelled = true;
        ReportProblem(m_context.Console(), result);
        m_result.code = Worse(m_result.code, CodeOf(result));
        m_result.sourceChanged = m_result.sourceChanged || result.outcome.sourceChanged > 0;
        m_result.targetChanged = m_result.targetChanged || result.outcome.targetChanged > 0;
        m_kept.push_back(KeptPairOf(result));
        m_idle = m_idle && WasIdle(result);
        if (m_options.inBackground && WasIdle(result)) return;
        if (m_context.Json())
            m_json.push_back(ResultToJson(result));
        else if (result.busy.empty() && result.problem.empty())
            PrintResult(m_context.Console(), result);
    }
    void Worsen(ExitCode code) { m_result.code = Worse(m_result.code, code); }

    CBatchResult End() {
        const std::string profile = m_context.Session().Name();
        // A run that finds nothing to do must not wipe out the last one that did something.
        const bool keep = !m_options.dryRun && !(m_idle && HasLastRun(profile));
        if (keep && !KeepLastRun(profile, m_kept))
            m_context.Console().Warn("The protocol of the run could not be kept: " + LastFileError());
        if (m_context.Json() && !(m_options.inBackground && m_json.empty()))
            m_context.Console().Out() << JsonText(m_json);
        m_context.Console().Out().flush();
        return m_result;
    }

private:
    CCommandContext& m_context;
    const CRunOptions& m_options;
    CBatchResult m_result;
    Json m_json = Json::array();
    std::vector<CKeptPair> m_kept;
    bool m_idle = true;
};

CPairResult NewResult(const std::vector<CTarnSetting>& pairs, std::size_t index, bool isDryRun) {
    CPairResult result;
    result.pair = pairs[index];
    result.label = PairLabel(pairs, index);
    result.isDryRun = isDryRun;
    return result;
}

// What the command line does around the runs of the dispatch.
class CCommandHost : public IRunHost {
public:
    CCommandHost(CCommandContext& context, const std::vector<CTarnSetting>& pairs,
                 const std::vector<std::size_t>& chosen, const CRunOptions& options, CBatch& batch)
        : m_context(context),
          m_pairs(pairs),
          m_chosen(chosen),
          m_options(options),
          m_batch(batch),
          m_progress(context.Console()),
          m_former(InstallRunHost(this)) {
        m_progress.AnnounceFolders(false);
        Prepare();
    }
    ~CCommandHost() override { InstallRunHost(m_former); }

    CSyncProgress& Progress() { return m_progress; }
    CRunOrder Order();

    IVellumDlgView* DialogView() override { return nullptr; }
    void RunModal(CVellumDlg&) override {}
    void ShowProtocol(const CSyncProtocol&) override {}

    bool BeginPair(const CTarnSetting&, CSyncFolder& folder) override {
        if (!IsStillMeant() || !CanOpenPair(m_context.Session(), m_result)) return false;
        folder.m_protocol = &m_result.protocol;
        m_progress.AnnounceFolders(!m_options.inBackground);
        return true;
    }
    void EndPair(const CTarnSetting&, CSyncFolder& folder, const CPairEnd& end) override {
        m_progress.AnnounceFolders(false);
        m_progress.Stop();
        if (end.lock == LockAnswer::Busy) m_result.busy = end.holder;
        if (end.lock == LockAnswer::Failed) m_result.problem = "Its folders cannot be locked: " + end.holder;
        m_result.guarded = end.refused;
        m_result.badQuery = end.badQuery;
        m_result.outcome = end.outcome;
        m_result.missingFolders = folder.m_missingFolders;
        m_batch.Take(m_result);
        if (end.outcome.rowsFailed + end.outcome.phasesFailed > 0) TellOfReadOnlyStores();
        ++m_next;
        Prepare();
    }

private:
    // Whoever has waited for a lock, or for the pairs before this one, may have an old list.
    bool IsStillMeant() {
        CProfileSession& session = m_context.Session();
        if (!m_options.listStamp.empty() && CPairStore::StampNow(session) == m_options.listStamp) return true;
        try {
            auto now = CPairStore(session).Now(m_result.pair);
            if (now && now->ToText() == m_result.pair.ToText()) return true;
            m_result.problem = now ? "changed meanwhile: not run" : "removed meanwhile: not run";
            m_result.problemCode = ExitCode::Usage;
        } catch (const CCommandError& e) {
            m_result.problem = e.what();
            m_result.advice = e.Hint();
        }
        return false;
    }
    // Behind the failures of single steps, which name no store.
    void TellOfReadOnlyStores() {
        for (const std::string& key : {m_result.pair.m_sourceKey, m_result.pair.m_targetKey}) {
            CFolderRef folder;
            if (m_context.Session().OpenFolderByKey(key, folder) &&
                (folder.store.GetLongPropOr0(PR_STORE_SUPPORT_MASK) & STORE_READONLY) != 0)
                m_context.Console().Error("The store \"" + SplitFolderPath(folder.path).front() +
                                          "\" cannot be written: " + Explain(MAPI_E_NO_ACCESS));
        }
    }
    void Prepare() {
        if (m_next < m_chosen.size()) m_result = NewResult(m_pairs, m_chosen[m_next], false);
    }

    CCommandContext& m_context;
    const std::vector<CTarnSetting>& m_pairs;
    const std::vector<std::size_t>& m_chosen;
    const CRunOptions& m_options;
    CBatch& m_batch;
    CTerminalProgress m_progress;
    IRunHost* m_former;
    std::size_t m_next = 0;  // in m_chosen
    CPairResult m_result;    // of that one
};

CRunOrder CCommandHost::Order() {
    CConsole& console = m_context.Console();
    CRunOrder order;
    order.chosen = m_chosen;
    order.massDeleteShare = m_options.massDeleteShare;
    order.patience = {
        m_options.samePairSeconds, m_options.sharedSeconds, [this, &console](const std::string& holder) {
            console.Note("The pair \"" + m_result.label + "\" waits for another run: " + holder);
        }};
    const bool canAsk = !m_options.inBackground && console.CanAsk();
    order.queryGuard = !m_options.ignoreBadQuery;
    order.isAllMeant = [this, &console, canAsk](const std::string& problem) {
        return canAsk && console.Ask("The pair \"" + m_result.label + "\": " +
                                     OneLine(Utf8FromNarrow(problem)) + ". Carry all items of its folders?");
    };
    order.isDeletionMeant = [this, &console, canAsk](const CPlannedDeletions& planned) {
        return canAsk &&
               console.Ask("The pair \"" + m_result.label + "\": " + MassDeletionText(planned) + ". Go on?");
    };
    return order;
}

void RunChosen(CCommandContext& context, const std::vector<CTarnSetting>& pairs,
               const std::vector<std::size_t>& chosen, const CRunOptions& options, CBatch& batch) {
    CTarnSettings& settings = TarnContext().m_settings;
    settings.Clear();
    for (const CTarnSetting& pair : pairs)
        settings.Add(pair);
    CCommandHost host(context, pairs, chosen, options, batch);
    CSyncOutcome outcome;
    RunAllSettings(host.Progress(), context.Session().Mapi(), host.Order(), &outcome);
    if (outcome.cancelled) batch.Worsen(ExitCode::Cancelled);
    if (outcome.phasesFailed > 0) batch.Worsen(ExitCode::ItemsFailed);
}

void LookAtChosen(CCommandContext& context, const std::vector<CTarnSetting>& pairs,
                  const std::vector<std::size_t>& chosen, const CRunOptions& options, CBatch& batch) {
    CTerminalProgress progress(context.Console());
    for (const std::size_t index : chosen) {
        if (InterruptRequested()) return batch.Worsen(ExitCode::Cancelled);
        CPairResult result = NewResult(pairs, index, true);
        DryRunPair(context.Session(), progress, options.ignoreBadQuery, result);
        progress.Stop();
        batch.Take(result);
    }
}

}  // namespace

unsigned MassDeleteShare(const CTarnSettings& settings) {
    return static_cast<unsigned>(settings.m_massDeleteGuard.value_or(kMassDeleteShare));
}

CBatchResult RunPairs(CCommandContext& context, const std::vector<CTarnSetting>& pairs,
                      const std::vector<std::size_t>& chosen, const CRunOptions& options) {
    CBatch batch(context, options);
    if (options.dryRun)
        LookAtChosen(context, pairs, chosen, options, batch);
    else
        RunChosen(context, pairs, chosen, options, batch);
    return batch.End();
}
