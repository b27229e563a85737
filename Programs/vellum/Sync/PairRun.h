// What came of the run over one pair, and how it is printed.
#pragma once
#include <Programs/vellum/Console/ExitCode.h>
#include <Programs/vellum/Console/Listing.h>
#include <Programs/vellum/Session/ProfileSession.h>
#include <Tarn/Engine/syncfolder.h>

#include <optional>
#include <string>
#include <vector>

class CConsole;

struct CPairResult {
    CTarnSetting pair;
    std::string label;
    CSyncProtocol protocol;
    CSyncOutcome outcome;
    std::vector<std::string> missingFolders;
    std::string busy;     // who holds the pair; empty: nobody
    std::string problem;  // why it could not be begun; empty: it could
    ExitCode problemCode = ExitCode::NotOpen;
    std::string advice;  // what to do about that; may be empty
    // What it was stopped for before too much was deleted.
    std::optional<CPlannedDeletions> guarded;
    // Why its query does not select, where it was stopped for that.
    std::string badQuery;
    bool isDryRun = false;
};

// Whether both folders are there; if not, the problem is told in `result`.
bool CanOpenPair(CProfileSession& session, CPairResult& result);

// The word for a protocol state: "new", "changed", "deleted", "conflict", "kept".
std::string StateWord(int state);
Json ResultToJson(const CPairResult& result);
void PrintResult(CConsole& console, const CPairResult& result);
