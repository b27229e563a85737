#include <Platform/Threads.h>
#include <Platform/UserInterface.h>
#include <Tarn/Settings/MassDeleteGuard.h>
#include <Tarn/Settings/PermanentSynchronization.h>
#include <Tarn/Settings/RunDispatch.h>
#include <Tarn/Settings/TarnContext.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
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
        dialog.SetWindow(window.Handle());
        m_view.WaitForEnd();
        dialog.SetWindow(0);
    }
    void ShowProtocol(const CSyncProtocol&) override {}
    bool BeginPair(const CTarnSetting&, CSyncFolder&) override { return true; }
    void EndPair(const CTarnSetting&, CSyncFolder&) override {}

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
    ~CDialogOfRun() { m_progress.m_dialog = m_former; }
    CDialogOfRun(const CDialogOfRun&) = delete;
    CDialogOfRun& operator=(const CDialogOfRun&) = delete;

private:
    CSyncProgress& m_progress;
    CVellumDlg* m_former;
};

void AddOutcome(CSyncOutcome& sums, const CSyncOutcome& more) {
    sums.pairsRun += more.pairsRun;
    sums.pairsNotOpened += more.pairsNotOpened;
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

void RunPair(CSyncFolder& folder, CTarnSetting& setting) {
    CMassDeleteGuard guard(TarnContext().m_settings.m_massDeleteGuard.value_or(0), IsDeletionMeant);
    try {
        if (TarnContext().m_settings.m_massDeleteGuard.value_or(0) != 0) folder.m_guard = &guard;
        if (folder.m_guard != nullptr && !guard.PermitsPair(folder.m_session, setting, folder.m_progress))
            folder.m_stoppedByGuard = folder.m_outcome.guarded = true;
        folder.SyncSubFolder(setting.m_sourceKey, setting.m_targetKey, setting.Has(SYNC_TO_TARGET),
                             setting.Has(SYNC_FROM_TARGET), setting.Has(SYNC_DELETE_IN_TARGET),
                             setting.Has(SYNC_SUBFOLDERS), setting.Has(SYNC_CREATE_SUBFOLDERS));
    } catch (...) {
        // A pair that breaks must not cost the pairs behind it their run.
        ++folder.m_outcome.phasesFailed;
    }
    folder.m_guard = nullptr;
}

void RunListedPair(CSyncRunContext& context, CTarnSetting setting) {
    CSyncFolder& folder = *context.folder;
    if (folder.m_progress != nullptr) folder.m_progress->SetCaption(setting.m_sourcePath);
    PrepareFolder(folder, setting, context.session, context.protocol);
    if (!Host().BeginPair(setting, folder)) return;
    if (setting.Has(SYNC_TRACE_FILE)) folder.OpenTraceFile();
    RunPair(folder, setting);
    if (!folder.m_missingFolders.empty()) ShowMissingFolders(folder.m_missingFolders);
    if (setting.Has(SYNC_TRACE_FILE)) folder.CloseTraceFile();
    Host().EndPair(setting, folder);
    folder.m_setting = nullptr;
}

void WalkSettings(CSyncRunContext& context) {
    CTarnSettings& settings = TarnContext().m_settings;
    CSyncProgress* progress = context.folder->m_progress;
    if (progress != nullptr) {
        progress->Begin();
        progress->SetFolderRange(1, static_cast<int>(settings.Count()));
    }
    for (size_t i = 0; i < settings.Count() && !context.folder->m_outcome.cancelled; ++i)
        if (TakesPart(settings.At(i), context.when, context.kind)) RunListedPair(context, settings.At(i));
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
}

void RunAllSettings(CSyncProgress& progress, const CMapiSession& session, ULONG when, CSyncOutcome* outcome,
                    CSyncProtocol* protocol) {
    CSyncProtocol own;
    CSyncProtocol& used = protocol != nullptr ? *protocol : own;
    CVellumDlg dialog;
    const CDialogOfRun dialogOfRun(progress, dialog);
    g_syncBusy = 1;
    const CTarnSettings& settings = TarnContext().m_settings;
    bool byDirectory = false;
    for (size_t i = 0; i < settings.Count(); ++i)
        byDirectory |= settings.At(i).Has(SYNC_BY_DIRECTORY);
    CSyncOutcome sums;
    RunSettings(progress, used, session, when, RUN_FOLDER_PAIRS, &sums);
    if (byDirectory) {
        CSyncOutcome more;
        RunSettings(progress, used, session, when, RUN_BY_DIRECTORY, &more);
        AddOutcome(sums, more);
    }
    if (outcome != nullptr) *outcome = sums;
    progress.Stop();
    if (progress.IsVisible()) {
        CSyncFolder shown;
        shown.m_protocol = &used;
        ShowProtocolAfterRun(shown);
    }
    g_syncBusy = 0;
}

void RunSettings(CSyncProgress& progress, CSyncProtocol& protocol, const CMapiSession& session, ULONG when,
                 ULONG kind, CSyncOutcome* extra) {
    CSyncFolder folder;
    CVellumDlg dialog(progress.IsVisible() ? Host().DialogView() : nullptr);
    const CDialogOfRun dialogOfRun(progress, dialog);
    folder.m_progress = &progress;
    folder.m_session = session;
    PermanentSynchronizations().Clear();
    g_syncBusy = 1;
    CSyncRunContext context{&folder, &protocol, session, when, kind, extra};
    if (!progress.IsVisible()) {
        RunWorker(context);
        return;
    }
    std::thread worker = StartThread([&context, &dialog] {
        RunWorker(context);
        // A run that never found the dialog's window could not end it; nobody may wait for ever.
        dialog.OnWindowMessage(PROGRESS_CLOSE, 0, 0);
    });
    Host().RunModal(dialog);
    worker.join();
}

void RunWorker(CSyncRunContext& context) noexcept {
    try {
        WalkSettings(context);
    } catch (...) {
        ++context.folder->m_outcome.phasesFailed;
    }
    if (context.extra != nullptr) *context.extra = context.folder->m_outcome;
    g_syncBusy = 0;
    try {
        PermanentSynchronizations().Init(TarnContext().m_settings, context.session);
    } catch (...) {
        // Watchers are a convenience; the run itself is done.
    }
    if (context.folder->m_progress != nullptr) context.folder->m_progress->Stop();
}

void RunOneWorker(CSyncFolder& folder) noexcept {
    CSyncProtocol own;
    const bool borrowed = folder.m_protocol == nullptr;
    try {
        if (folder.m_progress != nullptr) folder.m_progress->Begin();
        if (borrowed) folder.m_protocol = &own;
        folder.m_running = true;
        if (folder.m_setting != nullptr) RunPair(folder, *folder.m_setting);
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
