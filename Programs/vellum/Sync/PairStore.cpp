#include <Programs/vellum/Sync/PairStore.h>

#include <Programs/vellum/Session/Explain.h>

#include <algorithm>

namespace {

constexpr const char* settingsSubject = "VellumSettings_V100";
constexpr const char* settingsClass = "IPM.Vellum";

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t at = 0;
    while (at < text.size()) {
        const auto end = std::min(text.find_first_of(std::string("\r\n\0", 3), at), text.size());
        if (end > at) lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

// Semicolons separate the fields of the text form and cannot be kept in it.
std::string WithoutSemicolons(std::string text) {
    std::replace(text.begin(), text.end(), ';', ',');
    return text;
}

}  // namespace

IMAPIFolderPtr CPairStore::Home() {
    const IMsgStorePtr store = m_session.Mapi().OpenDefaultStore();
    if (!store)
        throw CCommandError(ExitCode::NotOpen,
                            "The profile \"" + m_session.Name() + "\" has no store to keep its pairs in",
                            "Create one:  vellum store create NAME");
    return store.GetReceiveFolder("");
}

std::vector<CTarnSetting> CPairStore::Load() {
    const IMessagePtr message = FindOrCreateHidden(Home(), settingsSubject, settingsClass, false);
    std::vector<CTarnSetting> pairs;
    if (!message) return pairs;
    for (const std::string& line : Lines(message.GetBody())) {
        if (line.front() == '+') {
            if (!pairs.empty()) pairs.back().EmailsFromText({line});
            continue;
        }
        CTarnSetting pair;
        pair.FromText(line);
        if (pair.m_sourceKey.find(':') != std::string::npos &&
            pair.m_targetKey.find(':') != std::string::npos)
            pairs.push_back(pair);
    }
    return pairs;
}

void CPairStore::Save(std::vector<CTarnSetting> pairs) {
    std::string text;
    for (CTarnSetting& pair : pairs) {
        if (pair.m_deleted != 0) continue;
        pair.m_sourcePath = WithoutSemicolons(pair.m_sourcePath);
        pair.m_targetPath = WithoutSemicolons(pair.m_targetPath);
        if (!text.empty() && text.back() != '\n') text += "\r\n";
        text += pair.ToText();
    }
    try {
        IMessagePtr message = FindOrCreateHidden(Home(), settingsSubject, settingsClass, true);
        message.SetBody(text);
        message.SaveChanges(KEEP_OPEN_READWRITE);
    } catch (const CMAPIException& e) {
        throw CCommandError(ExitCode::NotOpen, "The list of pairs cannot be written: " + Explain(e.Hr()));
    }
}

std::string PairLabel(const std::vector<CTarnSetting>& pairs, std::size_t index) {
    const CTarnSetting& pair = pairs.at(index);
    return pair.m_groupId.empty() ? std::to_string(index + 1) : pair.m_groupId;
}

std::size_t FindPair(const std::vector<CTarnSetting>& pairs, const std::string& word) {
    for (std::size_t i = 0; i < pairs.size(); ++i)
        if (pairs[i].m_groupId == word || std::to_string(i + 1) == word) return i;
    const auto wanted = SplitFolderPath(word);
    for (std::size_t i = 0; i < pairs.size(); ++i)
        if (!wanted.empty() && SplitFolderPath(pairs[i].m_sourcePath) == wanted) return i;
    if (pairs.empty())
        throw CCommandError(ExitCode::Usage,
                            "There is no pair \"" + word + "\": the profile has no pairs yet",
                            "Add one:  vellum pair add SOURCE TARGET");
    std::string names;
    for (std::size_t i = 0; i < pairs.size(); ++i)
        names += (i ? ", " : "") + PairLabel(pairs, i);
    throw CCommandError(ExitCode::Usage, "There is no pair \"" + word + "\"", "There are: " + names);
}

bool IsSameOrBelow(const std::string& path, const std::string& above) {
    return path == above || (path.size() > above.size() && path.compare(0, above.size(), above) == 0 &&
                             path[above.size()] == '\\');
}
