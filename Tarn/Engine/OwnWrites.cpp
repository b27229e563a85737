#include <Tarn/Engine/OwnWrites.h>

void COwnWrites::Clear() {
    std::vector<CItem>().swap(m_items);
    std::string().swap(m_keys);
    std::string().swap(m_syncIds);
    m_byKey.Clear();
    m_pass = 1;
}

const COwnWrites::CItem* COwnWrites::Find(std::string_view entryId) const {
    const std::uint32_t item = m_byKey.Find(entryId, [this](std::uint32_t i) { return KeyAt(i); });
    return item == CFlatIndex::None ? nullptr : &m_items[item];
}

COwnWrites::CItem& COwnWrites::FindOrAdd(const SBinary& entryId) {
    const std::string_view key = BytesOf(entryId);
    const auto keyAt = [this](std::uint32_t i) { return KeyAt(i); };
    const std::uint32_t known = m_byKey.Find(key, keyAt);
    if (known != CFlatIndex::None) return m_items[known];
    CItem item{};
    item.key = m_keys.size();
    item.cbKey = static_cast<std::uint32_t>(key.size());
    m_keys.append(key);
    m_items.push_back(item);
    m_byKey.Insert(static_cast<std::uint32_t>(m_items.size() - 1), keyAt);
    return m_items.back();
}

void COwnWrites::NoteSaved(const SBinary& entryId, const FILETIME& time, std::string_view syncId) {
    CItem& item = FindOrAdd(entryId);
    item.time = time;
    item.isSaved = true;
    // Most items are saved a second time with the ID that they have.
    if (std::string_view(m_syncIds).substr(item.syncId, item.cbSyncId) == syncId) return;
    item.syncId = m_syncIds.size();
    item.cbSyncId = static_cast<std::uint32_t>(syncId.size());
    m_syncIds.append(syncId);
}

void COwnWrites::NoteTarget(const SBinary& entryId) {
    FindOrAdd(entryId).pass = m_pass;
}

std::optional<COwnWrites::CSaved> COwnWrites::FindSaved(std::string_view entryId) const {
    const CItem* item = Find(entryId);
    if (!item || !item->isSaved) return {};
    return CSaved{item->time, std::string_view(m_syncIds).substr(item->syncId, item->cbSyncId)};
}

bool COwnWrites::IsTarget(std::string_view entryId) const {
    const CItem* item = Find(entryId);
    return item && item->pass != 0;
}

bool COwnWrites::IsTargetOfPass(std::string_view entryId) const {
    const CItem* item = Find(entryId);
    return item && item->pass == m_pass;
}
