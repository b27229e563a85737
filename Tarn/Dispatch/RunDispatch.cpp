#include <MapiWrapper/MapiThread.h>
#include <Platform/Threads.h>
#include <Platform/UserInterface.h>
#include <Tarn/Dispatch/PermanentSynchronization.h>
#include <Tarn/Dispatch/RunDispatch.h>
#include <Tarn/Maintenance/DuplicatesOfRuns.h>
#include <Tarn/Settings/TarnContext.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <utility>

std::atomic<unsigned char> g_syncBusy{0};

namespace {

// Stands in where no program has installed a host: the dialog exists as a registered window that nobody
// sees, so that the run finds what it reports to.
class CUnseenHost : public IRunHost {
public:
    IVellumDlgView* DialogView() override { return &m_view; }
    void RunModal(CVellumDlg& dialog) override {
        m_view.Reset();
        const CWindowRegistration window("Vellum progress", dialog);
        if (dialog.SetWindow(window.Handle())) m_view.WaitForEnd();
        dialog.SetWindow(0);
    }
    void ShowProtocol(const CSyncProtocol&) override {}
    bool BeginPair(const CTarnSetting&, CSyncFolder&) override { return true; }
    void EndPair(const CTarnSetting& setting, CSyncFolder& folder, const CPairEnd& end) override {
        // A silent run takes the pair the next time.
        if (end.lock != LockAnswer::Busy || !folder.m_progress || !folder.m_progress->IsVisible()) return;
        ShowMessageBox("The pair \"" + setting.m_sourcePath + "\" is being run already: " + end.holder,
                       "Vellum");
    }

private:
    class CView : public IVellumDlgView {
    public:
        void ShowLine(int, const std::string&) override {}
        void ShowFolderCount(const std::string&) override {}
        void ShowMessageCount(const std::string&) override {}
        void SetFolderBar(int, int, int) override {}
        void SetMessageBar(int, int, int) override {}
        void StepFolderBar() override {}
        void StepMessageBar() override {}
        void EndAsOk() override { End(); }
        void QuitLoop() override { End(); }
        void Reset() {
            const std::lock_guard lock(m_mutex);
            m_ended = false;
        }
        void WaitForEnd() {
            std::unique_lock lock(m_mutex);
            m_changed.wait(lock, [this] { return m_ended; });
        }

    private:
        void End() {
            const std::lock_guard lock(m_mutex);
            m_ended = true;
            m_changed.notify_all();
        }
        std::mutex m_mutex;
        std::condition_variable m_changed;
        bool m_ended = false;
    };
    CView m_view;
};

IRunHost* g_host = nullptr;

IRunHost& Host() {
    static CUnseenHost unseen;
    return g_host != nullptr ? *g_host : unseen;
}

// Hands the progress another dialog for a while. The one of an ended run must not stay behind in it.
class CDialogOfRun {
public:
    CDialogOfRun(CSyncProgress& progress, CVellumDlg& dialog)
        : m_progress(progress), m_former(progress.m_dialog) {
        if (progress.IsVisible()) progress.m_dialog = &dialog;
    }
    ~CDialogOfRun() {
        m_progress.m_dialog = m_former;
        // The window has gone, and its number may come to be another one's.
        if (m_progress.IsVisible()) m_progress.m_window = 0;
    }
    CDialogOfRun(const CDialogOfRun&) = delete;
    CDialogOfRun& operator=(const CDialogOfRun&) = delete;

private:
    CSyncProgress& m_progress;
    CVellumDlg* m_former;
};

// Counts a run that is under way, however it ends.
class CBusy {
public:
    CBusy() { ++g_syncBusy; }
    ~CBusy() { --g_syncBusy; }
    CBusy(const CBusy&) = delete;
    CBusy& operator=(const CBusy&) = delete;
};

void AddOutcome(CSyncOutcome& sums, const CSyncOutcome& more) {
    sums.pairsRun += more.pairsRun;
    sums.pairsNotOpened += more.pairsNotOpened;
    sums.pairsHeld += more.pairsHeld;
    sums.phasesFailed += more.phasesFailed;
    sums.rowsFailed += more.rowsFailed;
    sums.sourceChanged += more.sourceChanged;
    sums.targetChanged += more.targetChanged;
    sums.conflicts += more.conflicts;
    sums.cancelled |= more.cancelled;
    sums.notAvailable |= more.notAvailable;
    sums.guarded |= more.guarded;
}

// The person of the add-in is asked by a message box.
bool IsDeletionMeant(const CPlannedDeletions& planned) {
    return ShowMessageBox(MassDeletionText(planned) + ".\nDelete them?", "Vellum", MB_YESNO) == IDYES;
}

bool IsWholeFolderMeant(const std::string& problem) {
    return ShowMessageBox(problem + ".\nSynchronize the folders without it?", "Vellum", MB_YESNO) == IDYES;
}

bool HasQueryGuard(const CRunOrder& order) {
    return order.queryGuard.value_or(TarnContext().m_settings.m_queryGuard.value_or(0) != 0);
}

unsigned MassDeleteShareOf(const CRunOrder& order) {
    return static_cast<unsigned>(
        order.massDeleteShare.value_or(TarnContext().m_settings.m_massDeleteGuard.value_or(0)));
}

// Null where there is no guard of the kind.
struct CGuards {
    CQueryGuard* query;
    CMassDeleteGuard* deletions;

