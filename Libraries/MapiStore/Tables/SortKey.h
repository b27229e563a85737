// Rows made sortable by memcmp: one key per row, written once, out of the columns of a sort order.
#pragma once
#include "RowSource.h"

#include <string>
#include <vector>

struct SortColumn {
    ULONG tag = 0;
    bool descending = false;
};

// Appends the key of a row. Text sorts without regard to case, as people read lists; rows without the
// value, or with one of another type, come first (last when descending). Of text and binary values the
// part that a table cell shows decides.
void AppendSortKey(const IRow& row, const std::vector<SortColumn>& columns, std::string& key);
