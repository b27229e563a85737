#include <MapiWrapper/HexText.h>
#include <MapiWrapper/MapiException.h>
#include <MapiWrapper/MapiRowSet.h>

#include <utility>

namespace {

// The text under which a cell stands in an index; false for a type that is not indexed.
bool IndexText(const CMapiPropValue& cell, std::string& text) {
    switch (cell.Type()) {
        case PT_LONG:
            text = std::to_string(cell.Long());
            return true;
        case PT_STRING8:
        case PT_UNICODE:
            text = cell.Str();
            return true;
        case PT_BINARY:
            text = HexFromBinary(cell.Binary());
            return true;
        default:
            return false;
    }
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

CMapiPropValue CMapiRowSet::Cell(ULONG row, ULONG column) const {
    if (!m_rows || row >= m_rows->cRows || column >= m_rows->aRow[row].cValues)
        return CMapiPropValue(nullptr, false);
    SPropValue* cells = m_rows->aRow[row].lpProps;
    return CMapiPropValue(cells ? cells + column : nullptr, false);
}

const CMapiRowSet::CColumnIndex* CMapiRowSet::Index(ULONG column) const {
    if (!m_rows || m_rows->cRows == 0) return nullptr;
    if (m_columnIndexes.empty()) m_columnIndexes.resize(m_rows->aRow[0].cValues);
    if (column >= m_columnIndexes.size()) return nullptr;
    if (!m_columnIndexes[column]) {
        auto index = std::make_unique<CColumnIndex>();
        index->reserve(m_rows->cRows);
        std::string text;
        for (ULONG row = 0; row < m_rows->cRows; ++row) {
            if (IndexText(Cell(row, column), text)) (*index)[text].push_back(row);
        }
        m_columnIndexes[column] = std::move(index);
    }
    return m_columnIndexes[column].get();
}

int CMapiRowSet::FindRow(ULONG column, const std::string& text) const {
    const CColumnIndex* index = Index(column);
    if (!index) return -1;
    const auto found = index->find(text);
    return found == index->end() ? -1 : static_cast<int>(found->second.front());
}

int CMapiRowSet::FindRowBinary(ULONG column, const SBinary& bin) const {
    return FindRow(column, HexFromBinary(bin));
}

int CMapiRowSet::FindRows(ULONG column, const std::string& text, std::vector<ULONG>& out) const {
    out.clear();
    const CColumnIndex* index = Index(column);
    if (!index) return -1;
    const auto found = index->find(text);
    if (found != index->end()) out = found->second;
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
