#include <Platform/Clock.h>
#include <Tarn/Settings/RunDispatch.h>
#include <Tarn/Settings/TarnContext.h>
#include <Tarn/Settings/TimedSync.h>

std::atomic<bool> g_timerRunning{false};
std::atomic<bool> g_timerStop{false};

namespace {
constexpr DWORD kSecondMs = 1000;
}

int TimerLoop(const SessionSource& session) {
    g_timerRunning = true;
    g_timerStop = false;
    const CTarnSettings& settings = TarnContext().m_settings;
    while (!g_timerStop) {
        if (!settings.m_timer) {
            SleepMs(kSecondMs);
            continue;
        }
        // The period is the one at the beginning of the pass, and is not cut short.
        for (LONG left = static_cast<LONG>(settings.m_seconds); left > 0; --left)
            SleepMs(kSecondMs);
        OnTimerTick(session);
    }
    g_timerStop = true;
    g_timerRunning = false;
    return 0;
}

void OnTimerTick(const SessionSource& session) noexcept {
    try {
        CTarnContext& context = TarnContext();
        context.UseSession(session());
        if (!context.m_settings.m_loaded) context.m_settings.Load(context.m_session);
        CSyncProgressHidden hidden;
        CSyncProgressInteraktiv visible;
        CSyncProgress& progress = context.m_settings.m_timerVisual ? static_cast<CSyncProgress&>(visible)
                                                                   : static_cast<CSyncProgress&>(hidden);
        RunAllSettings(progress, context.m_session, RUN_MANUAL);
    } catch (...) {
        // The next tick tries again.
    }
}
