// Copies within a folder: rows of one search key, which a copy inherits from its original. The newest of them
// stays, the others go to a folder below the wastebasket.
//
// A row without a search key is no copy of anything. Nothing is destroyed unless somebody asks for it.
#pragma once
#include <Tarn/Maintenance/MaintainedFolder.h>

#include <array>
#include <string>
#include <vector>

struct CDuplicateOptions {
    // Items of one key that differ in what a person sees of them stay. Opens every item of a group.
    bool fieldCompare = false;
    // Only counts.
    bool dryRun = false;
    // Where there is no wastebasket, or no folder can be made below it, duplicates are deleted for good.
    bool destroyWithoutHolding = false;
    // Each pair of a field compare of which one goes is told here, appended; empty: no log. A file that does
    // not open is told and done without.
    std::string logFile;
};

// What became of one folder. `removed` are gone from it, whatever failed before or after.
struct CDuplicateOutcome {
    unsigned rows = 0;
    unsigned groups = 0;      // of two rows or more
    unsigned duplicates = 0;  // that were to go, or would go
    unsigned removed = 0;
    unsigned different =
        0;                 // stay because field compare found a difference, or has no fields for their class
    unsigned failed = 0;   // items that could not be compared or removed: they stay
    bool notRead = false;  // the folder could not be read; nothing was done
    bool cancelled = false;
    // They have nowhere to go, and stay.
    bool noHolding = false;
};

// The path below the wastebasket, without the last level: that bears the name of the folder.
inline constexpr const char* kDuplicatesPath[] = {"Vellumware", "Duplicates"};
// What the log is called beside a program: "C:\Vellum10.dll" gives "C:\Vellum10_delete.log".
std::string DuplicateLogBeside(const std::string& modulePath);

// Failures are told by message boxes and counted; CMAPIException leaves neither. One table read a folder,
// and unless fields are compared one move for some hundred items. `watch` may be null; it is told every
// eighth row and asked before each group and each move. Either may be called again: what is done is not
// found any more.
// `partners` are the other folders of pairs that the folder belongs to. They are read only: an item whose
// counterpart has gone from there does not stay instead of one that is still linked.
CDuplicateOutcome RemoveDuplicates(const CMaintainedFolder& folder, const CDuplicateOptions& options,
                                   IMaintenanceWatch* watch,
                                   const std::vector<CMaintainedFolder>& partners = {});
// Both folders of a pair, source first. Of copies that are linked across, the same ones stay on both sides:
// what would stay alone would be deleted by the next run, here and there. So in one of the two it may be
// another than the newest, the counterpart of what is newer still on the other side.
std::array<CDuplicateOutcome, 2> RemoveDuplicatesOfPair(const CMaintainedFolder& source,
                                                        const CMaintainedFolder& target,
                                                        const CDuplicateOptions& options,
                                                        IMaintenanceWatch* watch);
