// Turning the list of one side into changes of the other.
#include <MapiWrapper/HexText.h>
#include <Tarn/Engine/ElementCopy.h>

#include <algorithm>
#include <optional>
#include <vector>

namespace {
constexpr int RowsPerPoll = 8;

// One pass over one list. A row that fails never ends it.
class CCopyPass {
public:
    CCopyPass(const CCopyRoute& route, CSyncMessages& list, const std::string& sourceName,
              const std::string& targetName)
        : m_route(route),
          m_engine(route.engine),
          m_list(list),
          m_sourceName(sourceName),
          m_targetName(targetName) {}

    void SetUp(const IMsgStorePtr& targetStore);
    void Run();
    void FlushDeletions(const IMsgStorePtr& targetStore);

private:
    // A row that the next run would not see again, because its item did not change since.
    struct CFailedRow {
        CSyncMessage* row;
        CEmptiedTarget emptied;  // its target, if that was left without contents
        size_t entry;            // in the protocol
    };
    // A deletion that waits in its batch.
    struct CDeletion {
        CItemKey item;
        size_t entry;
    };

    bool PollRow(size_t index);
    void FinishLinks();
    void DropDone();
    void DoRow(CSyncMessage& row);
    void CopyNew(CSyncMessage& row);
    void CopyChanged(CSyncMessage& row);
    void DeleteTarget(const CSyncMessage& row);
    void TellFailure(const CSyncMessage& row, const CSyncOutcome& before);
    void AddToProtocol(const CSyncMessage& row);
    std::string DoneWith(const CSyncMessage& row) const;
    size_t NextEntry() const { return m_engine.m_protocol ? m_engine.m_protocol->Count() : 0; }
    void SetDone(size_t entry, const std::string& done);

    RowResult TransferNew(CSyncMessage& row, std::string& status, bool quiet);
    RowResult TransferChanged(CSyncMessage& row, std::string& status, bool quiet, CEmptiedTarget& emptied);
    void ReportOpening(const CMAPIException& e, const CSyncMessage& row, const char* context);
    void RetryFailed();
    void LeaveAsItWas(CFailedRow& failed);
    bool RetryRow(CSyncMessage& row, std::string& done);
    bool RefillTarget(CFailedRow& failed, std::string& done);
    void GiveBack(const CEmptiedTarget& emptied);

