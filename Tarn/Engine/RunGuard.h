// The last look at what a run is about to do to two folders, before it does any of it.
#pragma once
#include <string>

class CMapiRowSet;
class CSyncFolder;
class IMAPIFolderPtr;
class IMsgStorePtr;
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

// Asked about a query that does not select what its writer meant, before the folders are looked at.
class IQueryGuard {
public:
    virtual ~IQueryGuard() = default;
    // Called at most once for each two folders of a pair, on the thread of the run. False: nothing is
    // copied, deleted or remembered there, and no further folder of the pair is begun. True: the run goes
    // on as if the pair had no query.
    virtual bool PermitsQuery(const std::string& problem) = 0;
};

// Asked before a run enters two folders of a pair.
class IFolderGate {
public:
    virtual ~IFolderGate() = default;
    // On the thread of the run, with both folders open. False: these two are left out, which counts as a
    // phase that failed; the gate tells why. May throw CMAPIException.
    virtual bool Enter(const IMAPIFolderPtr& source, const IMAPIFolderPtr& target) = 0;
};

// Puts two folders in order before a run looks at them, where the installation asks for it (the switch
// FindDuplicates).
class IRunPreparation {
public:
    virtual ~IRunPreparation() = default;
    // On the thread of the run, with both sides open and entered. Tells what fails itself, and counts it in
    // the outcome of the run; may throw CMAPIException.
    virtual void Prepare(CSyncFolder& run, const IMsgStorePtr& sourceStore, const IMAPIFolderPtr& source,
                         const IMsgStorePtr& targetStore, const IMAPIFolderPtr& target) = 0;
};
