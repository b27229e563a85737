// Permanent and timed synchronisation in the foreground, until Ctrl-C.
#include <Platform/Clock.h>
#include <Programs/vellum/Commands/CommandContext.h>
#include <Programs/vellum/Commands/RunPairs.h>
#include <Programs/vellum/Console/Interrupt.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Session/Explain.h>
#include <Programs/vellum/Sync/PairStore.h>
#include <Tarn/Dispatch/TimedSync.h>
#include <Tarn/Dispatch/WatchLoop.h>
#include <Tarn/Settings/SettingsStamp.h>
#include <Tarn/Settings/TarnContext.h>

#include <algorithm>
#include <utility>

namespace {

using Pairs = std::vector<CTarnSetting>;

// Reading the list says what is wrong with it; whoever runs in the background need not hear that all the
// time.
constexpr DWORD listAgainMs = 60000;
constexpr DWORD lookAtFilesMs = 2000;

// Nobody is there to ask, and whoever runs the pair just now will be done some time.
CRunOptions BackgroundRun(const CPairStore& store) {
    const CTarnSettings& settings = store.Settings();
    CRunOptions options;
    options.listStamp = store.Stamp();
    options.inBackground = true;
    options.massDeleteShare = MassDeleteShare(settings);
    options.ignoreBadQuery = settings.m_queryGuard == 0u;
    options.samePairSeconds = CPatience::kForEver;
    return options;
}

// The pairs that a command was given, or those that have the flags, in a list that changes meanwhile.
class CChoice {
public:
    // Throws Usage for a word that no pair answers to.
    CChoice(const Pairs& pairs, const std::vector<std::string>& words, ULONG flags) : m_flags(flags) {
        for (const std::string& word : words)
            m_named.push_back({word, pairs[FindPair(pairs, word)]});
    }
    // Positions in `pairs`. A number that the person gave means the pair that had it then.
    std::vector<std::size_t> In(const Pairs& pairs) const {
        std::vector<std::size_t> chosen;
        for (std::size_t i = 0; m_named.empty() && i < pairs.size(); ++i)
            if (pairs[i].Has(SYNC_ACTIVE) && pairs[i].Has(m_flags)) chosen.push_back(i);
        for (const CNamed& named : m_named)
            if (const auto found = Find(pairs, named); found != pairs.end())
                chosen.push_back(static_cast<std::size_t>(found - pairs.begin()));
        return chosen;
    }
    // The word for a pair that has gone; empty where none has.
    std::string Gone(const Pairs& pairs) const {
        for (const CNamed& named : m_named)
            if (Find(pairs, named) == pairs.end()) return named.first;
        return {};
    }

private:
    using CNamed = std::pair<std::string, CTarnSetting>;
    static Pairs::const_iterator Find(const Pairs& pairs, const CNamed& named) {
        return std::find_if(pairs.begin(), pairs.end(), [&](const CTarnSetting& pair) {
            return IsSamePair(pair, named.second) || pair.m_groupId == named.first;
        });
    }

    ULONG m_flags;
    std::vector<CNamed> m_named;
};

// --- watch -------------------------------------------------------------------------------------------

class CWatchCommand : public IWatchHost {
public:
    CWatchCommand(CCommandContext& context, const std::vector<std::string>& words)
        : m_context(context),
          m_pairs(Read()),
          m_choice(m_pairs, words, SYNC_CONTINUOUS_TO | SYNC_CONTINUOUS_FROM) {}

    bool WantsEnd() override {
        if (TickCount() - m_lookedAtFiles >= lookAtFilesMs) RequireStoresInPlace();
        return InterruptRequested();
    }

