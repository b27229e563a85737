// The folder pairs of a profile, and where they are kept.
#pragma once
#include <Programs/vellum/Session/ProfileSession.h>
#include <Tarn/Engine/TarnSetting.h>

#include <string>
#include <vector>

// The only place that knows how pairs are kept: in a hidden message of the default store, in the text
// form of CTarnSetting, so that they travel with the mailbox. A pair's name stands in its group
// identifier, because the text form loses the query of a record without one.
class CPairStore {
public:
    explicit CPairStore(CProfileSession& session) : m_session(session) {}

    // Records without keys are left out. Throws CCommandError where there is no default store.
    std::vector<CTarnSetting> Load();
    // Replaces the list. On failure the former list stands.
    void Save(std::vector<CTarnSetting> pairs);

private:
    IMAPIFolderPtr Home();
    CProfileSession& m_session;
};

// "Inbox" of pair 2, for messages: its name, or its number where it has none.
std::string PairLabel(const std::vector<CTarnSetting>& pairs, std::size_t index);

// The pair that a person means by its number (from 1), its name or its source path. Throws Usage.
std::size_t FindPair(const std::vector<CTarnSetting>& pairs, const std::string& word);

// True if one folder path is the other or lies below it.
bool IsSameOrBelow(const std::string& path, const std::string& above);
