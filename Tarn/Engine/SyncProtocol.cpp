#include <Tarn/Engine/SyncProtocol.h>

void CSyncProtocol::Clear() {
    *this = CSyncProtocol();
}

std::uint32_t CSyncProtocol::Share(const std::string& text) {
    const auto textAt = [this](std::uint32_t i) -> std::string_view { return m_shared[i]; };
    const std::uint32_t known = m_byText.Find(text, textAt);
    if (known != CFlatIndex::None) return known;
    const auto added = static_cast<std::uint32_t>(m_shared.size());
    m_shared.push_back(text);
    m_byText.Insert(added, textAt);
    return added;
}

void CSyncProtocol::Add(const std::string& destination, const std::string& origin, const std::string& subject,
                        int state, const std::string& detail, const std::string& syncId) {
    CPacked entry{};
    entry.at = m_texts.size();
    entry.cbSubject = static_cast<std::uint32_t>(subject.size());
    entry.cbSyncId = static_cast<std::uint32_t>(syncId.size());
    entry.destination = Share(destination);
    entry.origin = Share(origin);
    entry.detail = Share(detail);
    entry.state = state;
    m_texts.append(subject).append(syncId);
    m_entries.push_back(entry);
}

CSyncProtocolEntry CSyncProtocol::At(size_t index) const {
    const CPacked& entry = m_entries.at(index);
    return {m_shared[entry.destination],
            m_shared[entry.origin],
            m_texts.substr(entry.at, entry.cbSubject),
            m_shared[entry.detail],
            entry.state,
            m_texts.substr(entry.at + entry.cbSubject, entry.cbSyncId)};
}
