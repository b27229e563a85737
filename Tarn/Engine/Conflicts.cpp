// Items changed on both sides: the later change stays, a copy of the other is kept.
#include <Tarn/Engine/syncfolder.h>

// The loser is named by the time alone; with equal times the source stays. Neither is copied across
// afterwards: each stays in its folder, and a later change to either travels as usual.
void CSyncFolder::FindConflicts(CSyncMessages& source, CSyncMessages& target) {
    for (size_t i = 0; i < source.Count(); ++i) {
        CSyncMessage& ours = source.At(i);
        if (ours.m_state != STATE_NEW && ours.m_state != STATE_MODIFIED) continue;
        CSyncMessage* theirs = target.Find(ours.m_syncId);
        if (!theirs || theirs->m_syncId != ours.m_syncId) continue;
        const bool sourceLoses = CompareFileTimes(ours.m_modified, theirs->m_modified) < 0;
        ours.m_state = sourceLoses ? STATE_CONFLICT : STATE_NONE;
        theirs->m_state = sourceLoses ? STATE_NONE : STATE_CONFLICT;
        ++m_outcome.conflicts;
        if (IsTracing())
            TraceFormat(m_traceFile, "** Conflict %s %s\n", ours.m_name.c_str(), ours.m_syncId.c_str());
    }
}

void CSyncFolder::MoveConflicts(CSyncMessages& list, const IMAPIFolderPtr& ownFolder, const IMAPIFolderPtr&,
                                const CMapiRowSet&, const CMapiRowSet&, CSyncFileMap&, CSyncFileMap&,
                                const IMsgStorePtr& ownStore, const IMsgStorePtr&) {
    CEntryIdBatch losers;
    for (size_t i = 0; i < list.Count(); ++i) {
        const CSyncMessage& message = list.At(i);
        if (message.m_state != STATE_CONFLICT) continue;
        // A deletion that lost against a change has no item; an empty ID in the list would make the
        // store refuse the copies of the others.
        if (!message.m_entryId.IsEmpty()) losers.Add(message.m_entryId);
        if (IsTracing())
            TraceFormat(m_traceFile, "Message moved in conflict folder %s\n", message.m_name.c_str());
    }
    if (!losers.IsEmpty()) MoveToConflictFolder(losers.List(), ownStore, ownFolder);
}

void CSyncFolder::MoveToConflictFolder(ENTRYLIST* entries, const IMsgStorePtr& store,
                                       const IMAPIFolderPtr& folder) {
    try {
        MARK_POSITION();
        const IMAPIFolderPtr conflicts = OpenConflicts(store, folder);
        if (!entries || entries->cValues == 0) return;
        MARK_POSITION();
        if (conflicts) {
            folder->CopyMessages(entries, nullptr, conflicts.Get(), 0, nullptr, 0);
            return;
        }
        NoteUnsure();
        folder->DeleteMessages(entries, 0, nullptr, 0);
    } catch (...) {
        TraceDeletionFailure();
    }
}
