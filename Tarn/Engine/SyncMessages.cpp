#include <Tarn/Engine/SyncMessages.h>

CSyncMessage& CSyncMessages::Add(std::unique_ptr<CSyncMessage> message) {
    m_bySyncId[message->m_syncId] = message.get();
    m_messages.push_back(std::move(message));
    return *m_messages.back();
}

void CSyncMessages::Clear() {
    m_bySyncId.clear();
    m_messages.clear();
}

CSyncMessage* CSyncMessages::Find(const std::string& syncId) const {
    const auto found = m_bySyncId.find(syncId);
    return found == m_bySyncId.end() ? nullptr : found->second;
}
