// Do two items hold the same? Whatever a person could have written counts: every property but those that say
// where an item lies, when it was saved and what it is linked with, every recipient and every attachment.
#pragma once
#include <MapiWrapper/MapiWrapper.h>

#include <vector>

// False also where something cannot be compared. Values of any size are read in portions. Throws where an
// object cannot be read at all.
bool HaveSameContents(const IMessagePtr& a, const IMessagePtr& b);
// The same of some properties alone, pair by pair.
bool HaveSameValues(const IMessagePtr& a, const std::vector<ULONG>& tagsOfA, const IMessagePtr& b,
                    const std::vector<ULONG>& tagsOfB);