    const CCopyRoute& m_route;
    CSyncFolder& m_engine;
    CSyncMessages& m_list;
    const std::string& m_sourceName;
    const std::string& m_targetName;
    std::vector<size_t> m_doneRows;  // whose links are not finished yet
    std::string m_done;              // what happened to the row at hand
    std::string m_detail;            // not cleared between rows: a row without one repeats the former
    const std::string m_asNew = LoadText(TEXT_COPIED_AS_NEW);
    const std::string m_targetMissing = LoadText(TEXT_TARGET_MISSING);
    size_t m_firstEntry = 0;  // in the protocol, which has one for each row of the list
    std::vector<CFailedRow> m_failed;
    std::vector<CDeletion> m_deletions;
};

// ---- frame ----------------------------------------------------------------------------------------

void CCopyPass::SetUp(const IMsgStorePtr& targetStore) {
    CSyncFolder& engine = m_engine;
    // What the pass in the other direction left must not serve this one if anything below fails.
    engine.ForgetWritten();
    engine.m_overwriteFolder = IMAPIFolderPtr();
    engine.m_deletionStore = targetStore;
    engine.m_deletionFolder = m_route.targetFolder;
    try {
        MARK_POSITION();
        // First of all: what is replaced while there is no place for it would be lost.
        engine.InitDelArrays(targetStore, m_route.targetFolder, DeletionBatchCapacity);
        engine.TraceFolder(m_route.sourceFolder, "Source");
        engine.TraceFolder(m_route.targetFolder, "Target");
        if (engine.IsTracing()) engine.TraceModifications(m_list);
        TraceText(engine.m_traceFile, "CopyModified Elements\n");
        TraceText(engine.m_traceFile, "Init Del Arrays\n");
        TraceText(engine.m_traceFile, "Starting copy loop\n");
        if (!engine.m_progress) return;
        engine.m_progress->SetMessageText("Copying");
        engine.m_progress->SetMessageRange(1, static_cast<int>(m_list.Count()));
    } catch (const CMAPIException& e) {
        ReportException(e, "CopyModifiedElements");
    } catch (...) {
        TraceFormat(engine.m_traceFile, "Crash in line %d\n", CurrentPosition().line);
    }
}

void CCopyPass::Run() {
    m_firstEntry = NextEntry();
    try {
        for (size_t i = 0; i < m_list.Count(); ++i) {
            TraceFormat(m_engine.m_traceFile, "Element %d\n", static_cast<int>(i));
            if (!PollRow(i)) break;
            CSyncMessage& row = m_list.At(i);
            const size_t failedBefore = m_failed.size();
            CSyncOutcome before = m_engine.m_outcome;
            const unsigned linksFailedBefore = m_route.links.Failures();
            m_done.clear();
            DoRow(row);
            before.rowsFailed += m_route.links.Failures() - linksFailedBefore;  // of rows before this one
            TellFailure(row, before);
            AddToProtocol(row);
            if (m_failed.size() == failedBefore) m_doneRows.push_back(i);
            DropDone();
        }
    } catch (...) {
        m_engine.NoteUnsure();
        TraceText(m_engine.m_traceFile, "Error ");
    }
    FinishLinks();
    RetryFailed();
    FinishLinks();
}

void CCopyPass::FinishLinks() {
    m_route.links.Finish();
    DropDone();
}

// While the protocol grows by as much. A row whose copy is gone before it could be linked is carried again.
void CCopyPass::DropDone() {
    const auto entryOf = [this](CSyncMessage* row) {
        for (const CFailedRow& failed : m_failed)
            if (failed.row == row) return failed.entry;
        for (const size_t index : m_doneRows)
            if (&m_list.At(index) == row) return m_firstEntry + index;
        return m_firstEntry + m_list.Count();
    };
    for (CSyncMessage* unlinked : m_route.links.TakeUnlinked())
        SetDone(entryOf(unlinked), LoadText(TEXT_COPIED_NOT_WHOLE));
    for (CSyncMessage* lost : m_route.links.TakeLost()) {
        m_failed.push_back({lost, {}, entryOf(lost)});
        std::erase_if(m_doneRows, [&](size_t row) { return &m_list.At(row) == lost; });
    }
    if (!m_route.links.IsEmpty()) return;
    for (const size_t row : m_doneRows)
        m_list.Drop(row);
    m_doneRows.clear();
}

bool CCopyPass::PollRow(size_t index) {
    CSyncProgress* progress = m_engine.m_progress;
    if (progress && index % RowsPerPoll == 0) m_engine.PollCancelled();
    if (m_engine.m_cancelled || m_engine.HasLost()) return false;
    if (progress) progress->StepMessage();
    return true;
}

void CCopyPass::DoRow(CSyncMessage& row) {
    try {
        // Found by the other direction to be the counterpart of an item there, and given its contents.
        if (m_engine.m_ownWrites.IsTarget(row.m_item)) return;
        if (m_engine.m_ownWrites.IsRemoved(row.m_item)) {
            m_done = LoadText(TEXT_CHANGE_DELETED);
            return;
        }
        switch (row.m_state) {
            case STATE_NEW:
            case STATE_MOVED:
                return CopyNew(row);
            case STATE_MODIFIED:
                return CopyChanged(row);
            case STATE_DELETED:
                return DeleteTarget(row);
            default:
                return;
        }
    } catch (...) {
        m_engine.NoteRowFailed();
        TraceFormat(m_engine.m_traceFile, "Crash in %d", static_cast<int>(row.m_state));
    }
}

namespace {
unsigned ChangesIn(const CSyncOutcome& outcome) {
    return outcome.sourceChanged + outcome.targetChanged;
}
}  // namespace

// What a row set out to do is not what was done.
void CCopyPass::TellFailure(const CSyncMessage& row, const CSyncOutcome& before) {
    const CSyncOutcome& now = m_engine.m_outcome;
    if (now.rowsFailed == before.rowsFailed) return;
    if (m_done == LoadText(TEXT_NOT_LINKED_RETRIED) || m_done == LoadText(TEXT_NOT_LINKED_STAYS)) return;
    m_done = LoadText(row.m_state == STATE_DELETED         ? TEXT_NOT_DELETED
                      : ChangesIn(now) > ChangesIn(before) ? TEXT_COPIED_NOT_WHOLE
                                                           : TEXT_NOT_COPIED);
}

void CCopyPass::AddToProtocol(const CSyncMessage& row) {
    if (!m_engine.m_protocol) return;
    try {
        const bool isPlain = m_done.empty() || m_done == m_targetMissing;
        if (!isPlain && (m_detail.empty() || m_done != m_asNew)) m_detail = m_done;
        m_engine.m_protocol->Add({m_targetName, m_sourceName, row.m_name, m_detail,
                                  static_cast<int>(row.m_state), row.m_syncId, DoneWith(row),
                                  m_engine.WritesToSource()});
    } catch (...) {
        TraceText(m_engine.m_traceFile, "Error writing to protocol");
    }
}

// What stays as it is tells why.
std::string CCopyPass::DoneWith(const CSyncMessage& row) const {
    const bool stays = row.m_state == STATE_NONE || row.m_state == STATE_CONFLICT;
    return stays && row.m_settled != 0 ? LoadText(row.m_settled) : m_done;
}

void CCopyPass::SetDone(size_t entry, const std::string& done) {
    if (m_engine.m_protocol && entry < m_engine.m_protocol->Count())
        m_engine.m_protocol->SetDone(entry, done);
}

void CCopyPass::FlushDeletions(const IMsgStorePtr& targetStore) {
    if (m_engine.HasLost()) {
        for (const CDeletion& deletion : m_deletions)
            SetDone(deletion.entry, LoadText(TEXT_NOT_DELETED));
        return;
    }
    // A row that failed and was tried again may have been given to one of these.
    for (const CDeletion& deletion : m_deletions)
        if (m_engine.TakeFromDelArray(deletion.item))
            SetDone(deletion.entry, LoadText(TEXT_DELETION_OUTDATED));
    try {
        m_engine.FlushDelArrays(targetStore, m_route.targetFolder);
    } catch (...) {
        TraceFormat(m_engine.m_traceFile, "Crash in %d", CurrentPosition().line);
    }
    if (m_engine.NotRemoved().empty()) return;
    for (const CDeletion& deletion : m_deletions)
        if (m_engine.NotRemoved().count(std::string(deletion.item.View().Bytes())))
            SetDone(deletion.entry, LoadText(TEXT_NOT_DELETED));
}

// ---- rows -----------------------------------------------------------------------------------------

// Gives the row's message back when the row is done, whatever became of it.
class CRowMessage {
public:
    CRowMessage(CSyncMessage& row, const CCopyRoute& route)
        : m_row(row), m_message(route.engine.OpenRowMessage(row, route.sourceFolder, route.targetFolder)) {}
    ~CRowMessage() { m_row.m_message.Free(); }
    CRowMessage(const CRowMessage&) = delete;
    CRowMessage& operator=(const CRowMessage&) = delete;
    IMessagePtr& Get() { return m_message; }

private:
    CSyncMessage& m_row;
    IMessagePtr m_message;
};

namespace {
// A query that asks for texts does not show the stripped copy of what it chose: the copy has none. It is
// linked as ever, and without it each change would leave one more beside it. No memory tells of what stands
// outside the query, so what somebody did to the copy counts as an edit that was never carried.
std::optional<RowResult> RewriteCopyBesideQuery(const CCopyRoute& route, const CSyncMessage& row,
                                                IMessagePtr& source, std::string& status, bool quiet,
                                                CEmptiedTarget& emptied) {
    CSyncFolder& engine = route.engine;
    if (!engine.m_stripPrivate || !engine.HasQuery()) return {};
    if (row.m_syncId.empty() || !row.m_searchKey.IsEmpty()) return {};  // not linked
    if (route.targetRows.FindRow(COL_SYNC_ID, row.m_syncId) >= 0) return {};
    const IMAPITablePtr table = route.targetFolder._rawContentsTable();
    SPropValue syncId{};
    syncId.ulPropTag = engine.TagsOf(route.targetFolder.RawProp()).larchId;
    syncId.Value.lpszA = const_cast<char*>(row.m_syncId.c_str());
    SRestriction linked{};
    linked.rt = RES_PROPERTY;
    linked.res.resProperty = {RELOP_EQ, syncId.ulPropTag, &syncId};
    table.Restrict(&linked, TBL_BATCH);
    CMapiRowSet rows;
    engine.QuerySyncRows(rows, route.targetFolder, table);
    for (ULONG at = 0; at < rows.Count(); ++at) {
        if (LinkOfRow(rows, at) != row.m_syncId || engine.WasWritten(KeyOfRow(rows, at))) continue;
        IMessagePtr copy = OpenMessage(route.targetFolder, KeyOfRow(rows, at));
        if (!engine.IsMarkedPrivate(copy)) continue;
        engine.NoteUncarried(row.m_syncId);
        const CCopyRoute beside{engine, route.sourceFolder, route.targetFolder, route.sourceRows,
                                rows,   route.links};
        return RewriteTarget(beside, at, source, status, quiet, emptied);
    }
    return {};
}
}  // namespace

RowResult CCopyPass::TransferNew(CSyncMessage& row, std::string& status, bool quiet) {
    CRowMessage message(row, m_route);
    if (m_engine.IsSkippedPrivate(message.Get())) return RowResult::Done;
    CEmptiedTarget emptied;
    if (const auto result = RewriteCopyBesideQuery(m_route, row, message.Get(), status, quiet, emptied)) {
        if (emptied.item.IsEmpty()) return *result;
        GiveBack(emptied);
        return RowResult::NotSaved;
    }
    CElementCopy element(m_route, row, message.Get(), status, quiet);
    element.Run(nullptr, false, row.m_state == STATE_NEW);
    return element.Result();
}

void CCopyPass::CopyNew(CSyncMessage& row) {
    TraceFormat(m_engine.m_traceFile, "New object: %s\n", row.m_name.c_str());
    RowResult result = RowResult::NotSaved;
    try {
        result = TransferNew(row, m_done, false);
    } catch (const CMAPIException& e) {
        ReportOpening(e, row, row.m_state == STATE_MOVED ? "CSyncFolder::SyncModifiedElement" : nullptr);
    }
    if (result == RowResult::NotSaved) m_failed.push_back({&row, {}, NextEntry()});
}

RowResult CCopyPass::TransferChanged(CSyncMessage& row, std::string& status, bool quiet,
                                     CEmptiedTarget& emptied) {
    CRowMessage message(row, m_route);
    if (m_engine.IsSkippedPrivate(message.Get())) return RowResult::Done;
    return CopyChangedRow(m_route, row, message.Get(), status, quiet, emptied);
}

void CCopyPass::CopyChanged(CSyncMessage& row) {
    TraceFormat(m_engine.m_traceFile, "Source modified: %s\n", row.m_name.c_str());
    RowResult result = RowResult::NotSaved;
    CEmptiedTarget emptied;
    try {
        result = TransferChanged(row, m_done, false, emptied);
    } catch (const CMAPIException& e) {
        ReportOpening(e, row, "SYNC_MODIFIED");
    }
    if (result == RowResult::NotSaved || !emptied.item.IsEmpty())
        m_failed.push_back({&row, std::move(emptied), NextEntry()});
}

void CCopyPass::ReportOpening(const CMAPIException& e, const CSyncMessage& row, const char* context) {
    m_engine.NoteRowFailed();
    if (m_engine.IsTracing())
        TraceFormat(m_engine.m_traceFile, "Error opening Message %s\n", row.m_item.Hex().c_str());
    if (context) ReportException(e, context);
}

void CCopyPass::DeleteTarget(const CSyncMessage& row) {
    // An empty ID is that of every item that was never linked.
    const int targetRow = row.m_syncId.empty() ? -1 : m_route.targetRows.FindRow(COL_SYNC_ID, row.m_syncId);
    m_done = m_targetMissing;
    if (targetRow >= 0) {
        const CItemKeyView item = KeyOfRow(m_route.targetRows, static_cast<ULONG>(targetRow));
        const bool waits = m_engine.AddToDelArray(item, m_route.targetFolder, BATCH_DELETED);
        m_done = LoadText(waits ? TEXT_DELETED : TEXT_DELETION_OUTDATED);
        if (waits) {
            m_deletions.push_back({item, NextEntry()});
            m_engine.ForgetUncarried(row.m_syncId);
        }
    }
    TraceFormat(m_engine.m_traceFile,
                targetRow >= 0 ? "Objekt deleted %s\n" : "Objekt deleted %s but target not found\n",
                row.m_name.c_str());
}

// ---- rows that failed -----------------------------------------------------------------------------

// The state written at the end of the run describes these items as they are, so no later run would find
// them changed and their other side would stay behind for good. They get one more try here, when what
// was in the way may have passed, and without a second report.
void CCopyPass::RetryFailed() {
    for (CFailedRow& failed : m_failed) {
        if (m_engine.m_cancelled || m_engine.HasLost() || m_engine.PollCancelled()) {
            LeaveAsItWas(failed);
            continue;
        }
        const unsigned failedBefore = m_engine.m_outcome.rowsFailed;
        std::string done;
        bool carried = false;
        try {
            carried =
                failed.emptied.item.IsEmpty() ? RetryRow(*failed.row, done) : RefillTarget(failed, done);
        } catch (...) {
            TraceFormat(m_engine.m_traceFile, "Second try failed: %s\n", failed.row->m_name.c_str());
        }
        m_engine.m_outcome.rowsFailed = failedBefore - (carried && failedBefore > 0 ? 1 : 0);
        SetDone(failed.entry, carried ? done : LoadText(TEXT_NOT_COPIED));
    }
}

// Nothing more is carried. But an emptied target would win as the later version, so it gets back what it
// held.
void CCopyPass::LeaveAsItWas(CFailedRow& failed) {
    SetDone(failed.entry, LoadText(TEXT_NOT_COPIED));
    if (failed.emptied.item.IsEmpty()) return;
    try {
        GiveBack(failed.emptied);
    } catch (...) {
        TraceFormat(m_engine.m_traceFile, "Not restored: %s\n", failed.row->m_name.c_str());
    }
}

bool CCopyPass::RetryRow(CSyncMessage& row, std::string& done) {
    if (row.m_state != STATE_MODIFIED) return TransferNew(row, done, true) == RowResult::Done;
    CEmptiedTarget emptied;
    const RowResult result = TransferChanged(row, done, true, emptied);
    if (emptied.item.IsEmpty()) return result == RowResult::Done;
    GiveBack(emptied);
    return false;
}

// Where the contents still do not come, the target gets back what it held: it then stands there like that
// of any row that failed, and the run after this one finds the source changed and the target not.
bool CCopyPass::RefillTarget(CFailedRow& failed, std::string& done) {
    const CEmptiedTarget& emptied = failed.emptied;
    try {
        CRowMessage message(*failed.row, m_route);
        CResync resync(m_engine, m_route.targetFolder, emptied.item);
        resync.RequireContents();
        resync.Run(message.Get(), done);
        m_engine.NoteNotChanged();  // it was counted when it was emptied
        return true;
    } catch (...) {
        GiveBack(emptied);
        return false;
    }
}

void CCopyPass::GiveBack(const CEmptiedTarget& emptied) {
    RestoreVersion(m_engine, m_route.targetFolder, emptied.item, emptied.kept);
    m_engine.NoteNotChanged();
}
}  // namespace

