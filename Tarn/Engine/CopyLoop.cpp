// Turning the list of one side into changes of the other.
#include <MapiWrapper/HexText.h>
#include <Tarn/Engine/ElementCopy.h>

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

private:
    // A row that the next run would not see again, because its item did not change since.
    struct CFailedRow {
        CSyncMessage* row;
        CEmptiedTarget emptied;  // its target, if that was left without contents
    };

    bool PollRow(size_t index);
    void DoRow(CSyncMessage& row);
    void CopyNew(CSyncMessage& row);
    void CopyChanged(CSyncMessage& row);
    void DeleteTarget(const CSyncMessage& row);
    void AddToProtocol(const CSyncMessage& row);

    RowResult TransferNew(CSyncMessage& row, std::string& status, bool quiet);
    RowResult TransferChanged(CSyncMessage& row, std::string& status, bool quiet, CEmptiedTarget& emptied);
    void ReportOpening(const CMAPIException& e, const CSyncMessage& row, const char* context);
    void RetryFailed();
    bool RetryRow(CSyncMessage& row);
    bool RefillTarget(CFailedRow& failed);

    const CCopyRoute& m_route;
    CSyncFolder& m_engine;
    CSyncMessages& m_list;
    const std::string& m_sourceName;
    const std::string& m_targetName;
    std::string m_status;  // not cleared between rows: a row without one repeats the former
    std::vector<CFailedRow> m_failed;
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
        for (const IMAPIFolderPtr* folder : {&m_route.sourceFolder, &m_route.targetFolder})
            folder->GetProps({PR_DISPLAY_NAME_A, PR_ENTRYID});
        engine.TraceFolder(m_route.sourceFolder, "Source");
        engine.TraceFolder(m_route.targetFolder, "Target");
        if (engine.IsTracing()) engine.TraceModifications(m_list);
        TraceText(engine.m_traceFile, "CopyModified Elements\n");
        TraceText(engine.m_traceFile, "Init Del Arrays\n");
        MARK_POSITION();
        engine.InitDelArrays(targetStore, m_route.targetFolder, DeletionBatchCapacity);
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
    try {
        for (size_t i = 0; i < m_list.Count(); ++i) {
            TraceFormat(m_engine.m_traceFile, "Element %d\n", static_cast<int>(i));
            if (!PollRow(i)) break;
            CSyncMessage& row = m_list.At(i);
            const size_t failedBefore = m_failed.size();
            DoRow(row);
            AddToProtocol(row);
            if (m_failed.size() == failedBefore) m_list.Drop(i);  // while the protocol grows by as much
        }
    } catch (...) {
        m_engine.NoteUnsure();
        TraceText(m_engine.m_traceFile, "Error ");
    }
    RetryFailed();
}

bool CCopyPass::PollRow(size_t index) {
    CSyncProgress* progress = m_engine.m_progress;
    if (progress && index % RowsPerPoll == 0) m_engine.PollCancelled();
    if (m_engine.m_cancelled) return false;
    if (progress) progress->StepMessage();
    return true;
}

