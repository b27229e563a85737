#include <Tarn/Engine/ItemTransfer.h>
#include <Tarn/Engine/PendingLinks.h>
#include <Tarn/Engine/StoreBatch.h>

namespace {
constexpr size_t kMost = 100;
}

void CPendingLinks::Add(const IMessagePtr& copy, const CItemKey& item, const std::string& syncId,
                        CSyncMessage& row) {
    m_copies.push_back({copy, item, syncId, &row});
    if (m_copies.size() >= kMost) Finish();
}

void CPendingLinks::Finish() {
    if (m_copies.empty()) return;
    std::vector<CCopy> copies;
    copies.swap(m_copies);
    if (m_engine.m_batchFrom && m_engine.m_batchFrom->Flush() < 0)
        return;  // the run ends here and tells of it
    for (CCopy& copy : copies) {
        if (Link(copy)) continue;
        ++m_failures;
        m_engine.NoteRowFailed();
    }
}

bool CPendingLinks::Link(CCopy& copy) {
    try {
        if (!StampItem(m_engine, copy.message, copy.syncId)) return true;
        const HRESULT saved = copy.message->SaveChanges(KEEP_OPEN_READWRITE);
        if (saved < 0)
            LinkAsItIsNow(copy, saved);
        else
            m_engine.NoteSaved(copy.message, copy.item, copy.syncId);
        return true;
    } catch (const CMAPIException& e) {
        if (IsGone(e.Hr()))
            m_lost.push_back(copy.row);
        else
            m_unlinked.push_back(copy.row);
        if (!IsGone(e.Hr())) ReportException(e, "CSyncFolder::SyncModifiedElement");
        return false;
    }
}

// Somebody may have changed the copy already. The stamp then goes on what they have made of it, and the time
// that is remembered stays that of the copy, so that the next run finds their change.
void CPendingLinks::LinkAsItIsNow(const CCopy& copy, HRESULT refused) {
    m_engine.NoteUnsure();
    IMessagePtr now = OpenMessage(m_folder, copy.item);
    if (!StampItem(m_engine, now, copy.syncId)) return;
    now.SaveChanges(KEEP_OPEN_READWRITE);
    if (refused != MAPI_E_OBJECT_CHANGED) m_engine.NoteSaved(now, copy.item, copy.syncId);
}
