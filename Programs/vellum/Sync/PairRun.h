// Running pairs for the command line: which ones, one at a time, and what came of them.
#pragma once
#include <Programs/vellum/Console/Listing.h>
#include <Programs/vellum/Session/ProfileSession.h>
#include <Programs/vellum/Sync/PairLock.h>
#include <Tarn/Engine/syncfolder.h>
#include <Tarn/Settings/MassDeleteGuard.h>

#include <optional>
#include <string>
#include <vector>

class CConsole;
class CTerminalProgress;

struct CPairResult {
    CTarnSetting pair;
    std::string label;
    CSyncProtocol protocol;
    std::vector<bool> toSource;  // of each entry: the change went to the source side
    CSyncOutcome outcome;
    std::vector<std::string> missingFolders;
    std::string busy;     // who holds the pair; empty: nobody
    std::string problem;  // why it could not be begun; empty: it could
    // What it was stopped for before too much was deleted.
    std::optional<CPlannedDeletions> guarded;
    bool isDryRun = false;
};

struct CPairRunOptions {
    CPatience patience;
    unsigned massDeleteShare = 0;          // per cent; 0: delete whatever is to be deleted
    CMassDeleteGuard::Question isItMeant;  // empty: too many deletions are not
};

// Opens both folders; false with the problem told where one of them is not there.
bool OpenPairFolders(CProfileSession& session, CPairResult& result, CFolderRef& source, CFolderRef& target);

// Runs one pair on this thread, once no other process runs it. Failures inside the run are in the outcome,
// what the engine had to say about them went to the installed user interface.
void RunPair(CProfileSession& session, CTerminalProgress& progress, const CPairRunOptions& options,
             CPairResult& result);

// The word for a protocol state: "new", "changed", "deleted", "conflict", "kept".
std::string StateWord(int state);
Json ResultToJson(const CPairResult& result);
void PrintResult(CConsole& console, const CPairResult& result);