// ---- the operations of the class ------------------------------------------------------------------

void CSyncFolder::CopyModifiedElements(CSyncMessages& list, const IMAPIFolderPtr& sourceFolder,
                                       const IMAPIFolderPtr& targetFolder, const CMapiRowSet& sourceRows,
                                       const CMapiRowSet& targetRows, CSyncFileMap&, const IMsgStorePtr&,
                                       const IMsgStorePtr& targetStore, const std::string& sourceName,
                                       const std::string& targetName) {
    if (list.IsEmpty()) return;
    CPendingLinks links(*this, targetFolder);
    const CCopyRoute route{*this, sourceFolder, targetFolder, sourceRows, targetRows, links};
    CCopyPass pass(route, list, sourceName, targetName);
    pass.SetUp(targetStore);
    pass.Run();
    pass.FlushDeletions(targetStore);
}

void CSyncFolder::SyncModifiedElement(CSyncMessage& row, IMessagePtr& sourceMessage, CSyncFileMap&,
                                      const CMapiRowSet& sourceRows, const CMapiRowSet& targetRows,
                                      const IMAPIFolderPtr& sourceFolder, const IMAPIFolderPtr& targetFolder,
                                      CSyncTargetRecord* record, bool useRowSyncId, std::string& status,
                                      bool allowSearch) {
    CPendingLinks links(*this, targetFolder);
    const CCopyRoute route{*this, sourceFolder, targetFolder, sourceRows, targetRows, links};
    CElementCopy(route, row, sourceMessage, status, false).Run(record, useRowSyncId, allowSearch);
}

