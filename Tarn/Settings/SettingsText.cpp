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

// What stands between semicolons and at the end of a line is only shown.
std::string Shown(std::string path) {
    for (char& c : path)
        if (c == ';' || static_cast<unsigned char>(c) < ' ') c = c == ';' ? ',' : ' ';
    return path;
}

// A copy that is read back as it is, behind a record with the fields of `before`: a field that is empty
// would vanish from the line, so that those behind it move forward, or the one of the record before would
// stand in its place. A blank says nothing in either field.
CTarnSetting Shielded(const CTarnSetting& setting, const CTarnSetting& before) {
    CTarnSetting shielded = setting;
    shielded.m_sourcePath = Shown(setting.m_sourcePath);
    shielded.m_targetPath = Shown(setting.m_targetPath);
    if (setting.m_query.empty() && !before.m_query.empty()) shielded.m_query = " ";
    if (setting.m_groupId.empty() && (!before.m_groupId.empty() || !shielded.m_query.empty()))
        shielded.m_groupId = " ";
    return shielded;
}

bool SameMembers(const CTarnSetting& a, const CTarnSetting& b) {
    // An empty text of a member comes back as a blank.
    const auto same = [](const std::string& x, const std::string& y) {
        return (x.empty() ? " " : x) == (y.empty() ? " " : y);
    };
    return std::equal(a.m_emails.begin(), a.m_emails.end(), b.m_emails.begin(), b.m_emails.end(),
                      [&](const CSyncEmailSetting& x, const CSyncEmailSetting& y) {
                          return same(x.m_name, y.m_name) && same(x.m_address, y.m_address) &&
                                 same(x.m_spare, y.m_spare);
                      });
}

bool SameRecord(const CTarnSetting& a, const CTarnSetting& b) {
    return a.m_sourceKey == b.m_sourceKey && a.m_targetKey == b.m_targetKey && a.m_flags == b.m_flags &&
           Shown(a.m_sourcePath) == Shown(b.m_sourcePath) && Shown(a.m_targetPath) == Shown(b.m_targetPath) &&
           a.m_groupId == b.m_groupId && a.m_query == b.m_query && SameMembers(a, b);
}

// A record without one of its keys cannot be read: the line's fields would move into their place.
bool IsWritten(const CTarnSetting& setting) {
    if (setting.m_sourceKey.empty() || setting.m_targetKey.empty()) return false;
    if (setting.m_deleted != 0) return false;
    const bool hasPath = !setting.m_sourcePath.empty() && setting.m_sourcePath[0] != '-';
    return hasPath || !setting.m_emails.empty();
}

}  // namespace

bool CTarnSettings::ParseSettingsText(const std::string& text) {
    return ParseRecords(text, false) == 0;
}

size_t CTarnSettings::ParseWholeRecords(const std::string& text) {
    return ParseRecords(text, true);
}

// Answers how many records were not understood, or only in part.
size_t CTarnSettings::ParseRecords(const std::string& text, bool onlyWhole) {
    CTarnSetting record;  // mostly not reset between lines: a short line inherits from the one before
    std::vector<std::string> members;
    size_t unread = 0;
    CLineReader reader(text);
    for (;;) {
        reader.SkipOneLineEnd();
        const std::string line = reader.Next();
        TraceText(nullptr, "Load Settings: " + line.substr(0, 200));
        while (reader.AtMember())
            members.push_back(reader.Next());
        const bool isWhole = IsWholeRecordLine(line);
        if (onlyWhole) record = {};
        if (isWhole || !onlyWhole) record.FromText(line);
        const bool known = std::any_of(m_list.begin(), m_list.end(), [&](const CTarnSetting& other) {
            return other.m_sourceKey == record.m_sourceKey;
        });
        // Members belong to the record that they stand behind. Those of the records before it would be
        // written with it, and be more with each time that the list is read.
        record.m_emails.clear();
        if (!line.empty() && !known && !record.m_sourceKey.empty() && !record.m_targetKey.empty()) {
            record.EmailsFromText(members);
            m_list.push_back(record);
            unread += isWhole ? 0 : 1;
        } else if (!line.empty() || !members.empty()) {
            ++unread;
        }
        if (reader.AtEnd()) return unread;
        members.clear();
    }
}

std::string CTarnSettings::BuildSettingsText() {
    std::string text;
    bool first = true;
    CTarnSetting before;
    for (CTarnSetting& setting : m_list) {
        if (!IsWritten(setting)) continue;
        const std::string line = Shielded(setting, before).ToText();
        setting.ToText();  // blanks its empty paths
        before = setting;
        TraceText(nullptr, "Setting: " + line.substr(0, 300));
        if (!first) text += "\r\n";
        first = false;
        text += line;
    }
    return text;
}

// The first record that the text does not give back, for a person; empty if it gives back all.
std::string CTarnSettings::WhatIsNotReadBack(const std::string& text) const {
    CTarnSettings read;
    read.ParseSettingsText(text);
    size_t at = 0;
    for (const CTarnSetting& setting : m_list) {
        if (!IsWritten(setting)) continue;
        if (at == read.Count() || !SameRecord(setting, read.At(at)))
            return "the pair \"" + (setting.m_groupId.empty() ? setting.m_sourcePath : setting.m_groupId) +
                   "\"";
        ++at;
    }
    return at == read.Count() ? std::string() : "more than was written";
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
