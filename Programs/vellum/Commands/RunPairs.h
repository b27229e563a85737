// Several pairs, one after the other, for all commands that run pairs.
#pragma once
#include <Programs/vellum/Commands/CommandContext.h>
#include <Tarn/Dispatch/PairLock.h>
#include <Tarn/Engine/TarnSetting.h>
#include <Tarn/Settings/TarnSettings.h>

#include <string>
#include <vector>

struct CRunOptions {
    bool dryRun = false;
    bool inBackground = false;     // no line for each folder, and no word of pairs that had nothing to do
    unsigned massDeleteShare = 0;  // per cent, see CMassDeleteGuard; 0: no guard
    bool ignoreBadQuery = false;   // run a pair whose query does not select as if it had none
    // For runs of other processes; a pair that shares a folder is waited for unless somebody says otherwise.
    unsigned samePairSeconds = 0;
    unsigned sharedSeconds = CPatience::kForEver;
    // CPairStore::Stamp of the list that the pairs are from: one that was removed or changed before its
    // turn came is not run.
    std::string listStamp;
};

// The share that the installation has set, or else the usual one.
unsigned MassDeleteShare(const CTarnSettings& settings);

struct CBatchResult {
    ExitCode code = ExitCode::Done;  // of the pair that went worst
    bool sourceChanged = false;
    bool targetChanged = false;
};

// Runs the chosen pairs and prints the protocol of each; with --json one array for all. Stops behind the
// pair during which the person cancelled.
CBatchResult RunPairs(CCommandContext& context, const std::vector<CTarnSetting>& pairs,
                      const std::vector<std::size_t>& chosen, const CRunOptions& options);
