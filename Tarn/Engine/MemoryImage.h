// The bytes of a sync file, made of a folder's rows.
#pragma once
#include <Tarn/Engine/SeenRows.h>
#include <Tarn/Engine/WrittenRows.h>

#include <optional>
#include <string>
#include <vector>

struct CSyncFileImage {
    std::string bytes;
    std::optional<FILETIME> newest;  // of the rows; empty where there are none
};

// The columns that ImageOfFolder wants.
std::vector<ULONG> FileColumns(ULONG syncIdTag);

// Of a folder as its table shows it now. `seen` may be null: everything is remembered as it stands then.
CSyncFileImage ImageOfFolder(const CMapiRowSet& rows, ULONG syncIdTag, CSeenRows* seen);

// Of a folder as the run has read it and changed it since: the same bytes, as long as nobody else has changed
// it. `rows` in the columns of SyncColumn, newest first. Empty where the notes do not tell enough.
std::optional<CSyncFileImage> ImageOfRun(const CMapiRowSet& rows, const CWrittenRows& written, bool ofSource);

// What the memory of a side is made of at the end of a run: the image, or else what was seen.
struct CSideMemory {
    std::optional<CSyncFileImage> image;
    std::optional<CSeenRows> seen;
    // The newest change that the run looked at. What came later was not looked at, so the incremental mode
    // must not begin behind it.
    FILETIME look{};
};
