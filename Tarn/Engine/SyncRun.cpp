// The order of the phases of a run, and what becomes of the run when one of them fails.
#include <Platform/Clock.h>
#include <Platform/Registry.h>
#include <Platform/UserInterface.h>
#include <Tarn/Engine/ItemTransfer.h>
#include <Tarn/Engine/SyncRun.h>
#include <Tarn/Engine/UnfinishedCopies.h>

#include <utility>

namespace {
constexpr char SwitchKey[] = "Software\\Ostrand\\Vellum";
constexpr size_t MaxTracedKey = 250;
constexpr unsigned LinkedPerPoll = 8;

// A phase whose failure is told in words of its own and ends only that phase. A failed call of a store
// goes on to whoever encloses the phase.
template <class Body>
void Guarded(CSyncOutcome& outcome, const char* text, const char* title, Body body) {
    try {
        body();
    } catch (const CMAPIException&) {
        throw;
    } catch (...) {
        ++outcome.phasesFailed;
        ShowMessageBox(text, title);
    }
}

// The value counts only where the first spelling of the key does not open and the second does; a value
// that is not there is written, so that people find the switch.
DWORD RegistrySwitch(const char* name, DWORD defaultValue) {
    CRegistryKey key;
    if (key.Open(RegistryRoot::CurrentUser, std::string("\\") + SwitchKey) == ERROR_SUCCESS)
        return defaultValue;
    if (key.Open(RegistryRoot::CurrentUser, SwitchKey, true) != ERROR_SUCCESS) return defaultValue;
    if (const auto value = key.ReadDword(name)) return *value;
    key.WriteDword(name, defaultValue);
    return defaultValue;
}

IMAPIFolderPtr AsFolder(const IMAPIPropPtr& object) {
    IMAPIFolderPtr folder = object.As<IMAPIFolderPtr>();
    if (!folder) throw CMAPIException(MAPI_E_NOT_FOUND, "AsFolder", nullptr);
    return folder;
}

// An empty entry ID would open a store's topmost folder.
SBinary NotEmpty(const CMapiBinary& entryId) {
    if (entryId.IsEmpty()) throw CMAPIException(MAPI_E_INVALID_ENTRYID, "SyncFolder", nullptr);
    return entryId.Bin();
}

FILETIME ReadTime(const IMessagePtr& message, const wchar_t* name) {
    const ULONG tag = NamedTag(message.RawProp(), name, PT_SYSTIME, true);
    CMapiPropValue value;
    if (HrGetOneProp(message.Get(), tag, value.Out()) < 0) return {};
    return value.Time();
}
}  // namespace

void CSyncRun::Status(const std::string& text) {
    if (m_engine.m_progress) m_engine.m_progress->SetMessageText(text);
}

void CSyncRun::DropChanges() {
    m_source.changes.Clear();
    m_target.changes.Clear();
}

int CSyncRun::Run(const std::string& source, const std::string& target) {
    const int answer = OpenAndRun(source, target);
    Reached(m_target, m_target.batch.End());
    Reached(m_source, m_source.batch.End());
    return answer;
}

int CSyncRun::OpenAndRun(const std::string& source, const std::string& target) {
    try {
        Status(LoadText(TEXT_OPENING_FOLDERS));
        if (!SplitKeys(source, target)) return 1;
        FILE* trace = m_engine.m_traceFile;
        TraceFormat(trace, "Synchronize folder %s", source.substr(0, MaxTracedKey).c_str());
        TraceFormat(trace, "to %s", target.substr(0, MaxTracedKey).c_str());
        if (!OpenSides()) {
            ++m_engine.m_outcome.pairsNotOpened;
            return 0;
        }
        if (m_engine.m_gate && !m_engine.m_gate->Enter(m_source.folder, m_target.folder)) {
            ++m_engine.m_outcome.phasesFailed;
            return 0;
        }
        if (!Prepare()) return 0;
        m_source.batch.Begin(m_source.store);
        m_target.batch.Begin(m_target.store);
        Phases();
    } catch (const CMAPIException& e) {
        ++m_engine.m_outcome.phasesFailed;
        ReportException(e, "SyncSubFolder");
        DropChanges();
        return 0;
    } catch (...) {
        ++m_engine.m_outcome.phasesFailed;
        ShowMessageBox("Error in CSyncFolder::SyncSubFolder", "Vellum");
        return 1;
    }
    return m_answer;
}

