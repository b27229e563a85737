// Permanent and timed synchronisation in the foreground, until Ctrl-C.
#include <Platform/Clock.h>
#include <Programs/vellum/Commands/CommandContext.h>
#include <Programs/vellum/Commands/RunPairs.h>
#include <Programs/vellum/Console/Interrupt.h>
#include <Programs/vellum/Session/Explain.h>
#include <Programs/vellum/Sync/PairLock.h>
#include <Programs/vellum/Sync/PairStore.h>
#include <Tarn/Settings/PermanentSynchronization.h>

#include <algorithm>
#include <atomic>
#include <memory>

namespace {

constexpr DWORD pollMs = 50;
// Changes mostly come in groups; a run that begins at the first of them would be followed by another.
constexpr DWORD settleMs = 300;
constexpr DWORD settleAtMostMs = 3000;
// A run notices the traces of the one before it and then finds nothing to do. One that still does something
// or fails, again and again, must not keep the machine busy.
constexpr DWORD firstPauseMs = 500;
constexpr DWORD busyPauseMs = 2000;
constexpr DWORD lastPauseMs = 60000;

// Nobody is there to ask, and whoever runs the pair just now will be done some time.
CRunOptions BackgroundRun(const CTarnSettings& settings) {
    return {false, true, MassDeleteShare(settings), CPatience::kForEver};
}

// One pair that is watched. The flags are set on the store's thread and taken on this one.
class CWatchedPair {
public:
    CWatchedPair(CCommandContext& context, const std::vector<CTarnSetting>& pairs, std::size_t index,
                 const CRunOptions& options)
        : m_context(context), m_pairs(pairs), m_index(index), m_options(options), m_watcher(pairs[index]) {}

