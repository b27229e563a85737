// Putting folders in order: duplicates, marks, memories, search keys, times.
#include <Programs/vellum/Commands/CommandContext.h>

#include <Platform/Clock.h>
#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Programs/vellum/Console/Interrupt.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Items/FolderItems.h>
#include <Programs/vellum/Items/ItemReport.h>
#include <Programs/vellum/Sync/MaintenanceTarget.h>
#include <Tarn/Maintenance/Duplicates.h>
#include <Tarn/Maintenance/IdMaintenance.h>
#include <Tarn/Maintenance/SearchKeys.h>

#include <algorithm>
#include <functional>
#include <map>

namespace {

struct Arguments {
    std::string target;
    std::vector<std::string> items;
    bool fieldCompare = false;
    bool withoutWastebasket = false;
    bool dryRun = false;
    bool isAgreed = false;  // --yes
};

std::string Counted(unsigned count, const std::string& one, const std::string& many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string Quoted(const CFolderRef& folder) {
    return "\"" + Utf8FromNarrow(folder.path) + "\"";
}

// What was done before stays done, in each of these.
template <class Outcome>
ExitCode CodeOf(const Outcome& outcome) {
    if (outcome.cancelled) return ExitCode::Cancelled;
    if (outcome.notRead) return ExitCode::NotOpen;
    return outcome.failed > 0 ? ExitCode::ItemsFailed : ExitCode::Done;
}

int EndWith(CCommandContext& context, ExitCode code) {
    if (code == ExitCode::Cancelled)
        context.Console().Note("Cancelled. What was done stays; the same command does the rest.");
    return Code(code);
}

template <class Outcomes>
ExitCode WorstOf(const Outcomes& outcomes) {
    ExitCode worst = ExitCode::Done;
    for (const auto& outcome : outcomes) {
        const ExitCode code = CodeOf(outcome);
        const bool isWorse = worst == ExitCode::Done || code == ExitCode::Cancelled ||
                             (code == ExitCode::NotOpen && worst != ExitCode::Cancelled);
        if (code != ExitCode::Done && isWorse) worst = code;
    }
    return worst;
}

// --- duplicates -------------------------------------------------------------------------------------

using DuplicateOutcomes = std::vector<CDuplicateOutcome>;

DuplicateOutcomes PassOver(CCommandContext& context, const CMaintenanceTarget& target,
                           const CDuplicateOptions& options) {
    CTerminalWatch watch(context.Console(), options.dryRun ? "looking for duplicates" : "moving duplicates");
    if (!target.IsPair()) {
        std::vector<CMaintainedFolder> partners;
        for (const CFolderRef& partner : target.partners)
            partners.push_back({partner.store, partner.folder});
        return {RemoveDuplicates(target.At(0), options, &watch, partners)};
    }
    const auto both = RemoveDuplicatesOfPair(target.At(0), target.At(1), options, &watch);
    return {both.begin(), both.end()};
}

int PrintDuplicates(CCommandContext& context, const CMaintenanceTarget& target,
                    const DuplicateOutcomes& outcomes) {
    CListing listing({{"folder", "Folder"},
                      {"items", "Items"},
                      {"groups", "Groups"},
                      {"duplicates", "Duplicates"},
                      {"removed", "Removed"},
                      {"different", "Different"},
                      {"failed", "Failed"}},
                     "");
    for (std::size_t i = 0; i < outcomes.size(); ++i) {
        const CDuplicateOutcome& outcome = outcomes[i];
        listing.AddRow({Utf8FromNarrow(target.folders[i].path), outcome.rows, outcome.groups,
                        outcome.duplicates, outcome.removed, outcome.different, outcome.failed});
    }
    listing.Print(context.Console(), context.Json());
    return EndWith(context, WorstOf(outcomes));
}

void RefuseWithoutPlace(const DuplicateOutcomes& outcomes) {
    for (const CDuplicateOutcome& outcome : outcomes)
        if (outcome.noHolding)
            throw CCommandError(ExitCode::Guarded,
                                "There is no wastebasket for the duplicates. Nothing was changed.",
                                "To have them deleted for good:  --without-wastebasket");
}

std::string DuplicatePlan(const CMaintenanceTarget& target, const DuplicateOutcomes& outcomes,
                          const Arguments& arguments) {
    std::string plan;
    for (std::size_t i = 0; i < outcomes.size(); ++i)
        if (outcomes[i].duplicates > 0)
            plan += Counted(outcomes[i].duplicates, "duplicate", "duplicates") + " of " +
                    Counted(outcomes[i].groups, "item", "items") + " in " + Quoted(target.folders[i]) + ". ";
    return plan + "The newest of each stays, the others go to \"" + kDuplicatesPath[0] + "\\" +
           kDuplicatesPath[1] + "\" below the wastebasket" +
           (arguments.withoutWastebasket ? ", or for good where there is none." : ".");
}

unsigned DuplicatesIn(const DuplicateOutcomes& outcomes) {
    unsigned count = 0;
    for (const CDuplicateOutcome& outcome : outcomes)
        count += outcome.duplicates;
    return count;
}

int RemoveDuplicateItems(CCommandContext& context, const Arguments& arguments) {
    CProfileSession& session = context.Session();
    const CMaintenanceTarget target = FindMaintained(session, arguments.target);
    for (const std::string& pair : target.pairsOfFolder)
        context.Console().Note("The folder is one side of the pair \"" + pair +
                               "\". To treat both sides alike:  vellum maintain duplicates \"" + pair + "\"");
    CDuplicateOptions options;
    options.fieldCompare = arguments.fieldCompare;
    options.destroyWithoutHolding = arguments.withoutWastebasket;
    options.dryRun = true;
    const DuplicateOutcomes looked = PassOver(context, target, options);
    // Items that cannot be compared stay; the others need not.
    const ExitCode ofLook = WorstOf(looked);
    const bool isLookOnly = arguments.dryRun || DuplicatesIn(looked) == 0 ||
                            (ofLook != ExitCode::Done && ofLook != ExitCode::ItemsFailed);
    if (isLookOnly) return PrintDuplicates(context, target, looked);
    RefuseWithoutPlace(looked);
    AskBefore(context.Console(), DuplicatePlan(target, looked, arguments), arguments.isAgreed);
    const CMaintenanceLock lock(session, target);
    options.dryRun = false;
    options.logFile = DuplicateLogBeside(JoinPath(DataDirectory(), "vellum."));
    const DuplicateOutcomes done = PassOver(context, target, options);
    RefuseWithoutPlace(done);
    return PrintDuplicates(context, target, done);
}

// --- marks, memories, times -------------------------------------------------------------------------

struct CRepair {
    const char* one;  // what is taken away, as a person calls it
    const char* many;
    const char* effect;  // a sentence
    bool ofSourceOnly;
    std::function<CMaintenanceOutcome(const CMaintainedFolder&, bool dryRun, IMaintenanceWatch*)> run;
};

std::vector<CMaintenanceOutcome> RunRepair(CCommandContext& context, const CMaintenanceTarget& target,
                                           const CRepair& repair, bool dryRun) {
    std::vector<CMaintenanceOutcome> outcomes;
    const std::size_t count = repair.ofSourceOnly ? 1 : target.folders.size();
    for (std::size_t i = 0; i < count; ++i) {
        CTerminalWatch watch(context.Console(), Utf8FromNarrow(target.folders[i].path));
        const bool isOver = InterruptRequested();
        outcomes.push_back(isOver ? CMaintenanceOutcome{} : repair.run(target.At(i), dryRun, &watch));
        outcomes.back().cancelled |= isOver;
    }
    return outcomes;
}

int PrintRepair(CCommandContext& context, const CMaintenanceTarget& target,
                const std::vector<CMaintenanceOutcome>& outcomes) {
    CListing listing({{"folder", "Folder"}, {"found", "Found"}, {"changed", "Done"}, {"failed", "Failed"}},
                     "");
    for (std::size_t i = 0; i < outcomes.size(); ++i)
        listing.AddRow({Utf8FromNarrow(target.folders[i].path), outcomes[i].found, outcomes[i].changed,
                        outcomes[i].failed});
    listing.Print(context.Console(), context.Json());
    return EndWith(context, WorstOf(outcomes));
}

int Repair(CCommandContext& context, const Arguments& arguments, const CRepair& repair) {
    CProfileSession& session = context.Session();
    const CMaintenanceTarget target = FindMaintained(session, arguments.target);
    const auto looked = RunRepair(context, target, repair, true);
    unsigned found = 0;
    std::string plan;
    for (std::size_t i = 0; i < looked.size(); ++i) {
        found += looked[i].found;
        if (looked[i].found > 0)
            plan +=
                Counted(looked[i].found, repair.one, repair.many) + " in " + Quoted(target.folders[i]) + ". ";
    }
    if (arguments.dryRun || found == 0 || WorstOf(looked) != ExitCode::Done)
        return PrintRepair(context, target, looked);
    AskBefore(context.Console(), plan + repair.effect, arguments.isAgreed);
    const CMaintenanceLock lock(session, target);
    return PrintRepair(context, target, RunRepair(context, target, repair, false));
}

const CRepair kMarks{"marked item", "marked items",
                     "Their marks are removed; the next run compares every item of the folder.", false,
                     [](const CMaintainedFolder& folder, bool dryRun, IMaintenanceWatch* watch) {
                         return RemoveSyncMarks(folder, dryRun, watch);
                     }};
const CRepair kMemories{
    "memory of a run", "memories of runs",
    "They are removed; the next run knows nothing of what the folders held before, and so "
    "of no deletions.",
    false, [](const CMaintainedFolder& folder, bool dryRun, IMaintenanceWatch*) {
        return RemoveSyncFiles(folder, dryRun);
    }};
const CRepair kTimes{"time of a run", "times of runs",
                     "They are forgotten; a pair that looks only at what is new looks at all items next.",
                     true, [](const CMaintainedFolder& folder, bool dryRun, IMaintenanceWatch*) {
                         return ResetLastSyncTimes(folder, dryRun);
                     }};

// --- search keys ------------------------------------------------------------------------------------

int ListKeys(CCommandContext& context, const std::string& path) {
    const CFolderRef folder = context.Session().OpenFolder(path);
    std::vector<CSharedKeyItem> items;
    if (!ListSharedKeys({folder.store, folder.folder}, items)) return Code(ExitCode::NotOpen);
    std::map<std::string, CItemRow> rows;
    for (CItemRow& row : items.empty() ? std::vector<CItemRow>() : ListItems(folder, ""))
        rows.emplace(row.entryId.Hex(), std::move(row));
    CListing listing({{"number", "No."}, {"name", "Name"}, {"key", "Search key"}, {"id", ""}},
                     "No two items in " + Quoted(folder) + " have the same search key.");
    for (const CSharedKeyItem& item : items) {
        const auto row = rows.find(item.entryId.Hex());
        listing.AddRow({row == rows.end() ? 0 : row->second.number, Utf8FromNarrow(item.name),
                        item.searchKey.Hex(), item.entryId.Hex()});
    }
    listing.Print(context.Console(), context.Json());
    return Code(ExitCode::Done);
}

int GiveNewKeys(CCommandContext& context, const Arguments& arguments) {
    CProfileSession& session = context.Session();
    CMaintenanceTarget target;
    target.folders.push_back(session.OpenFolder(arguments.target));
    const CFolderRef& folder = target.folders[0];
    std::vector<CMapiBinary> items;
    std::string labels;
    for (const std::string& word : arguments.items) {
        const CItemRow row = FindItem(folder, word);
        if (std::find(items.begin(), items.end(), row.entryId) != items.end()) continue;
        items.push_back(row.entryId);
        if (items.size() <= 3) labels += (labels.empty() ? "" : ", ") + ItemLabel(row);
    }
    if (items.size() > 3) labels += " and others";
    CMaintenanceOutcome outcome;
    outcome.found = static_cast<unsigned>(items.size());
    if (!arguments.dryRun) {
        AskBefore(context.Console(),
                  Counted(outcome.found, "item", "items") + " in " + Quoted(folder) +
                      " will get new search keys: " + labels + ".",
                  arguments.isAgreed);
        const CMaintenanceLock lock(session, target);
        CTerminalWatch watch(context.Console(), "giving new keys");
        outcome = GiveNewSearchKeys(target.At(0), items, &watch);
    }
    return PrintRepair(context, target, {outcome});
}

void AddAgreement(CLI::App& command, Arguments& arguments) {
    command.add_flag("--dry-run", arguments.dryRun, "Only say what would be done, and to how many");
    command.add_flag("--yes", arguments.isAgreed, "Do not ask; needed where nobody is there to answer");
}

void AddRepair(CCommandTable& table, CLI::App& group, const std::shared_ptr<Arguments>& arguments,
               const char* name, const char* text, const char* example, const CRepair& repair) {
    CLI::App& command = table.AddCommand(
        group, name, text, example,
        [arguments, &repair](CCommandContext& context) { return Repair(context, *arguments, repair); });
    command.add_option("PAIR", arguments->target, "A pair by its name or number, or the path of a folder")
        ->required();
    AddAgreement(command, *arguments);
}

}  // namespace

void AddMaintainCommands(CCommandTable& table) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App& group = table.AddGroup("maintain", "Put folders in order. Each command may be run again",
                                     "maintain duplicates mail --dry-run");
    CLI::App& duplicates = table.AddCommand(
        group, "duplicates",
        "Move copies of items within a folder, or within both folders of a pair, below the wastebasket",
        "maintain duplicates Home/Mail --field-compare",
        [arguments](CCommandContext& context) { return RemoveDuplicateItems(context, *arguments); });
    duplicates.add_option("PAIR", arguments->target, "A pair by its name or number, or the path of a folder")
        ->required();
    duplicates.add_flag("--field-compare", arguments->fieldCompare,
                        "Leave copies that differ in what a person sees of them");
    duplicates.add_flag("--without-wastebasket", arguments->withoutWastebasket,
                        "Delete for good where there is no wastebasket to move them to");
    AddAgreement(duplicates, *arguments);
    AddRepair(table, group, arguments, "remove-ids",
              "Remove the marks by which runs know items; the next run compares all of them",
              "maintain remove-ids mail", kMarks);
    AddRepair(table, group, arguments, "remove-files",
              "Remove what runs remember of a folder, of all its pairs and this computer",
              "maintain remove-files mail", kMemories);
    AddRepair(table, group, arguments, "reset-times",
              "Forget when pairs of a source folder were last run, so that all items are looked at",
              "maintain reset-times mail", kTimes);
    CLI::App& keys = table.AddCommand(
        group, "new-keys", "Give items search keys of their own, so that they are no copies any more",
        "maintain new-keys Home/Mail 3 5",
        [arguments](CCommandContext& context) { return GiveNewKeys(context, *arguments); });
    keys.add_option("FOLDER", arguments->target, "The folder")->required();
    keys.add_option("ITEM", arguments->items, "Numbers, subjects or ids")->required();
    AddAgreement(keys, *arguments);
    table
        .AddCommand(group, "list-keys", "List the items that share their search key with another one",
                    "maintain list-keys Home/Mail",
                    [arguments](CCommandContext& context) { return ListKeys(context, arguments->target); })
        .add_option("FOLDER", arguments->target, "The folder")
        ->required();
}
