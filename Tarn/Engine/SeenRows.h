// What a run knows of one side when it reads the folder once more to write the side's memory: the rows it has
// looked at, and what it has done to them since.
//
// Between the look and that moment a person, or another process, may have changed and removed items. Such a
// change must not be remembered as seen: nobody has carried it across, and no later run would.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Engine/OwnWrites.h>
#include <Tarn/Engine/SyncMessages.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

// What the other side had to say about a row, noted while the lists are whole.
enum RowMark : std::uint8_t {
    MARK_CHANGED_BY_RUN = 1,
    MARK_DELETED_BY_RUN = 2,
};
using CRowMarks = std::vector<std::uint8_t>;

// One mark for each row; none where nothing is carried to this side. `rows` in the columns of SyncColumn, as
// the lists were made from them; `otherChanges` is what is to be carried to this side.
CRowMarks MarkRows(const CMapiRowSet& rows, const CSyncMessages& otherChanges);

// Compact, because the rows themselves are given back before the memory is written.
class CSeenRows {
public:
    // `marks` as MarkRows made them of the same rows. Neither is needed any more afterwards; `own` must
    // outlive the object and stay as it is.
    CSeenRows(const CMapiRowSet& rows, const CRowMarks& marks, const COwnWrites& own);

    // The time to remember for an item that the folder now shows with the time `now`: an earlier one where
    // somebody else has changed it since, so that the next run finds the change.
    FILETIME TimeOf(const CItemKeyView& key, const FILETIME& now);
    // To be called for the sync ID of each row that is still there.
    void NoteStillThere(std::string_view syncId);
    // Behind all rows: the items that were looked at and removed by somebody else since. Remembering them
    // lets the next run find them gone.
    struct Gone {
        CItemKeyView key;
        FILETIME time;
        std::string syncId;
        std::string name;
    };
    void ForEachGone(const std::function<void(const Gone&)>& body) const;
    // Before the rows are gone through again.
    void StartAnew();

private:
    struct Row {
        FILETIME time;
        size_t at;  // in m_texts: key, sync ID, name
        std::uint32_t cbKey;
        std::uint32_t cbSyncId;
        std::uint32_t cbName;
        std::uint8_t mark;
        bool isStillThere;
    };
    CItemKeyView KeyOf(const Row& row) const {
        return CItemKeyView::OfKept(std::string_view(m_texts).substr(row.at, row.cbKey));
    }
    std::string_view KeyAt(std::uint32_t row) const { return KeyOf(m_rows[row]).Bytes(); }
    std::string SyncIdOf(const Row& row) const { return m_texts.substr(row.at + row.cbKey, row.cbSyncId); }
    void Add(const CMapiRowSet& rows, ULONG row, std::uint8_t mark);
    std::vector<std::uint64_t> SortedSyncIdsNow() const;

    const COwnWrites& m_own;
    std::string m_texts;
    std::vector<Row> m_rows;
    CFlatIndex m_byKey;
    std::vector<std::uint64_t> m_syncIdsNow;  // hashes
};
