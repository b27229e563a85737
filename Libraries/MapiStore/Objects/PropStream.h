// IStream over one property of text or bytes.
#pragma once
#include "PropObject.h"

// With one reference. Throws as OpenProperty answers: MAPI_E_NOT_FOUND for a property that is not there
// and not to be created, MAPI_E_INTERFACE_NOT_SUPPORTED for a type without a stream form,
// MAPI_E_COMPUTED ... for one that cannot be changed. MAPI_CREATE discards what is there.
//
// What is written reaches the object at Commit, and at the last Release without one. Text is in the
// width of the tag, wide text UTF-16LE; one closing zero is taken for a terminator.
IStream* OpenPropStream(CPropObject& object, ULONG tag, ULONG options, ULONG flags);