// False if the run was cancelled. What moves things reaches the disk by itself, before anything is gathered.
bool CSyncRun::Prepare() {
    if (!m_engine.m_preparation || RegistrySwitch("FindDuplicates", 0) != 1) return true;
    m_engine.m_preparation->Prepare(m_engine, m_source.store, m_source.folder, m_target.store,
                                    m_target.folder);
    return !m_engine.m_cancelled;
}

void CSyncRun::Phases() {
    ReadNames();
    if (!Load()) {
        m_answer = 1;
        return;
    }
    if (m_engine.m_stoppedByGuard) return;
    ++m_engine.m_outcome.pairsRun;
    SortAndQuery();
    CheckIdentities();
    if (m_engine.IsTracing() && HasRows()) {
        m_engine.TraceRows("Source", m_source.rows);
        m_engine.TraceRows("Target", m_target.rows);
    }
    NoteLook(m_source, m_engine.m_sourceSyncTime);
    NoteLook(m_target, m_engine.m_targetSyncTime);
    m_engine.ReadLastSyncTimes(m_source.folder);
    TurnMemoriesBack();
    if (!m_engine.HasFlag(SYNC_NEW_ONLY)) ForgetTables();
    if (!Analyze()) return;
    if (m_engine.HasFlag(SYNC_NEW_ONLY) && HasChanges()) ReloadAllRows();
    NoteUncarried();
    CSyncOutcome& outcome = m_engine.m_outcome;
    Guarded(outcome, "Error finding conflicts", "Tarn", [&] {
        m_engine.FindConflicts(m_source.changes, m_target.changes, &m_source.folder, &m_target.folder);
    });
    if (m_engine.m_cancelled) return;
    Guarded(outcome, "Error tracing rows", "Vellum", [&] { TraceChanges(); });
    if (!Permitted()) return;
    ForgetMemories();
    MarkRowsOfSides();
    StartNotes();
    LinkTheSame();
    KeepConflictLosers();
    if (!HasLost() && !m_engine.m_cancelled) CopyBothWays();
    if (!m_engine.m_cancelled) WriteState();
}

// --- opening ---------------------------------------------------------------------------------------

bool CSyncRun::SplitKeys(const std::string& source, const std::string& target) {
    try {
        const CFolderKey sourceKey = CFolderKey::FromText(source);
        const CFolderKey targetKey = CFolderKey::FromText(target);
        m_source.folderId = sourceKey.m_folder;
        m_source.storeId = sourceKey.m_store;
        m_target.folderId = targetKey.m_folder;
        m_target.storeId = targetKey.m_store;
        return true;
    } catch (...) {
        ++m_engine.m_outcome.phasesFailed;
        ShowMessageBox("Error in preparing entry ids", "Vellum");
        return false;
    }
}

bool CSyncRun::OpenSides() {
    try {
        OpenSource();
        OpenTarget();
        return true;
    } catch (const CMAPIException& e) {
        ShowMessageBox("Error " + e.GetErrorText() + " in\n" + m_stage, "Tarn");
    } catch (...) {
        ShowMessageBox("Error in " + m_stage, "Tarn");
    }
    return false;
}

void CSyncRun::OpenSource() {
    try {
        m_stage = "Opening source message store\n" + m_source.storeId.Hex();
        m_source.store = m_engine.m_session.OpenStore(NotEmpty(m_source.storeId));
        m_stage = "Opening target message store\n" + m_target.storeId.Hex();
        m_source.folder = AsFolder(m_source.store.OpenEntry(NotEmpty(m_source.folderId)));
    } catch (const CMAPIException&) {
        FindSourceAgain();
    }
}

// A store whose entry ID has changed is found by the record key that stands in it; a key written the
// other way round is found by the same means.
void CSyncRun::FindSourceAgain() {
    m_stage = "OpenSource Folder, second try";
    m_source.folder = AsFolder(
        m_engine.m_session.OpenEntryInAnyStore(NotEmpty(m_source.storeId), nullptr, MAPI_BEST_ACCESS));
    m_stage = "Open Source Message Store, second try";
    m_source.storeId = m_source.folder.GetBinProp(PR_STORE_ENTRYID);
    m_source.store = m_engine.m_session.OpenStore(NotEmpty(m_source.storeId));
}

