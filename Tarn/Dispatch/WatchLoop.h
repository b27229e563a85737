// Pairs that run as soon as something changes in one of their folders, in the foreground of a program.
//
// The pairs that run by notifications of the add-in (PermanentSynchronization.h) do so on the store's thread.
// Here changes are gathered and the runs made one after the other on the thread of the loop.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Engine/TarnSetting.h>

#include <string>
#include <vector>

struct CWatchedRun {
    bool failed = false;   // the next run takes its time
    bool again = false;    // and comes even if nothing changes
    bool changed = false;  // a folder was written to
};

// What the program does in the loop. All calls come on the loop's thread.
class IWatchHost {
public:
    virtual ~IWatchHost() = default;
    // Asked about twenty times a second. An exception ends the loop, as one of Run does.
    virtual bool WantsEnd() = 0;
    // The pairs to be watched, as the list has them now; asked every other second and before each run. Throws
    // where the list cannot be had just now: those known before go on.
    virtual std::vector<CTarnSetting> WatchedNow() = 0;
    virtual CWatchedRun Run(const CTarnSetting& pair) = 0;
    // The loop hears of changes from now on, in so many pairs.
    virtual void OnBegin(std::size_t pairs) = 0;
    // A pair's folders cannot be watched; it is tried again. Told once, until it could be. Before OnBegin the
    // host may end the loop by an exception.
    virtual void OnDeaf(const CTarnSetting& pair, const CMAPIException& why) = 0;
    // The list has changed. WatchedNow has been called before.
    virtual void OnAdded(const CTarnSetting& pair) = 0;
    virtual void OnChanged(const CTarnSetting& pair) = 0;
    virtual void OnRemoved(const CTarnSetting& pair) = 0;
};

// Watches `pairs` and what the list makes of them, until the host wants to end. Each is run once at the
// beginning. Returns with nothing advised. Nothing but an exception of the host leaves it.
void WatchLoop(const CMapiSession& session, IWatchHost& host, const std::vector<CTarnSetting>& pairs);
