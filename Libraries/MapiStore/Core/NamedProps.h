// Named properties across stores.
#pragma once
#include "StoreCore.h"

// Gives the next ID of the store to a name that has none: in a save, or for this process only where
// the store cannot be written. For a name that has just been looked for.
PropId AddName(CStoreCore& core, const PropertyName& name);

// The ID in `target` of a property of `source`: IDs below 0x8000 stay, named ones go by their name,
// which is added to the target where it is missing. 0 if the ID has no name in the source.
PropId MapNamedId(CStoreCore& source, CStoreCore& target, PropId id);
