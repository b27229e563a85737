// The list of folder pairs and the values of the whole installation, and their persistence.
//
// The list travels with the mailbox: its home is a hidden message in the default store's receive folder.
// The registry value StoreInIni diverts it into the text file VellumCfg.ini in the module's directory.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Engine/TarnSetting.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

// A folder whose reminders count. Storage only; no run reads it.
struct CSyncReminder {
    CMapiBinary m_folder;
};

enum ShowProtocolMode : ULONG {
    SHOW_PROTOCOL_NEVER = 0,
    SHOW_PROTOCOL_ALWAYS = 1,
    SHOW_PROTOCOL_CONFLICTS = 2
};

// An object is used by one thread at a time: that of the user interface, or that of a run while the former
// waits for it. Between processes the list is locked while it is changed.
class CTarnSettings {
public:
    CTarnSettings() = default;
    virtual ~CTarnSettings() = default;

    // Reads everything anew. What goes wrong is shown in message boxes; the list then holds what could be
    // read. False if a place of the list is there and could not be read, or could not be looked for: the list
    // is then no more than a part, and Save refuses until a Load has gone well.
    bool Load(CMapiSession session);
    // Writes everything. A failure is shown in a message box and answered with false; then nothing is
    // replaced, and the list in memory stays. So is a list that would not be read back as it is. A text that
    // could not be understood whole is kept beside the new one first. Who has read the list a while ago takes
    // Change.
    bool Save(CMapiSession session);
    // The way to change the list: reads it anew, calls `change` with this object and saves, while no other
    // process changes it. `change` answers false where there is nothing to save; what it throws goes on to
    // the caller, with nothing saved. False: not read or not saved, which was shown.
    bool Change(CMapiSession session, const std::function<bool(CTarnSettings&)>& change);
    // Runs `work` while no other process changes the list; Save and Change within it do not wait for
    // themselves. False: another process has held the list for long, which was shown, and `work` was not run.
    static bool Exclusively(const std::function<void()>& work);

    // The message side. LoadFromMessage falls back to LoadFromOldMessage, the place of an earlier version.
    // False as Load.
    bool LoadFromMessage(const CMapiSession& session);
    bool LoadFromOldMessage(const CMapiSession& session);
    void SaveToMessage(const CMapiSession& session);  // throws CMAPIException

    // Appends the records found in the text; the first of several with one source key wins. False if
    // something in it was not understood and would be lost by writing the list back.
    bool ParseSettingsText(const std::string& text);
    // Appends only records whose lines are whole, and nothing of a record is taken from the one before it:
    // what is left of a cut line would become a pair with the folders of another. Answers how many records
    // were left out.
    size_t ParseWholeRecords(const std::string& text);
    // One line a record, and its member lines; records are joined by "\r\n". Blanks empty paths of the
    // records on the way. A record that would inherit a field of the one before has a blank in its place.
    std::string BuildSettingsText();

    // --- the list -------------------------------------------------------------------------------------
    size_t Count() const { return m_list.size(); }
    CTarnSetting& At(size_t index) { return m_list.at(index); }
    const CTarnSetting& At(size_t index) const { return m_list.at(index); }
    void Add(const CTarnSetting& setting) { m_list.push_back(setting); }
    void SetAt(size_t index, const CTarnSetting& setting) { m_list.at(index) = setting; }
    void RemoveAt(size_t index) { m_list.erase(m_list.begin() + static_cast<std::ptrdiff_t>(index)); }
    void Clear() { m_list.clear(); }  // what Load found otherwise is remembered for Save
    // The record with this source key that is not marked deleted; null if there is none.
    CTarnSetting* Find(const std::string& sourceKey);
    void InsertOrReplace(const CTarnSetting& setting);
    // False if the text of the list holds something that was not understood.
    bool WasReadWhole() const { return m_readWhole; }
    // False if the last Load failed.
    bool WasReadable() const { return m_readable; }

    // --- values of the installation -----------------------------------------------------------------
    bool m_loaded = false;   // set when a Load begins
    ULONG m_storeInIni = 0;  // not zero: the list lies in the file
    ULONG m_showProtocol = SHOW_PROTOCOL_ALWAYS;
    ULONG m_useComputername = 1;
    ULONG m_pump = 1;  // read and kept; nothing uses it
    // A run that would delete more than so many per cent of one side asks first; 0: never. Without a value
    // the command line has a share of its own and the add-in does not ask.
    std::optional<ULONG> m_massDeleteGuard;
    // Not zero: a pair whose query does not select is stopped, or the person asked. Without a value the
    // command line stops and the add-in does not ask.
    std::optional<ULONG> m_queryGuard;
    std::string m_directory;     // of the directory transport
    bool m_timer = false;        // the timed run is switched on
    ULONG m_seconds = 60;        // its period
    bool m_timerVisual = false;  // timed runs show progress
    std::vector<CSyncReminder> m_reminders;

    // The text file of the list.
    static std::string FilePath();
    // The hidden message that keeps the list, and the one that keeps a text that was not understood.
    static constexpr char MessageSubject[] = "VellumSettings_V100";
    static constexpr char KeptSubject[] = "VellumSettings_V100.kept";
    static constexpr char MessageClass[] = "IPM.Vellum";

private:
    size_t ParseRecords(const std::string& text, bool onlyWhole);
    bool LoadRegistry();
    bool LoadFromFile();
    void SaveRegistry() const;
    bool SaveHeld(const CMapiSession& session);
    bool SaveToFile(const CMapiSession& session);
    bool KeepUnreadText() const;
    std::string WhatIsNotReadBack(const std::string& text) const;
    void ReadValues(const IMessagePtr& message);
    void ReadText(const std::string& text);
    void ReadBody(const IMessagePtr& message);  // throws CMAPIException
    void KeepOldMessage(const IMAPIFolderPtr& folder);

    std::vector<CTarnSetting> m_list;
    bool m_readable = true;    // the places of the list could be read
    bool m_readWhole = true;   // nothing in them that the list does not hold
    std::string m_unreadText;  // and if not, the file's text as it stood
};
