// Loading and saving: which of the places is taken, and the values in the registry.
#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Platform/Registry.h>
#include <Platform/UserInterface.h>
#include <Tarn/Engine/SyncTrace.h>
#include <Tarn/Settings/TarnSettings.h>

namespace {

constexpr char kKey[] = "Software\\Ostrand\\Vellum";

// The plain spelling first, then the one with a leading backslash.
LONG OpenVellumKey(CRegistryKey& key) {
    const LONG code = key.Open(RegistryRoot::CurrentUser, kKey);
    if (code == ERROR_SUCCESS) return code;
    return key.Open(RegistryRoot::CurrentUser, std::string("\\") + kKey);
}

LONG CreateVellumKey(CRegistryKey& key) {
    const LONG code = key.Create(RegistryRoot::CurrentUser, kKey);
    if (code == ERROR_SUCCESS) return code;
    return key.Create(RegistryRoot::CurrentUser, std::string("\\") + kKey);
}

void ReadInto(const CRegistryKey& key, const char* name, ULONG& value) {
    if (const auto read = key.ReadDword(name)) value = *read;
}

}  // namespace

std::string CTarnSettings::FilePath() {
    return JoinPath(ModuleDirectory(), "VellumCfg.ini");
}

void CTarnSettings::LoadRegistry() {
    CRegistryKey key;
    const LONG code = OpenVellumKey(key);
    if (code != ERROR_SUCCESS) {
        TraceFormat(nullptr, "Error %s reading registry", ErrorName(code).c_str());
        return;
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
}

void CTarnSettings::SaveRegistry() const {
    CRegistryKey key;
    if (CreateVellumKey(key) != ERROR_SUCCESS) return;
    key.WriteDword("StoreInIni", m_storeInIni);
    key.WriteDword("ShowProtocol", m_showProtocol);
    key.WriteDword("UseComputername", m_useComputername);
}

void CTarnSettings::Load(CMapiSession session) {
    m_loaded = true;
    LoadRegistry();
    if (m_storeInIni == 0 || !LoadFromFile(session)) LoadFromMessage(session);
}

bool CTarnSettings::LoadFromFile(const CMapiSession&) {
    std::string text;
    if (!ReadFileBytes(FilePath(), text)) return false;
    // The writer ends the text with one zero byte.
    if (!text.empty() && text.back() == '\0') text.pop_back();
    ReadText(text);
    return true;
}

void CTarnSettings::ReadText(const std::string& text) {
    if (ParseSettingsText(text)) return;
    m_readWhole = false;
    m_unreadText = text;
}

bool CTarnSettings::SaveToFile() {
    if (!m_readWhole && !WriteFileDurably(FilePath() + ".kept", m_unreadText)) return false;
    std::string bytes = BuildSettingsText();
    bytes.push_back('\0');
    if (!WriteFileDurably(FilePath(), bytes)) return false;
    m_readWhole = true;
    return true;
}

bool CTarnSettings::Save(CMapiSession session) {
    SaveRegistry();
    try {
        if (m_storeInIni == 0) {
            SaveToMessage(session);
        } else if (!SaveToFile()) {
            // A directory that takes no file must not cost the person the list: the message is the
            // other place that every version reads.
            SaveToMessage(session);
            ShowMessageBox("The settings file " + FilePath() + " could not be written: " + LastFileError() +
                               "\nThe settings were written to the mailbox instead.",
                           "Tarn");
        }
        return true;
    } catch (const CMAPIException& e) {
        ReportException(e, "Writing settings");
    } catch (...) {
        ShowMessageBox("Fatal error writing settings", "Tarn");
    }
    return false;
}
