// What can be told about the rows of a restriction from the keys of their values alone.
#pragma once
#include <MapiStore/Values/LookupKey.h>

#include <vector>

// Every matching row has a value in one of the ranges at least.
struct RestrictionBound {
    // How much a bound is likely to leave out.
    enum class Worth { Little, Some, Much };
    std::vector<LookupRange> ranges;
    Worth worth = Worth::Little;
};

// Each of them holds for every matching row; none: nothing can be told.
using RestrictionBounds = std::vector<RestrictionBound>;

// Bounds of one condition: one or none.
RestrictionBounds BoundsOfRelation(ULONG relop, const CStoredValue& constant);
RestrictionBounds BoundsOfContent(const CStoredValue& pattern, ULONG fuzzyLevel);

// Bounds of conditions joined by AND or by OR; the bounds that are worth most come first.
RestrictionBounds BoundsOfAll(std::vector<RestrictionBounds> children);
RestrictionBounds BoundsOfAny(std::vector<RestrictionBounds> children);
