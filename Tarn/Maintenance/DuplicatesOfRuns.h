// The removal of duplicates at the start of a run, which an installation may switch on (FindDuplicates).
#pragma once
#include <Tarn/Engine/RunGuard.h>

// Without field compare, log or counter. One for all runs; holds nothing.
IRunPreparation& DuplicatesOfRuns();
