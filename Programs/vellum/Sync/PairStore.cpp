#include <Programs/vellum/Sync/PairStore.h>

#include <Programs/vellum/Console/ExitCode.h>

#include <algorithm>

namespace {

// Semicolons separate the fields of the text form and cannot be kept in it.
std::string WithoutSemicolons(std::string text) {
    std::replace(text.begin(), text.end(), ';', ',');
    return text;
}

}  // namespace

std::vector<CTarnSetting> CPairStore::Load() {
    if (!m_session.Mapi().OpenDefaultStore())
        throw CCommandError(ExitCode::NotOpen,
                            "The profile \"" + m_session.Name() + "\" has no store to keep its pairs in",
                            "Create one:  vellum store create NAME");
    m_settings.Clear();
    m_settings.Load(m_session.Mapi());
    std::vector<CTarnSetting> pairs;
    for (std::size_t i = 0; i < m_settings.Count(); ++i)
        if (m_settings.At(i).m_deleted == 0) pairs.push_back(m_settings.At(i));
    return pairs;
}

void CPairStore::Save(const std::vector<CTarnSetting>& pairs) {
    m_settings.Clear();
    for (CTarnSetting pair : pairs) {
        pair.m_sourcePath = WithoutSemicolons(pair.m_sourcePath);
        pair.m_targetPath = WithoutSemicolons(pair.m_targetPath);
        m_settings.Add(pair);
    }
    if (!m_settings.Save(m_session.Mapi()))
        throw CCommandError(ExitCode::NotOpen, "The list of pairs could not be written");
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
