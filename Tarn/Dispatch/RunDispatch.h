// From a request to synchronise to the work: which settings take part, on which thread, under which lock and
// guard, and what meets the person. A visible run works on a thread of its own while the caller's thread
// shows the progress dialog; a silent one works on the caller's thread, and so does one whose progress needs
// no dialog.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Dispatch/MassDeleteGuard.h>
#include <Tarn/Dispatch/PairLock.h>
#include <Tarn/Dispatch/QueryGuard.h>
#include <Tarn/Engine/SyncProtocol.h>
#include <Tarn/Engine/VellumDlg.h>
#include <Tarn/Engine/syncfolder.h>
#include <Tarn/Settings/TarnSettings.h>

#include <atomic>
#include <optional>
#include <string>
#include <vector>

enum RunMoment : ULONG {
    RUN_ANY = 0,          // no filter
    RUN_AT_START = 1,     // settings with SYNC_AT_START
    RUN_AT_SHUTDOWN = 2,  // settings with SYNC_AT_SHUTDOWN
    RUN_MANUAL = 3,       // all
};

enum RunKind : ULONG {
    RUN_FOLDER_PAIRS = 0,  // neither by e-mail nor by directory
    RUN_BY_DIRECTORY = 1,
    RUN_BY_EMAIL = 2,
};

// What is to be run, and on which terms. What is left as it is suits the add-in.
struct CRunOrder {
    CRunOrder(ULONG moment = RUN_MANUAL) : when(moment) {}

    ULONG when;  // RunMoment
    // Positions in the list: these, in this order, of whatever kind, active or not. Empty: the active ones
    // of the moment.
    std::optional<std::vector<size_t>> chosen;
    CPatience patience;
    // See CMassDeleteGuard; 0: no guard. Empty: as the installation has it, or none.
    std::optional<unsigned> massDeleteShare;
    // See CQueryGuard. Empty: as the installation has it, or none.
    std::optional<bool> queryGuard;
    // Empty: message boxes.
    CMassDeleteGuard::Question isDeletionMeant;
    CQueryGuard::Question isAllMeant;
};

// What became of one pair.
struct CPairEnd {
    LockAnswer lock = LockAnswer::Taken;
    std::string holder;                        // Busy: who has it; Failed: why it could not be locked
    CSyncOutcome outcome;                      // of this pair alone
    std::optional<CPlannedDeletions> refused;  // what its guard stopped it for
    std::string badQuery;                      // or what is wrong with its query
};

// What a program puts in place around runs: the progress dialog's window, the protocol, and a word before
// and after each pair. BeginPair and EndPair come on the thread of the run.
class IRunHost {
public:
    virtual ~IRunHost() = default;
    // The view of a new progress dialog; null shows nothing. Owned by the host; used only between the
    // beginning and the end of RunModal.
    virtual IVellumDlgView* DialogView() = 0;
    // Shows the dialog until its view is told EndAsOk or QuitLoop. The dialog's window must be set while it
    // is up, where SetWindow answers true, and be gone on return. The run goes on without a window where
    // none comes up, or an exception does.
    virtual void RunModal(CVellumDlg& dialog) = 0;
    // The protocol of a visible run that is to be shown.
    virtual void ShowProtocol(const CSyncProtocol& protocol) = 0;
    // The pair is locked and `folder` prepared for it; the host may put another protocol there. False leaves
    // the pair out of the run.
    virtual bool BeginPair(const CTarnSetting& setting, CSyncFolder& folder) = 0;
    // Comes for each pair that takes part, also for one that another run has.
    virtual void EndPair(const CTarnSetting& setting, CSyncFolder& folder, const CPairEnd& end) = 0;
};

// Installs `host` and returns the former one. Without a host a visible run shows nothing, and its dialog
// lives until the run ends; a pair that another run has is told in a message box of a visible run. The caller
// keeps ownership.
IRunHost* InstallRunHost(IRunHost* host);

// Not zero while runs are under way. Watchers that start runs by themselves let notifications drop while it
// is set; it keeps no second run away.
extern std::atomic<unsigned char> g_syncBusy;

// The argument of the worker.
struct CSyncRunContext {
    CSyncFolder* folder = nullptr;
    CSyncProtocol* protocol = nullptr;
    CMapiSession session;
    const CRunOrder* order = nullptr;
    ULONG kind = RUN_FOLDER_PAIRS;
    CSyncOutcome* extra = nullptr;  // receives what the run did; may be null
};

// A complete run over the settings of TarnContext(). `outcome` (may be null) receives the sums.
void RunAllSettings(CSyncProgress& progress, const CMapiSession& session, const CRunOrder& order,
                    CSyncOutcome* outcome = nullptr, CSyncProtocol* protocol = nullptr);

// One pass over the list. Returns when the work is done, in both forms.
void RunSettings(CSyncProgress& progress, CSyncProtocol& protocol, const CMapiSession& session,
                 const CRunOrder& order, ULONG kind, CSyncOutcome* extra);

// The walk over the list; never throws.
void RunWorker(CSyncRunContext& context) noexcept;

// The walk for one setting, set with its options on the folder beforehand (PrepareFolder), whether it is
// active or not. The protocol belongs to the caller if the folder has one already. Never throws.
void RunOneWorker(CSyncFolder& folder) noexcept;

// True if a setting takes part in a run of this kind at this moment.
bool TakesPart(const CTarnSetting& setting, ULONG when, ULONG kind);

// Sets the setting's options, the setting itself, session and protocol on the folder and forgets the
// missing folders and the guard's word of the pair before. `setting` must outlive the folder's next run.
void PrepareFolder(CSyncFolder& folder, CTarnSetting& setting, const CMapiSession& session,
                   CSyncProtocol* protocol);

// Shows the protocol of a folder as the installation wants it: never, whenever it holds something, or
// "for conflicts only", which marks the first entry as a conflict and shows any protocol.
void ShowProtocolAfterRun(CSyncFolder& folder);
