// Loading and saving: which of the places is taken, and the values in the registry.
#include <Platform/CodePage.h>
#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Platform/Machine.h>
#include <Platform/Registry.h>
#include <Platform/UserInterface.h>
#include <Tarn/Engine/SyncTrace.h>
#include <Tarn/Settings/TarnSettings.h>

namespace {

constexpr char kKey[] = "Software\\Ostrand\\Vellum";

// The plain spelling first, then the one with a leading backslash. Answers what became of the former where
// neither opens.
LONG OpenVellumKey(CRegistryKey& key) {
    const LONG code = key.Open(RegistryRoot::CurrentUser, kKey);
    if (code == ERROR_SUCCESS) return code;
    const LONG other = key.Open(RegistryRoot::CurrentUser, std::string("\\") + kKey);
    return other == ERROR_SUCCESS ? other : code;
}

LONG CreateVellumKey(CRegistryKey& key) {
    const LONG code = key.Create(RegistryRoot::CurrentUser, kKey);
    if (code == ERROR_SUCCESS) return code;
    return key.Create(RegistryRoot::CurrentUser, std::string("\\") + kKey);
}

void ReadInto(const CRegistryKey& key, const char* name, ULONG& value) {
    if (const auto read = key.ReadDword(name)) value = *read;
}

constexpr unsigned kLockTimeoutMs = 30'000;
thread_local unsigned t_held = 0;  // calls of Exclusively that this thread is in

// Counts this thread in, also where the work throws.
struct CHeld {
    CHeld() { ++t_held; }
    ~CHeld() { --t_held; }
    CHeld(const CHeld&) = delete;
    CHeld& operator=(const CHeld&) = delete;
};

}  // namespace

std::string CTarnSettings::FilePath() {
    return JoinPath(ModuleDirectory(), "VellumCfg.ini");
}

// False where it cannot be told which place the list has.
bool CTarnSettings::LoadRegistry() {
    CRegistryKey key;
    const LONG code = OpenVellumKey(key);
    if (code != ERROR_SUCCESS) {
        TraceFormat(nullptr, "Error %s reading registry", ErrorName(code).c_str());
        return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND;
    }
    m_storeInIni = 0;
    m_showProtocol = SHOW_PROTOCOL_NEVER;
    ReadInto(key, "StoreInIni", m_storeInIni);
    if (!key.ReadDword("ShowProtocol"))
        TraceFormat(nullptr, "Read Registry ShowProtocol %x %s", static_cast<unsigned>(ERROR_FILE_NOT_FOUND),
                    ErrorName(ERROR_FILE_NOT_FOUND).c_str());
    ReadInto(key, "ShowProtocol", m_showProtocol);
    ReadInto(key, "UseComputername", m_useComputername);
    ReadInto(key, "Pump", m_pump);
    m_massDeleteGuard = key.ReadDword("MassDeleteGuard");
    m_queryGuard = key.ReadDword("QueryGuard");
    return true;
}

void CTarnSettings::SaveRegistry() const {
    CRegistryKey key;
    if (CreateVellumKey(key) != ERROR_SUCCESS) return;
    key.WriteDword("StoreInIni", m_storeInIni);
    key.WriteDword("ShowProtocol", m_showProtocol);
    key.WriteDword("UseComputername", m_useComputername);
}

bool CTarnSettings::Exclusively(const std::function<void()>& work) {
    CProcessLock lock;
    if (t_held == 0) {
        const std::string directory = JoinPath(DataDirectory(), "locks");
        const std::string self = "process " + std::to_string(static_cast<unsigned>(ProcessId()));
        std::string holder;
        if (!MakePrivateDirectories(directory) ||
            !lock.TryLock(JoinPath(directory, "settings.lock"), self, holder, kLockTimeoutMs)) {
            ShowMessageBox("The list of pairs cannot be changed now: " +
                               (holder.empty() ? LastFileError() : holder + " is changing it"),
                           "Tarn");
            return false;
        }
    }
    const CHeld held;
    work();
    return true;
}