void CCopyPass::DoRow(CSyncMessage& row) {
    try {
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

void CCopyPass::AddToProtocol(const CSyncMessage& row) {
    if (!m_engine.m_protocol) return;
    try {
        m_engine.m_protocol->Add(m_targetName, m_sourceName, row.m_name, static_cast<int>(row.m_state),
                                 m_status, row.m_syncId);
    } catch (...) {
        TraceText(m_engine.m_traceFile, "Error writing to protocol");
    }
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

RowResult CCopyPass::TransferNew(CSyncMessage& row, std::string& status, bool quiet) {
    CRowMessage message(row, m_route);
    if (m_engine.IsSkippedPrivate(message.Get())) return RowResult::Done;
    CElementCopy element(m_route, row, message.Get(), status, quiet);
    element.Run(nullptr, false, row.m_state == STATE_NEW);
    return element.Result();
}

void CCopyPass::CopyNew(CSyncMessage& row) {
    TraceFormat(m_engine.m_traceFile, "New object: %s\n", row.m_name.c_str());
    RowResult result = RowResult::NotSaved;
    try {
        result = TransferNew(row, m_status, false);
    } catch (const CMAPIException& e) {
        ReportOpening(e, row, row.m_state == STATE_MOVED ? "CSyncFolder::SyncModifiedElement" : nullptr);
    }
    if (result == RowResult::NotSaved) m_failed.push_back({&row, {}});
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
        result = TransferChanged(row, m_status, false, emptied);
    } catch (const CMAPIException& e) {
        ReportOpening(e, row, "SYNC_MODIFIED");
    }
    if (result == RowResult::NotSaved || !emptied.entryId.IsEmpty())
        m_failed.push_back({&row, std::move(emptied)});
}

void CCopyPass::ReportOpening(const CMAPIException& e, const CSyncMessage& row, const char* context) {
    m_engine.NoteRowFailed();
    if (m_engine.IsTracing())
        TraceFormat(m_engine.m_traceFile, "Error opening Message %s\n", row.m_entryId.Hex().c_str());
    if (context) ReportException(e, context);
}

void CCopyPass::DeleteTarget(const CSyncMessage& row) {
    // An empty ID is that of every item that was never linked.
    const int targetRow = row.m_syncId.empty() ? -1 : m_route.targetRows.FindRow(COL_SYNC_ID, row.m_syncId);
    if (targetRow >= 0) {
        m_status = LoadText(TEXT_DELETED);
        const CMapiPropValue entryId = m_route.targetRows.Cell(static_cast<ULONG>(targetRow), COL_ENTRYID);
        m_engine.AddToDelArray(entryId.Binary(), m_route.targetFolder, BATCH_DELETED);
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
        const unsigned failedBefore = m_engine.m_outcome.rowsFailed;
        bool carried = false;
        try {
            carried = failed.emptied.entryId.IsEmpty() ? RetryRow(*failed.row) : RefillTarget(failed);
        } catch (...) {
            TraceFormat(m_engine.m_traceFile, "Second try failed: %s\n", failed.row->m_name.c_str());
        }
        m_engine.m_outcome.rowsFailed = failedBefore - (carried && failedBefore > 0 ? 1 : 0);
    }
}

bool CCopyPass::RetryRow(CSyncMessage& row) {
    std::string status;
    if (row.m_state != STATE_MODIFIED) return TransferNew(row, status, true) == RowResult::Done;
    CEmptiedTarget emptied;
    const RowResult result = TransferChanged(row, status, true, emptied);
    if (emptied.entryId.IsEmpty()) return result == RowResult::Done;
    RestoreVersion(m_engine, m_route.targetFolder, emptied.entryId, emptied.kept);
    return false;
}

// Where the contents still do not come, the target gets back what it held: it then stands there like that
// of any row that failed, and the run after this one finds the source changed and the target not.
bool CCopyPass::RefillTarget(CFailedRow& failed) {
    const CEmptiedTarget& emptied = failed.emptied;
    try {
        std::string status;
        CRowMessage message(*failed.row, m_route);
        const SBinary entryId = emptied.entryId;
        CResync resync(m_engine, m_route.targetFolder, entryId);
        resync.RequireContents();
        resync.Run(message.Get(), status);
        return true;
    } catch (...) {
        RestoreVersion(m_engine, m_route.targetFolder, emptied.entryId, emptied.kept);
        return false;
    }
}
}  // namespace

// ---- the operations of the class ------------------------------------------------------------------

void CSyncFolder::CopyModifiedElements(CSyncMessages& list, const IMAPIFolderPtr& sourceFolder,
                                       const IMAPIFolderPtr& targetFolder, const CMapiRowSet& sourceRows,
                                       const CMapiRowSet& targetRows, CSyncFileMap&, const IMsgStorePtr&,
                                       const IMsgStorePtr& targetStore, const std::string& sourceName,
                                       const std::string& targetName) {
    if (list.IsEmpty()) return;
    const CCopyRoute route{*this, sourceFolder, targetFolder, sourceRows, targetRows};
    CCopyPass pass(route, list, sourceName, targetName);
    pass.SetUp(targetStore);
    pass.Run();
    try {
        FlushDelArrays(targetStore, targetFolder);
    } catch (...) {
        TraceFormat(m_traceFile, "Crash in %d", CurrentPosition().line);
    }
}

void CSyncFolder::SyncModifiedElement(CSyncMessage& row, IMessagePtr& sourceMessage, CSyncFileMap&,
                                      const CMapiRowSet& sourceRows, const CMapiRowSet& targetRows,
                                      const IMAPIFolderPtr& sourceFolder, const IMAPIFolderPtr& targetFolder,
                                      CSyncTargetRecord* record, bool useRowSyncId, std::string& status,
                                      bool allowSearch) {
    const CCopyRoute route{*this, sourceFolder, targetFolder, sourceRows, targetRows};
    CElementCopy(route, row, sourceMessage, status, false).Run(record, useRowSyncId, allowSearch);
}

RowResult CopyChangedRow(const CCopyRoute& route, CSyncMessage& row, IMessagePtr& source, std::string& status,
                         bool quiet, CEmptiedTarget& emptied) {
    CSyncFolder& engine = route.engine;
    const int targetRow =
        FreeRow(route, row.m_syncId.empty() ? -1 : route.targetRows.FindRow(COL_SYNC_ID, row.m_syncId));
    try {
        if (targetRow < 0) {
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
    const CCopyRoute route{*this, sourceFolder, targetFolder, sourceRows, targetRows};
    CEmptiedTarget emptied;
    CopyChangedRow(route, row, sourceMessage, status, false, emptied);
}

bool CSyncFolder::IsSkippedPrivate(IMessagePtr& message) {
    return HasFlag(SYNC_SKIP_PRIVATE) && ReadItemFacts(*this, message).IsPrivateAppointment();
}

IMessagePtr CSyncFolder::OpenRowMessage(CSyncMessage& row, const IMAPIFolderPtr& sourceFolder,
                                        const IMAPIFolderPtr&) {
    return row.m_message ? IMessagePtr(row.m_message.Get()) : OpenMessage(sourceFolder, row.m_entryId);
}

void CSyncFolder::DeleteRowEntry(const IMAPIFolderPtr& folder, const SBinary& entryId,
                                 const IMAPIFolderPtr& overwriteFolder) {
    MoveAside(folder, entryId, overwriteFolder) ? NoteRemoved(entryId) : NoteUnsure();
}
