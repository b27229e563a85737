#include <MapiWrapper/HexText.h>
#include <Platform/Clock.h>
#include <Platform/UserInterface.h>
#include <Tarn/Engine/ElementCopy.h>
#include <Tarn/Engine/StrippedCopy.h>

#include <vector>

void CElementCopy::Run(CSyncTargetRecord* record, bool useRowSyncId, bool allowSearch) {
    m_facts = ReadItemFacts(m_engine, m_source);
    FindTargetRow(useRowSyncId, allowSearch);
    if (m_targetRow >= 0) m_oldItem = KeyOfRow(m_route.targetRows, static_cast<ULONG>(m_targetRow));
    if (!m_similar && m_targetRow >= 0 && !CompareTimes()) {
        m_status = LoadText(TEXT_TIMES_IDENTICAL);
        m_result = RowResult::Done;
        return;
    }
    if (!ChooseTarget()) {
        m_engine.NoteRowFailed();
        return;
    }
    if (m_status.empty()) m_status = LoadText(TEXT_COPIED_AS_NEW);
    EnsureSyncId(m_syncId);
    Transfer(record);
}

// The rows are those of the start of the run. One whose item was written since belongs to the item that was
// copied there: a second item in it (a copy within a folder bears its original's key) would replace the
// first.
int FreeRow(const CCopyRoute& route, int targetRow) {
    if (targetRow < 0) return -1;
    const CItemKeyView item = KeyOfRow(route.targetRows, static_cast<ULONG>(targetRow));
    return route.engine.WasWritten(item) ? -1 : targetRow;
}

// ---- the counterpart ------------------------------------------------------------------------------

void CElementCopy::FindTargetRow(bool useRowSyncId, bool allowSearch) {
    const CMapiRowSet& rows = m_route.targetRows;
    if (useRowSyncId) m_syncId = m_row.m_syncId;
    if (m_syncId.empty()) m_syncId = m_facts.syncId;
    if (!m_syncId.empty()) m_targetRow = FreeRow(m_route, rows.FindRow(COL_SYNC_ID, m_syncId));
    m_linked = m_targetRow >= 0;
    if (m_targetRow < 0 && !m_row.m_searchKey.IsEmpty()) m_targetRow = FindByKey();
    if (m_targetRow >= 0 || !allowSearch) return;
    m_targetRow = SearchSimilar();
    m_similar = m_targetRow >= 0;
}

// Of several rows of the key one of the same name.
int CElementCopy::FindByKey() const {
    const CMapiRowSet& rows = m_route.targetRows;
    std::vector<ULONG> ofKey;
    rows.FindRows(COL_SEARCH_KEY, m_row.m_searchKey.Hex(), ofKey);
    int found = -1;
    for (const ULONG row : ofKey) {
        if (m_engine.IsTaken(KeyOfRow(rows, row))) continue;
        if (IsLinkedWithin(rows, row, m_route.sourceRows)) continue;
        if (found < 0) found = static_cast<int>(row);
        if (rows.Cell(row, COL_SUBJECT).Str() == m_row.m_name) return static_cast<int>(row);
    }
    return found;
}

int CElementCopy::SearchSimilar() {
    // The search would open the item to learn its key, which is known here. The row goes without it: a
    // second try must not find by key what the first did not.
    if (!m_route.sourceFolder || m_row.m_item.IsEmpty()) return -1;  // refused with the number of a row
    const CMapiBinary rowKey = m_row.m_searchKey;
    int found = -1;
    try {
        if (rowKey.IsEmpty()) m_row.m_searchKey = m_facts.searchKey;
        found = m_engine.FindSimilarObject(&m_row, m_route.targetRows, m_route.sourceFolder,
                                           m_route.targetFolder, &m_route.sourceRows);
    } catch (...) {
        TraceText(m_engine.m_traceFile,
                  "idRow = FindSimilarObject(smsg,rowsTarget,fldrSource,fldrTarget); failed\n");
    }
    m_row.m_searchKey = rowKey;
    return found;
}

