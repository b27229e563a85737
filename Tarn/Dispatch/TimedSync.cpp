#include <MapiWrapper/MapiThread.h>
#include <Platform/Clock.h>
#include <Tarn/Dispatch/RunDispatch.h>
#include <Tarn/Dispatch/TimedSync.h>
#include <Tarn/Settings/TarnContext.h>

std::atomic<bool> g_timerRunning{false};
std::atomic<bool> g_timerStop{false};

namespace {

constexpr DWORD kSecondMs = 1000;
constexpr DWORD kLookMs = 50;

bool WantsEnd(const CTimerTerms& terms) {
    return terms.wantsEnd && terms.wantsEnd();
}

// False when the program wants to end.
bool SleepASecond(const CTimerTerms& terms) {
    if (!terms.wantsEnd) {
        SleepMs(kSecondMs);
        return true;
    }
    for (DWORD slept = 0; slept < kSecondMs && !WantsEnd(terms); slept += kLookMs)
        SleepMs(kLookMs);
    return !WantsEnd(terms);
}

// The period is the one at the beginning of the pass. Only the program's wish cuts it short.
bool SleepAPeriod(const CTimerTerms& terms) {
    const ULONG seconds = terms.seconds.value_or(TarnContext().m_settings.m_seconds);
    for (LONG left = static_cast<LONG>(seconds); left > 0; --left)
        if (!SleepASecond(terms)) return false;
    return true;
}

void RunAll(const CMapiSession& session) {
    CTarnSettings& settings = TarnContext().m_settings;
    // A list that could not be read the last time may be there now.
    if (!settings.m_loaded || !settings.WasReadable()) settings.Load(session);
    CSyncProgressHidden hidden;
    CSyncProgressInteraktiv visible;
    CSyncProgress& progress =
        settings.m_timerVisual ? static_cast<CSyncProgress&>(visible) : static_cast<CSyncProgress&>(hidden);
    RunAllSettings(progress, session, RUN_MANUAL);
}

}  // namespace

int TimerLoop(const SessionSource& session, const CTimerTerms& terms) {
    const CMapiThread mapi;
    g_timerRunning = true;
    g_timerStop = false;
    unsigned ticks = 0;
    while (!g_timerStop && !WantsEnd(terms)) {
        if (!terms.seconds && !TarnContext().m_settings.m_timer) {
            SleepASecond(terms);
            continue;
        }
        if ((ticks > 0 || !terms.beginsAtOnce) && !SleepAPeriod(terms)) break;
        OnTimerTick(session, terms);
        if (++ticks == terms.times) break;
    }
    g_timerStop = true;
    g_timerRunning = false;
    return 0;
}

void OnTimerTick(const SessionSource& session, const CTimerTerms& terms) noexcept {
    try {
        try {
            CTarnContext& context = TarnContext();
            context.UseSession(session());
            terms.run ? terms.run(context.m_session) : RunAll(context.m_session);
        } catch (...) {
            if (terms.onFailure) terms.onFailure();
        }
    } catch (...) {
        // The next tick tries again.
    }
}
