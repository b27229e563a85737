#include <Programs/vellum/Sync/MaintenanceTarget.h>

#include <Programs/vellum/Console/Console.h>
#include <Programs/vellum/Console/ExitCode.h>
#include <Programs/vellum/Console/Interrupt.h>
#include <Programs/vellum/Sync/PairStore.h>

namespace {

CFolderRef OpenSide(CProfileSession& session, const std::string& key, const std::string& path) {
    CFolderRef folder;
    if (!session.OpenFolderByKey(key, folder))
        throw CCommandError(ExitCode::NotOpen, "The folder \"" + path + "\" of the pair cannot be opened");
    return folder;
}

CMaintenanceTarget TargetOfPair(CProfileSession& session, const CTarnSetting& pair,
                                const std::string& label) {
    CMaintenanceTarget target;
    target.pair = label;
    target.folders.push_back(OpenSide(session, pair.m_sourceKey, pair.m_sourcePath));
    target.folders.push_back(OpenSide(session, pair.m_targetKey, pair.m_targetPath));
    return target;
}

// By entry ID: the path in a setting is how it was once called.
bool IsSide(CProfileSession& session, const std::string& key, const CFolderRef& folder) {
    CFolderRef side;
    return session.OpenFolderByKey(key, side) && side.Key() == folder.Key();
}

}  // namespace

CMaintenanceTarget FindMaintained(CProfileSession& session, const std::string& word) {
    CPairStore store(session);
    const auto pairs = store.Load();
    for (std::size_t i = 0; i < pairs.size(); ++i)
        if (pairs[i].m_groupId == word || std::to_string(i + 1) == word)
            return TargetOfPair(session, pairs[i], PairLabel(pairs, i));
    CMaintenanceTarget target;
    target.folders.push_back(session.OpenFolder(word));
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const bool isSource = IsSide(session, pairs[i].m_sourceKey, target.folders[0]);
        if (!isSource && !IsSide(session, pairs[i].m_targetKey, target.folders[0])) continue;
        target.pairsOfFolder.push_back(PairLabel(pairs, i));
        CFolderRef partner;
        if (session.OpenFolderByKey(isSource ? pairs[i].m_targetKey : pairs[i].m_sourceKey, partner))
            target.partners.push_back(partner);
    }
    return target;
}

CMaintenanceLock::CMaintenanceLock(CProfileSession& session, const CMaintenanceTarget& target) {
    CTarnSetting held;
    held.m_sourceKey = target.folders.front().Key();
    held.m_targetKey = target.folders.back().Key();
    std::string holder;
    const LockAnswer answer = m_lock.Take(session.Mapi(), held, {}, nullptr, holder);
    if (answer == LockAnswer::Busy)
        throw CCommandError(ExitCode::Busy, "The folders are being used by a run: " + holder,
                            "Try again when that is done.");
    if (answer != LockAnswer::Taken)
        throw CCommandError(ExitCode::NotOpen, "The folders cannot be locked: " + holder);
}

void AskBefore(CConsole& console, const std::string& plan, bool isAgreed) {
    if (isAgreed) return console.Note(plan);
    if (!console.CanAsk())
        throw CCommandError(ExitCode::Guarded, plan + " Nothing was changed.",
                            "If that is meant:  --yes. To look only:  --dry-run");
    if (!console.Ask(plan + " Go on?"))
        throw CCommandError(ExitCode::Guarded, "Not agreed to. Nothing was changed.");
}

bool CTerminalWatch::IsCancelled() {
    return InterruptRequested();
}
