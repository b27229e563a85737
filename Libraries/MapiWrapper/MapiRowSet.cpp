#include <MapiWrapper/HexText.h>
#include <MapiWrapper/MapiException.h>
#include <MapiWrapper/MapiRowSet.h>

#include <functional>
#include <utility>

namespace {

// The text under which a cell stands in an index, in `room` where the cell itself does not hold it; false
// for a type that is not indexed.
bool IndexText(const CMapiPropValue& cell, std::string& room, std::string_view& text) {
    switch (cell.Type()) {
        case PT_STRING8:
            text = cell.Get()->Value.lpszA ? std::string_view(cell.Get()->Value.lpszA) : std::string_view();
            return true;
        case PT_BINARY:
            HexInto(room, cell.Binary());
            break;
        case PT_LONG:
            room = std::to_string(cell.Long());
            break;
        case PT_UNICODE:
            room = cell.Str();
            break;
        default:
            return false;
    }
    text = room;
    return true;
}

std::uint32_t HashOf(std::string_view text) {
    return static_cast<std::uint32_t>(std::hash<std::string_view>()(text));
}

}  // namespace

CMapiRowSet::CMapiRowSet(CMapiRowSet&& other) noexcept
    : m_owns(std::exchange(other.m_owns, true)),
      m_rows(std::exchange(other.m_rows, nullptr)),
      m_columnIndexes(std::move(other.m_columnIndexes)) {
    other.m_columnIndexes.clear();
}

CMapiRowSet& CMapiRowSet::operator=(CMapiRowSet&& other) noexcept {
    if (this != &other) {
        Free();
        m_owns = std::exchange(other.m_owns, true);
        m_rows = std::exchange(other.m_rows, nullptr);
        m_columnIndexes = std::move(other.m_columnIndexes);
        other.m_columnIndexes.clear();
    }
    return *this;
}

void CMapiRowSet::Attach(SRowSet* rows) {
    Free();
    m_rows = rows;
}

void CMapiRowSet::View(SRowSet* rows) {
    Free();
    m_rows = rows;
    m_owns = false;
}

SRowSet* CMapiRowSet::Detach() {
    SRowSet* rows = std::exchange(m_rows, nullptr);
    Free();
    return rows;
}

void CMapiRowSet::Free() {
    m_columnIndexes.clear();
    if (m_owns && m_rows) FreeProws(m_rows);
    m_rows = nullptr;
    m_owns = true;
}

SRowSet** CMapiRowSet::Out() {
    Free();
    return &m_rows;
}

ULONG CMapiRowSet::Count() const {
    return NotNull(m_rows, "CMapiRowSet::Count")->cRows;
}

// --- indexes -----------------------------------------------------------------------------------------

// The slot of the text, or the free one where it belongs.
size_t CMapiRowSet::Probe(const CColumnIndex& index, std::string_view text, std::uint32_t hash,
                          ULONG column) const {
    const size_t mask = index.slots.size() - 1;
    std::string room;
    std::string_view other;
    for (size_t at = hash & mask;; at = (at + 1) & mask) {
        const std::uint32_t slot = index.slots[at];
        if (slot == 0) return at;
        if (index.hashes[slot - 1] == hash && IndexText(Cell(slot - 1, column), room, other) && other == text)
            return at;
    }
}

void CMapiRowSet::Enter(CColumnIndex& index, ULONG row, std::string_view text, ULONG column) const {
    const std::uint32_t hash = HashOf(text);
    std::uint32_t& slot = index.slots[Probe(index, text, hash, column)];
    index.hashes[row] = hash;
    index.next[row] = slot;
    slot = row + 1;
}

std::uint32_t CMapiRowSet::Head(const CColumnIndex& index, std::string_view text, ULONG column) const {
    return index.slots[Probe(index, text, HashOf(text), column)];
}

const CMapiRowSet::CColumnIndex* CMapiRowSet::Index(ULONG column) const {
    if (!m_rows || m_rows->cRows == 0) return nullptr;
    if (m_columnIndexes.empty()) m_columnIndexes.resize(m_rows->aRow[0].cValues);
    if (column >= m_columnIndexes.size()) return nullptr;
    if (!m_columnIndexes[column]) {
        auto index = std::make_unique<CColumnIndex>();
        size_t slots = 16;
        while (slots < 2 * static_cast<size_t>(m_rows->cRows))
            slots *= 2;
        index->slots.resize(slots);
        index->next.resize(m_rows->cRows);
        index->hashes.resize(m_rows->cRows);
        std::string room;
        std::string_view text;
        for (ULONG row = m_rows->cRows; row-- > 0;)  // from the end, so that the first row comes to the front
            if (IndexText(Cell(row, column), room, text)) Enter(*index, row, text, column);
        m_columnIndexes[column] = std::move(index);
    }
    return m_columnIndexes[column].get();
}

int CMapiRowSet::FindRow(ULONG column, const std::string& text) const {
    const CColumnIndex* index = Index(column);
    return index ? static_cast<int>(Head(*index, text, column)) - 1 : -1;
}

int CMapiRowSet::FindRowBinary(ULONG column, const SBinary& bin) const {
    return FindRow(column, HexFromBinary(bin));
}

int CMapiRowSet::FindRows(ULONG column, const std::string& text, std::vector<ULONG>& out) const {
    out.clear();
    const CColumnIndex* index = Index(column);
    if (!index) return -1;
    for (std::uint32_t at = Head(*index, text, column); at != 0; at = index->next[at - 1])
        out.push_back(at - 1);
    return static_cast<int>(out.size());
}

int CMapiRowSet::FindRowByText(ULONG column, const std::string& text) const {
    if (!m_rows) return -1;
    for (ULONG row = 0; row < m_rows->cRows; ++row) {
        const CMapiPropValue cell = Cell(row, column);
        if (!cell.IsNull() && cell.Text() == text) return static_cast<int>(row);
    }
    return -1;
}

int CMapiRowSet::FindRowByBinary(ULONG column, const SBinary& bin) const {
    if (!m_rows) return -1;
    for (ULONG row = 0; row < m_rows->cRows; ++row) {
        const CMapiPropValue cell = Cell(row, column);
        if (cell.Type() == PT_BINARY && EqualBinary(cell.Binary(), bin)) return static_cast<int>(row);
    }
    return -1;
}
