// The name by which a run keeps hold of an item: the entry ID that lasts, the one that an open item shows.
//
// A table may show another one in PR_ENTRYID, short-term, that opens the item and is good for nothing else;
// the lasting one then stands in a column of its own. Stamps, memories, notes and batches are all kept by
// the lasting one, so keys are made here alone, and only a key is taken where an item is meant.
#pragma once
#include <MapiWrapper/MapiWrapper.h>

#include <string>
#include <string_view>

inline std::string_view BytesOf(const SBinary& binary) {
    return {reinterpret_cast<const char*>(binary.lpb), binary.lpb ? binary.cb : 0};
}

// Of bytes that outlive it: those of a row, of an owned key, of a memory. Default: names nothing.
class CItemKeyView {
public:
    CItemKeyView() = default;
    // Of bytes that were a key when they were put by.
    static CItemKeyView OfKept(std::string_view bytes) {
        return CItemKeyView(
            {static_cast<ULONG>(bytes.size()), reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()))});
    }

    bool IsEmpty() const { return m_entryId.cb == 0 || !m_entryId.lpb; }
    std::string_view Bytes() const { return BytesOf(m_entryId); }
    // What opens, moves and deletes the item.
    operator SBinary() const { return m_entryId; }
    bool operator==(const CItemKeyView& other) const { return Bytes() == other.Bytes(); }
    bool operator!=(const CItemKeyView& other) const { return Bytes() != other.Bytes(); }

private:
    friend class CItemKey;
    friend CItemKeyView KeyOfRow(const CMapiRowSet& rows, ULONG row, ULONG entryId, ULONG longTermEntryId);
    explicit CItemKeyView(const SBinary& entryId) : m_entryId(entryId) {}

    SBinary m_entryId{};
};

// Owns its bytes.
class CItemKey {
public:
    CItemKey() = default;
    CItemKey(const CItemKeyView& key) : m_entryId(key) {}
    // Of an open item. Throws where the store has not given it an entry ID yet.
    static CItemKey OfItem(const IMessagePtr& item) {
        CItemKey key;
        key.m_entryId = item.GetBinProp(PR_ENTRYID);
        return key;
    }

    bool IsEmpty() const { return m_entryId.IsEmpty(); }
    std::string Hex() const { return m_entryId.Hex(); }
    CItemKeyView View() const { return CItemKeyView(m_entryId.Bin()); }
    operator CItemKeyView() const { return View(); }
    operator SBinary() const { return m_entryId; }
    bool operator==(const CItemKey& other) const { return m_entryId == other.m_entryId; }
    bool operator!=(const CItemKey& other) const { return m_entryId != other.m_entryId; }

private:
    CMapiBinary m_entryId;
};

// Of rows that have both IDs in these columns. Names nothing where the row has neither.
inline CItemKeyView KeyOfRow(const CMapiRowSet& rows, ULONG row, ULONG entryId, ULONG longTermEntryId) {
    const CMapiPropValue longTerm = rows.Cell(row, longTermEntryId);
    return CItemKeyView((longTerm.Type() == PT_BINARY ? longTerm : rows.Cell(row, entryId)).Binary());
}
// Of rows in the columns of SyncColumn (SyncIdentity.h).
CItemKeyView KeyOfRow(const CMapiRowSet& rows, ULONG row);
