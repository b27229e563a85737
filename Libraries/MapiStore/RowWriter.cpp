#include "RowWriter.h"

#include "PropertyCodec.h"
#include "StoreError.h"

CRowWriter::CRowWriter(const std::vector<ULONG>& columns, bool unicode)
    : m_columns(columns), m_unicode(unicode), m_cells(columns.size()) {}

void CRowWriter::Find(const IRow& row, std::uint64_t key, ULONG tag, Cell& cell) const {
    const auto id = static_cast<PropId>(PROP_ID(tag));
    cell.there = row.Find(id, cell.value);
    if (!cell.there && id == PROP_ID(PR_INSTANCE_KEY)) {
        cell.value.Own(id, PT_BINARY, &key, sizeof key);
        cell.there = true;
    }
    if (!cell.there) return;
    const auto given = GivenType(cell.value.Type(), PROP_TYPE(tag), m_unicode);
    cell.there = given.has_value();
    if (!given) return;
    cell.given = *given;
    if (cell.value.IsLarge()) {
        cell.there = row.LoadLarge(id, cell.loaded);
        cell.value.View(id, cell.value.Type(), cell.loaded);
    }
}

SRow CRowWriter::Write(const IRow& row, std::uint64_t key, CRootArena& arena) {
    const std::size_t count = m_columns.size();
    std::size_t room = 0;
    for (std::size_t i = 0; i < count; ++i) {
        Find(row, key, m_columns[i], m_cells[i]);
        if (m_cells[i].there) room += RoomFor(m_cells[i].value, m_cells[i].given, true);
    }
    void* block = nullptr;
    Require(SUCCEEDED(arena.Allocate(count * sizeof(SPropValue) + room, &block)), MAPI_E_NOT_ENOUGH_MEMORY);
    auto* cells = static_cast<SPropValue*>(block);
    auto* next = reinterpret_cast<char*>(cells + count);
    try {
        for (std::size_t i = 0; i < count; ++i) {
            const ULONG tag = m_columns[i];
            if (m_cells[i].there) {
                GiveValue(m_cells[i].value, CHANGE_PROP_TYPE(tag, m_cells[i].given), true, cells[i], next);
            } else {
                GiveError(tag, MAPI_E_NOT_FOUND, cells[i]);
                if (PROP_TYPE(tag) == PT_NULL) cells[i].ulPropTag = tag;
            }
        }
    } catch (...) {
        MAPIFreeBuffer(block);
        throw;
    }
    SRow written{};
    written.cValues = static_cast<ULONG>(count);
    written.lpProps = cells;
    return written;
}

void CRowSet::Clear() {
    for (const SRow& row : m_rows)
        MAPIFreeBuffer(row.lpProps);
    m_rows.clear();
}

LPSRowSet CRowSet::Give(const std::vector<std::uint32_t>* order) {
    const std::size_t count = order ? order->size() : m_rows.size();
    void* block = nullptr;
    Require(SUCCEEDED(AllocateRoot(CbNewSRowSet(count ? count : 1), &block)), MAPI_E_NOT_ENOUGH_MEMORY);
    auto* rows = static_cast<SRowSet*>(block);
    rows->cRows = static_cast<ULONG>(count);
    for (std::size_t i = 0; i < count; ++i) {
        SRow& row = m_rows[order ? (*order)[i] : i];
        rows->aRow[i] = row;
        row.lpProps = nullptr;
    }
    Clear();
    return rows;
}
