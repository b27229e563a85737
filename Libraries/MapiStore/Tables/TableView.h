// The state of one open table: columns, restriction, order, cursor and bookmarks. What IMAPITable does,
// without its locks and codes: everything here throws CStoreError and is called under the lock.
//
// The keys of the rows are read when they are first needed and again when the cursor goes back to the
// beginning or the rows are counted, if the store has changed since; the rows themselves are read when
// they are asked for. So a walk over a table is not disturbed by what it changes: rows that have gone
// meanwhile are left out.
#pragma once
#include "RowWriter.h"
#include "TableOrder.h"

#include <map>
#include <memory>

class CTableView {
public:
    // `unicode`: text columns that do not say their width come in wide form.
    CTableView(std::unique_ptr<ITableSource> source, bool unicode);

    ITableSource& Source() { return *m_source; }
    bool IsUnicode() const { return m_unicode; }
    // Grows with each change of columns, restriction or order.
    unsigned Setting() const { return m_setting; }

    const std::vector<ULONG>& Columns() const { return m_columns; }
    // Every column that a row of the table has, after those of the present column set.
    std::vector<ULONG> AllColumns();
    void SetColumns(const SPropTagArray& tags);

    const CRestriction* Restriction() const { return m_restriction.get(); }
    void Restrict(const SRestriction* restriction);

    const std::vector<SortColumn>& Sort() const { return m_sort; }
    void SetSort(const SSortOrderSet* order);

    std::size_t RowCount();
    std::size_t Position();
    // Moves the cursor by `count` rows from `origin`, not past the ends; answers how far it got. `moved`
    // is true if the bookmark's row has gone and the next one stood in for it.
    LONG Seek(BOOKMARK origin, LONG count, bool& moved);
    void SeekApprox(ULONG numerator, ULONG denominator);
    // False if no row matches from there on; the cursor then stays.
    bool Find(const SRestriction& restriction, BOOKMARK origin, bool backward, bool& moved);
    BOOKMARK CreateBookmark();
    void FreeBookmark(BOOKMARK bookmark);

    // Rows from the cursor on, or before it for a negative count, always in table order.
    LPSRowSet QueryRows(LONG count, bool advance);
    // The row as QueryRows gives it.
    SRow WriteRow(const IRow& row, RowKey key, CRootArena& arena);

private:
    struct Bookmark {
        RowKey key = 0;
        std::size_t position = 0;
        bool atEnd = false;
    };
    void Load() {
        if (!m_order.IsLoaded()) m_order.Load(*m_source, m_restriction.get(), m_sort);
    }
    void Refresh();
    void Restart();
    bool AbsentFits() const;
    std::size_t Resolve(BOOKMARK origin, bool& moved);
    std::size_t FindForward(const CRestriction& wanted, std::size_t from);
    std::size_t FindBackward(const CRestriction& wanted, std::size_t from);
    bool MatchesAt(const CRestriction& wanted, std::size_t position);
    LPSRowSet QueryWholeTable(std::size_t count);
    LPSRowSet QueryRange(std::size_t begin, std::size_t end);
    void ReadByScan(std::size_t begin, std::size_t end, std::vector<SRow>& rows, CRootArena& arena);
    void ReadOneByOne(std::size_t begin, std::size_t end, std::vector<SRow>& rows, CRootArena& arena);

    const std::unique_ptr<ITableSource> m_source;
    const bool m_unicode;
    unsigned m_setting = 0;
    std::vector<ULONG> m_columns;
    std::unique_ptr<CRowWriter> m_writer;
    std::unique_ptr<CRestriction> m_restriction;
    std::vector<SortColumn> m_sort;
    CTableOrder m_order;
    std::size_t m_position = 0;
    std::map<BOOKMARK, Bookmark> m_bookmarks;
    BOOKMARK m_nextBookmark = 100;
};
