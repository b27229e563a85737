#include <Programs/vellum/Sync/PairStore.h>

#include <Programs/vellum/Console/ExitCode.h>
#include <Tarn/Settings/SettingsStamp.h>

#include <algorithm>

namespace {

[[noreturn]] void ThrowUnreadable() {
    throw CCommandError(ExitCode::NotOpen, "The list of pairs could not be read",
                        "Nothing was run or changed. Try again when its store or file can be opened.");
}

// The reason is that of opening it by its entry ID.
[[noreturn]] void ThrowOutOfReach(CProfileSession& session, const CStoreInfo& store) {
    std::string why;
    try {
        session.OpenStore(store);
    } catch (const CCommandError& e) {
        why = std::string(". ") + e.what();
    }
    throw CCommandError(
        ExitCode::NotOpen,
        "The list of pairs lies in the default store, \"" + store.name + "\", which is out of reach" + why,
        "Bring its file back (\"vellum store restore\" takes a backup), then try again.");
}

}  // namespace

void CPairStore::RequireStore() {
    if (m_session.Mapi().OpenDefaultStore()) return;
    const auto stores = m_session.Stores();
    for (const CStoreInfo& store : stores)
        if (store.isDefault) ThrowOutOfReach(m_session, store);
    if (stores.empty())
        throw CCommandError(ExitCode::NotOpen,
                            "The profile \"" + m_session.Name() + "\" has no store to keep its pairs in",
                            "Create one:  vellum store create NAME");
    throw CCommandError(ExitCode::NotOpen,
                        "None of the stores of the profile \"" + m_session.Name() +
                            "\" is the default one, which keeps its pairs",
                        "Choose it:  vellum store default NAME");
}

CPairStore::Pairs CPairStore::Listed() const {
    Pairs pairs;
    for (std::size_t i = 0; i < m_settings.Count(); ++i)
        if (m_settings.At(i).m_deleted == 0) pairs.push_back(m_settings.At(i));
    return pairs;
}

CPairStore::Pairs CPairStore::Load() {
    RequireStore();
    // Before the list: what is written in between is noticed.
    m_stamp = StampNow(m_session);
    if (!m_settings.Load(m_session.Mapi())) ThrowUnreadable();
    return Listed();
}

std::string CPairStore::StampNow(CProfileSession& session) {
    try {
        return SettingsStamp(session.Mapi());
    } catch (const CMAPIException&) {
        return {};
    }
}

std::optional<CTarnSetting> CPairStore::Now(const CTarnSetting& pair) {
    for (const CTarnSetting& listed : Load())
        if (IsSamePair(listed, pair)) return listed;
    return {};
}

void CPairStore::Change(const std::function<bool(Pairs&)>& change) {
    RequireStore();
    const auto replace = [&](CTarnSettings& settings) {
        Pairs pairs = Listed();
        if (!change(pairs)) return false;
        settings.Clear();
        for (const CTarnSetting& pair : pairs)
            settings.Add(pair);
        return true;
    };
    if (m_settings.Change(m_session.Mapi(), replace)) return;
    if (!m_settings.WasReadable()) ThrowUnreadable();
    throw CCommandError(ExitCode::NotOpen, "The list of pairs could not be written; it stands as it was");
}

void CPairStore::Move(const std::function<void()>& choose, const std::function<void()>& chooseFormer) {
    bool arrived = false;
    const auto move = [&] {
        const Pairs pairs = Load();
        choose();
        arrived = CTarnSettings().Change(m_session.Mapi(), [&](CTarnSettings& there) {
            for (const CTarnSetting& pair : pairs)
                there.InsertOrReplace(pair);
            there.m_timer = m_settings.m_timer;
            there.m_timerVisual = m_settings.m_timerVisual;
            there.m_seconds = m_settings.m_seconds;
            return true;
        });
        if (!arrived) chooseFormer();
    };
    if (!CTarnSettings::Exclusively(move) || !arrived)
        throw CCommandError(ExitCode::NotOpen,
                            "The list of pairs could not be taken along; it stays where it was");
}

bool IsSamePair(const CTarnSetting& a, const CTarnSetting& b) {
    return a.m_sourceKey == b.m_sourceKey && a.m_targetKey == b.m_targetKey;
}

bool IsOnStore(const CTarnSetting& pair, const CStoreInfo& store) {
    const std::string key = ":" + store.entryId.Hex();
    return pair.m_sourceKey.ends_with(key) || pair.m_targetKey.ends_with(key);
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
