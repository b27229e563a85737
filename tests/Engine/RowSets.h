// Row sets made by hand, as a run sees them.
#pragma once
#include <Platform/Clock.h>
#include <Tarn/Engine/SyncFile.h>
#include <Tarn/Engine/SyncIdentity.h>

#include <deque>
#include <optional>
#include <string>
#include <vector>

// One item. What is left out is a cell of type PT_ERROR.
struct RowOf {
    std::string entryId;
    std::uint64_t modified = 0;
    std::optional<std::string> syncId{};
    std::optional<std::string> stamp{};
    std::optional<std::string> searchKey{};
    std::optional<std::string> subject{};
    std::optional<std::string> displayName{};
    std::optional<std::string> longTermId{};
    std::uint64_t created = 0;
};

// An entry ID whose first 20 bytes are those of some store, so that the end of it counts.
inline std::string EntryId(const std::string& tail) {
    return std::string(20, '\x01') + tail;
}

// A row whose stamp is its own: an item that was linked and not moved since.
inline RowOf Linked(const std::string& tail, const std::string& syncId, std::uint64_t modified) {
    RowOf row;
    row.entryId = EntryId(tail);
    row.stamp = row.entryId;
    row.syncId = syncId;
    row.modified = modified;
    row.searchKey = "key of " + tail;
    row.subject = "item " + tail;
    return row;
}

// Owns what the row set looks at.
class HandMadeRows {
public:
    HandMadeRows(std::initializer_list<RowOf> rows) : m_rows(rows) {
        m_set.resize(sizeof(SRowSet) + m_rows.size() * sizeof(SRow));
        auto* set = reinterpret_cast<SRowSet*>(m_set.data());
        set->cRows = static_cast<ULONG>(m_rows.size());
        for (ULONG i = 0; i < set->cRows; ++i)
            set->aRow[i] = {0, SYNC_COLUMNS, Cells(m_rows[i])};
        m_view.View(set);
    }
    HandMadeRows(const HandMadeRows&) = delete;
    HandMadeRows& operator=(const HandMadeRows&) = delete;
    operator CMapiRowSet&() { return m_view; }
    CMapiRowSet& Get() { return m_view; }

private:
    SPropValue* Cells(RowOf& row) {
        std::vector<SPropValue>& cells = m_cells.emplace_back(SYNC_COLUMNS);
        for (SPropValue& cell : cells)
            cell.ulPropTag = PROP_TAG(PT_ERROR, 0);
        Binary(cells[COL_ENTRYID], PR_ENTRYID, row.entryId);
        if (row.syncId) Text(cells[COL_SYNC_ID], PROP_TAG(PT_STRING8, 0x8001), *row.syncId);
        Time(cells[COL_MODIFIED], PR_LAST_MODIFICATION_TIME, row.modified);
        if (row.stamp) Binary(cells[COL_STAMP], PROP_TAG(PT_BINARY, 0x8002), *row.stamp);
        if (row.subject) Text(cells[COL_SUBJECT], PR_SUBJECT_A, *row.subject);
        Time(cells[COL_CREATED], PR_CREATION_TIME, row.created);
        if (row.longTermId)
            Binary(cells[COL_LONGTERM_ENTRYID], PR_LONGTERM_ENTRYID_FROM_TABLE, *row.longTermId);
        if (row.searchKey) Binary(cells[COL_SEARCH_KEY], PR_SEARCH_KEY, *row.searchKey);
        if (row.displayName) Text(cells[COL_DISPLAY_NAME], PR_DISPLAY_NAME_A, *row.displayName);
        return cells.data();
    }
    static void Binary(SPropValue& cell, ULONG tag, std::string& bytes) {
        cell.ulPropTag = tag;
        cell.Value.bin = {static_cast<ULONG>(bytes.size()), reinterpret_cast<BYTE*>(bytes.data())};
    }
    static void Text(SPropValue& cell, ULONG tag, std::string& text) {
        cell.ulPropTag = tag;
        cell.Value.lpszA = text.data();
    }
    static void Time(SPropValue& cell, ULONG tag, std::uint64_t ticks) {
        cell.ulPropTag = tag;
        cell.Value.ft = FileTimeOf(ticks);
    }

    std::vector<RowOf> m_rows;
    std::deque<std::vector<SPropValue>> m_cells;
    std::vector<char> m_set;
    CMapiRowSet m_view;
};

// What the last run remembers of an item.
inline void Remember(CSyncFileMap& map, const std::string& tail, const std::string& syncId,
                     std::uint64_t modified) {
    std::string entryId = EntryId(tail);
    map.Add(HexFromBinary({static_cast<ULONG>(entryId.size()), reinterpret_cast<BYTE*>(entryId.data())}),
            FileTimeOf(modified), syncId, "item " + tail);
}
