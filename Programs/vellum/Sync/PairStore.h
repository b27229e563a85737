// The folder pairs of a profile, and where they are kept.
#pragma once
#include <Programs/vellum/Session/ProfileSession.h>
#include <Tarn/Engine/TarnSetting.h>
#include <Tarn/Settings/TarnSettings.h>

#include <string>
#include <vector>

// The list of the profile's settings as the commands change it. A pair's name stands in its group
// identifier, because the text form of a record loses the query where there is none.
class CPairStore {
public:
    explicit CPairStore(CProfileSession& session) : m_session(session) {}

    // Throws CCommandError where there is no default store, which keeps the list.
    std::vector<CTarnSetting> Load();
    // Replaces the list; call Load before. Throws CCommandError; the former list stands then.
    void Save(const std::vector<CTarnSetting>& pairs);
    // The list in its text form, as Load found it.
    std::string Text() { return m_settings.BuildSettingsText(); }
    // The values beside the list, as Load found them.
    const CTarnSettings& Settings() const { return m_settings; }

private:
    CProfileSession& m_session;
    CTarnSettings m_settings;
};

// "Inbox" of pair 2, for messages: its name, or its number where it has none.
std::string PairLabel(const std::vector<CTarnSetting>& pairs, std::size_t index);

// The pair that a person means by its number (from 1), its name or its source path. Throws Usage.
std::size_t FindPair(const std::vector<CTarnSetting>& pairs, const std::string& word);

// True if one folder path is the other or lies below it.
bool IsSameOrBelow(const std::string& path, const std::string& above);
