#include <Tarn/Dispatch/WatchLoop.h>

#include <MapiWrapper/MapiThread.h>
#include <Platform/Clock.h>
#include <Tarn/Dispatch/PermanentSynchronization.h>

#include <algorithm>
#include <atomic>
#include <memory>

namespace {

constexpr DWORD kPollMs = 50;
constexpr DWORD kListMs = 2000;
// Changes mostly come in groups; a run that begins at the first of them would be followed by another.
constexpr DWORD kSettleMs = 300;
constexpr DWORD kSettleAtMostMs = 3000;
// A run notices the traces of the one before it and then finds nothing to do. One that still does something
// or fails, again and again, must not keep the machine busy.
constexpr DWORD kFirstPauseMs = 500;
constexpr DWORD kBusyPauseMs = 2000;
constexpr DWORD kChangePauseMs = 60000;  // the longest after which a change is taken up
constexpr DWORD kRetryPauseMs = 900000;  // and a run tried again that failed with nothing changed since

DWORD Longer(DWORD pauseMs, DWORD atMostMs) {
    return std::min(pauseMs == 0 ? kFirstPauseMs : pauseMs * 2, atMostMs);
}

// A list is written anew with equal records in it.
bool IsSame(CTarnSetting a, CTarnSetting b) {
    return a.ToText() == b.ToText();
}

// One pair that is watched. The first two are set on the store's thread and taken on the loop's.
class CWatchedPair {
public:
    CWatchedPair(const CMapiSession& session, IWatchHost& host, const CTarnSetting& setting)
        : m_session(session), m_host(host), m_watcher(setting) {}

    const CTarnSetting& Setting() const { return m_watcher.Setting(); }

    // Hears of changes from now on, where it does not yet or where folders have come.
    void Listen() {
        if (m_hears && !m_watcher.IsOutdated()) return;
        const DWORD now = TickCount();
        if (now - m_listened < m_deafPauseMs) return;
        m_listened = now;
        try {
            m_watcher.Watch(m_session, [this] {
                m_lastChange = TickCount();
                m_changed = true;
            });
            // What happened while nobody heard of it.
            if (!m_hears) m_changed = true;
            m_hears = true;
            m_told = false;
            m_deafPauseMs = m_watcher.IsOutdated() ? Longer(m_deafPauseMs, kChangePauseMs) : 0;
        } catch (const CMAPIException& e) {
            m_hears = false;
            m_deafPauseMs = Longer(m_deafPauseMs, kChangePauseMs);
            if (!m_told) m_host.OnDeaf(Setting(), e);
            m_told = true;
        }
    }
    // A change has come, the burst that it belongs to is over, and the pause after the run before too.
    bool IsDue() {
        const DWORD now = TickCount();
        if (!m_changed) {
            m_waits = false;
            return m_again && now - m_ended >= m_pauseMs;
        }
        if (!m_waits) m_firstSeen = now;
        m_waits = true;
        const bool settled = now - m_lastChange >= kSettleMs || now - m_firstSeen >= kSettleAtMostMs;
        return settled && now - m_ended >= std::min(m_pauseMs, kChangePauseMs);
    }
    void Run() {
        m_changed = m_waits = false;
        const CWatchedRun run = m_host.Run(Setting());
        m_again = run.again;
        if (run.failed)
            m_pauseMs = Longer(m_pauseMs, kRetryPauseMs);
        else
            m_pauseMs = run.changed ? Longer(m_pauseMs, kBusyPauseMs) : 0;
        m_ended = TickCount();
    }

private:
    const CMapiSession& m_session;
    IWatchHost& m_host;
    std::atomic<bool> m_changed{true};  // the first run brings both folders in step
    std::atomic<DWORD> m_lastChange{0};
    bool m_hears = false;
    bool m_told = false;
    bool m_again = false;
    bool m_waits = false;
    DWORD m_listened = 0;
    DWORD m_deafPauseMs = 0;
    DWORD m_firstSeen = 0;
    DWORD m_ended = 0;
    DWORD m_pauseMs = 0;
    CPermanentSynchronization m_watcher;  // last: no notification comes after it is gone
};

class CWatchLoop {
public:
    CWatchLoop(const CMapiSession& session, IWatchHost& host) : m_session(session), m_host(host) {}

    void Run(const std::vector<CTarnSetting>& pairs) {
        for (const CTarnSetting& pair : pairs) {
            Add(pair);
            m_watched.back()->Listen();
        }
        m_host.OnBegin(m_watched.size());
        m_listRead = TickCount();
        while (!m_host.WantsEnd()) {
            if (TickCount() - m_listRead >= kListMs) FollowList();
            RunWhatIsDue();
            SleepMs(kPollMs);
        }
    }

private:
    void Add(const CTarnSetting& pair) {
        m_watched.push_back(std::make_unique<CWatchedPair>(m_session, m_host, pair));
    }
    // A pair that was taken from the list a moment ago is not run once more: mostly its folders are cleared
    // next, and the run would carry that.
    void RunWhatIsDue() {
        for (std::size_t i = 0; i < m_watched.size() && !m_host.WantsEnd(); ++i) {
            m_watched[i]->Listen();
            if (!m_watched[i]->IsDue()) continue;
            if (FollowList()) return;
            m_watched[i]->Run();
        }
    }
    // True if other pairs are watched now.
    bool FollowList() {
        bool hasChanged = false;
        std::vector<CTarnSetting> pairs;
        try {
            pairs = m_host.WatchedNow();
        } catch (...) {
            m_listRead = TickCount();
            return false;
        }
        m_listRead = TickCount();
        const auto at = [](const CTarnSetting& a) {
            return [&a](const CTarnSetting& b) {
                return a.m_sourceKey == b.m_sourceKey && a.m_targetKey == b.m_targetKey;
            };
        };
        for (std::size_t i = m_watched.size(); i-- > 0;) {
            const CTarnSetting former = m_watched[i]->Setting();
            const auto now = std::find_if(pairs.begin(), pairs.end(), at(former));
            if (now != pairs.end() && IsSame(*now, former)) continue;
            hasChanged = true;
            m_watched.erase(m_watched.begin() + static_cast<std::ptrdiff_t>(i));
            if (now == pairs.end())
                m_host.OnRemoved(former);
            else
                m_host.OnChanged(*now);
            if (now != pairs.end()) Add(*now);
        }
        for (const CTarnSetting& pair : pairs) {
            const auto equal = at(pair);
            if (std::any_of(m_watched.begin(), m_watched.end(),
                            [&](const auto& w) { return equal(w->Setting()); }))
                continue;
            hasChanged = true;
            Add(pair);
            m_host.OnAdded(pair);
        }
        return hasChanged;
    }

    const CMapiSession& m_session;
    IWatchHost& m_host;
    DWORD m_listRead = 0;
    std::vector<std::unique_ptr<CWatchedPair>> m_watched;
};

}  // namespace

void WatchLoop(const CMapiSession& session, IWatchHost& host, const std::vector<CTarnSetting>& pairs) {
    const CMapiThread mapi;
    CWatchLoop(session, host).Run(pairs);
}
