// Entry IDs: 4 flag bytes, the store's UID, the object's number (0: the store itself).
#pragma once
#include "Storage.h"

#include <array>

struct StoreUid {
    std::array<std::uint8_t, 16> bytes{};
    bool operator==(const StoreUid& other) const { return bytes == other.bytes; }
    bool operator<(const StoreUid& other) const { return bytes < other.bytes; }
    std::string_view View() const { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }
};

#pragma pack(push, 1)
struct StoreEntryId {
    std::uint8_t flags[4];
    StoreUid uid;
    ObjectId number;
};
#pragma pack(pop)
static_assert(sizeof(StoreEntryId) == 28);

// Long-term, unless shortTerm: then flagged as valid in this session only. Both open the same object.
StoreEntryId MakeEntryId(const StoreUid& uid, ObjectId number, bool shortTerm = false);

// False if the bytes are not an entry ID of this kind.
bool ParseEntryId(ULONG cb, const ENTRYID* bytes, StoreUid& uid, ObjectId& number);
