// What each run of each story meets before it is left alone, where VELLUM_TROUBLE names it:
//
//   calls    each call on either store fails once
//   commits  each commit of either store is lost
//   deaths   the process dies at each call, with what the stores had gathered written or lost (not on
//   Windows)
//
// After each of them the runs that follow must make of the folders what a run left alone makes of them.
// VELLUM_STRIDE takes each n-th step only.
#pragma once
#include <support/TwoFolders.h>

enum class RunTrouble { None, Calls, Commits, Deaths };

// Of the environment, read once.
RunTrouble TroubleOfRuns();

// One of them.
struct CRunTrouble {
    RunTrouble kind = RunTrouble::None;
    bool inSource = true;
    ULONG step = 1;
};

// How many were met so far in this process.
unsigned& TroublesMet();
