// Notes of items that the system itself wrote a moment ago, by which a watcher can tell its own echo.
#pragma once
#include <MapiWrapper/MapiWrapper.h>

#include <list>
#include <memory>

struct CSyncInfo {
    CMapiBinary m_entryId;
    CMapiBinary m_storeEntryId;
    DWORD m_tickCount = 0;    // TickCount() when the note was made
    ULONG m_modifiedLow = 0;  // PR_LAST_MODIFICATION_TIME
    ULONG m_modifiedHigh = 0;
};

using CSyncInfos = std::list<std::unique_ptr<CSyncInfo>>;

// The notes of the process. Not locked.
CSyncInfos& RecentChanges();

// Forgets notes older than 30 seconds; one of exactly that age stays.
void PurgeRecentChanges(CSyncInfos& list);
// Notes the item with the time that it has now. Throws CMAPIException if the folder's store or the item
// cannot be read.
void AddRecentChange(CSyncInfos& list, const IMAPIFolderPtr& folder, const SBinary& entryId);
// True if a note of this item is older than ten seconds; that note is deleted. Younger ones are passed over.
bool IsRecentChange(CSyncInfos& list, const IMAPIFolderPtr& folder, const SBinary& entryId);
