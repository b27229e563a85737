#include "RestrictionBounds.h"

#include <algorithm>

namespace {

using Worth = RestrictionBound::Worth;

constexpr std::size_t kMostRanges = 32;

RestrictionBounds One(std::optional<LookupRange> range, Worth worth) {
    if (!range) return {};
    return {{{std::move(*range)}, worth}};
}

// A property that every row has once only. Of others a condition from above and one from below may hold
// for two different elements.
bool IsSingle(PropId property) {
    return property == PROP_ID(PR_CREATION_TIME) || property == PROP_ID(PR_LAST_MODIFICATION_TIME);
}

bool IsSpan(const RestrictionBound& bound) {
    return bound.ranges.size() == 1 && IsSingle(bound.ranges[0].property);
}

// "From one time on" and "up to another" become one range.
void JoinSpans(RestrictionBounds& bounds) {
    for (auto first = bounds.begin(); first != bounds.end(); ++first) {
        if (!IsSpan(*first)) continue;
        LookupRange& range = first->ranges[0];
        const auto joins = [&](const RestrictionBound& other) {
            if (!IsSpan(other) || other.ranges[0].property != range.property) return false;
            range.first = std::max(range.first, other.ranges[0].first);
            range.last = std::min(range.last, other.ranges[0].last);
            first->worth = std::max({first->worth, other.worth, Worth::Some});
            return true;
        };
        bounds.erase(std::remove_if(first + 1, bounds.end(), joins), bounds.end());
    }
}

}  // namespace

RestrictionBounds BoundsOfRelation(ULONG relop, const CStoredValue& constant) {
    return One(RangeOfRelation(relop, constant), relop == RELOP_EQ ? Worth::Much : Worth::Little);
}

RestrictionBounds BoundsOfContent(const CStoredValue& pattern, ULONG fuzzyLevel) {
    const bool whole = (fuzzyLevel & 0xFFFF) == FL_FULLSTRING;
    return One(RangeOfContent(pattern, fuzzyLevel), whole ? Worth::Much : Worth::Some);
}

RestrictionBounds BoundsOfAll(std::vector<RestrictionBounds> children) {
    RestrictionBounds all;
    for (RestrictionBounds& child : children)
        std::move(child.begin(), child.end(), std::back_inserter(all));
    JoinSpans(all);
    std::stable_sort(all.begin(), all.end(),
                     [](const RestrictionBound& a, const RestrictionBound& b) { return a.worth > b.worth; });
    return all;
}

RestrictionBounds BoundsOfAny(std::vector<RestrictionBounds> children) {
    RestrictionBound any;
    any.worth = Worth::Much;
    for (RestrictionBounds& child : children) {
        if (child.empty()) return {};
        RestrictionBound& best = child.front();
        std::move(best.ranges.begin(), best.ranges.end(), std::back_inserter(any.ranges));
        any.worth = std::min(any.worth, best.worth);
    }
    // An OR of nothing matches no row; it is not worth a way of its own.
    if (any.ranges.empty() || any.ranges.size() > kMostRanges) return {};
    return {std::move(any)};
}
