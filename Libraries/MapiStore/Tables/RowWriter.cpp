#include "RowWriter.h"

#include <MapiStore/Values/PropertyCodec.h>
#include <MapiStore/Values/StoreError.h>

namespace {

// True for the short texts and binaries that most cells are: their bytes go in as they are stored.
bool IsPlain(const CStoredValue& value, PropType given) {
    if (given == PT_BINARY) return value.Bytes().size() <= kCellBytes;
    return given == PT_STRING8 && value.Bytes().size() <= kCellCharacters && IsSameNarrow(value.Bytes());
}

}  // namespace

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
    if (cell.value.Type() == PROP_TYPE(tag)) {
        cell.given = cell.value.Type();
    } else {
        const auto given = GivenType(cell.value.Type(), PROP_TYPE(tag), m_unicode);
        cell.there = given.has_value();
        if (!given) return;
        cell.given = *given;
    }
    if (cell.value.IsLarge()) {
        cell.there = row.LoadLarge(id, cell.loaded);
        cell.value.View(id, cell.value.Type(), cell.loaded);
    }
    if (!cell.there) return;
    cell.plain = IsPlain(cell.value, cell.given);
    const std::size_t cbPlain = cell.value.Bytes().size() + (cell.given == PT_STRING8);
    cell.room = cell.plain ? (cbPlain + 7) & ~std::size_t(7) : RoomFor(cell.value, cell.given, true);
}

void CRowWriter::Give(const Cell& cell, ULONG tag, SPropValue& out, char*& next) {
    tag = CHANGE_PROP_TYPE(tag, cell.given);
    if (!cell.plain) return GiveValue(cell.value, tag, true, out, next);
    const std::string_view bytes = cell.value.Bytes();
    out.ulPropTag = tag;
    out.dwAlignPad = 0;
    out.Value.bin = {static_cast<ULONG>(bytes.size()), reinterpret_cast<BYTE*>(next)};
    if (!bytes.empty()) std::memcpy(next, bytes.data(), bytes.size());
    if (cell.given == PT_STRING8) {
        next[bytes.size()] = 0;
        out.Value.bin = {0, nullptr};
        out.Value.lpszA = next;
    }
    next += cell.room;
}

SRow CRowWriter::Write(const IRow& row, std::uint64_t key, CRootArena& arena) {
    const std::size_t count = m_columns.size();
    std::size_t room = 0;
    for (std::size_t i = 0; i < count; ++i) {
        Find(row, key, m_columns[i], m_cells[i]);
        if (m_cells[i].there) room += m_cells[i].room;
    }
    void* block = nullptr;
    Require(SUCCEEDED(arena.Allocate(count * sizeof(SPropValue) + room, &block)), MAPI_E_NOT_ENOUGH_MEMORY);
    auto* cells = static_cast<SPropValue*>(block);
    auto* next = reinterpret_cast<char*>(cells + count);
    try {
        for (std::size_t i = 0; i < count; ++i) {
            const ULONG tag = m_columns[i];
            if (m_cells[i].there) {
                Give(m_cells[i], tag, cells[i], next);
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
