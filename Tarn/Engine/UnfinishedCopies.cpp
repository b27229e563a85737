#include <Tarn/Engine/ItemTransfer.h>
#include <Tarn/Engine/UnfinishedCopies.h>

namespace {
struct CStamp {
    std::string syncId;
    CItemKey of;        // the item that it was written for
    CMapiBinary place;  // and its folder
    CItemKey item;
    CMapiBinary parent;

    bool IsOwn() const { return of == item; }
};

CStamp ReadStamp(CSyncFolder& engine, const IMessagePtr& message) {
    const CSyncTags& tags = engine.TagsOf(message.RawProp());
    const CMapiPropValues values =
        message.GetProps({tags.larchId, tags.larchEid, tags.larchParentEid, PR_PARENT_ENTRYID});
    CStamp stamp;
    if (values[0].Tag() == tags.larchId) stamp.syncId = values[0].Str();
    if (values[1].Tag() == tags.larchEid) stamp.of = CItemKeyView::OfKept(BytesOf(values[1].Binary()));
    if (values[2].Tag() == tags.larchParentEid) stamp.place = values[2].Binary();
    if (values[3].Type() == PT_BINARY) stamp.parent = values[3].Binary();
    stamp.item = CItemKey::OfItem(message);
    return stamp;
}

void SaveStamped(CSyncFolder& engine, IMessagePtr& message, const std::string& syncId) {
    if (StampItem(engine, message, syncId)) message.SaveChanges(KEEP_OPEN_READWRITE);
}
}  // namespace

void CUnfinishedCopies::Finish() {
    for (ULONG row = 0; row < m_own.rows.Count(); ++row) {
        if (!MayBeCopy(row)) continue;
        try {
            Look(row);
        } catch (const CMAPIException& e) {
            m_engine.NoteRowFailed();
            NoteException(e, "CUnfinishedCopies");
        }
    }
    if (m_copies.empty()) return;
    // As in the run that made the copies: no copy is linked before its original is, also on the disk.
    if (m_other.batch.Flush() < 0) {
        ++m_engine.m_outcome.phasesFailed;
        return;
    }
    m_changedOwn = true;
    for (CCopy& copy : m_copies) {
        try {
            SaveStamped(m_engine, copy.message, copy.syncId);
        } catch (const CMAPIException& e) {
            m_engine.NoteRowFailed();
            NoteException(e, "CUnfinishedCopies");
        }
    }
}

bool CUnfinishedCopies::MayBeCopy(ULONG row) const {
    const CItemKeyView item = KeyOfRow(m_own.rows, row);
    const CMapiPropValue stamp = m_own.rows.Cell(row, COL_STAMP);
    return !item.IsEmpty() && stamp.Type() == PT_BINARY && !EqualBinary(item, stamp.Binary()) &&
           m_own.rows.Cell(row, COL_SYNC_ID).Type() == PT_STRING8;
}

void CUnfinishedCopies::Look(ULONG row) {
    const CItemKeyView item = KeyOfRow(m_own.rows, row);
    IMessagePtr copy = OpenMessage(m_own.folder, item);
    CStamp stamp = ReadStamp(m_engine, copy);
    if (m_ownPlace.IsEmpty()) {
        m_ownPlace = m_own.folder.GetBinProp(PR_ENTRYID);
        m_otherPlace = m_other.folder.GetBinProp(PR_ENTRYID);
    }
    if (stamp.IsOwn() || stamp.syncId.empty() || stamp.place != m_ownPlace) return;
    IMessagePtr original = TryOpenMessage(m_other.folder, stamp.of);
    if (!original) return;
    const CStamp theirs = ReadStamp(m_engine, original);
    if (theirs.parent != m_otherPlace) return;
    if (theirs.IsOwn() && !theirs.syncId.empty()) stamp.syncId = theirs.syncId;
    if (!m_given.insert(stamp.syncId).second || IsHeld(stamp.syncId, item)) return PutAside(item);
    if (!theirs.IsOwn() || theirs.syncId.empty()) {
        SaveStamped(m_engine, original, stamp.syncId);
        m_changedOther = true;
    }
    m_copies.push_back({copy, stamp.syncId});
}

// By an item that the rows show, or that they do not but the memory tells of.
bool CUnfinishedCopies::IsHeld(const std::string& syncId, const CItemKeyView& copy) const {
    if (FindLink(m_own.rows, syncId) >= 0) return true;
    const CSyncFileEntry* entry = m_own.memory.FindBySyncId(syncId);
    if (!entry) return false;
    const CMapiBinary remembered = BinaryFromHex(std::string(entry->Identifier()));
    if (remembered.IsEmpty() || EqualBinary(remembered, copy)) return false;
    const IMessagePtr holder = TryOpenMessage(m_own.folder, remembered);
    if (!holder) return false;
    const CStamp stamp = ReadStamp(m_engine, holder);
    return stamp.IsOwn() && stamp.syncId == syncId && stamp.parent == m_ownPlace;
}

void CUnfinishedCopies::PutAside(const CItemKeyView& copy) {
    m_engine.InitDelArrays(m_own.store, m_own.folder, DeletionBatchCapacity);
    if (!MoveAside(m_own.folder, copy, m_engine.m_overwriteFolder))
        throw CMAPIException(MAPI_E_CALL_FAILED, "CUnfinishedCopies::PutAside", nullptr);
    m_changedOwn = true;
}
