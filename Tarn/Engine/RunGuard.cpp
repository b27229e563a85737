#include <Tarn/Engine/RunGuard.h>

#include <Tarn/Engine/syncfolder.h>

CPlannedDeletions CountDeletions(const std::string& folder, const CSyncMessages& changesOfOtherSide,
                                 const CMapiRowSet& rows) {
    CPlannedDeletions planned;
    planned.folder = folder;
    planned.items = rows.Count();
    std::vector<ULONG> found;
    for (size_t i = 0; i < changesOfOtherSide.Count(); ++i) {
        const CSyncMessage& change = changesOfOtherSide.At(i);
        if (change.m_state == STATE_DELETED && rows.FindRows(COL_SYNC_ID, change.m_syncId, found) > 0)
            ++planned.deletions;
    }
    return planned;
}