void CSyncRun::OpenTarget() {
    try {
        m_stage = "Open Target Message Store";
        m_target.store = m_engine.m_session.OpenStore(NotEmpty(m_target.storeId));
        m_stage = "Open Target Folder";
        m_target.folder = AsFolder(m_target.store.OpenEntry(NotEmpty(m_target.folderId)));
    } catch (const CMAPIException&) {
        FindTargetAgain();
    }
}

void CSyncRun::FindTargetAgain() {
    m_stage = "Open Target Folder, second try";
    m_target.folder =
        AsFolder(m_target.store.OpenEntry(NotEmpty(m_target.folderId), nullptr, MAPI_BEST_ACCESS));
    m_target.storeId = m_target.folder.GetBinProp(PR_STORE_ENTRYID);
    m_stage = "Open Target Message Store, second try";
    m_target.store = m_engine.m_session.OpenStore(NotEmpty(m_target.storeId));
}

void CSyncRun::ReadNames() {
    try {
        if (m_engine.IsTracing()) {
            TraceNames();
        } else {
            m_source.name = m_source.folder.GetStrProp(PR_DISPLAY_NAME_A);
            m_target.name = m_target.folder.GetStrProp(PR_DISPLAY_NAME_A);
        }
        if (m_engine.m_progress) m_engine.m_progress->SetCaption(m_source.name);
    } catch (...) {
        ++m_engine.m_outcome.phasesFailed;
        ShowMessageBox("Error Getting names", "Vellum");
    }
}

void CSyncRun::TraceNames() {
    FILE* trace = m_engine.m_traceFile;
    const std::string rule(92, '*');
    m_source.name = GetFolderPath(m_engine.m_session, m_source.folder, '\\');
    m_target.name = GetFolderPath(m_engine.m_session, m_target.folder, '\\');
    TraceText(trace, rule);
    TraceFormat(trace, "Syncing folder %s\n", m_source.name.c_str());
    TraceFormat(trace, "           to  %s\n", m_target.name.c_str());
    TraceText(trace, rule);
    TraceText(trace, "********************* Syncing folder ******************\n");
    TraceFormat(trace, "*** %s to %s **", m_source.folder.GetStrPropOrEmpty(PR_DISPLAY_NAME_A).c_str(),
                m_target.folder.GetStrPropOrEmpty(PR_DISPLAY_NAME_A).c_str());
}

// --- loading ---------------------------------------------------------------------------------------

void CSyncRun::OpenTable(Side& side, const char* reported, const char* crashed) {
    try {
        side.table = side.folder._rawContentsTable();
    } catch (const CMAPIException& e) {
        ++m_engine.m_outcome.phasesFailed;
        ReportException(e, reported);
    } catch (...) {
        ++m_engine.m_outcome.phasesFailed;
        ShowMessageBox(crashed, "Vellum");
    }
}

// Asked before the look: without its query the pair would carry all that the query was to keep out.
bool CSyncRun::QueryPermitted() {
    const std::string problem = m_engine.SettleQuery(m_source.folder, m_target.folder);
    if (problem.empty()) return true;
    if (m_engine.m_queryGuard && !m_engine.m_queryGuard->PermitsQuery(problem)) {
        m_engine.m_stoppedByGuard = m_engine.m_outcome.guarded = true;
        return false;
    }
    ShowMessageBox(problem + ".\nThe folders \"" + m_source.name + "\" and \"" + m_target.name +
                       "\" are synchronized without it.",
                   "Vellumware");
    return true;
}