    void Watch() {
        m_watcher.Watch(m_context.Session().Mapi(), [this] {
            m_lastChange = TickCount();
            m_changed = true;
        });
    }
    // A change has come, the burst that it belongs to is over, and the pause after the run before too.
    bool IsDue() {
        if (!m_changed) {
            m_waits = false;
            return false;
        }
        const DWORD now = TickCount();
        if (!m_waits) m_firstSeen = now;
        m_waits = true;
        const bool settled = now - m_lastChange >= settleMs || now - m_firstSeen >= settleAtMostMs;
        return settled && now - m_ended >= m_pauseMs;
    }
    // A run that fails is told and does not end the watching.
    void Run() {
        m_changed = m_waits = false;
        ExitCode code = ExitCode::Internal;
        bool changed = false;
        try {
            if (m_watcher.IsOutdated()) Watch();
            const CBatchResult result = RunPairs(m_context, m_pairs, {m_index}, m_options);
            code = result.code;
            changed = result.sourceChanged || result.targetChanged;
        } catch (const CCommandError& e) {
            m_context.Console().Error(e.what(), e.Hint());
        } catch (const CMAPIException& e) {
            m_context.Console().Error("The pair \"" + PairLabel(m_pairs, m_index) +
                                      "\" could not be run: " + Explain(e.Hr()));
        }
        const DWORD longer = m_pauseMs == 0 ? firstPauseMs : m_pauseMs * 2;
        if (code != ExitCode::Done)
            m_pauseMs = std::min(longer, lastPauseMs);
        else
            m_pauseMs = changed ? std::min(longer, busyPauseMs) : 0;
        m_ended = TickCount();
    }

private:
    CCommandContext& m_context;
    const std::vector<CTarnSetting>& m_pairs;
    const std::size_t m_index;
    const CRunOptions& m_options;
    std::atomic<bool> m_changed{true};  // the first run brings both folders in step
    std::atomic<DWORD> m_lastChange{0};
    bool m_waits = false;
    DWORD m_firstSeen = 0;
    DWORD m_ended = 0;
    DWORD m_pauseMs = 0;
    CPermanentSynchronization m_watcher;  // last: no notification comes after it is gone
};
using WatchedPairs = std::vector<std::unique_ptr<CWatchedPair>>;

std::vector<std::size_t> ChooseByFlags(const std::vector<CTarnSetting>& pairs,
                                       const std::vector<std::string>& words, ULONG flags) {
    std::vector<std::size_t> chosen;
    for (const std::string& word : words)
        chosen.push_back(FindPair(pairs, word));
    for (std::size_t i = 0; words.empty() && i < pairs.size(); ++i)
        if (pairs[i].Has(SYNC_ACTIVE) && pairs[i].Has(flags)) chosen.push_back(i);
    return chosen;
}

// False when the person wants to end.
bool Wait(DWORD ms) {
    for (DWORD waited = 0; waited < ms && !InterruptRequested(); waited += pollMs)
        SleepMs(pollMs);
    return !InterruptRequested();
}

int Watch(CCommandContext& context, const std::vector<std::string>& words) {
    CProfileSession& session = context.Session();
    CPairStore store(session);
    const auto pairs = store.Load();
    const CRunOptions options = BackgroundRun(store.Settings());
    const auto chosen = ChooseByFlags(pairs, words, SYNC_CONTINUOUS_TO | SYNC_CONTINUOUS_FROM);
    if (chosen.empty())
        throw CCommandError(ExitCode::Usage, "No pair is to be watched",
                            "Name one, or:  vellum pair edit PAIR --continuous-to --continuous-from");
    WatchedPairs watched;
    for (const std::size_t index : chosen) {
        watched.push_back(std::make_unique<CWatchedPair>(context, pairs, index, options));
        try {
            watched.back()->Watch();
        } catch (const CMAPIException& e) {
            throw CCommandError(ExitCode::NotOpen, "The pair \"" + PairLabel(pairs, index) +
                                                       "\" cannot be watched: " + Explain(e.Hr()));
        }
    }
    context.Console().Note("Watching " + std::to_string(chosen.size()) + " pair(s); Ctrl-C ends.");
    do {
        for (const auto& pair : watched)
            if (!InterruptRequested() && pair->IsDue()) pair->Run();
    } while (Wait(pollMs));
    context.Console().Note("Watching has ended.");
    return Code(ExitCode::Done);
}

int Timer(CCommandContext& context, const std::vector<std::string>& words, unsigned seconds, unsigned times) {
    ExitCode last = ExitCode::Done;
    for (unsigned run = 0; times == 0 || run < times; ++run) {
        if (run > 0 && !Wait(seconds * 1000)) break;
        CPairStore store(context.Session());
        const auto pairs = store.Load();
        const auto chosen = ChooseByFlags(pairs, words, SYNC_ACTIVE);
        if (run == 0)
            context.Console().Note("A run every " + std::to_string(seconds) + " second(s); Ctrl-C ends.");
        last = RunPairs(context, pairs, chosen, BackgroundRun(store.Settings())).code;
        if (InterruptRequested()) break;
    }
    context.Console().Note("The timer has ended.");
    return Code(last);
}

}  // namespace

void AddWatchCommands(CCommandTable& table) {
    struct Arguments {
        std::vector<std::string> pairs;
        unsigned seconds = 60;
        unsigned times = 0;
    };
    auto arguments = std::make_shared<Arguments>();
    const char* pairText = "Names, numbers or source folders";
    table
        .AddCommand(table.App(), "watch",
                    "Run pairs as soon as something changes in one of their folders, until Ctrl-C",
                    "watch calendars",
                    [arguments](CCommandContext& context) { return Watch(context, arguments->pairs); })
        .add_option(
            "PAIR", arguments->pairs,
            std::string(pairText) + " (default: active pairs with --continuous-to or --continuous-from)");
    CLI::App& timer =
        table.AddCommand(table.App(), "timer", "Run pairs again and again, until Ctrl-C",
                         "timer --seconds 300", [arguments](CCommandContext& context) {
                             return Timer(context, arguments->pairs, arguments->seconds, arguments->times);
                         });
    timer.add_option("PAIR", arguments->pairs, std::string(pairText) + " (default: all active pairs)");
    timer.add_option("--seconds", arguments->seconds, "Pause between two runs (default: 60)")
        ->check(CLI::Range(1u, 86400u));
    timer.add_option("--times", arguments->times, "End after so many runs (default: go on)");
}
