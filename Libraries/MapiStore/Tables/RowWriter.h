// Rows of a table in the published form: one block each, its cells and what they point to side by side.
#pragma once
#include <MapiStore/Values/MapiMemory.h>
#include "RowSource.h"

#include <vector>

// Writes rows of one column set. Keeps the scratch room of a row, so that a set of many rows costs no
// allocation but those of the arena.
class CRowWriter {
public:
    // `columns`: tags as given to SetColumns. `unicode`: text that was asked for as PT_UNSPECIFIED comes
    // in wide form.
    CRowWriter(const std::vector<ULONG>& columns, bool unicode);

    // The row's cells out of `arena`; the caller owns the block and frees it with MAPIFreeBuffer.
    // Missing values come as PT_ERROR / MAPI_E_NOT_FOUND, PR_NULL as itself; strings are cut at 255
    // characters, binaries at 510 bytes. A row without an instance key of its own gets `key` as one.
    // Throws CStoreError.
    SRow Write(const IRow& row, std::uint64_t key, CRootArena& arena);

private:
    struct Cell {
        CStoredValue value;
        std::string loaded;
        std::size_t room = 0;
        PropType given = 0;
        bool there = false;
        bool plain = false;  // its bytes go in as they are stored
    };
    void Find(const IRow& row, std::uint64_t key, ULONG tag, Cell& cell) const;
    static void Give(const Cell& cell, ULONG tag, SPropValue& out, char*& next);

    const std::vector<ULONG> m_columns;
    const bool m_unicode;
    std::vector<Cell> m_cells;
};

// Rows on their way to a caller: freed unless they were given away.
class CRowSet {
public:
    CRowSet() = default;
    ~CRowSet() { Clear(); }
    void Clear();  // frees what is there
    CRowSet(const CRowSet&) = delete;
    CRowSet& operator=(const CRowSet&) = delete;

    void Add(const SRow& row) { m_rows.push_back(row); }
    void Reserve(std::size_t count) { m_rows.reserve(count); }
    std::size_t Count() const { return m_rows.size(); }
    // An SRowSet that FreeProws frees, the rows in the order of `order` (indexes into the rows added;
    // each at most once, the others are freed), or as added without one.
    LPSRowSet Give(const std::vector<std::uint32_t>* order = nullptr);

private:
    std::vector<SRow> m_rows;
};