bool CSyncRun::Load() {
    try {
        OpenTable(m_source, "Opening source folder", "Crash opening source folder");
        OpenTable(m_target, "Opening target folder", "Crash opening target folder");
        if (!m_source.store || !m_target.store || !m_source.folder || !m_target.folder || !m_source.table ||
            !m_target.table) {
            ++m_engine.m_outcome.pairsNotOpened;
            ShowMessageBox("One of the tables can not be opened", "Vellum");
            return false;
        }
        Status("Reading status");
        m_engine.SetPairTarget(m_target.folder);
        if (!QueryPermitted()) return true;
        m_engine.ReadSyncFiles(m_source.folder, m_target.folder);
        CompareMark();
        Status("Getting rows");
        m_engine.ApplyTableFilter(m_source.folder, m_source.table, &m_engine.m_sourceSyncTime, true);
        m_engine.ApplyTableFilter(m_target.folder, m_target.table, &m_engine.m_targetSyncTime, true);
        return true;
    } catch (const CMAPIException&) {
        throw;
    } catch (...) {
        ++m_engine.m_outcome.phasesFailed;
        ShowMessageBox("Error in loading folders", "Vellum");
        return false;
    }
}

namespace {
// Sorting and querying: a failure is traced with its stage, and the run goes on with what there is.
template <class Body>
void Stage(CSyncFolder& engine, const char* stage, Body body) {
    try {
        MARK_POSITION();
        body();
    } catch (const CMAPIException& e) {
        ++engine.m_outcome.phasesFailed;
        ServerTraceWrite(engine.m_traceFile, "Error %s %s in %s(%d)", e.GetErrorText().c_str(), stage,
                         SyncFolderSource, CurrentPosition().line);
        NoteException(e, stage);
    } catch (...) {
        ++engine.m_outcome.phasesFailed;
        ShowMessageBox(FormatText("Error in %s", stage), "Vellum");
        ServerTraceWrite(engine.m_traceFile, "Fatal Error %s %s(%d)", stage, SyncFolderSource,
                         CurrentPosition().line);
    }
}
}  // namespace

void CSyncRun::SortTable(Side& side, const char* stage) {
    Stage(m_engine, stage, [&] {
        SSortOrderSet order{};
        order.cSorts = 1;
        order.aSort[0] = {PR_LAST_MODIFICATION_TIME, TABLE_SORT_DESCEND};
        THROW_ON_FAILURE_FOR(side.table->SortTable(&order, TBL_BATCH), side.table.Get());
    });
}

void CSyncRun::QueryRows(Side& side, const char* stage) {
    Stage(m_engine, stage, [&] { m_engine.QuerySyncRows(side.rows, side.folder, side.table); });
}

void CSyncRun::SortAndQuery() {
    Guarded(m_engine.m_outcome, "Error getting source Sync Time", "Tarn", [&] {
        SortTable(m_source, "Sorting source table");
        SortTable(m_target, "Sorting target table");
        QueryRows(m_source, "Getting source rows");
        QueryRows(m_target, "Getting target rows");
    });
}

void CSyncRun::CheckIdentity(Side& side, const char* failure) {
    Guarded(m_engine.m_outcome, failure, "Tarn", [&] {
        if (!side.rows.IsValid() || !m_engine.CheckSyncID(side.folder, side.rows)) return;
        side.rows.Free();
        QueryRows(side, &side == &m_source ? "Getting source rows" : "Getting target rows");
    });
}

// Before stamps that are another item's are taken off, for those of such copies are.
void CSyncRun::FinishCopies() {
    if (!HasRows()) return;
    const CCopySide source{m_source.store, m_source.folder, m_source.rows, m_engine.m_sourceData,
                           m_source.batch};
    const CCopySide target{m_target.store, m_target.folder, m_target.rows, m_engine.m_targetData,
                           m_target.batch};
    CUnfinishedCopies inTarget(m_engine, target, source), inSource(m_engine, source, target);
    inTarget.Finish();
    inSource.Finish();
    if (inTarget.ChangedOther() || inSource.ChangedOwn()) QueryRows(m_source, "Getting source rows");
    if (inTarget.ChangedOwn() || inSource.ChangedOther()) QueryRows(m_target, "Getting target rows");
}

void CSyncRun::CheckIdentities() {
    Guarded(m_engine.m_outcome, "Error finishing copies", "Tarn", [&] { FinishCopies(); });
    CheckIdentity(m_source, "Error getting Source SyncID");
    CheckIdentity(m_target, "Error getting Target SyncID");
}

