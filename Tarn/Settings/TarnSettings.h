// The list of folder pairs and the values of the whole installation, and their persistence.
//
// The list travels with the mailbox: its home is a hidden message in the default store's receive folder.
// The registry value StoreInIni diverts it into the text file VellumCfg.ini in the module's directory.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Engine/TarnSetting.h>

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

// Every change of the list is followed by Save. Not locked: used by the thread of the user interface, and
// by the thread of a run while that thread waits for it.
class CTarnSettings {
public:
    CTarnSettings() = default;
    virtual ~CTarnSettings() = default;

    // Reads everything. What goes wrong is shown in message boxes; the list then holds what could be read.
    void Load(CMapiSession session);
    // Writes everything. A failure is shown in a message box with "Writing settings" and answered with
    // false; the list in memory stays. A text that could not be read whole is kept beside the new one
    // first; if that fails nothing is replaced.
    bool Save(CMapiSession session);

    // The message side. LoadFromMessage falls back to LoadFromOldMessage, the place of an earlier version.
    void LoadFromMessage(const CMapiSession& session);
    void LoadFromOldMessage(const CMapiSession& session);
    void SaveToMessage(const CMapiSession& session);  // throws CMAPIException

    // Appends the records found in the text; the first of several with one source key wins. False if
    // something in it was not understood and would be lost by writing the list back.
    bool ParseSettingsText(const std::string& text);
    // One line a record, and its member lines; records are joined by "\r\n". Blanks empty paths of the
    // records on the way.
    std::string BuildSettingsText();

    // --- the list -------------------------------------------------------------------------------------
    size_t Count() const { return m_list.size(); }
    CTarnSetting& At(size_t index) { return m_list.at(index); }
    const CTarnSetting& At(size_t index) const { return m_list.at(index); }
    void Add(const CTarnSetting& setting) { m_list.push_back(setting); }
    void SetAt(size_t index, const CTarnSetting& setting) { m_list.at(index) = setting; }
    void RemoveAt(size_t index) { m_list.erase(m_list.begin() + static_cast<std::ptrdiff_t>(index)); }
    void Clear();
    // The record with this source key that is not marked deleted; null if there is none.
    CTarnSetting* Find(const std::string& sourceKey);
    void InsertOrReplace(const CTarnSetting& setting);
    // False if the places of the list hold something that was not understood.
    bool WasReadWhole() const { return m_readWhole; }

    // --- values of the installation -----------------------------------------------------------------
    bool m_loaded = false;   // set when a Load begins
    ULONG m_storeInIni = 0;  // not zero: the list lies in the file
    ULONG m_showProtocol = SHOW_PROTOCOL_ALWAYS;
    ULONG m_useComputername = 1;
    ULONG m_pump = 1;  // read and kept; nothing uses it
    // A run that would delete more than so many per cent of one side asks first; 0: never. Without a value
    // the command line has a share of its own and the add-in does not ask.
    std::optional<ULONG> m_massDeleteGuard;
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
    void LoadRegistry();
    bool LoadFromFile(const CMapiSession& session);
    void SaveRegistry() const;
    bool SaveToFile();
    void ReadValues(const IMessagePtr& message);
    void ReadText(const std::string& text);
    void ReadBody(const IMessagePtr& message);  // throws CMAPIException
    void KeepOldMessage(const IMAPIFolderPtr& folder);

    std::vector<CTarnSetting> m_list;
    bool m_readWhole = true;   // nothing on disk that the list does not hold
    std::string m_unreadText;  // and if not, the file's text as it stood
};