    bool Permit(CSyncFolder& folder, CTarnSetting& setting) const {
        if (query != nullptr && !query->PermitsPair(folder.m_session, setting)) return false;
        return deletions == nullptr || deletions->PermitsPair(folder.m_session, setting, folder.m_progress);
    }
};

void RunPair(CSyncFolder& folder, CTarnSetting& setting, const CGuards& guards) {
    folder.m_queryGuard = guards.query;
    folder.m_guard = guards.deletions;
    try {
        if (!guards.Permit(folder, setting)) {
            folder.m_stoppedByGuard = folder.m_outcome.guarded = true;
        } else {
            folder.SyncSubFolder(setting.m_sourceKey, setting.m_targetKey, setting.Has(SYNC_TO_TARGET),
                                 setting.Has(SYNC_FROM_TARGET), setting.Has(SYNC_DELETE_IN_TARGET),
                                 setting.Has(SYNC_SUBFOLDERS), setting.Has(SYNC_CREATE_SUBFOLDERS));
        }
    } catch (...) {
        // A pair that breaks must not cost the pairs behind it their run.
        ++folder.m_outcome.phasesFailed;
    }
    folder.m_queryGuard = nullptr;
    folder.m_guard = nullptr;
}

void RunUnderGuards(CSyncFolder& folder, CTarnSetting& setting, const CRunOrder& order, CPairEnd& end) {
    const unsigned share = MassDeleteShareOf(order);
    CMassDeleteGuard deletions(share, order.isDeletionMeant ? order.isDeletionMeant : IsDeletionMeant);
    CQueryGuard query(order.isAllMeant ? order.isAllMeant : IsWholeFolderMeant);
    if (setting.Has(SYNC_TRACE_FILE)) folder.OpenTraceFile();
    RunPair(folder, setting, {HasQueryGuard(order) ? &query : nullptr, share != 0 ? &deletions : nullptr});
    if (setting.Has(SYNC_TRACE_FILE)) folder.CloseTraceFile();
    end.refused = deletions.Refused();
    end.badQuery = query.Refused();
}

CPairEnd RunUnderLock(CSyncFolder& folder, CTarnSetting& setting, const CRunOrder& order) {
    CPairEnd end;
    CPairLock lock;
    end.lock = lock.Take(folder.m_session, setting, order.patience, folder.m_progress, end.holder);
    if (end.lock == LockAnswer::Busy) ++folder.m_outcome.pairsHeld;
    if (end.lock == LockAnswer::Cancelled) folder.m_outcome.cancelled = true;
    if (end.lock == LockAnswer::Failed) ++folder.m_outcome.phasesFailed;
    if (end.lock != LockAnswer::Taken || !Host().BeginPair(setting, folder)) return end;
    folder.m_gate = &lock;
    RunUnderGuards(folder, setting, order, end);
    folder.m_gate = nullptr;
    return end;
}

// With what the program does before and after a pair.
void RunTold(CSyncFolder& folder, CTarnSetting& setting, const CRunOrder& order) {
    CPairEnd end = RunUnderLock(folder, setting, order);
    end.outcome = folder.m_outcome;
    if (!folder.m_missingFolders.empty()) ShowMissingFolders(folder.m_missingFolders);
    Host().EndPair(setting, folder, end);
}

void RunListedPair(CSyncRunContext& context, CTarnSetting setting, CSyncOutcome& sums) {
    CSyncFolder& folder = *context.folder;
    if (folder.m_progress != nullptr) folder.m_progress->SetCaption(setting.m_sourcePath);
    PrepareFolder(folder, setting, context.session, context.protocol);
    folder.ClearOutcome();
    RunTold(folder, setting, *context.order);
    AddOutcome(sums, folder.m_outcome);
    folder.m_setting = nullptr;
}

std::vector<size_t> PairsOf(const CSyncRunContext& context) {
    if (context.order->chosen) return *context.order->chosen;
    const CTarnSettings& settings = TarnContext().m_settings;
    std::vector<size_t> pairs;
    for (size_t i = 0; i < settings.Count(); ++i)
        if (TakesPart(settings.At(i), context.order->when, context.kind)) pairs.push_back(i);
    return pairs;
}

void WalkSettings(CSyncRunContext& context, CSyncOutcome& sums) {
    CTarnSettings& settings = TarnContext().m_settings;
    CSyncProgress* progress = context.folder->m_progress;
    if (progress != nullptr) {
        progress->Begin();
        progress->SetFolderRange(1, static_cast<int>(settings.Count()));
    }
    for (const size_t pair : PairsOf(context)) {
        if (progress != nullptr && progress->IsCancelled()) sums.cancelled = true;
        if (sums.cancelled) break;
        RunListedPair(context, settings.At(pair), sums);
    }
}

// Works on a thread of its own while this one shows the dialog. False where no thread could be had.
bool RunBehindDialog(CSyncRunContext& context, CVellumDlg& dialog) {
    std::thread worker;
    try {
        worker = StartThread([&context, &dialog] {
            RunWorker(context);
            dialog.EndRun();
        });
    } catch (const std::system_error&) {
        return false;
    }
    try {
        Host().RunModal(dialog);
    } catch (...) {
        // The run is under way and needs no window.
    }
    dialog.Abandon();
    worker.join();
    return true;
}

}  // namespace