// `since` is where an incremental look began.
void CSyncRun::NoteLook(Side& side, const FILETIME& since) {
    side.memory.look = since;
    for (ULONG row = 0; side.rows.IsValid() && row < side.rows.Count(); ++row) {
        const FILETIME time = side.rows.Cell(row, COL_MODIFIED).Time();
        if (CompareFileTimes(time, side.memory.look) > 0) side.memory.look = time;
    }
}

// Rows that were read once more show changes that the lists do not have. They count as not seen yet: what is
// remembered of them is a time before, and the next run finds them.
void CSyncRun::HideLaterChanges(Side& side) {
    for (ULONG row = 0; side.rows.IsValid() && row < side.rows.Count(); ++row) {
        const CMapiPropValue time = side.rows.Cell(row, COL_MODIFIED);
        if (time.Type() == PT_SYSTIME && CompareFileTimes(time.Time(), side.memory.look) > 0)
            time.Get()->Value.ft = side.memory.look;
    }
}

// --- deciding --------------------------------------------------------------------------------------

// False if the run was cancelled.
bool CSyncRun::Analyze() {
    // Rows that could not be had are not the same as none: everything would look new or deleted. Without
    // both sides nothing is decided, nothing is done and nothing is remembered.
    if (!HasRows()) return true;
    CSyncOutcome& outcome = m_engine.m_outcome;
    Status("Analyzing source");
    if (m_engine.CarriesToTarget()) {
        ServerTraceWrite(m_engine.m_traceFile, "Analyzing source to target\n");
        Guarded(outcome, "Error creating modify list source", "Tarn", [&] {
            m_engine.CreateModifyList("Source", m_source.changes, m_engine.m_sourceData,
                                      m_engine.m_targetData, m_source.folder, m_target.folder, m_source.rows,
                                      m_target.rows, m_engine.m_lastSyncSource);
        });
        if (m_engine.PollCancelled()) return false;
    }
    Status("Analyzing Target");
    if (m_engine.CarriesToSource()) {
        ServerTraceWrite(m_engine.m_traceFile, "Analyzing target to source\n");
        Guarded(outcome, "Error creating target modify list", "Tarn", [&] {
            m_engine.CreateModifyList("Target", m_target.changes, m_engine.m_targetData,
                                      m_engine.m_sourceData, m_target.folder, m_source.folder, m_target.rows,
                                      m_source.rows, m_engine.m_lastSyncTarget);
        });
    }
    return !m_engine.PollCancelled();
}

// The tables so far showed only what is new; finding counterparts needs the rest as well.
void CSyncRun::ReloadAllRows() {
    m_engine.ApplyTableFilter(m_source.folder, m_source.table, nullptr, true);
    m_engine.ApplyTableFilter(m_target.folder, m_target.table, nullptr, true);
    m_source.rows.Free();
    m_target.rows.Free();
    SortTable(m_source, "Sorting source table");
    SortTable(m_target, "Sorting target table");
    QueryRows(m_source, "Getting source rows");
    QueryRows(m_target, "Getting target rows");
    if (!HasRows()) DropChanges();
    HideLaterChanges(m_source);
    HideLaterChanges(m_target);
}

namespace {
// An item of which the memory does not tell may have been edited as well.
void NoteEdits(const CMapiRowSet& rows, CSyncFileMap& memory, CSyncFolder::CSyncIds& edits) {
    for (ULONG row = 0; row < rows.Count(); ++row) {
        const CMapiPropValue syncId = rows.Cell(row, COL_SYNC_ID);
        if (syncId.Type() != PT_STRING8) continue;
        const CSyncFileEntry* entry = memory.FindByItem(KeyOfRow(rows, row));
        if (!entry || CompareFileTimes(entry->time, rows.Cell(row, COL_MODIFIED).Time()) != 0)
            edits.insert(syncId.Str());
    }
}
}  // namespace

// The memories that this run is about to write tell of every item as it stands, so the run after it could not
// tell an edit that stays on its side from what was carried there, and would replace it as such.
void CSyncRun::NoteUncarried() {
    if (!HasRows() || !HasChanges()) return;
    if (!m_engine.CarriesToTarget())
        NoteEdits(m_source.rows, m_engine.m_sourceData, m_engine.m_sourceUncarried);
    if (!m_engine.CarriesToSource())
        NoteEdits(m_target.rows, m_engine.m_targetData, m_engine.m_targetUncarried);
}

