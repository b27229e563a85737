// Permanent and timed synchronisation in the foreground, until Ctrl-C.
#include <Platform/Clock.h>
#include <Programs/vellum/Commands/CommandContext.h>
#include <Programs/vellum/Commands/RunPairs.h>
#include <Programs/vellum/Console/Interrupt.h>
#include <Programs/vellum/Session/Explain.h>
#include <Programs/vellum/Sync/PairLock.h>
#include <Programs/vellum/Sync/PairStore.h>
#include <Tarn/Settings/PermanentSynchronization.h>

#include <atomic>
#include <memory>

namespace {

constexpr DWORD pollMs = 100;
// Changes mostly come in groups; a run that begins at the first of them would be followed by another.
constexpr DWORD settleMs = 300;
const CRunOptions backgroundRun{.inBackground = true, .waitSeconds = CPatience::kForEver};

struct CWatchedPair {
    explicit CWatchedPair(const CTarnSetting& setting) : watcher(setting) {}
    std::atomic<bool> changed{true};  // the first run brings both folders in step
    CPermanentSynchronization watcher;
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

WatchedPairs BeginWatching(CProfileSession& session, const std::vector<CTarnSetting>& pairs,
                           const std::vector<std::size_t>& chosen) {
    WatchedPairs watched;
    for (const std::size_t index : chosen) {
        watched.push_back(std::make_unique<CWatchedPair>(pairs[index]));
        CWatchedPair* one = watched.back().get();
        try {
            one->watcher.Watch(session.Mapi(), [one] { one->changed = true; });
        } catch (const CMAPIException& e) {
            throw CCommandError(ExitCode::NotOpen, "The pair \"" + PairLabel(pairs, index) +
                                                       "\" cannot be watched: " + Explain(e.Hr()));
        }
    }
    return watched;
}

// False when the person wants to end.
bool Wait(DWORD ms) {
    for (DWORD waited = 0; waited < ms && !InterruptRequested(); waited += pollMs)
        SleepMs(pollMs);
    return !InterruptRequested();
}

int Watch(CCommandContext& context, const std::vector<std::string>& words) {
    CProfileSession& session = context.Session();
    const auto pairs = CPairStore(session).Load();
    const auto chosen = ChooseByFlags(pairs, words, SYNC_CONTINUOUS_TO | SYNC_CONTINUOUS_FROM);
    if (chosen.empty())
        throw CCommandError(ExitCode::Usage, "No pair is to be watched",
                            "Name one, or:  vellum pair edit PAIR --continuous-to --continuous-from");
    const WatchedPairs watched = BeginWatching(session, pairs, chosen);
    context.Console().Note("Watching " + std::to_string(chosen.size()) + " pair(s); Ctrl-C ends.");
    while (!InterruptRequested()) {
        for (std::size_t i = 0; i < watched.size(); ++i)
            if (watched[i]->changed.exchange(false)) RunPairs(context, pairs, {chosen[i]}, backgroundRun);
        bool changed = false;
        while (!changed && Wait(pollMs))
            for (const auto& one : watched)
                changed = changed || one->changed;
        Wait(settleMs);
    }
    context.Console().Note("Watching has ended.");
    return Code(ExitCode::Done);
}

int Timer(CCommandContext& context, const std::vector<std::string>& words, unsigned seconds, unsigned times) {
    ExitCode last = ExitCode::Done;
    context.Console().Note("A run every " + std::to_string(seconds) + " second(s); Ctrl-C ends.");
    for (unsigned run = 0; times == 0 || run < times; ++run) {
        if (run > 0 && !Wait(seconds * 1000)) break;
        const auto pairs = CPairStore(context.Session()).Load();
        last = RunPairs(context, pairs, ChooseByFlags(pairs, words, SYNC_ACTIVE), backgroundRun).code;
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
                    "Run pairs as soon as an item is added or changed in one of their folders, until Ctrl-C",
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