RowResult CopyChangedRow(const CCopyRoute& route, CSyncMessage& row, IMessagePtr& source, std::string& status,
                         bool quiet, CEmptiedTarget& emptied) {
    CSyncFolder& engine = route.engine;
    const int targetRow =
        FreeRow(route, row.m_syncId.empty() ? -1 : route.targetRows.FindRow(COL_SYNC_ID, row.m_syncId));
    try {
        if (targetRow < 0) {
            if (const auto result = RewriteCopyBesideQuery(route, row, source, status, quiet, emptied))
                return *result;
            TraceFormat(engine.m_traceFile,
                        "Warning: Modified Element: sid %s not found. Creating new element\n",
                        row.m_syncId.c_str());
            CElementCopy element(route, row, source, status, quiet);
            element.Run(nullptr, false, true);
            return element.Result();
        }
    } catch (const CMAPIException& e) {
        engine.NoteRowFailed();
        if (!quiet) ReportException(e, "CSyncFolder::SyncModifiedElement");
        return RowResult::NotSaved;
    } catch (...) {
        engine.NoteRowFailed();
        return RowResult::NotSaved;
    }
    return RewriteTarget(route, static_cast<ULONG>(targetRow), source, status, quiet, emptied);
}

void CSyncFolder::SyncChangedRow(IMessagePtr& sourceMessage, CSyncMessage& row,
                                 const IMAPIFolderPtr& sourceFolder, const IMAPIFolderPtr& targetFolder,
                                 const CMapiRowSet& sourceRows, const CMapiRowSet& targetRows, CSyncFileMap&,
                                 std::string& status) {
    CPendingLinks links(*this, targetFolder);
    const CCopyRoute route{*this, sourceFolder, targetFolder, sourceRows, targetRows, links};
    CEmptiedTarget emptied;
    CopyChangedRow(route, row, sourceMessage, status, false, emptied);
}

bool CSyncFolder::IsSkippedPrivate(IMessagePtr& message) {
    return HasFlag(SYNC_SKIP_PRIVATE) && ReadItemFacts(*this, message).IsPrivateAppointment();
}

IMessagePtr CSyncFolder::OpenRowMessage(CSyncMessage& row, const IMAPIFolderPtr& sourceFolder,
                                        const IMAPIFolderPtr&) {
    if (row.m_message) return IMessagePtr(row.m_message.Get());
    // Removed by the copy loop in the other direction. Where a move keeps the entry ID it would still open.
    if (m_ownWrites.IsRemoved(row.m_item))
        throw CMAPIException(MAPI_E_NOT_FOUND, "CGenMapiContPtr::OpenEntryv", nullptr);
    return OpenMessage(sourceFolder, row.m_item);
}

void CSyncFolder::DeleteRowEntry(const IMAPIFolderPtr& folder, const CItemKeyView& item,
                                 const IMAPIFolderPtr& overwriteFolder) {
    MoveAside(folder, item, overwriteFolder) ? NoteRemoved(item) : NoteUnsure();
}
