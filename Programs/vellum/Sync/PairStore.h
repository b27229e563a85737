// The folder pairs of a profile, and where they are kept.
#pragma once
#include <Programs/vellum/Session/ProfileSession.h>
#include <Tarn/Engine/TarnSetting.h>
#include <Tarn/Settings/TarnSettings.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

// The list of the profile's settings as the commands change it. A pair's name stands in its group
// identifier, because the text form of a record loses the query where there is none.
class CPairStore {
public:
    explicit CPairStore(CProfileSession& session) : m_session(session) {}

    using Pairs = std::vector<CTarnSetting>;

    // Throws CCommandError where there is no default store, which keeps the list, and where the list cannot
    // be read: a part of it must not be taken for all of it.
    Pairs Load();
    // The pair as the list has it now, or null where it has none of these folders. Throws as Load.
    std::optional<CTarnSetting> Now(const CTarnSetting& pair);
    // Reads the list, lets `change` work on it and writes it back, while no other process changes it.
    // `change` answers whether there is something to write. Throws CCommandError, also that of `change`; the
    // former list stands then.
    void Change(const std::function<bool(Pairs&)>& change);
    // Takes the list along to another place, where pairs that lie there from former times stay beside it.
    // `choose` makes the other place the one of the list, `chooseFormer` takes that back if the list does not
    // arrive there. Throws CCommandError then.
    void Move(const std::function<void()>& choose, const std::function<void()>& chooseFormer);
    // The list in its text form, as Load found it.
    std::string Text() { return m_settings.BuildSettingsText(); }
    // What tells whether the list was written since Load; empty where that cannot be told.
    const std::string& Stamp() const { return m_stamp; }
    static std::string StampNow(CProfileSession& session);
    // The values beside the list, as Load found them.
    const CTarnSettings& Settings() const { return m_settings; }

private:
    void RequireStore();
    Pairs Listed() const;

    CProfileSession& m_session;
    CTarnSettings m_settings;
    std::string m_stamp;
};

// True if both name the same two folders.
bool IsSamePair(const CTarnSetting& a, const CTarnSetting& b);

// True if one of the pair's folders lies in the store.
bool IsOnStore(const CTarnSetting& pair, const CStoreInfo& store);

// "Inbox" of pair 2, for messages: its name, or its number where it has none.
std::string PairLabel(const std::vector<CTarnSetting>& pairs, std::size_t index);

// The pair that a person means by its number (from 1), its name or its source path. Throws Usage.
std::size_t FindPair(const std::vector<CTarnSetting>& pairs, const std::string& word);

// True if one folder path is the other or lies below it.
bool IsSameOrBelow(const std::string& path, const std::string& above);
