#include "TableView.h"

#include <MapiStore/Values/PropertyCodec.h>
#include <MapiStore/Values/StoreError.h>

#include <algorithm>

namespace {

// From so many rows on a whole pass over the source is dearer than nothing but cheaper than lookups.
constexpr std::size_t kScanInstead = 200;
constexpr std::size_t kReadAllAtOnce = 1000;
constexpr std::size_t kRowsForAllColumns = 200;

bool IsColumnType(ULONG type) {
    return type == PT_UNSPECIFIED || type == PT_NULL || type == PT_ERROR || type == PT_OBJECT ||
           StoredTypeOf(type) != 0;
}

// A column set of text without a width gets the table's.
ULONG WithWidth(ULONG tag, bool unicode) {
    const ULONG type = PROP_TYPE(tag);
    if (unicode && (type & ~static_cast<ULONG>(MV_FLAG)) == PT_STRING8)
        return CHANGE_PROP_TYPE(tag, PT_UNICODE | (type & MV_FLAG));
    return tag;
}

}  // namespace

CTableView::CTableView(std::unique_ptr<ITableSource> source, bool unicode)
    : m_source(std::move(source)), m_unicode(unicode) {
    for (ULONG tag : m_source->DefaultColumns())
        m_columns.push_back(WithWidth(tag, unicode));
}

// --- columns, restriction, order --------------------------------------------------------------------

std::vector<ULONG> CTableView::AllColumns() {
    std::vector<ULONG> all = m_columns;
    std::vector<PropId> known;
    for (ULONG tag : all)
        known.push_back(static_cast<PropId>(PROP_ID(tag)));
    std::sort(known.begin(), known.end());
    std::size_t rows = 0;
    std::vector<PropId> ids;
    m_source->Scan({}, [&](RowKey, const IRow& row) {
        ids.clear();
        row.ListIds(ids);
        for (PropId id : ids) {
            const auto at = std::lower_bound(known.begin(), known.end(), id);
            if (at != known.end() && *at == id) continue;
            known.insert(at, id);
            CStoredValue value;
            if (row.Find(id, value)) all.push_back(WithWidth(PROP_TAG(value.Type(), id), m_unicode));
        }
        return ++rows < kRowsForAllColumns;
    });
    return all;
}

void CTableView::SetColumns(const SPropTagArray& tags) {
    Require(tags.cValues > 0, MAPI_E_INVALID_PARAMETER);
    std::vector<ULONG> columns(tags.aulPropTag, tags.aulPropTag + tags.cValues);
    for (ULONG tag : columns) {
        Require((PROP_TYPE(tag) & MVI_FLAG) != MVI_FLAG, MAPI_E_TOO_COMPLEX);
        Require(IsColumnType(PROP_TYPE(tag)), MAPI_E_INVALID_PARAMETER);
    }
    m_columns = std::move(columns);
    m_writer.reset();
    ++m_setting;
}

void CTableView::Restart() {
    m_order.Forget();
    m_position = 0;
    m_bookmarks.clear();
    ++m_setting;
}

bool CTableView::AbsentFits() const {
    const CStoreCore* core = m_source->Core();
    return core && core->Habits().Has(HABIT_ABSENT_FITS);
}

void CTableView::Restrict(const SRestriction* restriction) {
    auto compiled = restriction ? std::make_unique<CRestriction>(*restriction, AbsentFits()) : nullptr;
    m_restriction = std::move(compiled);
    Restart();
}

void CTableView::SetSort(const SSortOrderSet* order) {
    std::vector<SortColumn> sort;
    if (order) {
        Require(order->cCategories == 0 && order->cExpanded == 0, MAPI_E_TOO_COMPLEX);
        for (ULONG i = 0; i < order->cSorts; ++i) {
            const SSortOrder& one = order->aSort[i];
            Require(one.ulOrder != TABLE_SORT_COMBINE, MAPI_E_TOO_COMPLEX);
            Require(one.ulOrder <= TABLE_SORT_DESCEND, MAPI_E_INVALID_PARAMETER);
            const ULONG type = PROP_TYPE(one.ulPropTag);
            Require((type & MVI_FLAG) != MVI_FLAG && (type == PT_UNSPECIFIED || StoredTypeOf(type) != 0),
                    MAPI_E_TOO_COMPLEX);
            sort.push_back({one.ulPropTag, one.ulOrder == TABLE_SORT_DESCEND});
        }
    }
    m_sort = std::move(sort);
    Restart();
}

// --- cursor -----------------------------------------------------------------------------------------