    Pairs Watched() const {
        Pairs watched;
        for (const std::size_t index : m_choice.In(m_pairs))
            watched.push_back(m_pairs[index]);
        return watched;
    }
    Pairs WatchedNow() override {
        if (SettingsStamp(m_context.Session().Mapi()) != m_options.listStamp &&
            (!m_failed || TickCount() - m_failedAt >= listAgainMs)) {
            try {
                m_pairs = Read();
                m_failed = false;
            } catch (const CCommandError& e) {
                m_failed = true;
                m_failedAt = TickCount();
                m_context.Console().Error(e.what(), e.Hint());
            }
        }
        return Watched();
    }
    CWatchedRun Run(const CTarnSetting& pair) override {
        RequireStoresInPlace();
        CWatchedRun run;
        try {
            const CBatchResult result = RunPairs(m_context, m_pairs, {IndexOf(pair)}, m_options);
            run.failed = result.code != ExitCode::Done;
            // A guard, or a kind of pair that is not run, says the same until somebody does something.
            run.again = run.failed && result.code != ExitCode::Guarded && result.code != ExitCode::Usage;
            run.changed = result.sourceChanged || result.targetChanged;
        } catch (const CCommandError& e) {
            m_context.Console().Error(e.what(), e.Hint());
            run.failed = run.again = true;
        } catch (const CMAPIException& e) {
            m_context.Console().Error("The pair \"" + LabelOf(pair) + "\" could not be run: " + Explain(e));
            run.failed = run.again = true;
        }
        return run;
    }
    void OnBegin(std::size_t pairs) override {
        m_hasBegun = true;
        m_context.Console().Note("Watching " + std::to_string(pairs) + " pair(s); Ctrl-C ends.");
    }
    void OnDeaf(const CTarnSetting& pair, const CMAPIException& why) override {
        const std::string text = "The pair \"" + LabelOf(pair) + "\" cannot be watched: " + Explain(why.Hr());
        if (!m_hasBegun) throw CCommandError(ExitCode::NotOpen, text);
        m_context.Console().Error(text, "It is tried again.");
    }
    void OnAdded(const CTarnSetting& pair) override { Tell(pair, "is watched too"); }
    void OnChanged(const CTarnSetting& pair) override { Tell(pair, "has been changed"); }
    void OnRemoved(const CTarnSetting& pair) override {
        m_context.Console().Note("The pair \"" +
                                 OneLine(pair.m_groupId.empty() ? pair.m_sourcePath : pair.m_groupId) +
                                 "\" is not watched any more.");
    }

private:
    // Nobody else's changes are heard of in a file that has lost its name, and the run's own reach nobody.
    void RequireStoresInPlace() {
        m_lookedAtFiles = TickCount();
        for (const CStoreInfo& store : m_context.Session().Stores()) {
            const bool isWatched = std::any_of(m_pairs.begin(), m_pairs.end(), [&](const CTarnSetting& pair) {
                return IsOnStore(pair, store);
            });
            if ((isWatched || store.isDefault) && !m_context.Session().IsInPlace(store))
                throw CCommandError(ExitCode::NotOpen,
                                    "The file of the store \"" + store.name +
                                        "\" was moved away or replaced, so watching ends",
                                    "Start it again when the file is where it belongs.");
        }
    }
    Pairs Read() {
        CPairStore store(m_context.Session());
        Pairs pairs = store.Load();
        m_options = BackgroundRun(store);
        return pairs;
    }
    std::size_t IndexOf(const CTarnSetting& pair) const {
        const auto is = [&](const CTarnSetting& other) { return IsSamePair(pair, other); };
        return static_cast<std::size_t>(std::find_if(m_pairs.begin(), m_pairs.end(), is) - m_pairs.begin());
    }
    std::string LabelOf(const CTarnSetting& pair) const { return PairLabel(m_pairs, IndexOf(pair)); }
    void Tell(const CTarnSetting& pair, const std::string& what) {
        m_context.Console().Note("The pair \"" + LabelOf(pair) + "\" " + what + ".");
    }

    CCommandContext& m_context;
    CRunOptions m_options;
    Pairs m_pairs;
    CChoice m_choice;
    bool m_hasBegun = false;
    bool m_failed = false;
    DWORD m_failedAt = 0;
    DWORD m_lookedAtFiles = TickCount();
};

int Watch(CCommandContext& context, const std::vector<std::string>& words) {
    CWatchCommand command(context, words);
    const Pairs watched = command.Watched();
    if (watched.empty())
        throw CCommandError(ExitCode::Usage, "No pair is to be watched",
                            "Name one, or:  vellum pair edit PAIR --continuous-to --continuous-from");
    WatchLoop(context.Session().Mapi(), command, watched);
    context.Console().Note("Watching has ended.");
    return Code(ExitCode::Done);
}

// --- timer -------------------------------------------------------------------------------------------

// The exception under way, told; what a command would end with for it.
ExitCode TellFailure(CConsole& console) {
    try {
        throw;
    } catch (const CCommandError& e) {
        console.Error(e.what(), e.Hint());
        return e.Code();
    } catch (const CMAPIException& e) {
        console.Error("The run has failed: " + Explain(e));
        return ExitCode::NotOpen;
    } catch (const std::exception& e) {
        console.Error(std::string("The run has failed: ") + e.what());
        return ExitCode::Internal;
    }
}

int Timer(CCommandContext& context, const std::vector<std::string>& words, unsigned seconds, unsigned times) {
    CPairStore store(context.Session());
    const CChoice choice(store.Load(), words, SYNC_ACTIVE);
    context.Console().Note("A run every " + std::to_string(seconds) + " second(s); Ctrl-C ends.");
    ExitCode last = ExitCode::Done;
    CTimerTerms terms;
    terms.seconds = seconds;
    terms.beginsAtOnce = true;
    terms.times = times;
    std::string gone;
    terms.wantsEnd = [&] { return !gone.empty() || InterruptRequested(); };
    terms.run = [&](const CMapiSession&) {
        const Pairs pairs = store.Load();
        gone = choice.Gone(pairs);
        if (!gone.empty()) throw CCommandError(ExitCode::Usage, "There is no pair \"" + gone + "\" any more");
        last = RunPairs(context, pairs, choice.In(pairs), BackgroundRun(store)).code;
    };
    terms.onFailure = [&] { last = TellFailure(context.Console()); };
    TimerLoop([&] { return context.Session().Mapi(); }, terms);
    TarnContext().Logoff();
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
