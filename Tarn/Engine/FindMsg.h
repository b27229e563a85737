// The candidates of a counterpart search, and which of them wins.
#pragma once
#include <Platform/MapiHeaders.h>

#include <string>
#include <vector>

struct CFindMsg {
    ULONG row;           // in the other side's rows
    std::string syncId;  // may be empty
};

// The row of the winner, or -1. A single candidate wins whatever it is linked to. Of several, the first
// with our sync ID wins (not asked for where that is empty), otherwise the last that is linked to
// nothing; if all are linked elsewhere, none.
int ChooseCandidate(const std::vector<CFindMsg>& candidates, const std::string& syncId);