// Reads the keys again if the store has changed. The cursor stays on its row, or goes to the one that
// has taken its place.
void CTableView::Refresh() {
    if (m_order.IsFresh(*m_source)) return;
    const bool onRow = m_order.IsLoaded() && m_position < m_order.Count();
    const bool atEnd = m_order.IsLoaded() && !onRow && m_position > 0;
    const RowKey key = onRow ? m_order.KeyAt(m_position) : 0;
    m_order.Load(*m_source, m_restriction.get(), m_sort);
    if (atEnd) m_position = m_order.Count();
    if (onRow && m_position > 0) {
        const std::size_t now = m_order.PositionOf(key);
        if (now < m_order.Count()) m_position = now;
    }
    m_position = std::min(m_position, m_order.Count());
}

std::size_t CTableView::RowCount() {
    Refresh();
    return m_order.Count();
}

std::size_t CTableView::Position() {
    Load();
    return m_position;
}

std::size_t CTableView::Resolve(BOOKMARK origin, bool& moved) {
    moved = false;
    switch (origin) {
        case BOOKMARK_BEGINNING:
            m_position = 0;
            Refresh();
            return 0;
        case BOOKMARK_CURRENT:
            Load();
            return m_position;
        case BOOKMARK_END:
            Refresh();
            return m_order.Count();
        default: {
            Load();
            const auto found = m_bookmarks.find(origin);
            Require(found != m_bookmarks.end(), MAPI_E_INVALID_BOOKMARK);
            if (found->second.atEnd) return m_order.Count();
            const std::size_t position = m_order.PositionOf(found->second.key);
            if (position < m_order.Count()) {
                bool there = m_source->Read(found->second.key, [](const IRow&) {});
                moved = !there;
                return position;
            }
            moved = true;
            return std::min(found->second.position, m_order.Count());
        }
    }
}

LONG CTableView::Seek(BOOKMARK origin, LONG count, bool& moved) {
    // To the beginning and no further: nothing need be read yet.
    if (origin == BOOKMARK_BEGINNING && count == 0) {
        if (!m_order.IsFresh(*m_source)) m_order.Forget();
        m_position = 0;
        moved = false;
        return 0;
    }
    const auto from = static_cast<std::int64_t>(Resolve(origin, moved));
    const std::int64_t to =
        std::clamp<std::int64_t>(from + count, 0, static_cast<std::int64_t>(m_order.Count()));
    m_position = static_cast<std::size_t>(to);
    return static_cast<LONG>(to - from);
}

void CTableView::SeekApprox(ULONG numerator, ULONG denominator) {
    Require(denominator != 0, MAPI_E_INVALID_PARAMETER);
    const std::size_t count = RowCount();
    m_position = numerator >= denominator
                     ? count
                     : static_cast<std::size_t>(std::uint64_t{numerator} * count / denominator);
}

BOOKMARK CTableView::CreateBookmark() {
    Load();
    Bookmark bookmark;
    bookmark.position = m_position;
    bookmark.atEnd = m_position >= m_order.Count();
    if (!bookmark.atEnd) bookmark.key = m_order.KeyAt(m_position);
    m_bookmarks[m_nextBookmark] = bookmark;
    return m_nextBookmark++;
}

void CTableView::FreeBookmark(BOOKMARK bookmark) {
    if (bookmark <= BOOKMARK_END) return;  // the three fixed ones are not anybody's
    Require(m_bookmarks.erase(bookmark) == 1, MAPI_E_INVALID_BOOKMARK);
}

// --- finding ----------------------------------------------------------------------------------------

bool CTableView::MatchesAt(const CRestriction& wanted, std::size_t position) {
    bool matches = false;
    m_source->Read(m_order.KeyAt(position), [&](const IRow& row) { matches = wanted.Matches(row); });
    return matches;
}

std::size_t CTableView::FindForward(const CRestriction& wanted, std::size_t from) {
    const std::size_t count = m_order.Count();
    if (count - from <= kScanInstead) {
        while (from < count && !MatchesAt(wanted, from))
            ++from;
        return from;
    }
    std::vector<PropId> ids;
    const RowNeeds needs = NeedsOf(&wanted, {}, ids);
    std::size_t best = count;
    m_source->Scan(needs, [&](RowKey key, const IRow& row) {
        if (!wanted.Matches(row)) return true;
        const std::size_t position = m_order.PositionOf(key);
        if (position >= from) best = std::min(best, position);
        // Without a sort the order of the scan is that of the table.
        return !(m_sort.empty() && best < count);
    });
    return best;
}

std::size_t CTableView::FindBackward(const CRestriction& wanted, std::size_t from) {
    const std::size_t count = m_order.Count();
    if (count == 0) return count;
    from = std::min(from, count - 1);
    if (from < kScanInstead) {
        for (std::size_t at = from + 1; at-- > 0;)
            if (MatchesAt(wanted, at)) return at;
        return count;
    }
    std::vector<PropId> ids;
    const RowNeeds needs = NeedsOf(&wanted, {}, ids);
    std::size_t best = count;
    m_source->Scan(needs, [&](RowKey key, const IRow& row) {
        if (!wanted.Matches(row)) return true;
        const std::size_t position = m_order.PositionOf(key);
        if (position <= from && (best == count || position > best)) best = position;
        return true;
    });
    return best;
}