// False: the two were changed at the same time, so there is nothing to carry.
bool CElementCopy::CompareTimes() {
    if (CompareFileTimes(m_row.m_modified, TargetCell(COL_MODIFIED).Time()) == 0) {
        TraceText(m_engine.m_traceFile, "Found counterpart by SYNCID but date is identical -> no copy\n");
        if (m_syncId.empty()) AgreeOnSyncId();
        return false;
    }
    m_status = LoadText(TEXT_COPIED_TO_COUNTERPART);
    TraceText(m_engine.m_traceFile, "   -> Found counterpart by SYNCID");
    return true;
}

// The target bears the ID while it is open and is not saved for it: a save would give it a new time, and
// the two would no longer count as equal.
void CElementCopy::AgreeOnSyncId() {
    IMessagePtr target = OpenMessage(m_route.targetFolder, m_oldItem);
    EnsureSyncId(target, m_source, m_syncId);
    if (m_engine.SetSyncID(m_source, m_syncId, false)) SaveSource();
    m_engine.SetSyncID(target, m_syncId, false);
}

// ---- the target -----------------------------------------------------------------------------------

// A stripped copy that comes back to what it was made of. Without that it is an item like any other.
bool CElementCopy::IsReturn() const {
    return m_facts.markedPrivate && m_targetRow >= 0;
}

bool CElementCopy::ChooseTarget() {
    try {
        MARK_POSITION();
        OpenTarget();
        return true;
    } catch (const CMAPIException& e) {
        if (m_isNew)
            TraceFormat(m_engine.m_traceFile, "Error %s creating message", e.GetErrorText().c_str());
        else
            Show(FormatText("Error in %s (%d)", SyncFolderSource, CurrentPosition().line), "Vellum");
    } catch (...) {
        Show(FormatText("Error in %s (%d)", SyncFolderSource, CurrentPosition().line), "Vellum");
    }
    return false;
}

void CElementCopy::OpenTarget() {
    const bool reuse = m_targetRow >= 0 && !m_engine.HasFlag(SYNC_ALWAYS_RENEW);
    // The original of a stripped copy holds all that the copy has not.
    if (reuse)
        m_target = IsReturn() ? OpenMessage(m_route.targetFolder, m_oldItem)
                              : TryOpenMessage(m_route.targetFolder, m_oldItem);
    m_isNew = !m_target;
    if (m_isNew) {
        MARK_POSITION();
        m_replaces = m_targetRow >= 0;
        if (m_replaces) RequirePlaceForOld(m_engine, m_route.targetFolder);
        m_target = m_route.targetFolder.CreateMessage(nullptr, 0);
    } else {
        MARK_POSITION();
        const CSeenTarget seen(m_engine, m_route.targetRows, static_cast<ULONG>(m_targetRow));
        // A key or a likeness says nothing of the texts. Without a link a change by somebody over here is no
        // conflict, so it is not kept as the loser of one.
        if (!m_linked && !IsReturn() && HasOtherText(m_engine, m_source, m_target))
            KeepVersion(m_engine, m_target);
        else
            KeepWhatMayBeMissed(m_engine, m_facts, m_source, m_target, StripsCopy(m_engine, m_facts), &seen);
        if (!IsReturn()) m_engine.RemoveContents(m_target);
    }
}

// ---- the copy -------------------------------------------------------------------------------------

void CElementCopy::Transfer(CSyncTargetRecord* record) {
    try {
        CopyToTarget();
        SaveTarget();
        if (record) FillRecord(*record);
        m_result = RowResult::Done;
        return;
    } catch (const CMAPIException& e) {
        if (!m_takenBack) ReportTransfer(e);
        if (m_result == RowResult::Done) return;
    } catch (...) {
        ReportTransferCrash();
    }
    m_engine.NoteRowFailed();
}

