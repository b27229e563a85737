// Keys under which a storage finds messages by the value of a property. Their byte order is the order of
// the values; text loses case and accents, and what is long is cut, so that a key says what a value may
// be, not what it is: who asks by key looks at the values of what was found.
#pragma once
#include "ValueBlock.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

// Values of `property` that have a key from `first` up to, but without, `last`.
struct LookupRange {
    PropId property = 0;
    std::string first;
    std::string last;
};

using OnLookupKey = std::function<void(std::string_view key)>;

// The keys of a value: one, or of a multi-valued property one for each element. None for types that are not
// looked up: numbers with fractions, booleans, objects. Not for large values, whose bytes are not at hand.
// Throws MAPI_E_CORRUPT_DATA for elements that do not fit.
void ForEachLookupKey(const CStoredValue& value, const OnLookupKey& each);

// Where the keys of all values lie for which RelationHolds(relop, CompareStored(value, constant)). Nothing
// where that cannot be told: another order than the keys', RELOP_NE, types that are not looked up.
std::optional<LookupRange> RangeOfRelation(ULONG relop, const CStoredValue& constant);

// Where the keys of all values lie that CContentPattern(pattern, fuzzyLevel) matches; nothing for
// FL_SUBSTRING and for a pattern that tells nothing about how a value begins.
std::optional<LookupRange> RangeOfContent(const CStoredValue& pattern, ULONG fuzzyLevel);