bool CTarnSettings::Load(CMapiSession session) {
    m_loaded = true;
    m_list.clear();
    m_readWhole = true;
    m_unreadText.clear();
    m_readable = LoadRegistry();
    if (!m_readable)
        ShowMessageBox("The registry could not be read, so it is not known where the list of pairs lies",
                       "Tarn");
    if (m_storeInIni == 0 || FileIsAbsent(FilePath()))
        m_readable = LoadFromMessage(session) && m_readable;
    else
        m_readable = LoadFromFile() && m_readable;
    return m_readable;
}

bool CTarnSettings::LoadFromFile() {
    std::string text;
    if (!ReadFileBytes(FilePath(), text)) {
        ShowMessageBox("The settings file " + FilePath() + " could not be read: " + LastFileError(), "Tarn");
        return false;
    }
    // The writer ends the text with one zero byte.
    if (!text.empty() && text.back() == '\0') text.pop_back();
    ReadText(Utf8FromFile(text));
    return true;
}

void CTarnSettings::ReadText(const std::string& text) {
    if (ParseSettingsText(text)) return;
    m_readWhole = false;
    m_unreadText = text;
}

// In a file that is not there yet: a text kept before may be all that is left of somebody's pairs.
bool CTarnSettings::KeepUnreadText() const {
    std::string path = FilePath() + ".kept";
    for (int n = 2; !FileIsAbsent(path); ++n)
        path = FilePath() + ".kept" + std::to_string(n);
    if (!WriteFileDurably(path, m_unreadText)) return false;
    ShowMessageBox("A part of the list of pairs was not understood. The list as it was is kept in " + path,
                   "Tarn");
    return true;
}

bool CTarnSettings::SaveToFile(const CMapiSession& session) {
    std::string bytes = BuildSettingsText();
    bytes.push_back('\0');
    if ((m_readWhole || KeepUnreadText()) && WriteFileDurably(FilePath(), bytes)) {
        m_readWhole = true;
        return true;
    }
    const std::string reason = LastFileError();
    // A file that is there is what the next Load reads, whatever the mailbox holds.
    if (!FileIsAbsent(FilePath())) {
        ShowMessageBox(
            "The settings file " + FilePath() + " could not be replaced, and stands as it was: " + reason,
            "Tarn");
        return false;
    }
    // A directory that takes no file must not cost the person the list: the message is the other place
    // that every version reads.
    SaveToMessage(session);
    ShowMessageBox("The settings file " + FilePath() + " could not be written: " + reason +
                       "\nThe settings were written to the mailbox instead.",
                   "Tarn");
    return true;
}

bool CTarnSettings::SaveHeld(const CMapiSession& session) {
    if (!m_readable) {
        ShowMessageBox("The list of pairs could not be read, so it is not replaced", "Tarn");
        return false;
    }
    const std::string lost = WhatIsNotReadBack(BuildSettingsText());
    if (!lost.empty()) {
        ShowMessageBox(
            "The list of pairs is not written, because " + lost +
                " could not be read back from it: no name, "
                "path or query may hold a semicolon or a line break, and each pair needs folders of its own",
            "Tarn");
        return false;
    }
    SaveRegistry();
    try {
        if (m_storeInIni != 0) return SaveToFile(session);
        SaveToMessage(session);
        return true;
    } catch (const CMAPIException& e) {
        ReportException(e, "Writing settings");
    } catch (...) {
        ShowMessageBox("Fatal error writing settings", "Tarn");
    }
    return false;
}

bool CTarnSettings::Save(CMapiSession session) {
    bool saved = false;
    return Exclusively([&] { saved = SaveHeld(session); }) && saved;
}

bool CTarnSettings::Change(CMapiSession session, const std::function<bool(CTarnSettings&)>& change) {
    bool done = false;
    return Exclusively([&] { done = Load(session) && (!change(*this) || SaveHeld(session)); }) && done;
}
