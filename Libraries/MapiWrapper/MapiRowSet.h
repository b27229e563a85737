// The rows of a table in memory, with indexes over their columns.
#pragma once
#include <MapiWrapper/PropValue.h>
#include <Platform/MapiHeaders.h>

#include <memory>
#include <string>
#include <unordered_map>
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
    CMapiPropValue Cell(ULONG row, ULONG column) const;

    // The first row whose cell has this text, or -1. The first use of a column builds its index: PT_LONG
    // in decimal, PT_STRING8, PT_UNICODE narrowed, PT_BINARY in upper-case hexadecimal; cells of other
    // types are not found. Constant time afterwards. The number of columns is that of the first row.
    int FindRow(ULONG column, const std::string& text) const;
    int FindRowBinary(ULONG column, const SBinary& bin) const;
    // All rows in ascending order; their number, or -1 (and `out` empty) where there is no such column.
    int FindRows(ULONG column, const std::string& text, std::vector<ULONG>& out) const;

    // Without an index, for a single use: any type by its ValueText; PT_BINARY cells only.
    int FindRowByText(ULONG column, const std::string& text) const;
    int FindRowByBinary(ULONG column, const SBinary& bin) const;

private:
    using CColumnIndex = std::unordered_map<std::string, std::vector<ULONG>>;
    const CColumnIndex* Index(ULONG column) const;

    bool m_owns = true;
    SRowSet* m_rows = nullptr;
    mutable std::vector<std::unique_ptr<CColumnIndex>> m_columnIndexes;
};