void CSyncRun::TraceChanges() {
    if (!m_engine.IsTracing()) return;
    Status("Tracing");
    for (int pass = 0; pass < 2; ++pass) {
        TraceText(m_engine.m_traceFile, "Modifications Source\n");
        m_engine.TraceModifications(m_source.changes);
        TraceText(m_engine.m_traceFile, "Modifications Target\n");
        m_engine.TraceModifications(m_target.changes);
    }
}

bool CSyncRun::Permitted() {
    if (!m_engine.m_guard || !HasRows()) return true;
    const bool permitted =
        m_engine.m_guard->Permits(CountDeletions(m_source.name, m_target.changes, m_source.rows),
                                  CountDeletions(m_target.name, m_source.changes, m_target.rows));
    if (permitted) return true;
    m_engine.m_stoppedByGuard = m_engine.m_outcome.guarded = true;
    DropChanges();
    return false;
}

// --- doing -----------------------------------------------------------------------------------------

// Items whose marks were taken away, or that came to both sides by another way. There is nothing to carry,
// but without a link what becomes of one would never reach the other.
void CSyncRun::LinkTheSame() {
    m_engine.m_copyToSource = false;
    unsigned linked = 0;
    for (const auto& [ours, theirs] : m_engine.m_unlinkedSame) {
        if (++linked % LinkedPerPoll == 0 && m_engine.PollCancelled()) return;
        if (HasLost()) return;
        try {
            const std::string syncId = NewSyncIdText();
            const auto link = [&](const Side& side, const CItemKey& item) {
                IMessagePtr message = OpenMessage(side.folder, item);
                if (!StampItem(m_engine, message, syncId)) return;
                message.SaveChanges(KEEP_OPEN_READWRITE);
                m_engine.NoteSaved(message, item, syncId, &side == &m_source);
            };
            link(m_source, ours);
            link(m_target, theirs);
        } catch (const CMAPIException& e) {
            m_engine.NoteRowFailed();
            ReportException(e, "CSyncFolder::FindConflicts");
        }
    }
}

void CSyncRun::KeepConflictLosers() {
    ServerTraceWrite(m_engine.m_traceFile,
                     "----------------------------------------- copy source to target ---------------- \n");
    Status("Finding conflicts");
    const auto keep = [&](Side& own, Side& other, CSyncFileMap& ownData, CSyncFileMap& otherData,
                          const char* failure) {
        Guarded(m_engine.m_outcome, failure, "Vellum", [&] {
            m_engine.MoveConflicts(own.changes, own.folder, other.folder, own.rows, other.rows, ownData,
                                   otherData, own.store, other.store);
        });
        return m_engine.PollCancelled();
    };
    if (keep(m_source, m_target, m_engine.m_sourceData, m_engine.m_targetData,
             "Error copying conflicts source to target"))
        return;
    keep(m_target, m_source, m_engine.m_targetData, m_engine.m_sourceData,
         "Error copying conflicts target to source");
}

void CSyncRun::CopyBothWays() {
    Status("copying");
    const auto copy = [&](Side& from, Side& to, CSyncFileMap& data, bool toSource) {
        Guarded(m_engine.m_outcome, "Error in CopyModifiedElements", "Vellum", [&] {
            m_engine.m_copyToSource = toSource;
            m_engine.m_batchFrom = &from.batch;
            m_engine.CopyModifiedElements(from.changes, from.folder, to.folder, from.rows, to.rows, data,
                                          from.store, to.store, from.name, to.name);
        });
        return m_engine.PollCancelled();
    };
    if (m_engine.m_cancelled || copy(m_source, m_target, m_engine.m_targetData, false)) return;
    if (HasLost()) return;
    ServerTraceWrite(m_engine.m_traceFile,
                     "----------------------------------------- copy target to source ---------------- \n");
    copy(m_target, m_source, m_engine.m_sourceData, true);
}

// Items may be linked though nothing tells of a run any more, and then nothing shows as changed. Without a
// memory what is deleted from now on would come back from the other side.
bool CSyncRun::MustRemember() const {
    return m_engine.m_hasNoMemory && HasRows() && m_source.rows.Count() + m_target.rows.Count() > 0;
}