bool CTableView::Find(const SRestriction& restriction, BOOKMARK origin, bool backward, bool& moved) {
    const CRestriction wanted(restriction, AbsentFits());
    const std::size_t before = m_position;
    const std::size_t from = Resolve(origin, moved);
    const std::size_t found = backward ? FindBackward(wanted, from) : FindForward(wanted, from);
    m_position = found < m_order.Count() ? found : std::min(before, m_order.Count());
    return found < m_order.Count();
}

// --- rows -------------------------------------------------------------------------------------------

SRow CTableView::WriteRow(const IRow& row, RowKey key, CRootArena& arena) {
    if (!m_writer) m_writer = std::make_unique<CRowWriter>(m_columns, m_unicode);
    return m_writer->Write(row, key, arena);
}

LPSRowSet CTableView::QueryRows(LONG count, bool advance) {
    Require(count != 0, MAPI_E_INVALID_PARAMETER);
    if (const CStoreCore* core = m_source->Core(); core && count > 0)
        count = static_cast<LONG>(core->Habits().RowsOf(static_cast<std::size_t>(count)));
    if (count > 0 && m_position == 0) {
        if (!m_order.IsFresh(*m_source)) m_order.Forget();
        if (!m_order.IsLoaded() && static_cast<std::size_t>(count) >= kReadAllAtOnce) {
            LPSRowSet rows = QueryWholeTable(static_cast<std::size_t>(count));
            if (advance) m_position = rows->cRows;
            return rows;
        }
    }
    Load();
    const std::size_t all = m_order.Count();
    m_position = std::min(m_position, all);
    std::size_t begin = m_position, end = m_position;
    if (count > 0)
        end = begin + std::min<std::size_t>(static_cast<std::size_t>(count), all - begin);
    else
        begin = end - std::min<std::size_t>(static_cast<std::size_t>(-static_cast<std::int64_t>(count)), end);
    LPSRowSet rows = QueryRange(begin, end);
    if (advance) m_position = count > 0 ? end : begin;
    return rows;
}

LPSRowSet CTableView::QueryWholeTable(std::size_t count) {
    CRowSet rows;
    CRootArena arena;
    const bool sorted = !m_sort.empty();
    std::vector<PropId> ids;
    for (const ULONG tag : m_columns)
        ids.push_back(static_cast<PropId>(PROP_ID(tag)));
    const auto add = [&](RowKey key, const IRow& row) {
        if (sorted || rows.Count() < count) rows.Add(WriteRow(row, key, arena));
    };
    m_order.Load(*m_source, m_restriction.get(), m_sort, add, ids);
    if (!sorted) return rows.Give();
    std::vector<std::uint32_t> order = m_order.Permutation();
    order.resize(std::min(order.size(), count));
    return rows.Give(&order);
}

void CTableView::ReadOneByOne(std::size_t begin, std::size_t end, std::vector<SRow>& rows,
                              CRootArena& arena) {
    for (std::size_t at = begin; at < end; ++at) {
        const RowKey key = m_order.KeyAt(at);
        m_source->Read(key, [&](const IRow& row) { rows[at - begin] = WriteRow(row, key, arena); });
    }
}

void CTableView::ReadByScan(std::size_t begin, std::size_t end, std::vector<SRow>& rows, CRootArena& arena) {
    RowNeeds needs;
    // A row that has changed meanwhile is shown as it is now, whether it still keeps the bounds or not.
    if (m_restriction && m_order.IsFresh(*m_source)) needs.bounds = &m_restriction->Bounds();
    m_source->Scan(needs, [&](RowKey key, const IRow& row) {
        const std::size_t at = m_order.PositionOf(key);
        if (at >= begin && at < end) rows[at - begin] = WriteRow(row, key, arena);
        return true;
    });
}

LPSRowSet CTableView::QueryRange(std::size_t begin, std::size_t end) {
    const std::size_t wanted = end - begin;
    std::vector<SRow> rows(wanted, SRow{});
    CRowSet set;
    set.Reserve(wanted);
    CRootArena arena;
    const auto give = [&] {
        for (const SRow& row : rows)
            if (row.lpProps) set.Add(row);
    };
    try {
        if (wanted > kScanInstead && wanted >= m_order.Count() / 8)
            ReadByScan(begin, end, rows, arena);
        else
            ReadOneByOne(begin, end, rows, arena);
    } catch (...) {
        give();
        throw;
    }
    give();
    return set.Give();
}
