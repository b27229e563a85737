// A table of a folder, a message or the session.
#pragma once
#include <MapiWrapper/ComPtr.h>
#include <MapiWrapper/MapiRowSet.h>
#include <Platform/MapiHeaders.h>

#include <vector>

// Callers name columns by their position in the tag list that they passed. Operations on an empty
// wrapper throw CNullAccess.
class IMAPITablePtr {
public:
    IMAPITablePtr() = default;
    explicit IMAPITablePtr(IMAPITable* table) : m_table(table) {}  // adds a reference

    void Attach(IMAPITable* table) { m_table.Attach(table); }  // takes the caller's reference
    void Free() { m_table.Free(); }
    IMAPITable** Out() { return m_table.Out(); }
    IMAPITable* Get() const { return m_table.Get(); }
    IMAPITable* operator->() const;
    bool IsValid() const { return static_cast<bool>(m_table); }
    explicit operator bool() const { return IsValid(); }

    // All rows with these columns; without tags with the table's own. No rows is no error. Throws
    // "IMAPITablePtr::QueryRows" with the table as object.
    CMapiRowSet QueryRows(const std::vector<ULONG>& tags = {}) const;

    // The HRESULT, no throw; `out` is empty on failure.
    HRESULT SetColumnsAndQuery(CMapiRowSet& out, LONG rowCount, ULONG flags,
                               const std::vector<ULONG>& tags) const;
    HRESULT QueryAllWithRestriction(SRestriction* restriction, SSortOrderSet* sort, CMapiRowSet& out,
                                    const std::vector<ULONG>& tags) const;
    HRESULT SetColumns(const std::vector<ULONG>& tags) const;  // TBL_BATCH

    void Restrict(SRestriction* restriction, ULONG flags) const;  // throws
    // How many rows were really passed over. Throws "IMAPITable.SeekRow".
    LONG SeekRow(LONG rowCount, BOOKMARK bookmark) const;

private:
    CComPtr<IMAPITable> m_table;
};
