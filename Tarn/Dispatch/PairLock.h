// Keeps two runs, of this process or another one, from working in the same folders at the same time.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Dispatch/FolderClaims.h>
#include <Tarn/Engine/RunGuard.h>
#include <Tarn/Engine/TarnSetting.h>

#include <functional>
#include <string>

class CSyncProgress;

// How long a run waits for others. Both times begin when the lock is asked for.
struct CPatience {
    static constexpr unsigned kForEver = ~0u;
    unsigned samePairSeconds = 0;  // for a run of the same pair; 0: one try
    unsigned sharedSeconds = 0;    // for a run of another pair that shares a folder, or lies above or below
    // Called once, before the waiting begins, with the words of the holder; may be empty.
    std::function<void(const std::string& holder)> onWait;
};

enum class LockAnswer { Taken, Busy, Cancelled, Failed };

// The folders of one pair, with subfolders the trees below them, held until the object or its process dies.
// Folders that come into a tree meanwhile belong to it; one that moves while it is being run is met by the
// run that comes to it, which leaves it out.
class CPairLock : public IFolderGate {
public:
    CPairLock();

    // `holder` receives who holds a folder ("process 17 on desk, since ..."), for Failed the reason.
    // `progress` (may be null) is asked for cancelling while waiting. Folders that do not open are held by
    // the key in the setting; their run will tell what is wrong with them. Never throws CMAPIException.
    LockAnswer Take(const CMapiSession& session, const CTarnSetting& pair, const CPatience& patience,
                    CSyncProgress* progress, std::string& holder);
    void Release() { m_claims.Release(); }

    bool Enter(const IMAPIFolderPtr& source, const IMAPIFolderPtr& target) override;

private:
    CFolderClaims m_claims;
    CClaim m_claim;
};
