// Synchronisation by the clock.
#pragma once
#include <MapiWrapper/MapiWrapper.h>

#include <atomic>
#include <functional>

// Where a tick gets its session from; throws if there is none. On the thread of the loop.
using SessionSource = std::function<CMapiSession()>;

extern std::atomic<bool> g_timerRunning;  // set while TimerLoop lives
extern std::atomic<bool> g_timerStop;     // a request to end it, looked at between two passes

// Repeats OnTimerTick every m_seconds while the settings' m_timer is on; asleep for a second while it is
// off. Ends after g_timerStop is set, at the end of the countdown under way. Answers 0.
int TimerLoop(const SessionSource& session);

// One timed run over all settings, loaded at the first need; with progress if the settings say so. Any
// exception ends here: a failing pass must not end the loop.
void OnTimerTick(const SessionSource& session) noexcept;
