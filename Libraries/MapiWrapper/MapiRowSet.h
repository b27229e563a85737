// The rows of a table in memory, with indexes over their columns.
#pragma once
#include <MapiWrapper/PropValue.h>
#include <Platform/MapiHeaders.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// Owns a row set and frees it with FreeProws. Movable, not copyable. Rows must not be changed while an
// index over them is in use.
class CMapiRowSet {
public:
    CMapiRowSet() = default;
    CMapiRowSet(CMapiRowSet&& other) noexcept;
    CMapiRowSet& operator=(CMapiRowSet&& other) noexcept;
    ~CMapiRowSet() { Free(); }

    // Frees what it holds and takes the rows (null allowed); owns from now on.
    void Attach(SRowSet* rows);
    // Frees what it holds and looks at rows that somebody else owns.
    void View(SRowSet* rows);
    // Gives the rows to the caller, who frees them with FreeProws.
    SRowSet* Detach();
    void Free();
    // For out arguments; frees first.
    SRowSet** Out();

    bool IsValid() const { return m_rows != nullptr; }
    SRowSet* Get() const { return m_rows; }
    // Throws CNullAccess without a row set.
    ULONG Count() const;
    // A view that does not own; null for a row or column out of range. Never throws.
    CMapiPropValue Cell(ULONG row, ULONG column) const {
        if (!m_rows || row >= m_rows->cRows || column >= m_rows->aRow[row].cValues)
            return CMapiPropValue(nullptr, false);
        SPropValue* cells = m_rows->aRow[row].lpProps;
        return CMapiPropValue(cells ? cells + column : nullptr, false);
    }

    // The first row whose cell has this text, or -1. The first use of a column builds its index: PT_LONG
    // in decimal, PT_STRING8, PT_UNICODE in UTF-8, PT_BINARY in upper-case hexadecimal; cells of other
    // types are not found. Constant time afterwards. The number of columns is that of the first row.
    int FindRow(ULONG column, const std::string& text) const;
    int FindRowBinary(ULONG column, const SBinary& bin) const;
    // All rows in ascending order; their number, or -1 (and `out` empty) where there is no such column.
    int FindRows(ULONG column, const std::string& text, std::vector<ULONG>& out) const;

    // Without an index, for a single use: any type by its ValueText; PT_BINARY cells only.
    int FindRowByText(ULONG column, const std::string& text) const;
    int FindRowByBinary(ULONG column, const SBinary& bin) const;

private:
    // Numbers of rows alone, no texts: a few bytes a row. Rows of equal texts hang on one slot in
    // ascending order.
    struct CColumnIndex {
        std::vector<std::uint32_t> slots;   // row + 1, or 0; a power of two, at most half full
        std::vector<std::uint32_t> next;    // of each row, the next one of the same text + 1
        std::vector<std::uint32_t> hashes;  // of each row's text
    };
    const CColumnIndex* Index(ULONG column) const;
    void Enter(CColumnIndex& index, ULONG row, std::string_view text, ULONG column) const;
    size_t Probe(const CColumnIndex& index, std::string_view text, std::uint32_t hash, ULONG column) const;
    // The first row of the text + 1, or 0.
    std::uint32_t Head(const CColumnIndex& index, std::string_view text, ULONG column) const;

    bool m_owns = true;
    SRowSet* m_rows = nullptr;
    mutable std::vector<std::unique_ptr<CColumnIndex>> m_columnIndexes;
};