IRunHost* InstallRunHost(IRunHost* host) {
    return std::exchange(g_host, host);
}

bool TakesPart(const CTarnSetting& setting, ULONG when, ULONG kind) {
    if (setting.m_deleted != 0 || !setting.Has(SYNC_ACTIVE)) return false;
    if (kind == RUN_BY_EMAIL && !setting.Has(SYNC_BY_EMAIL)) return false;
    if (kind == RUN_BY_DIRECTORY && !setting.Has(SYNC_BY_DIRECTORY)) return false;
    if (kind == RUN_FOLDER_PAIRS && setting.Has(SYNC_BY_EMAIL | SYNC_BY_DIRECTORY)) return false;
    if (when == RUN_AT_START && !setting.Has(SYNC_AT_START)) return false;
    return when != RUN_AT_SHUTDOWN || setting.Has(SYNC_AT_SHUTDOWN);
}

void PrepareFolder(CSyncFolder& folder, CTarnSetting& setting, const CMapiSession& session,
                   CSyncProtocol* protocol) {
    folder.m_stripPrivate = setting.Has(SYNC_STRIP_PRIVATE);
    folder.m_skipPrivate = setting.Has(SYNC_SKIP_PRIVATE);
    folder.m_checkLitterBin = setting.Has(SYNC_CHECK_LITTER_BIN);
    folder.m_setting = &setting;
    folder.m_session = session;
    folder.m_protocol = protocol;
    folder.m_missingFolders.clear();
    folder.m_stoppedByGuard = false;
    folder.m_preparation = &DuplicatesOfRuns();
}

