#include "EntryId.h"

namespace {
constexpr std::uint8_t kShortTermFlags = MAPI_SHORTTERM | MAPI_NOTRECIP | MAPI_THISSESSION | MAPI_NOTRESERVED;
}

StoreEntryId MakeEntryId(const StoreUid& uid, ObjectId number, bool shortTerm) {
    StoreEntryId id{};
    if (shortTerm) id.flags[0] = kShortTermFlags;
    id.uid = uid;
    id.number = number;
    return id;
}

bool ParseEntryId(ULONG cb, const ENTRYID* bytes, StoreUid& uid, ObjectId& number) {
    if (cb != sizeof(StoreEntryId) || !bytes) return false;
    StoreEntryId id;
    std::memcpy(static_cast<void*>(&id), bytes, sizeof id);
    if (id.flags[0] != 0 && id.flags[0] != kShortTermFlags) return false;
    uid = id.uid;
    number = id.number;
    return true;
}
