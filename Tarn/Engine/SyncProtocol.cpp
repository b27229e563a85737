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
    Add({destination, origin, subject, detail, state, syncId, detail, false});
}

void CSyncProtocol::Add(const CSyncProtocolEntry& entry) {
    CPacked packed{};
    packed.at = m_texts.size();
    packed.cbSubject = static_cast<std::uint32_t>(entry.m_subject.size());
    packed.cbSyncId = static_cast<std::uint32_t>(entry.m_syncId.size());
    packed.destination = Share(entry.m_destination);
    packed.origin = Share(entry.m_origin);
    packed.detail = Share(entry.m_detail);
    packed.done = Share(entry.m_done);
    packed.state = entry.m_state;
    packed.toSource = entry.m_toSource;
    m_texts.append(entry.m_subject).append(entry.m_syncId);
    m_entries.push_back(packed);
}

void CSyncProtocol::SetDone(size_t index, const std::string& done) {
    CPacked& entry = m_entries.at(index);
    entry.detail = entry.done = Share(done);
}

CSyncProtocolEntry CSyncProtocol::At(size_t index) const {
    const CPacked& entry = m_entries.at(index);
    return {m_shared[entry.destination],
            m_shared[entry.origin],
            m_texts.substr(entry.at, entry.cbSubject),
            m_shared[entry.detail],
            entry.state,
            m_texts.substr(entry.at + entry.cbSubject, entry.cbSyncId),
            m_shared[entry.done],
            entry.toSource};
}
