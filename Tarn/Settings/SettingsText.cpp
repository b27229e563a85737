// The text form of the list: what lies in the message's body and in the file.
#include <Tarn/Engine/SyncTrace.h>
#include <Tarn/Settings/TarnSettings.h>

#include <algorithm>

namespace {

// Cuts the text into lines. A line ends at CR; an LF directly behind it belongs to the end.
class CLineReader {
public:
    explicit CLineReader(const std::string& text) : m_text(text) {}

    bool AtEnd() const { return m_ended; }
    bool AtMember() const { return !m_ended && m_at < m_text.size() && m_text[m_at] == '+'; }

    // CR and its LF, or one LF. Behind the member lines of a record stands such a line end of its own; its LF
    // must not become part of the next record's key.
    void SkipOneLineEnd() {
        if (m_at < m_text.size() && m_text[m_at] == '\r') ++m_at;
        if (m_at < m_text.size() && m_text[m_at] == '\n') ++m_at;
    }

    std::string Next() {
        const size_t end = m_text.find('\r', m_at);
        std::string line = m_text.substr(std::min(m_at, m_text.size()), end - m_at);
        if (end == std::string::npos) {
            m_ended = true;
            m_at = m_text.size();
        } else {
            m_at = end + 1;
            if (m_at < m_text.size() && m_text[m_at] == '\n') ++m_at;
        }
        return line;
    }

private:
    const std::string& m_text;
    size_t m_at = 0;
    bool m_ended = false;
};

constexpr size_t kFieldsOfWriter = 9;  // with both keys and paths, without group and query
constexpr size_t kFieldsOfReader = 11;

size_t CountFields(const std::string& line) {
    size_t fields = 0;
    bool inside = false;
    for (const char c : line) {
        if (c == ';')
            inside = false;
        else if (!inside)
            inside = true, ++fields;
    }
    return fields;
}

// A line that a writer of this form can have written.
bool IsWholeRecordLine(const std::string& line) {
    const size_t fields = CountFields(line);
    return fields >= kFieldsOfWriter && fields <= kFieldsOfReader && line.find('\0') == std::string::npos &&
           line.find('\n') == std::string::npos;
}

bool IsWritten(const CTarnSetting& setting) {
    if (setting.m_deleted != 0) return false;
    const bool hasPath = !setting.m_sourcePath.empty() && setting.m_sourcePath[0] != '-';
    return hasPath || !setting.m_emails.empty();
}

}  // namespace

bool CTarnSettings::ParseSettingsText(const std::string& text) {
    CTarnSetting record;  // not reset between lines: a short line inherits from the one before
    std::vector<std::string> members;
    bool whole = true;
    CLineReader reader(text);
    for (;;) {
        reader.SkipOneLineEnd();
        const std::string line = reader.Next();
        TraceText(nullptr, "Load Settings: " + line.substr(0, 200));
        while (reader.AtMember())
            members.push_back(reader.Next());
        record.FromText(line);
        const bool known = std::any_of(m_list.begin(), m_list.end(), [&](const CTarnSetting& other) {
            return other.m_sourceKey == record.m_sourceKey;
        });
        if (!line.empty() && !known && !record.m_sourceKey.empty() && !record.m_targetKey.empty()) {
            record.EmailsFromText(members);
            m_list.push_back(record);
            whole = whole && IsWholeRecordLine(line);
        } else if (!line.empty() || !members.empty()) {
            whole = false;
        }
        if (reader.AtEnd()) return whole;
        members.clear();
    }
}

std::string CTarnSettings::BuildSettingsText() {
    std::string text;
    bool first = true;
    for (CTarnSetting& setting : m_list) {
        if (!IsWritten(setting)) continue;
        const std::string line = setting.ToText();
        TraceText(nullptr, "Setting: " + line.substr(0, 300));
        if (!first) text += "\r\n";
        first = false;
        text += line;
    }
    return text;
}

void CTarnSettings::Clear() {
    m_list.clear();
    m_readWhole = true;
    m_unreadText.clear();
}

CTarnSetting* CTarnSettings::Find(const std::string& sourceKey) {
    const auto it = std::find_if(m_list.begin(), m_list.end(), [&](const CTarnSetting& setting) {
        return setting.m_deleted == 0 && setting.m_sourceKey == sourceKey;
    });
    return it == m_list.end() ? nullptr : &*it;
}

void CTarnSettings::InsertOrReplace(const CTarnSetting& setting) {
    if (CTarnSetting* known = Find(setting.m_sourceKey))
        *known = setting;
    else
        m_list.push_back(setting);
}
