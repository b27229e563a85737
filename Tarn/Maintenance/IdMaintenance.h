// What runs have left in a folder, taken out again, so that they begin anew: the marks on items, the memories
// of pairs, the times of the last runs.
#pragma once
#include <Tarn/Maintenance/MaintainedFolder.h>

struct CMaintenanceOutcome {
    unsigned found = 0;    // that were to be changed or removed, or would be
    unsigned changed = 0;  // of them; what a disk took back does not count
    unsigned failed = 0;
    bool notRead = false;  // the folder could not be read; nothing was done
    bool cancelled = false;
};

// All of these report failures by message boxes and count them; CMAPIException leaves none. Each may be
// called again: what is done is not found any more. With `dryRun` nothing is changed. `watch` may be null.

// The marks by which a run knows an item and its counterpart. The next run compares every item of the folder.
// Items without marks are not opened. Tells the watch every 32nd row.
CMaintenanceOutcome RemoveSyncMarks(const CMaintainedFolder& folder, bool dryRun, IMaintenanceWatch* watch);

// The memories, of whatever pair, that lie in this folder and are this computer's, or no computer's.
CMaintenanceOutcome RemoveSyncFiles(const CMaintainedFolder& folder, bool dryRun);

// When the pairs of a source folder were last run. Zero: not known.
struct CLastSyncTimes {
    FILETIME source{};
    FILETIME target{};
    unsigned looks = 0;  // memories that tell a pair from when on it has to look
    bool IsEmpty() const;
};
// S_OK, also where there is none, or the code of what could not be read, reported as "HrGetConfigMsg".
HRESULT ReadLastSyncTimes(const CMaintainedFolder& source, CLastSyncTimes& times);
// Forgets them: a pair that looks only at what is new looks at all items in its next run. `found` and
// `changed` count times.
CMaintenanceOutcome ResetLastSyncTimes(const CMaintainedFolder& source, bool dryRun);
