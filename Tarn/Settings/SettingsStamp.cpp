#include <Platform/Clock.h>
#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Tarn/Settings/SettingsStamp.h>
#include <Tarn/Settings/TarnSettings.h>

namespace {

std::string StampOfFile() {
    for (const DirectoryEntry& entry : ListDirectory(ModuleDirectory()))
        if (JoinPath(ModuleDirectory(), entry.name) == CTarnSettings::FilePath())
            return std::to_string(entry.written) + " " + std::to_string(entry.cbSize);
    return "none";
}

}  // namespace

std::string SettingsStamp(const CMapiSession& session) {
    std::string stamp = StampOfFile();
    const IMsgStorePtr store = session.OpenDefaultStore();
    if (!store.IsValid()) throw CMAPIException(MAPI_E_NOT_FOUND, "SettingsStamp", nullptr);
    const CMapiRowSet rows = store.GetReceiveFolder("")._rawAssociatedTable().QueryRows(
        {PR_SUBJECT_A, PR_LAST_MODIFICATION_TIME, PR_MESSAGE_SIZE});
    for (ULONG row = 0; row < rows.Count(); ++row)
        if (rows.Cell(row, 0).Str() == CTarnSettings::MessageSubject)
            stamp += " " + std::to_string(TicksOf(rows.Cell(row, 1).Time())) + " " +
                     std::to_string(rows.Cell(row, 2).Long());
    return stamp;
}
