#include <Tarn/Engine/SyncMessages.h>

CSyncMessage& CSyncMessages::Add(std::unique_ptr<CSyncMessage> message) {
    m_messages.push_back(std::move(message));
    return *m_messages.back();
}

void CSyncMessages::Clear() {
    m_bySyncId.Clear();
    m_indexed = 0;
    m_messages.clear();
}

void CSyncMessages::Drop(size_t index) {
    m_bySyncId.Clear();
    m_indexed = m_messages.size();
    m_messages.at(index).reset();
}

CSyncMessage* CSyncMessages::Find(std::string_view syncId) const {
    const auto syncIdOf = [this](std::uint32_t number) -> std::string_view {
        return m_messages[number]->m_syncId;
    };
    for (; m_indexed < m_messages.size(); ++m_indexed)
        m_bySyncId.Insert(static_cast<std::uint32_t>(m_indexed), syncIdOf, true);
    const std::uint32_t found = m_bySyncId.Find(syncId, syncIdOf);
    return found == CFlatIndex::None ? nullptr : m_messages[found].get();
}
