#include <Tarn/Engine/ElementCopy.h>
#include <Tarn/Engine/StrippedCopy.h>

#include <vector>

bool CSyncFolder::IsMarkedPrivate(IMessagePtr& message) {
    CMapiPropValue mark;
    const HRESULT hr = message.GetOneProp(TagsOf(message.RawProp()).privateMark, mark);
    if (hr == MAPI_E_NOT_FOUND) return false;
    THROW_ON_FAILURE_FOR(hr, message.RawProp());
    return mark.Long() == 1;
}

namespace {
// A store without such a table has nothing in it; any other refusal would let old contents survive
// beside the new.
bool GotTable(HRESULT hr, const IMAPITablePtr& table, const IMessagePtr& message) {
    if (hr != MAPI_E_NO_SUPPORT) THROW_ON_FAILURE_FOR(hr, message.RawProp());
    return table.IsValid();
}

void RemoveRecipients(IMessagePtr& message) {
    IMAPITablePtr table;
    if (!GotTable(message->GetRecipientTable(0, table.Out()), table, message)) return;
    const CMapiRowSet rows = table.QueryRows({PR_ROWID});
    if (rows.Count() == 0) return;
    THROW_ON_FAILURE_FOR(message->ModifyRecipients(MODRECIP_REMOVE, reinterpret_cast<LPADRLIST>(rows.Get())),
                         message.RawProp());
}

void RemoveAttachments(IMessagePtr& message) {
    IMAPITablePtr table;
    if (!GotTable(message->GetAttachmentTable(0, table.Out()), table, message)) return;
    const CMapiRowSet rows = table.QueryRows({PR_ATTACH_NUM});
    for (ULONG i = 0; i < rows.Count(); ++i)
        THROW_ON_FAILURE_FOR(message->DeleteAttach(static_cast<ULONG>(rows.Cell(i, 0).Long()), 0, nullptr, 0),
                             message.RawProp());
}
}  // namespace

void CSyncFolder::RemoveContents(IMessagePtr& message) {
    RemoveRecipients(message);
    RemoveAttachments(message);
    SPropTagArray* tags = nullptr;
    if (message->GetPropList(0, &tags) < 0 || !tags) return;
    message->DeleteProps(tags, nullptr);
    MAPIFreeBuffer(tags);
}

// ---- a target whose identity is known -------------------------------------------------------------

void CResync::Run(IMessagePtr& source, std::string& status) {
    const CItemFacts facts = ReadItemFacts(m_engine, source);
    ChooseTarget(source, facts);
    status = LoadText(TEXT_TARGET_REWRITTEN);
    facts.markedPrivate ? GiveBack(source) : Fill(source, facts);
    Save(source, facts);
    m_result = RowResult::Done;
}

// The original of a stripped copy holds all that the copy has not: it is opened, or the row fails.
void CResync::ChooseTarget(IMessagePtr& source, const CItemFacts& facts) {
    if (!m_engine.HasFlag(SYNC_ALWAYS_RENEW))
        m_target = facts.markedPrivate ? OpenMessage(m_targetFolder, m_targetItem)
                                       : TryOpenMessage(m_targetFolder, m_targetItem);
    m_isNew = !m_target;
    if (m_isNew) {
        RequirePlaceForOld(m_engine, m_targetFolder);
        m_target = m_targetFolder.CreateMessage(nullptr, 0);
    } else {
        KeepWhatMayBeMissed(m_engine, facts, source, m_target, StripsCopy(m_engine, facts),
                            m_seen ? &*m_seen : nullptr);
        if (!facts.markedPrivate) m_engine.RemoveContents(m_target);
    }
}

void CResync::Fill(IMessagePtr& source, const CItemFacts& facts) {
    const bool stripped = StripsCopy(m_engine, facts);
    const HRESULT copied =
        stripped ? CopyWithoutText(source, m_target, false) : CopyContents(source, m_target, false);
    // An empty copy that is not marked would count as somebody's work.
    if (m_requireContents || stripped) THROW_ON_FAILURE_FOR(copied, source.RawProp());
    m_leftEmpty = copied < 0;
    if (m_leftEmpty) KeepOldVersion();
    AnonymiseTarget(m_engine, facts, m_target, stripped);
}

