// Synchronisation by the clock.
#pragma once
#include <MapiWrapper/MapiWrapper.h>

#include <atomic>
#include <functional>
#include <optional>

// Where a tick gets its session from; throws if there is none. On the thread of the loop.
using SessionSource = std::function<CMapiSession()>;

extern std::atomic<bool> g_timerRunning;  // set while TimerLoop lives
extern std::atomic<bool> g_timerStop;     // a request to end it, looked at between two passes

// What a program has otherwise than the settings say. All calls come on the thread of the loop.
struct CTimerTerms {
    std::optional<ULONG> seconds;    // the period; the timer is on then, whatever the settings say
    bool beginsAtOnce = false;       // with a tick instead of a period
    unsigned times = 0;              // ends after so many ticks; 0: goes on
    std::function<bool()> wantsEnd;  // asked about twenty times a second, also during a period
    // Instead of the settings loaded at the first need, and a run over all of them.
    std::function<void(const CMapiSession&)> run;
    // A tick threw; called within the handler, so that `throw;` gives the exception.
    std::function<void()> onFailure;
};

// Repeats OnTimerTick every m_seconds while the settings' m_timer is on; asleep for a second while it is
// off. Ends after g_timerStop is set, at the end of the countdown under way. Answers 0.
int TimerLoop(const SessionSource& session, const CTimerTerms& terms = {});

// One timed run over all settings, loaded at the first need; with progress if the settings say so. Any
// exception ends here: a failing pass must not end the loop.
void OnTimerTick(const SessionSource& session, const CTimerTerms& terms = {}) noexcept;
