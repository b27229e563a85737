#include <Programs/vellum/Commands/CommandContext.h>
#include <Programs/vellum/Commands/RunPairs.h>
#include <Programs/vellum/Sync/PairStore.h>
#include <Tarn/Dispatch/MassDeleteGuard.h>

#include <algorithm>
#include <optional>

namespace {

struct CSyncArguments {
    std::vector<std::string> pairs;
    bool all = false;
    bool atStart = false;
    bool atShutdown = false;
    bool dryRun = false;
    bool extendedExit = false;
    bool allowMassDelete = false;
    bool ignoreBadQuery = false;
    std::optional<unsigned> massDeleteShare;
    const CLI::Option* wait = nullptr;
    std::string waitText;
};

std::vector<std::size_t> ChoosePairs(const std::vector<CTarnSetting>& pairs,
                                     const CSyncArguments& arguments) {
    std::vector<std::size_t> chosen;
    for (const std::string& word : arguments.pairs) {
        const std::size_t index = FindPair(pairs, word);
        if (std::find(chosen.begin(), chosen.end(), index) == chosen.end()) chosen.push_back(index);
    }
    if (!arguments.pairs.empty()) return chosen;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const bool wanted = (arguments.all || pairs[i].Has(SYNC_ACTIVE)) &&
                            (!arguments.atStart || pairs[i].Has(SYNC_AT_START)) &&
                            (!arguments.atShutdown || pairs[i].Has(SYNC_AT_SHUTDOWN));
        if (wanted) chosen.push_back(i);
    }
    return chosen;
}

bool IsNumber(const std::string& text) {
    return !text.empty() && text.size() <= 6 && text.find_first_not_of("0123456789") == std::string::npos;
}

// The seconds behind --wait may be left out; the word that stands there is then the name of a pair. Seconds
// that are given hold for everything that is waited for.
void TakeWait(CSyncArguments& arguments, CRunOptions& options) {
    if (arguments.wait->count() == 0) return;
    options.samePairSeconds = CPatience::kForEver;
    if (IsNumber(arguments.waitText))
        options.samePairSeconds = options.sharedSeconds =
            static_cast<unsigned>(std::stoul(arguments.waitText));
    else if (!arguments.waitText.empty() && arguments.waitText != "true")
        arguments.pairs.push_back(arguments.waitText);
}

int Sync(CCommandContext& context, CSyncArguments arguments) {
    CRunOptions options;
    options.dryRun = arguments.dryRun;
    TakeWait(arguments, options);
    CPairStore store(context.Session());
    CConsole& console = context.Console();
    const auto pairs = store.Load();
    options.listStamp = store.Stamp();
    options.massDeleteShare = arguments.massDeleteShare.value_or(MassDeleteShare(store.Settings()));
    if (arguments.allowMassDelete) options.massDeleteShare = 0;
    options.ignoreBadQuery = arguments.ignoreBadQuery || store.Settings().m_queryGuard == 0u;
    const auto chosen = ChoosePairs(pairs, arguments);
    if (chosen.empty())
        console.Note(pairs.empty() ? "The profile has no pairs yet. Add one:  vellum pair add SOURCE TARGET"
                                   : "No pair is to be run. See:  vellum pair list");

    const CBatchResult result = RunPairs(context, pairs, chosen, options);
    if (result.code == ExitCode::Cancelled)
        console.Note("Cancelled. What was carried over stays; the next run goes on from there.");
    if (!arguments.extendedExit) return Code(result.code);
    return Code(result.code) | (result.sourceChanged ? kSourceChangedBit : 0) |
           (result.targetChanged ? kTargetChangedBit : 0);
}

}  // namespace

void AddSyncCommand(CCommandTable& table) {
    auto arguments = std::make_shared<CSyncArguments>();
    CLI::App& command = table.AddCommand(
        table.App(), "sync",
        "Run pairs: make both folders of each hold the same items, and print what was done", "sync calendars",
        [arguments](CCommandContext& context) { return Sync(context, *arguments); });
    auto* pairs = command.add_option("PAIR", arguments->pairs,
                                     "Names, numbers or source folders (default: all active pairs)");
    command.add_flag("--all", arguments->all, "Also pairs that are not active")->excludes(pairs);
    command.add_flag("--at-start", arguments->atStart, "Only pairs that run at start")->excludes(pairs);
    command.add_flag("--at-shutdown", arguments->atShutdown, "Only pairs that run at shutdown")
        ->excludes(pairs);
    arguments->wait =
        command
            .add_option("--wait", arguments->waitText,
                        "Wait for runs of the same folders in other processes (default: until they end)")
            ->type_name("[SECONDS]")
            ->expected(0, 1);
    command.add_flag("--dry-run", arguments->dryRun, "Only say what would be done");
    command.add_flag("--allow-mass-delete", arguments->allowMassDelete,
                     "Delete also where most items of a folder would go");
    command.add_flag("--ignore-bad-query", arguments->ignoreBadQuery,
                     "Run pairs whose query does not select anything as if they had none");
    command
        .add_option("--mass-delete-share", arguments->massDeleteShare,
                    "Stop a pair of which more than so many per cent, and at least " +
                        std::to_string(kMassDeleteLeast) + " items, would be deleted on one side (default: " +
                        std::to_string(kMassDeleteShare) + ")")
        ->type_name("PERCENT")
        ->check(CLI::Range(1u, 100u));
    command.add_flag("--ext-exit", arguments->extendedExit,
                     "Add 32 to the exit code if the source side was changed, 64 if the target side was");
}
