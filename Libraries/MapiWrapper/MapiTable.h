// A table of a folder, a message or the session.
#pragma once
#include <MapiWrapper/ComPtr.h>
#include <MapiWrapper/MapiRowSet.h>
#include <MapiWrapper/StoreText.h>
#include <Platform/MapiHeaders.h>

#include <vector>

// Callers name columns by their position in the tag list that they passed. Operations on an empty
// wrapper throw CNullAccess. Text is UTF-8 under PT_STRING8, in columns, restrictions and rows
// (StoreText.h).
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

    // In which form the table takes text: that of the wrapper which made it, else that of the system.
    TextForm Text() const { return m_text == TextForm::Unknown ? TextFormOfSystem() : m_text; }
    void SetText(TextForm text) { m_text = text; }

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
    // The HRESULT; the table then stands on the row.
    HRESULT FindRow(SRestriction* restriction, BOOKMARK origin, ULONG flags = 0) const;
    // How many rows were really passed over. Throws "IMAPITable.SeekRow".
    LONG SeekRow(LONG rowCount, BOOKMARK bookmark) const;

private:
    HRESULT TakeRows(HRESULT hr, CMapiRowSet& rows, const std::vector<ULONG>& tags) const;

    TextForm m_text = TextForm::Unknown;
    CComPtr<IMAPITable> m_table;
};
