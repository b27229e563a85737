// Items changed on both sides: the later change stays, a copy of the other is kept.
#include <Platform/UserInterface.h>
#include <Tarn/Engine/ItemTransfer.h>
#include <Tarn/Engine/StrippedCopy.h>
#include <Tarn/Engine/syncfolder.h>

#include <unordered_map>

namespace {
constexpr unsigned ComparedPerPoll = 8;

bool TakesPart(const CSyncMessage& message) {
    return message.m_state != STATE_NONE && message.m_state != STATE_CONFLICT;
}

// Who has a conflict with whom. Items without a link go by their search key, which copies share; each takes
// part in one conflict at most, else some would count as dealt with that never were.
class COpponents {
public:
    explicit COpponents(CSyncMessages& list) : m_list(list) {}

    CSyncMessage* Find(const CSyncMessage& ours) {
        CSyncMessage* last = m_list.Find(ours.m_syncId);
        if (!last || last->m_syncId != ours.m_syncId) return nullptr;
        return ours.m_searchKey.IsEmpty() ? (TakesPart(*last) ? last : nullptr) : FindByKey(ours);
    }

private:
    // Of several the one of the same name, if there is one.
    CSyncMessage* FindByKey(const CSyncMessage& ours) {
        if (m_byId.empty())
            for (size_t i = 0; i < m_list.Count(); ++i)
                m_byId.emplace(m_list.At(i).m_syncId, i);
        CSyncMessage* found = nullptr;
        const auto [begin, end] = m_byId.equal_range(ours.m_syncId);
        for (auto at = begin; at != end; ++at) {
            CSyncMessage& theirs = m_list.At(at->second);
            if (!TakesPart(theirs)) continue;
            if (theirs.m_name == ours.m_name) return &theirs;
            if (!found) found = &theirs;
        }
        return found;
    }

    CSyncMessages& m_list;
    std::unordered_multimap<std::string_view, size_t> m_byId;
};
}  // namespace

namespace {
bool HoldsItem(const CSyncMessage& message) {
    return message.m_state == STATE_NEW || message.m_state == STATE_MODIFIED;
}

bool HoldTheSame(CSyncFolder& engine, const CSyncMessage& ours, const IMAPIFolderPtr& sourceFolder,
                 const CSyncMessage& theirs, const IMAPIFolderPtr& targetFolder) {
    if (!HoldsItem(ours) || !HoldsItem(theirs)) return false;
    try {
        IMessagePtr a = OpenMessage(sourceFolder, ours.m_item);
        IMessagePtr b = OpenMessage(targetFolder, theirs.m_item);
        return SayTheSame(engine, a, b);
    } catch (const CMAPIException&) {
        return false;
    }
}

void Settle(CSyncMessage& loser, CSyncMessage& winner) {
    loser.m_state = STATE_CONFLICT;
    loser.m_settled = TEXT_CONFLICT_EARLIER;
    winner.m_state = STATE_NONE;
    winner.m_settled = TEXT_CONFLICT_LATER;
}

// One of the two was deleted. A change in the source stays; that of the target is only told of here, since
// its item goes with the other deletions and may yet turn out not to be removable.
bool SettleDeletion(CSyncMessage& ours, CSyncMessage& theirs) {
    if (ours.m_state == STATE_DELETED) {
        if (HoldsItem(theirs)) theirs.m_settled = TEXT_CHANGE_DELETED;
        return true;
    }
    if (theirs.m_state != STATE_DELETED) return false;
    ours.m_state = STATE_NONE;
    theirs.m_state = STATE_CONFLICT;
    ours.m_settled = TEXT_CHANGE_STAYS;
    theirs.m_settled = TEXT_DELETION_LOST;
    return true;
}
}  // namespace

