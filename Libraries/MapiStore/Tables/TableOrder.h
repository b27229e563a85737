// The rows that a table shows, in the order in which it shows them: their keys, not their contents.
#pragma once
#include "SortKey.h"
#include "TableSource.h"

class CTableOrder {
public:
    // Reads the keys anew. `onRow`, if given, sees each row that is shown, in the order of the scan, so
    // that one pass over the storage can do both; it looks at `onRowIds` alone. Row n of the new order then
    // is the row number Permutation()[n] of those seen (without a sort the two are the same and Permutation
    // is empty).
    using OnRow = std::function<void(RowKey, const IRow&)>;
    void Load(ITableSource& source, const CRestriction* restriction, const std::vector<SortColumn>& sort,
              const OnRow& onRow = nullptr, const std::vector<PropId>& onRowIds = {});
    void Forget() { m_loaded = false; }
    bool IsLoaded() const { return m_loaded; }
    // False when the source has changed since.
    bool IsFresh(ITableSource& source) const { return m_loaded && source.Version() == m_version; }

    std::size_t Count() const { return m_keys.size(); }
    RowKey KeyAt(std::size_t position) const { return m_keys[position]; }
    const std::vector<std::uint32_t>& Permutation() const { return m_permutation; }
    // Count() if the key is not shown. The first call after Load sorts, the others search.
    std::size_t PositionOf(RowKey key) const;

private:
    bool m_loaded = false;
    std::uint64_t m_version = 0;
    std::vector<RowKey> m_keys;
    std::vector<std::uint32_t> m_permutation;
    mutable std::vector<std::uint32_t> m_byKey;  // positions, sorted by key
};

// What a restriction and a sort order look at together; `ids` receives it.
RowNeeds NeedsOf(const CRestriction* restriction, const std::vector<SortColumn>& sort,
                 std::vector<PropId>& ids);
