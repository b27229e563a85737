#include <Tarn/Engine/SyncProtocol.h>

void CSyncProtocol::Add(const std::string& destination, const std::string& origin, const std::string& subject,
                        int state, const std::string& detail, const std::string& syncId) {
    m_entries.push_back({destination, origin, subject, detail, state, syncId});
}