void CResync::GiveBack(IMessagePtr& source) {
    if (m_isNew) {
        IMessagePtr old = OpenMessage(m_targetFolder, m_targetItem);
        THROW_ON_FAILURE_FOR(CopyContents(old, m_target, false), old.RawProp());
    }
    ReturnToOriginal(m_engine, source, m_target);
}

// The target is saved without its contents all the same, so what it held goes where overwritten items are
// kept. The store still has that version, whatever the open message has lost.
void CResync::KeepOldVersion() {
    IMessagePtr stored = OpenMessage(m_targetFolder, m_targetItem);
    m_kept = KeepVersion(m_engine, stored);
}

void CResync::Save(IMessagePtr& source, const CItemFacts& facts) {
    if (m_isNew)
        StampUnfinished(m_engine, m_target, m_targetFolder, facts.syncId, CItemKey::OfItem(source));
    else
        StampItem(m_engine, m_target, facts.syncId);
    if (m_isNew) m_result = RowResult::MaybeSaved;
    const HRESULT saved = m_target->SaveChanges(KEEP_OPEN_READWRITE);
    if (saved < 0 && !HasEntryId(m_target)) m_result = RowResult::NotSaved;
    THROW_ON_FAILURE(saved);
    m_engine.NoteChanged();
    m_engine.NoteWritten(m_targetItem);
    m_engine.NoteSaved(m_target, m_targetItem, facts.syncId);
    m_savedItem = m_targetItem;
    if (m_isNew) FinishNewTarget(facts);
}

void CResync::FinishNewTarget(const CItemFacts& facts) {
    // What was moved is not named again: where a store keeps the entry ID of a moved item, that would
    // destroy it in its new place.
    const bool moved = MoveAside(m_targetFolder, m_targetItem, m_engine.m_overwriteFolder);
    moved ? m_engine.NoteRemoved(m_targetItem) : m_engine.NoteUnsure();
    // Some stores give a new item its entry ID at the save.
    if (m_engine.SetSyncID(m_target, facts.syncId, false)) m_target.SaveChanges(KEEP_OPEN_READWRITE);
    m_savedItem = CItemKey::OfItem(m_target);
    m_engine.NoteSaved(m_target, m_savedItem, facts.syncId);
    if (!moved) RemoveOldVersion();
}

// It did not move, and would stand beside the new one for good. Throws where no copy of it can be kept: two
// items are better than a text that is gone.
void CResync::RemoveOldVersion() {
    try {
        IMessagePtr old = OpenMessage(m_targetFolder, m_targetItem);
        KeepVersion(m_engine, old);
    } catch (const CMAPIException& e) {
        if (IsGone(e.Hr())) return;
        throw;
    }
    SBinary entry = m_targetItem;
    ENTRYLIST list = {1, &entry};
    THROW_ON_FAILURE_FOR(m_targetFolder->DeleteMessages(&list, 0, nullptr, 0), m_targetFolder.RawProp());
}

namespace {
RowResult ReportedResync(CSyncFolder& engine, CResync& resync, IMessagePtr& source, std::string& status,
                         bool quiet, CEmptiedTarget& emptied) {
    try {
        resync.Run(source, status);
        if (!resync.LeftEmpty()) return resync.Result();
        emptied = {resync.SavedItem(), resync.Kept()};
    } catch (const CMAPIException& e) {
        if (!quiet) ReportException(e, "CSyncFolder::ResyncObject");
    } catch (...) {
        TraceText(engine.m_traceFile, "Crash in CSyncFolder::ResyncObject\n");
    }
    engine.NoteRowFailed();
    return resync.Result();
}
}  // namespace

RowResult RewriteTarget(const CCopyRoute& route, ULONG targetRow, IMessagePtr& source, std::string& status,
                        bool quiet, CEmptiedTarget& emptied) {
    const CItemKey item = KeyOfRow(route.targetRows, targetRow);
    CResync resync(route.engine, route.targetFolder, item);
    resync.SetSeen(CSeenTarget(route.engine, route.targetRows, targetRow));
    return ReportedResync(route.engine, resync, source, status, quiet, emptied);
}

