#include <Tarn/Engine/SyncTrace.h>
#include <Tarn/Engine/TarnSetting.h>

#include <cstdlib>

namespace {
std::vector<std::string> Tokens(const std::string& line) {
    std::vector<std::string> tokens;
    size_t at = line.find_first_not_of(';');
    while (at != std::string::npos) {
        const size_t end = line.find(';', at);
        tokens.push_back(line.substr(at, end == std::string::npos ? end : end - at));
        at = line.find_first_not_of(';', end);
    }
    return tokens;
}

void TakeToken(const std::vector<std::string>& tokens, size_t index, std::string& field) {
    if (index < tokens.size()) field = tokens[index];
}

std::string BlankIfEmpty(const std::string& text) {
    return text.empty() ? " " : text;
}
}  // namespace

std::string CTarnSetting::ToText() {
    m_sourcePath = BlankIfEmpty(m_sourcePath);
    m_targetPath = BlankIfEmpty(m_targetPath);
    std::string text = m_sourceKey + ';' + m_targetKey + ';' + FormatText("%d", static_cast<int>(m_flags)) +
                       ";0;0;0;0;" + m_sourcePath + ';' + m_targetPath + ';' + m_groupId + ';' + m_query;
    if (m_emails.empty()) return text;
    text += "\r\n";
    for (const CSyncEmailSetting& member : m_emails)
        text += '+' + BlankIfEmpty(member.m_spare) + ';' + BlankIfEmpty(member.m_address) + ';' +
                BlankIfEmpty(member.m_name) + "\r\n";
    return text;
}

void CTarnSetting::FromText(const std::string& line) {
    const std::vector<std::string> tokens = Tokens(line);
    TakeToken(tokens, 0, m_sourceKey);
    TakeToken(tokens, 1, m_targetKey);
    if (tokens.size() > 2) m_flags = static_cast<ULONG>(std::strtoll(tokens[2].c_str(), nullptr, 10));
    TakeToken(tokens, 7, m_sourcePath);
    TakeToken(tokens, 8, m_targetPath);
    TakeToken(tokens, 9, m_groupId);
    TakeToken(tokens, 10, m_query);
    // A blank is what writers put where nothing must vanish.
    for (std::string* field : {&m_groupId, &m_query})
        if (field->find_first_not_of(' ') == std::string::npos) field->clear();
}

void CTarnSetting::EmailsFromText(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        std::vector<std::string> tokens = Tokens(line);
        if (!tokens.empty() && tokens[0].front() == '+') tokens[0].erase(0, 1);
        CSyncEmailSetting member;
        TakeToken(tokens, 0, member.m_spare);
        TakeToken(tokens, 1, member.m_address);
        TakeToken(tokens, 2, member.m_name);
        m_emails.push_back(member);
    }
}
