#include <Tarn/Engine/SeenRows.h>

#include <Tarn/Engine/SyncIdentity.h>

#include <algorithm>

namespace {

std::string_view BytesOf(const SBinary& binary) {
    return {reinterpret_cast<const char*>(binary.lpb), binary.lpb ? binary.cb : 0};
}

// A row whose stamp is another item's has no ID of its own.
std::string SyncIdOfRow(const CMapiRowSet& rows, ULONG row, const SBinary& identifier) {
    const CMapiPropValue stamp = rows.Cell(row, COL_STAMP);
    const CMapiPropValue syncId = rows.Cell(row, COL_SYNC_ID);
    const bool isOwn =
        stamp.Type() == PT_BINARY && EqualBinary(identifier, stamp.Binary()) && syncId.Type() == PT_STRING8;
    return isOwn ? syncId.Str() : std::string();
}

std::string NameOfRow(const CMapiRowSet& rows, ULONG row) {
    const CMapiPropValue subject = rows.Cell(row, COL_SUBJECT);
    return (subject.Type() == PT_STRING8 ? subject : rows.Cell(row, COL_DISPLAY_NAME)).Str();
}

std::uint64_t HashOf(std::string_view text) {
    return std::hash<std::string_view>()(text);
}

}  // namespace

CSeenRows::CSeenRows(const CMapiRowSet& rows, const CSyncMessages& otherChanges, const COwnWrites& own)
    : m_own(own) {
    if (!rows.IsValid()) return;
    size_t slots = 16;
    while (slots < 2 * static_cast<size_t>(rows.Count()))
        slots *= 2;
    m_slots.resize(slots);
    m_rows.reserve(rows.Count());
    for (ULONG row = 0; row < rows.Count(); ++row)
        Add(rows, row, otherChanges);
}

void CSeenRows::Add(const CMapiRowSet& rows, ULONG row, const CSyncMessages& otherChanges) {
    const SBinary* identifier = RowIdentifier(rows, row);
    if (!identifier) return;
    const size_t slot = SlotOf(BytesOf(*identifier));
    if (m_slots[slot] != 0) return;
    const std::string syncId = SyncIdOfRow(rows, row, *identifier);
    const std::string name = NameOfRow(rows, row);
    const CSyncMessage* change = syncId.empty() ? nullptr : otherChanges.Find(syncId);
    Row seen{};
    seen.time = rows.Cell(row, COL_MODIFIED).Time();
    seen.at = m_texts.size();
    seen.cbIdentifier = static_cast<std::uint32_t>(BytesOf(*identifier).size());
    seen.cbSyncId = static_cast<std::uint32_t>(syncId.size());
    seen.cbName = static_cast<std::uint32_t>(name.size());
    seen.isChangedByRun = change != nullptr;
    seen.isDeletedHere = change != nullptr && change->m_state == STATE_DELETED;
    m_texts.append(BytesOf(*identifier)).append(syncId).append(name);
    m_rows.push_back(seen);
    m_slots[slot] = static_cast<std::uint32_t>(m_rows.size());
}

// The slot of the identifier, or the free one where it belongs.
size_t CSeenRows::SlotOf(std::string_view identifier) const {
    size_t slot = HashOf(identifier) & (m_slots.size() - 1);
    while (m_slots[slot] != 0 && IdentifierOf(m_rows[m_slots[slot] - 1]) != identifier)
        slot = (slot + 1) & (m_slots.size() - 1);
    return slot;
}

void CSeenRows::StartAnew() {
    m_syncIdsNow.clear();
    for (Row& row : m_rows)
        row.isStillThere = false;
}

FILETIME CSeenRows::TimeOf(const SBinary& identifier, const FILETIME& now) {
    if (m_slots.empty()) return now;
    const std::uint32_t number = m_slots[SlotOf(BytesOf(identifier))];
    if (number != 0) m_rows[number - 1].isStillThere = true;
    const auto saved = m_own.saved.find(COwnWrites::KeyOf(identifier));
    if (saved != m_own.saved.end()) {
        const FILETIME& time = saved->second.time;
        return time.dwLowDateTime == 0 && time.dwHighDateTime == 0 ? now : time;
    }
    // What the run itself has made and could not note, and what it tried to delete.
    if (number == 0 || m_rows[number - 1].isDeletedHere) return now;
    return m_rows[number - 1].time;
}

void CSeenRows::NoteStillThere(std::string_view syncId) {
    m_syncIdsNow.push_back(HashOf(syncId));
}

void CSeenRows::ForEachGone(const std::function<void(const Gone&)>& body) const {
    for (const Row& row : m_rows) {
        if (row.isStillThere || row.isChangedByRun) continue;
        const std::string key(IdentifierOf(row));
        if (m_own.targets.count(key)) continue;
        const auto saved = m_own.saved.find(key);
        Gone gone;
        gone.identifier = {row.cbIdentifier, reinterpret_cast<BYTE*>(const_cast<char*>(key.data()))};
        gone.time = row.time;
        gone.syncId = saved != m_own.saved.end() ? saved->second.syncId : SyncIdOf(row);
        // Without a link nothing on the other side could be found by it, and an item that came to this side
        // under the same ID stands for the one that went.
        const bool isBorne =
            std::find(m_syncIdsNow.begin(), m_syncIdsNow.end(), HashOf(gone.syncId)) != m_syncIdsNow.end();
        if (gone.syncId.empty() || isBorne) continue;
        gone.name = m_texts.substr(row.at + row.cbIdentifier + row.cbSyncId, row.cbName);
        body(gone);
    }
}
