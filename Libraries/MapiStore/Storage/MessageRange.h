// Where the messages of a folder, or its associated ones, lie by their numbers. For SqliteStorage.cpp and
// SqliteLookup.cpp.
#pragma once
#include "Storage.h"

struct IdRange {
    ObjectId first, last;
};

inline IdRange RangeOf(ObjectId folder, bool associated) {
    return {MakeMessageId(folder, associated, 0), MakeMessageId(folder, associated, kSerialMask)};
}

// One number for folder and associated bit.
inline std::uint64_t PlaceOf(ObjectId message) {
    return message >> 39;
}
inline IdRange RangeOfPlace(std::uint64_t place) {
    return {place << 39, place << 39 | kSerialMask};
}
