#include "TableOrder.h"

#include <MapiStore/Values/StoreError.h>

#include <algorithm>
#include <cstring>
#include <numeric>

namespace {

// The first eight bytes of a key stand beside its place, so that most comparisons touch nothing else.
struct SortEntry {
    std::uint64_t head;
    std::uint32_t begin, size, row;
};

std::uint64_t HeadOf(const char* bytes, std::size_t size) {
    std::uint64_t head = 0;
    for (std::size_t i = 0; i < 8; ++i)
        head = head << 8 | (i < size ? static_cast<unsigned char>(bytes[i]) : 0u);
    return head;
}

class CSorter {
public:
    void Add(const IRow& row, const std::vector<SortColumn>& columns) {
        const std::size_t begin = m_bytes.size();
        AppendSortKey(row, columns, m_bytes);
        Require(m_bytes.size() <= 0xFFFFFFFF, MAPI_E_TABLE_TOO_BIG);
        const std::size_t size = m_bytes.size() - begin;
        m_entries.push_back({HeadOf(m_bytes.data() + begin, size), static_cast<std::uint32_t>(begin),
                             static_cast<std::uint32_t>(size), static_cast<std::uint32_t>(m_entries.size())});
    }
    // Rows of the same key stay in the order in which they came.
    std::vector<std::uint32_t> Permutation() {
        const char* bytes = m_bytes.data();
        std::sort(m_entries.begin(), m_entries.end(), [bytes](const SortEntry& a, const SortEntry& b) {
            if (a.head != b.head) return a.head < b.head;
            const int order = std::memcmp(bytes + a.begin, bytes + b.begin, std::min(a.size, b.size));
            if (order != 0) return order < 0;
            return a.size != b.size ? a.size < b.size : a.row < b.row;
        });
        std::vector<std::uint32_t> permutation;
        permutation.reserve(m_entries.size());
        for (const SortEntry& entry : m_entries)
            permutation.push_back(entry.row);
        return permutation;
    }

private:
    std::string m_bytes;
    std::vector<SortEntry> m_entries;
};

}  // namespace

RowNeeds NeedsOf(const CRestriction* restriction, const std::vector<SortColumn>& sort,
                 std::vector<PropId>& ids) {
    RowNeeds needs;
    if (restriction) {
        needs.bounds = &restriction->Bounds();
        ids = restriction->Ids();
    }
    for (const SortColumn& column : sort)
        ids.push_back(static_cast<PropId>(PROP_ID(column.tag)));
    if (!restriction || !restriction->HasSubRows()) needs.ids = &ids;
    return needs;
}

void CTableOrder::Load(ITableSource& source, const CRestriction* restriction,
                       const std::vector<SortColumn>& sort, const OnRow& onRow,
                       const std::vector<PropId>& onRowIds) {
    m_loaded = false;
    m_keys.clear();
    m_byKey.clear();
    m_permutation.clear();
    m_version = source.Version();
    std::vector<PropId> ids;
    RowNeeds needs = NeedsOf(restriction, sort, ids);
    ids.insert(ids.end(), onRowIds.begin(), onRowIds.end());
    needs.keysOnly = !onRow && !restriction && sort.empty();
    CSorter sorter;
    source.Scan(needs, [&](RowKey key, const IRow& row) {
        if (restriction && !restriction->Matches(row)) return true;
        if (!sort.empty()) sorter.Add(row, sort);
        m_keys.push_back(key);
        if (onRow) onRow(key, row);
        return true;
    });
    if (!sort.empty()) {
        m_permutation = sorter.Permutation();
        std::vector<RowKey> sorted;
        sorted.reserve(m_keys.size());
        for (std::uint32_t row : m_permutation)
            sorted.push_back(m_keys[row]);
        m_keys = std::move(sorted);
    }
    m_loaded = true;
}

std::size_t CTableOrder::PositionOf(RowKey key) const {
    if (m_byKey.size() != m_keys.size()) {
        m_byKey.resize(m_keys.size());
        std::iota(m_byKey.begin(), m_byKey.end(), 0u);
        if (!std::is_sorted(m_keys.begin(), m_keys.end()))
            std::sort(m_byKey.begin(), m_byKey.end(),
                      [this](std::uint32_t a, std::uint32_t b) { return m_keys[a] < m_keys[b]; });
    }
    const auto found =
        std::lower_bound(m_byKey.begin(), m_byKey.end(), key,
                         [this](std::uint32_t at, RowKey wanted) { return m_keys[at] < wanted; });
    return found != m_byKey.end() && m_keys[*found] == key ? *found : Count();
}