int CSyncFolder::ResyncObject(const IMAPIFolderPtr& sourceFolder, const IMAPIFolderPtr& targetFolder,
                              const SBinary& sourceEntryId, const CItemKeyView& targetItem,
                              std::string& status) {
    try {
        IMessagePtr source = OpenMessage(sourceFolder, sourceEntryId);
        CEmptiedTarget emptied;
        CResync resync(*this, targetFolder, targetItem);
        ReportedResync(*this, resync, source, status, false, emptied);
    } catch (const CMAPIException& e) {
        NoteRowFailed();
        ReportException(e, "CSyncFolder::ResyncObject");
    } catch (...) {
        NoteRowFailed();
    }
    return 0;
}

// ---- making sure that a counterpart exists --------------------------------------------------------

namespace {
// The analysis empties the tag of a creation time that it has taken and leaves the value.
bool WasCreatedAt(const CMapiPropValue& cell, const FILETIME& created) {
    if (cell.IsNull() || (cell.Type() != PT_SYSTIME && cell.Type() != PT_NULL)) return false;
    return CompareFileTimes(cell.Get()->Value.ft, created) == 0;
}

bool HoldsText(const CMapiRowSet& rows, ULONG row, ULONG column, const std::string& text) {
    const CMapiPropValue cell = rows.Cell(row, column);
    return cell.Type() == PT_STRING8 && cell.Str() == text;
}

// The first row of that subject that was created at that time or has that sync ID, or -1.
int FindTwin(const CMapiRowSet& rows, const std::string& subject, const FILETIME& created,
             const std::string& syncId) {
    std::vector<ULONG> candidates;
    rows.FindRows(COL_SUBJECT, subject, candidates);
    for (const ULONG row : candidates)
        if (WasCreatedAt(rows.Cell(row, COL_CREATED), created) || HoldsText(rows, row, COL_SYNC_ID, syncId))
            return static_cast<int>(row);
    return -1;
}

bool HasTarget(CSyncFileMap& syncData, const CMapiRowSet& rows, const std::string& syncId,
               const std::string& subject, const FILETIME& created) {
    if (!syncId.empty()) {
        const CSyncFileEntry* entry = syncData.FindBySyncId(syncId);
        if (entry && !entry->Identifier().empty()) return true;
        const int row = rows.FindRow(COL_SYNC_ID, syncId);
        if (row >= 0 && HoldsText(rows, static_cast<ULONG>(row), COL_SYNC_ID, syncId)) return true;
    }
    return FindTwin(rows, subject, created, syncId) >= 0;
}

void DropEmptyTables(IMessagePtr& message, FILE* trace) {
    SizedSPropTagArray(2, tags) = {2, {PR_MESSAGE_RECIPIENTS, PR_MESSAGE_ATTACHMENTS}};
    const HRESULT hr = message->DeleteProps(reinterpret_cast<SPropTagArray*>(&tags), nullptr);
    if (hr < 0)
        TraceFormat(trace, "Delete props error %x %s", static_cast<unsigned>(hr), ErrorName(hr).c_str());
}
}  // namespace

void CSyncFolder::CheckIfTargetExists(const SBinary& sourceEntryId, CSyncFileMap& syncData,
                                      const CMapiRowSet& targetRows, const IMAPIFolderPtr& sourceFolder,
                                      const IMAPIFolderPtr& targetFolder) {
    TraceText(m_traceFile, "Check if target exists\n");
    IMessagePtr source = OpenMessage(sourceFolder, sourceEntryId);
    const CItemFacts facts = ReadItemFacts(*this, source);
    std::string syncId = facts.syncId;
    EnsureSyncId(syncId);
    const std::string subject = source.GetTitle();
    if (HasTarget(syncData, targetRows, syncId, subject, facts.created)) return;

    TraceText(m_traceFile, " CheckIfTarget Exists did not find counterpart\n");
    IMessagePtr target = targetFolder.CreateMessage(nullptr, 0);
    DropEmptyTables(target, m_traceFile);
    TraceFormat(m_traceFile, "copy msg %s\n", subject.c_str());
    const bool stripped = StripsCopy(*this, facts);
    THROW_ON_FAILURE_FOR(
        stripped ? CopyWithoutText(source, target, true) : CopyContents(source, target, true),
        source.RawProp());
    AnonymiseTarget(*this, facts, target, stripped);
    if (IsTracing())
        TraceFormat(m_traceFile, "target subj = %s\n", target.GetStrPropOrEmpty(PR_SUBJECT_A).c_str());

    EnsureSyncId(target, source, syncId);
    SetSyncID(target, syncId, false);
    if (SetSyncID(source, syncId, false)) source.SaveChanges(KEEP_OPEN_READWRITE);
    target.SaveChanges(KEEP_OPEN_READWRITE);
    NoteChanged();
}

