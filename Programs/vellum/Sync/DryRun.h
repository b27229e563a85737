// What a run would do, found with the run's own means and without doing it.
#pragma once
#include <Programs/vellum/Sync/PairRun.h>

// Fills the protocol of `result` with what a run over the pair would carry over, delete or find in
// conflict, and the missing folders with those it would name or create. Changes no item, no folder and
// no memory of the pair. An item that a run would recognise on the other side only by its contents
// shows as new. A pair whose query does not select is stopped as a run is, unless `ignoreBadQuery`.
void DryRunPair(CProfileSession& session, CSyncProgress& progress, bool ignoreBadQuery, CPairResult& result);
