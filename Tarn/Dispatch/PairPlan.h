// What a run over a pair and its subfolders would do, from the same lists, with nothing written.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Engine/FolderLevel.h>
#include <Tarn/Engine/syncfolder.h>

#include <functional>
#include <list>
#include <set>
#include <string>

struct CPlannedPlace {
    IMAPIFolderPtr folder;
    std::string path;  // as the setting names the pair's folder, with the names below it
    std::string name;  // the last of them
};

// Two folders of a pair, looked at.
struct CPlannedFolders {
    struct Side : CPlannedPlace {
        explicit Side(const CPlannedPlace& place) : CPlannedPlace(place) {}
        CMapiRowSet rows;               // what takes part in a run, in the columns of SyncColumn
        CSyncMessages changes;          // what a run carries to the other side
        std::list<std::string> newIds;  // stand in the rows
    };
    Side source;
    Side target;
};

class CPairPlan {
public:
    // `setting` must outlive the object. `progress` (may be null) is asked for cancelling.
    CPairPlan(const CMapiSession& session, CTarnSetting& setting, CSyncProgress* progress);
    // Looks at the folders in the order in which a run takes them, children first: at those that both
    // sides have; `onMissing` (may be empty) hears the paths of the others. Where it is there and the pair
    // creates folders, it hears of those that a run would create for, and they are looked at as well, with an
    // empty folder on the other side. Ends early when the person cancels. Throws CMAPIException.
    void Walk(const std::function<void(CPlannedFolders&)>& onFolders,
              const std::function<void(const std::string& path)>& onMissing);
    const CSyncOutcome& Outcome() const { return m_engine.m_outcome; }
    // Paths of the folders that have the name of another one beside them: a run takes the first.
    const std::set<std::string>& Namesakes() const { return m_namesakes; }

private:
    using Side = CPlannedFolders::Side;
    void WalkFolders(const CPlannedPlace& source, const CPlannedPlace& target, int depth);
    void WalkChildren(const CPlannedPlace& source, const CPlannedPlace& target, int depth);
    void NoteMissing(const CPlannedPlace& place, bool inSource, int depth);
    void LookAtNew(const CPlannedPlace& place, bool inSource, int depth);
    void Look(const CPlannedPlace& sourcePlace, const CPlannedPlace& targetPlace);
    void ReadRows(Side& side, const FILETIME& time);
    void WalkNew(const CPlannedPlace& place, bool inSource, int depth);
    static CPlannedPlace Below(const CPlannedPlace& parent, const CFolderLevel& level, ULONG row);

    CSyncFolder m_engine;
    CTarnSetting& m_setting;
    std::function<void(CPlannedFolders&)> m_onFolders;
    std::function<void(const std::string&)> m_onMissing;
    std::set<std::string> m_namesakes;
};