void RunAllSettings(CSyncProgress& progress, const CMapiSession& session, const CRunOrder& order,
                    CSyncOutcome* outcome, CSyncProtocol* protocol) {
    CSyncProtocol own;
    CSyncProtocol& used = protocol != nullptr ? *protocol : own;
    CVellumDlg dialog;
    const CDialogOfRun dialogOfRun(progress, dialog);
    const CBusy busy;
    const CTarnSettings& settings = TarnContext().m_settings;
    bool byDirectory = false;
    for (size_t i = 0; i < settings.Count(); ++i)
        byDirectory |= settings.At(i).Has(SYNC_BY_DIRECTORY);
    CSyncOutcome sums;
    RunSettings(progress, used, session, order, RUN_FOLDER_PAIRS, &sums);
    if (byDirectory && !order.chosen && !sums.cancelled) {
        CSyncOutcome more;
        RunSettings(progress, used, session, order, RUN_BY_DIRECTORY, &more);
        AddOutcome(sums, more);
    }
    if (outcome != nullptr) *outcome = sums;
    progress.Stop();
    if (!progress.IsVisible()) return;
    CSyncFolder shown;
    shown.m_protocol = &used;
    ShowProtocolAfterRun(shown);
}

void RunSettings(CSyncProgress& progress, CSyncProtocol& protocol, const CMapiSession& session,
                 const CRunOrder& order, ULONG kind, CSyncOutcome* extra) {
    CSyncFolder folder;
    CVellumDlg dialog(progress.IsVisible() ? Host().DialogView() : nullptr);
    const CDialogOfRun dialogOfRun(progress, dialog);
    folder.m_progress = &progress;
    folder.m_session = session;
    PermanentSynchronizations().Clear();
    CSyncRunContext context{&folder, &protocol, session, &order, kind, extra};
    if (progress.IsVisible() && RunBehindDialog(context, dialog)) return;
    dialog.Abandon();
    RunWorker(context);
}

void RunWorker(CSyncRunContext& context) noexcept {
    const CMapiThread mapi;
    CSyncOutcome sums;
    try {
        const CBusy busy;
        WalkSettings(context, sums);
    } catch (...) {
        ++sums.phasesFailed;
    }
    if (context.extra != nullptr) *context.extra = sums;
    try {
        PermanentSynchronizations().Init(TarnContext().m_settings, context.session);
    } catch (...) {
        // Watchers are a convenience; the run itself is done.
    }
    if (context.folder->m_progress != nullptr) context.folder->m_progress->Stop();
}

void RunOneWorker(CSyncFolder& folder) noexcept {
    const CMapiThread mapi;
    CSyncProtocol own;
    const bool borrowed = folder.m_protocol == nullptr;
    try {
        if (folder.m_progress != nullptr) folder.m_progress->Begin();
        if (borrowed) folder.m_protocol = &own;
        folder.m_running = true;
        if (folder.m_setting != nullptr) RunTold(folder, *folder.m_setting, {});
        ShowProtocolAfterRun(folder);
    } catch (...) {
        ++folder.m_outcome.phasesFailed;
    }
    folder.m_running = false;
    if (borrowed) folder.m_protocol = nullptr;
    if (folder.m_progress != nullptr) folder.m_progress->Stop();
}

void ShowProtocolAfterRun(CSyncFolder& folder) {
    const ULONG mode = TarnContext().m_settings.m_showProtocol;
    if (mode == SHOW_PROTOCOL_NEVER || folder.m_protocol == nullptr || folder.m_protocol->IsEmpty()) return;
    if (mode == SHOW_PROTOCOL_CONFLICTS) folder.m_protocol->SetState(0, STATE_CONFLICT);
    Host().ShowProtocol(*folder.m_protocol);
}
