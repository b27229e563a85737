// One level of the two trees of a pair: which subfolders belong together by their names. A run goes by it,
// and so does whoever tells beforehand what a run would do.
#pragma once
#include <MapiWrapper/MapiWrapper.h>

#include <string>
#include <utility>
#include <vector>

enum ChildColumn : ULONG { CHILD_ENTRYID, CHILD_NAME, CHILD_CLASS };

// The subfolders of one side.
struct CFolderLevel {
    // Reads them. Throws.
    void ReadSource(const IMAPIFolderPtr& folder);
    void ReadTarget(const IMAPIFolderPtr& folder);  // of one name the first is that of the sorted table
    ULONG Count() const { return rows.IsValid() ? rows.Count() : 0; }
    SBinary ChildId(ULONG row) const;  // empty if the row has none
    std::string ChildName(ULONG row) const { return rows.Cell(row, CHILD_NAME).Str(); }

    IMAPIFolderPtr folder;
    IMAPITablePtr children;
    CMapiRowSet rows;
};

// The rows of a level, in the order in which a run takes them.
struct CLevelMatch {
    CLevelMatch(const CFolderLevel& source, const CFolderLevel& target);

    struct CNamesake {
        bool inSource;
        std::string name;
    };
    std::vector<std::pair<ULONG, ULONG>> pairs;
    std::vector<ULONG> inSourceAlone;
    std::vector<ULONG> inTargetAlone;
    std::vector<CNamesake> namesakes;  // of a folder that is dealt with: they are not
};