void CElementCopy::FillTarget() {
    const bool stripped = StripsCopy(m_engine, m_facts);
    THROW_ON_FAILURE_FOR(
        stripped ? CopyWithoutText(m_source, m_target, true) : CopyContents(m_source, m_target, true),
        m_source.RawProp());
    MARK_POSITION();
    AnonymiseTarget(m_engine, m_facts, m_target, stripped);
}

void CElementCopy::GiveBack() {
    if (m_isNew) {
        IMessagePtr old = OpenMessage(m_route.targetFolder, m_oldItem);
        THROW_ON_FAILURE_FOR(CopyContents(old, m_target, true), old.RawProp());
    }
    MARK_POSITION();
    ReturnToOriginal(m_engine, m_source, m_target);
}

void CElementCopy::CopyToTarget() {
    MARK_POSITION();
    IsReturn() ? GiveBack() : FillTarget();
    if (!m_facts.hasCreated) return;
    SPropValue created{};
    created.ulPropTag = PR_CREATION_TIME;
    created.Value.ft = m_facts.created;
    m_target.SetOneProp(&created);
}

void CElementCopy::SaveTarget() {
    m_needsLink = NeedsLink();
    if (m_needsLink) StampTarget();
    SaveContents();
    MARK_POSITION();
    try {
        if (m_needsLink) Link();
    } catch (const CMAPIException& e) {
        if (m_isNew && !m_replaces) TakeBack(e);
        throw;
    }
    // It is done, but there is one item too many.
    if (m_oldStays)
        throw CMAPIException(MAPI_E_UNABLE_TO_COMPLETE, "MoveAside", m_route.targetFolder.RawProp());
}

void CElementCopy::SaveContents() {
    MARK_POSITION();
    if (m_isNew) m_result = RowResult::MaybeSaved;
    const HRESULT saved = m_target->SaveChanges(KEEP_OPEN_READWRITE);
    if (saved < 0 && !HasEntryId(m_target)) m_result = RowResult::NotSaved;
    if (saved >= 0) m_engine.NoteChanged();  // whatever fails from here on
    MARK_POSITION();
    m_action = "Can not get EntryID from Target Message";
    m_newItem = SavedItem();
    m_action = "Can not save target element";
    // What the first save has written needs no second one.
    if (saved < 0) {
        m_target.SaveChanges(KEEP_OPEN_READWRITE);
        m_engine.NoteChanged();
    }
    m_action = nullptr;
    m_result = RowResult::MaybeSaved;
    m_engine.NoteWritten(m_newItem);
    m_engine.NoteSaved(m_target, m_newItem, m_syncId);
    // Saved under another name than the row has: whose row that is now, nobody here can tell.
    if (!m_isNew && m_newItem != m_oldItem) m_engine.NoteUnsure();
    if (m_targetRow >= 0) m_engine.NoteWritten(m_oldItem);
    if (!m_replaces) return;
    m_oldStays = !MoveAside(m_route.targetFolder, m_oldItem, m_engine.m_overwriteFolder);
    m_oldStays ? m_engine.NoteUnsure() : m_engine.NoteRemoved(m_oldItem);
}

// Without it the item that was just made can be neither linked nor taken back.
CItemKey CElementCopy::SavedItem() const {
    try {
        return CItemKey::OfItem(m_target);
    } catch (const CMAPIException&) {
        return CItemKey::OfItem(m_target);
    }
}

// Two unlinked items whose keys occur once on each side count as linked by them. A key that cannot be read
// links nothing.
bool CElementCopy::NeedsLink() const {
    if (m_isNew || !m_facts.syncId.empty()) return true;
    const auto occursOnce = [](const CMapiRowSet& rows, const SBinary& key) {
        std::vector<ULONG> found;
        return rows.FindRows(COL_SEARCH_KEY, HexFromBinary(key), found) == 1;
    };
    CMapiPropValue key;
    if (m_target.GetOneProp(PR_SEARCH_KEY, key) < 0) return true;
    return !occursOnce(m_route.sourceRows, key.Binary()) ||
           !occursOnce(m_route.targetRows, m_facts.searchKey);
}

