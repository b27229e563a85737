#include <Platform/Clock.h>
#include <Tarn/Dispatch/RecentChanges.h>

namespace {
constexpr DWORD kPurgeAfterMs = 30000;
constexpr DWORD kSettledAfterMs = 10000;
}  // namespace

CSyncInfos& RecentChanges() {
    static CSyncInfos changes;
    return changes;
}

void PurgeRecentChanges(CSyncInfos& list) {
    const DWORD now = TickCount();
    list.remove_if([now](const auto& info) { return now - info->m_tickCount > kPurgeAfterMs; });
}

void AddRecentChange(CSyncInfos& list, const IMAPIFolderPtr& folder, const SBinary& entryId) {
    auto info = std::make_unique<CSyncInfo>();
    info->m_entryId = entryId;
    info->m_storeEntryId = folder.GetBinProp(PR_STORE_ENTRYID);
    info->m_tickCount = TickCount();
    const CMapiPropValues time = folder.OpenEntryv(entryId).GetProps({PR_LAST_MODIFICATION_TIME});
    const FILETIME modified = time[0].Time();
    info->m_modifiedLow = modified.dwLowDateTime;
    info->m_modifiedHigh = modified.dwHighDateTime;
    list.push_back(std::move(info));
}

bool IsRecentChange(CSyncInfos& list, const IMAPIFolderPtr&, const SBinary& entryId) {
    const DWORD now = TickCount();
    for (auto it = list.begin(); it != list.end(); ++it) {
        if (!EqualBinary((*it)->m_entryId, entryId) || now - (*it)->m_tickCount <= kSettledAfterMs) continue;
        list.erase(it);
        return true;
    }
    return false;
}
