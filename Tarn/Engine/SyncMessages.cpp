#include <Tarn/Engine/SyncMessages.h>

CSyncMessage& CSyncMessages::Add(std::unique_ptr<CSyncMessage> message) {
    m_messages.push_back(std::move(message));
    return *m_messages.back();
}

void CSyncMessages::Clear() {
    m_bySyncId.clear();
    m_indexed = 0;
    m_messages.clear();
}

void CSyncMessages::Drop(size_t index) {
    // Emptied with its room: to clear an empty map of many buckets costs as much as to clear a full one.
    if (!m_bySyncId.empty()) std::unordered_map<std::string, CSyncMessage*>().swap(m_bySyncId);
    m_indexed = m_messages.size();
    m_messages.at(index).reset();
}

CSyncMessage* CSyncMessages::Find(const std::string& syncId) const {
    for (; m_indexed < m_messages.size(); ++m_indexed)
        m_bySyncId[m_messages[m_indexed]->m_syncId] = m_messages[m_indexed].get();
    const auto found = m_bySyncId.find(syncId);
    return found == m_bySyncId.end() ? nullptr : found->second;
}