void CSyncRun::WriteState() {
    Status("writing files");
    if (HasChanges() || MustAgreeOnMark() || MustRemember()) {
        Guarded(m_engine.m_outcome, "Error in Writing files", "Vellum", [&] {
            // A sync file must not tell of items that a disk does not hold, or will not hold any more when
            // power comes back. The source's log has them before it has the files.
            LeaveMark();
            const bool targetHolds = Reached(m_target, m_target.batch.FlushToDisk());
            const bool sourceHolds = Reached(m_source, m_source.batch.Flush());
            if (!targetHolds || !sourceHolds) return;
            ForgetRows();
            m_engine.WriteSyncFiles(m_source.folder, m_target.folder, true, true);
            Reached(m_source, m_source.batch.Flush());
        });
    }
    Status("finish");
}

// What a store answers for the saves of the run. A loss is told once, and nothing is built on it any more.
bool CSyncRun::Reached(Side& side, HRESULT answer) {
    if (answer >= 0) return true;
    if (std::exchange(side.toldOfLoss, true)) return false;
    m_engine.NoteUnsure();
    m_engine.m_ownWrites.Clear();
    ++m_engine.m_outcome.phasesFailed;
    const CMAPIException& loss = *side.batch.Loss();
    const std::string reason =
        loss.Reason().empty() ? loss.GetErrorText() : loss.Reason() + " (" + loss.GetErrorText() + ")";
    ShowMessageBox(FormatText(LoadText(TEXT_SAVES_LOST).c_str(), side.name.c_str(), reason.c_str()),
                   "Vellum");
    return false;
}

// --- CSyncFolder -------------------------------------------------------------------------------------

int CSyncFolder::SyncFolder(const std::string& source, const std::string& target, bool, bool,
                            bool findDeletions) {
    if (m_stoppedByGuard || m_walkCancelled) return 0;
    m_findDeletions = findDeletions;
    m_sourceSyncTime = m_targetSyncTime = {};
    m_lastSyncSource = m_lastSyncTarget = {};
    m_thisRun = UtcNow();
    m_cancelled = 0;
    m_tags.Clear();
    m_pairKey.clear();
    m_targetDiffers = false;
    m_ownWrites.Clear();
    m_inConflict.clear();
    m_unlinkedSame.clear();
    m_writtenRows.Drop();
    m_sourceData.Clear();
    m_targetData.Clear();
    CSyncRun run(*this);
    m_run = &run;
    const int answer = run.Run(source, target);
    m_run = nullptr;
    m_sourceMemory = m_targetMemory = nullptr;
    m_batchFrom = nullptr;
    return answer;
}

void CSyncFolder::ReadLastSyncTimes(const IMAPIFolderPtr& sourceFolder) {
    IMessagePtr settings;
    try {
        settings = GetConfigMsg(sourceFolder);
    } catch (const CMAPIException& e) {
        ++m_outcome.phasesFailed;
        ReportException(e, "Opening config message");
    } catch (...) {
        ++m_outcome.phasesFailed;
        ShowMessageBox("Error opening config message\nError in Line", "Tarn");
    }
    if (!settings) return;
    const auto read = [&](const wchar_t* name, FILETIME& time, const char* reported, const char* crashed) {
        try {
            time = ReadTime(settings, name);
        } catch (const CMAPIException& e) {
            ++m_outcome.phasesFailed;
            ReportException(e, reported);
        } catch (...) {
            ++m_outcome.phasesFailed;
            ShowMessageBox(crashed, "Tarn");
        }
    };
    read(L"VellumTimeSource", m_lastSyncSource, "Reading last sync time Source",
         "Error reading last sync time Tource");
    read(L"VellumTimeTarget", m_lastSyncTarget, "Reading last sync time Target",
         "Error reading last sync time Target");
}

bool CSyncFolder::HasLost() const {
    return m_run && m_run->HasLost();
}

bool CSyncFolder::PollCancelled() {
    if (m_progress) m_cancelled = m_progress->IsCancelled();
    if (m_cancelled) m_outcome.cancelled = m_walkCancelled = true;
    return m_cancelled != 0;
}
