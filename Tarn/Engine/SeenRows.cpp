#include <Tarn/Engine/SeenRows.h>

#include <Tarn/Engine/SyncIdentity.h>

#include <algorithm>

namespace {

std::string_view TextOf(const CMapiPropValue& cell) {
    if (cell.Type() != PT_STRING8 || !cell.Get()->Value.lpszA) return {};
    return cell.Get()->Value.lpszA;
}

// A row whose stamp is another item's has no ID of its own.
std::string_view SyncIdOfRow(const CMapiRowSet& rows, ULONG row, const CItemKeyView& key) {
    const CMapiPropValue stamp = rows.Cell(row, COL_STAMP);
    const bool isOwn = stamp.Type() == PT_BINARY && EqualBinary(key, stamp.Binary());
    return isOwn ? TextOf(rows.Cell(row, COL_SYNC_ID)) : std::string_view();
}

std::string_view NameOfRow(const CMapiRowSet& rows, ULONG row) {
    const CMapiPropValue subject = rows.Cell(row, COL_SUBJECT);
    return TextOf(subject.Type() == PT_STRING8 ? subject : rows.Cell(row, COL_DISPLAY_NAME));
}

std::uint64_t HashOf(std::string_view text) {
    return std::hash<std::string_view>()(text);
}

}  // namespace

// From the changes to the rows, by the index that the copy loop needs as well. The last change of a sync ID
// stands.
CRowMarks MarkRows(const CMapiRowSet& rows, const CSyncMessages& otherChanges) {
    CRowMarks marks;
    if (otherChanges.IsEmpty()) return marks;
    marks.resize(rows.Count());
    std::vector<ULONG> bearers;
    for (size_t i = 0; i < otherChanges.Count(); ++i) {
        const CSyncMessage& change = otherChanges.At(i);
        if (change.m_syncId.empty()) continue;
        const bool deletes = change.m_state == STATE_DELETED;
        rows.FindRows(COL_SYNC_ID, change.m_syncId, bearers);
        for (const ULONG row : bearers) {
            const CItemKeyView key = KeyOfRow(rows, row);
            if (!key.IsEmpty() && !SyncIdOfRow(rows, row, key).empty())
                marks[row] = deletes ? MARK_CHANGED_BY_RUN | MARK_DELETED_BY_RUN : MARK_CHANGED_BY_RUN;
        }
    }
    return marks;
}

CSeenRows::CSeenRows(const CMapiRowSet& rows, const CRowMarks& marks, const COwnWrites& own) : m_own(own) {
    if (!rows.IsValid()) return;
    m_byKey.Reserve(rows.Count());
    m_rows.reserve(rows.Count());
    for (ULONG row = 0; row < rows.Count(); ++row)
        Add(rows, row, marks.empty() ? std::uint8_t{0} : marks.at(row));
}

void CSeenRows::Add(const CMapiRowSet& rows, ULONG row, std::uint8_t mark) {
    const CItemKeyView key = KeyOfRow(rows, row);
    if (key.IsEmpty()) return;
    const std::string_view syncId = SyncIdOfRow(rows, row, key);
    const std::string_view name = NameOfRow(rows, row);
    Row seen{};
    seen.time = rows.Cell(row, COL_MODIFIED).Time();
    seen.at = m_texts.size();
    seen.cbKey = static_cast<std::uint32_t>(key.Bytes().size());
    seen.cbSyncId = static_cast<std::uint32_t>(syncId.size());
    seen.cbName = static_cast<std::uint32_t>(name.size());
    seen.mark = mark;
    m_texts.append(key.Bytes()).append(syncId).append(name);
    m_rows.push_back(seen);
    const auto keyAt = [this](std::uint32_t number) { return KeyAt(number); };
    if (m_byKey.Insert(static_cast<std::uint32_t>(m_rows.size() - 1), keyAt)) return;
    m_texts.resize(seen.at);  // the first row of a key stands
    m_rows.pop_back();
}

void CSeenRows::StartAnew() {
    m_syncIdsNow.clear();
    for (Row& row : m_rows)
        row.isStillThere = false;
}

FILETIME CSeenRows::TimeOf(const CItemKeyView& key, const FILETIME& now) {
    const std::uint32_t number = m_byKey.Find(key.Bytes(), [this](std::uint32_t row) { return KeyAt(row); });
    Row* row = number == CFlatIndex::None ? nullptr : &m_rows[number];
    if (row) row->isStillThere = true;
    if (const auto saved = m_own.FindSaved(key))
        return saved->time.dwLowDateTime == 0 && saved->time.dwHighDateTime == 0 ? now : saved->time;
    // What the run itself has made and could not note, and what it tried to delete.
    if (!row || (row->mark & MARK_DELETED_BY_RUN)) return now;
    return row->time;
}

void CSeenRows::NoteStillThere(std::string_view syncId) {
    m_syncIdsNow.push_back(HashOf(syncId));
}

std::vector<std::uint64_t> CSeenRows::SortedSyncIdsNow() const {
    std::vector<std::uint64_t> sorted = m_syncIdsNow;
    std::sort(sorted.begin(), sorted.end());
    return sorted;
}

void CSeenRows::ForEachGone(const std::function<void(const Gone&)>& body) const {
    std::vector<std::uint64_t> borne;  // made when the first row is found gone
    for (const Row& row : m_rows) {
        if (row.isStillThere || (row.mark & MARK_CHANGED_BY_RUN) || m_own.IsTarget(KeyOf(row))) continue;
        const auto saved = m_own.FindSaved(KeyOf(row));
        Gone gone;
        gone.syncId = saved ? std::string(saved->syncId) : SyncIdOf(row);
        if (borne.empty()) borne = SortedSyncIdsNow();
        // Without a link nothing on the other side could be found by it, and an item that came to this side
        // under the same ID stands for the one that went.
        if (gone.syncId.empty() || std::binary_search(borne.begin(), borne.end(), HashOf(gone.syncId)))
            continue;
        gone.key = KeyOf(row);
        gone.time = row.time;
        gone.name = m_texts.substr(row.at + row.cbKey + row.cbSyncId, row.cbName);
        body(gone);
    }
}