// The loser is named by the time alone; with equal times the source stays. Neither is copied across
// afterwards: each stays in its folder, and a later change to either travels as usual.
//
// A run that was interrupted has left both items changed, and neither side remembers it. That is no conflict,
// and a copy of each would fill the folder of conflicts after a large run.
void CSyncFolder::FindConflicts(CSyncMessages& source, CSyncMessages& target,
                                const IMAPIFolderPtr* sourceFolder, const IMAPIFolderPtr* targetFolder) {
    unsigned compared = 0;
    COpponents opponents(target);
    for (size_t i = 0; i < source.Count(); ++i) {
        CSyncMessage& ours = source.At(i);
        if (!HoldsItem(ours) && ours.m_state != STATE_DELETED) continue;
        if (ours.m_syncId.empty()) continue;  // that of every item that was never linked
        CSyncMessage* theirs = opponents.Find(ours);
        if (!theirs || SettleDeletion(ours, *theirs)) continue;
        if (sourceFolder && targetFolder) {
            if (++compared % ComparedPerPoll == 0 && PollCancelled()) return;
            if (HoldTheSame(*this, ours, *sourceFolder, *theirs, *targetFolder)) {
                ours.m_state = theirs->m_state = STATE_NONE;
                ours.m_settled = theirs->m_settled = TEXT_SAME_CHANGE;
                if (!ours.m_searchKey.IsEmpty() && !theirs->m_searchKey.IsEmpty())
                    m_unlinkedSame.emplace_back(ours.m_item, theirs->m_item);
                continue;
            }
        }
        const bool sourceLoses = CompareFileTimes(ours.m_modified, theirs->m_modified) < 0;
        Settle(sourceLoses ? ours : *theirs, sourceLoses ? *theirs : ours);
        (sourceLoses ? m_targetUncarried : m_sourceUncarried).insert(ours.m_syncId);
        ++m_outcome.conflicts;
        if (!ours.m_searchKey.IsEmpty()) m_inConflict.emplace(ours.m_item.View().Bytes());
        if (!theirs->m_searchKey.IsEmpty()) m_inConflict.emplace(theirs->m_item.View().Bytes());
        if (IsTracing())
            TraceFormat(m_traceFile, "** Conflict %s %s\n", ours.m_name.c_str(), ours.m_syncId.c_str());
    }
}

namespace {
template <class Do>
void ForEachLoser(CSyncMessages& list, Do act) {
    for (size_t i = 0; i < list.Count(); ++i)
        if (list.At(i).IsLostVersion()) act(list.At(i));
}
}  // namespace

void CSyncFolder::MoveConflicts(CSyncMessages& list, const IMAPIFolderPtr& ownFolder, const IMAPIFolderPtr&,
                                const CMapiRowSet&, const CMapiRowSet&, CSyncFileMap&, CSyncFileMap&,
                                const IMsgStorePtr& ownStore, const IMsgStorePtr&) {
    CEntryIdBatch losers;
    ForEachLoser(list, [&](CSyncMessage& message) {
        losers.Add(message.m_item);
        if (IsTracing())
            TraceFormat(m_traceFile, "Message moved in conflict folder %s\n", message.m_name.c_str());
    });
    if (losers.IsEmpty()) return;
    const unsigned failedBefore = m_outcome.phasesFailed;
    MoveToConflictFolder(losers, ownStore, ownFolder);
    if (m_outcome.phasesFailed == failedBefore) return;
    // Both versions are now the only ones of their kind, whichever replaces the other.
    ForEachLoser(list, [&](CSyncMessage& message) {
        message.m_settled = TEXT_CONFLICT_UNKEPT;
        m_sourceUncarried.insert(message.m_syncId);
        m_targetUncarried.insert(message.m_syncId);
    });
}

namespace {
// Not again after a warning, which means that some of the copies were made.
HRESULT CopyTo(const IMAPIFolderPtr& conflicts, CEntryIdBatch& entries, const IMAPIFolderPtr& folder) {
    const auto copy = [&] {
        return folder->CopyMessages(entries.List(), nullptr, conflicts.Get(), 0, nullptr, 0);
    };
    const HRESULT hr = copy();
    return hr < 0 ? copy() : hr;
}
}  // namespace

// Nobody has deleted a loser: without a copy it stays all the same, and the person is told that there is
// none.
void CSyncFolder::MoveToConflictFolder(CEntryIdBatch& entries, const IMsgStorePtr& store,
                                       const IMAPIFolderPtr& folder) {
    try {
        MARK_POSITION();
        const IMAPIFolderPtr conflicts = OpenConflicts(store, folder);
        if (entries.IsEmpty() || (conflicts && CopyTo(conflicts, entries, folder) == S_OK)) return;
    } catch (...) {
        TraceText(m_traceFile, "Crash in MoveToConflictFolder\n");
    }
    ++m_outcome.phasesFailed;
    ShowMessageBox("Of " + std::to_string(entries.Count()) + " items of \"" +
                       folder.GetStrPropOrEmpty(PR_DISPLAY_NAME_A) +
                       "\" that were changed on both sides not all could be copied to the folder of "
                       "conflicts.\nThey stay as they are, and are kept when something replaces them.",
                   "Vellum");
}
