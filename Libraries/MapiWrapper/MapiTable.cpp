#include <MapiWrapper/MapiException.h>
#include <MapiWrapper/MapiTable.h>
#include <MapiWrapper/TagArray.h>

namespace {
// What the table shows unless told otherwise, with text of this program.
HRESULT OwnColumns(IMAPITable* table, std::vector<ULONG>& tags) {
    SPropTagArray* columns = nullptr;
    const HRESULT hr = table->QueryColumns(0, &columns);
    if (hr < 0 || !columns) return hr;
    for (ULONG i = 0; i < columns->cValues; ++i)
        tags.push_back(TagForStore(columns->aulPropTag[i], TextForm::Narrow));
    MAPIFreeBuffer(columns);
    return hr;
}
}  // namespace

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

HRESULT IMAPITablePtr::TakeRows(HRESULT hr, CMapiRowSet& rows, const std::vector<ULONG>& tags) const {
    if (hr < 0 || !rows.IsValid()) return hr;
    for (ULONG i = 0; i < rows.Count(); ++i) {
        const SRow& row = rows.Get()->aRow[i];
        const HRESULT taken = TakeTexts(row.lpProps, row.cValues, tags, Text(), row.lpProps);
        if (taken >= 0) continue;
        rows.Free();
        return taken;
    }
    return hr;
}

HRESULT IMAPITablePtr::SetColumnsAndQuery(CMapiRowSet& out, LONG rowCount, ULONG flags,
                                          const std::vector<ULONG>& tags) const {
    out.Free();
    const HRESULT hr = SetColumns(tags);
    return hr < 0 ? hr : TakeRows(m_table->QueryRows(rowCount, flags, out.Out()), out, tags);
}

HRESULT IMAPITablePtr::QueryAllWithRestriction(SRestriction* restriction, SSortOrderSet* sort,
                                               CMapiRowSet& out, const std::vector<ULONG>& tags) const {
    IMAPITable* table = NotNull(m_table.Get(), "IMAPITablePtr::QueryAllWithRestriction");
    std::vector<ULONG> asked = tags;
    const HRESULT hr = asked.empty() && Text() == TextForm::Wide ? OwnColumns(table, asked) : S_OK;
    if (hr < 0) return hr;
    CTagArray array(asked, Text());
    CStoreText text(Text());
    return TakeRows(
        HrQueryAllRows(table, array.Get(), text.Restriction(restriction), text.Order(sort), 0, out.Out()),
        out, asked);
}

HRESULT IMAPITablePtr::SetColumns(const std::vector<ULONG>& tags) const {
    CTagArray array(tags, Text());
    return (*this)->SetColumns(array.Get(), TBL_BATCH);
}

void IMAPITablePtr::Restrict(SRestriction* restriction, ULONG flags) const {
    CStoreText text(Text());
    THROW_ON_FAILURE((*this)->Restrict(text.Restriction(restriction), flags));
}

HRESULT IMAPITablePtr::FindRow(SRestriction* restriction, BOOKMARK origin, ULONG flags) const {
    CStoreText text(Text());
    return (*this)->FindRow(text.Restriction(restriction), origin, flags);
}

LONG IMAPITablePtr::SeekRow(LONG rowCount, BOOKMARK bookmark) const {
    LONG sought = 0;
    const HRESULT hr = (*this)->SeekRow(bookmark, rowCount, &sought);
    if (hr < 0) throw CMAPIException(hr, "IMAPITable.SeekRow", m_table.Get());
    return sought;
}
