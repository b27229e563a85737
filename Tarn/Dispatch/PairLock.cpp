#include <Tarn/Dispatch/PairLock.h>

#include <Platform/Clock.h>
#include <Platform/Directories.h>
#include <Platform/UserInterface.h>
#include <Tarn/Engine/FolderKey.h>
#include <Tarn/Engine/SyncProgress.h>

namespace {

constexpr DWORD kPollMs = 50;
constexpr int kMaxDepth = 500;

std::string BytesOf(const CMapiBinary& id) {
    return std::string(reinterpret_cast<const char*>(id.Bin().lpb), id.Count());
}

std::string IdOf(const IMAPIFolderPtr& folder) {
    return BytesOf(folder.GetBinProp(PR_ENTRYID));
}

// The topmost folder of a store is its own parent; one that somebody else shares may have a parent that
// does not open.
void FindAbove(const IMsgStorePtr& store, IMAPIFolderPtr folder, CClaimedFolder& claimed) {
    for (int depth = 0; depth < kMaxDepth; ++depth) {
        const CMapiBinary parent = folder.GetBinProp(PR_PARENT_ENTRYID);
        folder = store.OpenEntry(parent).As<IMAPIFolderPtr>();
        if (!folder) return;
        const std::string id = IdOf(folder);
        if (id == (claimed.above.empty() ? claimed.id : claimed.above.back())) return;
        claimed.above.push_back(id);
    }
}

CClaimedFolder ClaimedFolder(const CMapiSession& session, const std::string& text) {
    const CFolderKey key = CFolderKey::FromText(text);
    CClaimedFolder claimed;
    claimed.id = BytesOf(key.m_folder);
    try {
        if (key.m_folder.IsEmpty() || key.m_store.IsEmpty()) return claimed;
        const IMsgStorePtr store = session.OpenStore(key.m_store);
        const IMAPIFolderPtr folder = store.OpenEntry(key.m_folder).As<IMAPIFolderPtr>();
        if (!folder) return claimed;
        claimed.id = IdOf(folder);
        FindAbove(store, folder, claimed);
    } catch (const CMAPIException&) {
        // What is known by now is held.
    }
    return claimed;
}

CClaim ClaimOf(const CMapiSession& session, const CTarnSetting& pair) {
    return {{ClaimedFolder(session, pair.m_sourceKey), ClaimedFolder(session, pair.m_targetKey)},
            pair.Has(SYNC_SUBFOLDERS)};
}

bool IsOver(unsigned seconds, DWORD waitedMs) {
    return seconds != CPatience::kForEver && waitedMs >= seconds * 1000ull;
}

}  // namespace

CPairLock::CPairLock() : m_claims(JoinPath(DataDirectory(), "locks")) {}

LockAnswer CPairLock::Take(const CMapiSession& session, const CTarnSetting& pair, const CPatience& patience,
                           CSyncProgress* progress, std::string& holder) {
    m_claim = ClaimOf(session, pair);
    const DWORD begin = TickCount();
    for (bool told = false;; told = true) {
        const ClaimAnswer answer = m_claims.Take(m_claim, holder);
        if (answer == ClaimAnswer::Failed) return LockAnswer::Failed;
        if (answer == ClaimAnswer::Taken) {
            // What was waited for may have moved the folders.
            CClaim now = told ? ClaimOf(session, pair) : m_claim;
            if (now == m_claim) return LockAnswer::Taken;
            m_claim = std::move(now);
            continue;
        }
        const unsigned seconds =
            answer == ClaimAnswer::SamePair ? patience.samePairSeconds : patience.sharedSeconds;
        if (IsOver(seconds, TickCount() - begin)) return LockAnswer::Busy;
        if (!told && patience.onWait) patience.onWait(holder);
        SleepMs(kPollMs);
        if (progress != nullptr && progress->IsCancelled()) return LockAnswer::Cancelled;
    }
}

bool CPairLock::Enter(const IMAPIFolderPtr& source, const IMAPIFolderPtr& target) {
    const std::array<std::string, 2> ids{IdOf(source), IdOf(target)};
    if (ids[0] == m_claim.folders[0].id && ids[1] == m_claim.folders[1].id) return true;
    std::string holder;
    const ClaimAnswer answer = m_claims.GoTo(ids, holder);
    if (answer == ClaimAnswer::Taken) return true;
    ShowMessageBox("The folder \"" + source.GetStrPropOrEmpty(PR_DISPLAY_NAME_A) +
                       "\" is left out of this run, " +
                       (answer == ClaimAnswer::Shared ? "because another run has it: "
                                                      : "because it cannot be locked: ") +
                       holder + ". The next run takes it again.",
                   "Vellum");
    return false;
}