// ---- one item as a watcher sees it ----------------------------------------------------------------

namespace {
// The first row that bears the message's sync ID, or its subject and creation time.
CMapiBinary FindWatchedTarget(CSyncFolder& engine, const IMAPIFolderPtr& folder, const CItemFacts& facts,
                              const std::string& subject) {
    enum : ULONG { ENTRYID, SYNC_ID, MODIFIED, STAMP, SUBJECT, CREATED };
    const CSyncTags& tags = engine.TagsOf(folder.RawProp());
    const CMapiRowSet rows = folder._rawContentsTable().QueryRows(
        {PR_ENTRYID, tags.larchId, PR_LAST_MODIFICATION_TIME, tags.larchEid, PR_SUBJECT_A, PR_CREATION_TIME});
    for (ULONG row = 0; row < rows.Count(); ++row) {
        const CMapiPropValue syncId = rows.Cell(row, SYNC_ID);
        const bool sameId = syncId.Tag() == tags.larchId && syncId.Str() == facts.syncId;
        if (sameId || (HoldsText(rows, row, SUBJECT, subject) && facts.hasCreated &&
                       CompareFileTimes(rows.Cell(row, CREATED).Time(), facts.created) == 0))
            return CMapiBinary(rows.Cell(row, ENTRYID).Binary());
    }
    return {};
}

void DropAttachments(IMessagePtr& message) {
    IMAPITablePtr table;
    if (message->GetAttachmentTable(0, table.Out()) < 0 || !table) return;
    const CMapiRowSet rows = table.QueryRows({PR_ATTACH_NUM});
    for (ULONG i = 0; i < rows.Count(); ++i)
        message->DeleteAttach(static_cast<ULONG>(rows.Cell(i, 0).Long()), 0, nullptr, 0);
}

// What stays of a known target is what the copy does not overwrite; a stripped copy overwrites little.
void FillWatchedTarget(CSyncFolder& engine, const CItemFacts& facts, IMessagePtr& source, IMessagePtr& target,
                       bool isNew) {
    const bool stripped = StripsCopy(engine, facts);
    if (facts.markedPrivate && !isNew) return ReturnToOriginal(engine, source, target);
    if (!isNew) stripped ? engine.RemoveContents(target) : DropAttachments(target);
    THROW_ON_FAILURE_FOR(
        stripped ? CopyWithoutText(source, target, true) : CopyContents(source, target, true),
        source.RawProp());
    AnonymiseTarget(engine, facts, target, stripped);
}

void StampAndSave(CSyncFolder& engine, IMessagePtr& message, const std::string& syncId) {
    if (engine.SetSyncID(message, syncId, false)) message.SaveChanges(KEEP_OPEN_READWRITE);
}
}  // namespace

void CSyncFolder::SyncSingleMessage(IMessagePtr& sourceMessage, const IMAPIFolderPtr& sourceFolder,
                                    const IMAPIFolderPtr& targetFolder, bool skipPrivate) {
    const CItemFacts facts = ReadItemFacts(*this, sourceMessage);
    if (skipPrivate && facts.IsWithheldAppointment()) return;

    const CMapiBinary known = FindWatchedTarget(*this, targetFolder, facts, sourceMessage.GetTitle());
    IMessagePtr target =
        known.IsEmpty() ? targetFolder.CreateMessage(nullptr, 0) : OpenMessage(targetFolder, known);
    FillWatchedTarget(*this, facts, sourceMessage, target, known.IsEmpty());
    if (facts.hasCreated) target.SetProp(PR_CREATION_TIME, facts.created);
    target.SaveChanges(KEEP_OPEN_READWRITE);

    std::string syncId = facts.syncId;
    EnsureSyncId(syncId);
    StampAndSave(*this, sourceMessage, syncId);
    StampAndSave(*this, target, syncId);
    WriteSyncFiles(sourceFolder, targetFolder, true, true);
}