// Where the link holds already the target gets its own stamp back, else one that names the original until
// that bears the ID as well.
void CElementCopy::StampTarget() {
    if (m_linked && !m_isNew)
        StampItem(m_engine, m_target, m_syncId);
    else
        StampUnfinished(m_engine, m_target, m_route.targetFolder, m_syncId, CItemKey::OfItem(m_source));
}

void CElementCopy::Link() {
    if (StampItem(m_engine, m_source, m_syncId)) SaveSource();
    m_route.links.Add(m_target, m_newItem, m_syncId, m_row);
}

void CElementCopy::SaveSource() {
    m_source.SaveChanges(KEEP_OPEN_READWRITE);
    m_engine.NoteSaved(m_source, m_row.m_item, m_syncId, true);
}

// A new target without its link would be an item of its own as soon as the source is changed or deleted, and
// the usual reason why the link fails is that somebody is doing just that. So the target goes again, and the
// row is tried once more, or has nothing to carry any more.
void CElementCopy::TakeBack(const CMAPIException& e) {
    m_engine.NoteUnsure();
    if (!RemoveTarget()) {
        m_status = LoadText(TEXT_NOT_LINKED_STAYS);
        return;
    }
    m_takenBack = true;
    m_engine.NoteNotChanged();
    const bool sourceGone = IsGone(e.Hr());
    m_status = LoadText(sourceGone ? TEXT_SOURCE_GONE : TEXT_NOT_LINKED_RETRIED);
    m_result = sourceGone ? RowResult::Done : RowResult::NotSaved;
}

// True if the target is not there any more. One that was saved since is somebody's work and stays.
bool CElementCopy::RemoveTarget() const {
    try {
        const IMessagePtr target = OpenMessage(m_route.targetFolder, m_newItem);
        CMapiPropValue now, saved;
        if (target.GetOneProp(PR_LAST_MODIFICATION_TIME, now) < 0) return false;
        if (m_target.GetOneProp(PR_LAST_MODIFICATION_TIME, saved) < 0) return false;
        if (CompareFileTimes(now.Time(), saved.Time()) != 0) return false;
    } catch (const CMAPIException& e) {
        return IsGone(e.Hr());
    }
    SBinary entry = m_newItem;
    ENTRYLIST list = {1, &entry};
    return m_route.targetFolder->DeleteMessages(&list, 0, nullptr, 0) == S_OK;
}

void CElementCopy::FillRecord(CSyncTargetRecord& record) const {
    const CMapiPropValues values = m_target.GetProps({PR_STORE_ENTRYID, PR_LAST_MODIFICATION_TIME});
    record.m_entryId = SBinary(m_newItem);
    record.m_storeEntryId = values[0].Binary();
    record.m_tickCount = TickCount();
    record.m_modifiedLow = values[1].Time().dwLowDateTime;
    record.m_modifiedHigh = values[1].Time().dwHighDateTime;
}

// ---- reports --------------------------------------------------------------------------------------

void CElementCopy::Show(const std::string& text, const char* caption) const {
    if (!m_quiet) ShowMessageBox(text, caption);
}

void CElementCopy::ReportTransfer(const CMAPIException& e) const {
    Show(FormatText(m_action ? "Error %x (%s) in SyncFolder(%d)\n" : "Error %x (%s) SyncFolder(%d)",
                    static_cast<unsigned>(e.Hr()), e.GetErrorText().c_str(), CurrentPosition().line),
         "Vellumware");
}

void CElementCopy::ReportTransferCrash() const {
    if (m_action)
        Show(FormatText("Error while %s in SyncFolder(%d)", m_action, CurrentPosition().line), "Vellum");
    else
        Show(FormatText("Error in %s (%d)", SyncFolderSource, CurrentPosition().line), "Vellum");
}
