// The last look at what a run is about to do to two folders, before it does any of it.
#pragma once
#include <string>

class CMapiRowSet;
class CSyncMessages;

// What would be deleted on one side.
struct CPlannedDeletions {
    std::string folder;  // the folder's display name
    unsigned items = 0;  // that take part in the run
    unsigned deletions = 0;
};

// Counts the deletions of a finished list (made from the other side) that find their item among the rows
// of this side: an item that is gone from both is not deleted any more. Throws CMAPIException.
CPlannedDeletions CountDeletions(const std::string& folder, const CSyncMessages& changesOfOtherSide,
                                 const CMapiRowSet& rows);

class IRunGuard {
public:
    virtual ~IRunGuard() = default;
    // Called once for each two folders of a pair, on the thread of the run. False: nothing is copied,
    // deleted or remembered there, and no further folder of the pair is begun.
    virtual bool Permits(const CPlannedDeletions& inSource, const CPlannedDeletions& inTarget) = 0;
};
