#include <Tarn/Engine/OwnWrites.h>

void COwnWrites::Clear() {
    std::vector<CItem>().swap(m_items);
    std::string().swap(m_keys);
    std::string().swap(m_syncIds);
    m_byKey.Clear();
    m_pass = 1;
}

const COwnWrites::CItem* COwnWrites::Find(const CItemKeyView& item) const {
    const std::uint32_t found = m_byKey.Find(item.Bytes(), [this](std::uint32_t i) { return KeyAt(i); });
    return found == CFlatIndex::None ? nullptr : &m_items[found];
}

COwnWrites::CItem& COwnWrites::FindOrAdd(const CItemKeyView& itemKey) {
    const std::string_view key = itemKey.Bytes();
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

void COwnWrites::NoteSaved(const CItemKeyView& itemKey, const FILETIME& time, std::string_view syncId) {
    CItem& item = FindOrAdd(itemKey);
    item.time = time;
    item.isSaved = true;
    // Most items are saved a second time with the ID that they have.
    if (std::string_view(m_syncIds).substr(item.syncId, item.cbSyncId) == syncId) return;
    item.syncId = m_syncIds.size();
    item.cbSyncId = static_cast<std::uint32_t>(syncId.size());
    m_syncIds.append(syncId);
}

void COwnWrites::NoteTarget(const CItemKeyView& item) {
    FindOrAdd(item).pass = m_pass;
}

std::optional<COwnWrites::CSaved> COwnWrites::FindSaved(const CItemKeyView& item) const {
    const CItem* found = Find(item);
    if (!found || !found->isSaved) return {};
    return CSaved{found->time, std::string_view(m_syncIds).substr(found->syncId, found->cbSyncId)};
}

bool COwnWrites::IsRemoved(const CItemKeyView& item) const {
    const CItem* found = Find(item);
    return found && found->isRemoved;
}

bool COwnWrites::IsTarget(const CItemKeyView& item) const {
    const CItem* found = Find(item);
    return found && found->pass != 0;
}

bool COwnWrites::IsTargetOfPass(const CItemKeyView& item) const {
    const CItem* found = Find(item);
    return found && found->pass == m_pass;
}
