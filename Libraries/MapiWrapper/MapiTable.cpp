#include <MapiWrapper/MapiException.h>
#include <MapiWrapper/MapiTable.h>
#include <MapiWrapper/TagArray.h>

IMAPITable* IMAPITablePtr::operator->() const {
    return NotNull(m_table.Get(), "IMAPITablePtr");
}

CMapiRowSet IMAPITablePtr::QueryRows(const std::vector<ULONG>& tags) const {
    NotNull(m_table.Get(), "IMAPITablePtr::QueryRows");
    CMapiRowSet rows;
    const HRESULT hr = QueryAllWithRestriction(nullptr, nullptr, rows, tags);
    if (hr < 0) throw CMAPIException(hr, "IMAPITablePtr::QueryRows", m_table.Get());
    return rows;
}

HRESULT IMAPITablePtr::SetColumnsAndQuery(CMapiRowSet& out, LONG rowCount, ULONG flags,
                                          const std::vector<ULONG>& tags) const {
    out.Free();
    const HRESULT hr = SetColumns(tags);
    return hr < 0 ? hr : m_table->QueryRows(rowCount, flags, out.Out());
}

HRESULT IMAPITablePtr::QueryAllWithRestriction(SRestriction* restriction, SSortOrderSet* sort,
                                               CMapiRowSet& out, const std::vector<ULONG>& tags) const {
    CTagArray array(tags);
    IMAPITable* table = NotNull(m_table.Get(), "IMAPITablePtr::QueryAllWithRestriction");
    return HrQueryAllRows(table, array.Get(), restriction, sort, 0, out.Out());
}

HRESULT IMAPITablePtr::SetColumns(const std::vector<ULONG>& tags) const {
    CTagArray array(tags);
    return (*this)->SetColumns(array.Get(), TBL_BATCH);
}

void IMAPITablePtr::Restrict(SRestriction* restriction, ULONG flags) const {
    THROW_ON_FAILURE((*this)->Restrict(restriction, flags));
}

LONG IMAPITablePtr::SeekRow(LONG rowCount, BOOKMARK bookmark) const {
    LONG sought = 0;
    const HRESULT hr = (*this)->SeekRow(bookmark, rowCount, &sought);
    if (hr < 0) throw CMAPIException(hr, "IMAPITable.SeekRow", m_table.Get());
    return sought;
}
