// Items of one search key, which count as one item copied, and new keys that end that.
#pragma once
#include <Tarn/Maintenance/IdMaintenance.h>

#include <string>
#include <vector>

struct CSharedKeyItem {
    CMapiBinary entryId;  // as the table of the folder shows it
    CMapiBinary searchKey;
    std::string name;  // the display name, or else the subject
};

// Every item that shares its search key with another one of the folder, each once, ordered by the key. Items
// without a key are none. False where the folder could not be read: `items` is empty then, and the failure
// was told. Never throws CMAPIException.
bool ListSharedKeys(const CMaintainedFolder& folder, std::vector<CSharedKeyItem>& items);

// Gives each of these items a search key that no other item has. Failures are reported and counted; the
// others get theirs.
CMaintenanceOutcome GiveNewSearchKeys(const CMaintainedFolder& folder, const std::vector<CMapiBinary>& items,
                                      IMaintenanceWatch* watch);
