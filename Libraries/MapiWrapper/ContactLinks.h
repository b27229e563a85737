// The contacts linked to an item.
#pragma once
#include <MapiWrapper/Message.h>

#include <array>
#include <list>

struct CContactLink {
    CMapiBinary searchKey;
    CMapiBinary entryId;
    std::string name;
    std::array<ULONG, 8> words{};
    ULONG closing = 0;
};
using CContactLinks = std::list<CContactLink>;

// Appends the links of `message`. A message without links is no failure. Throws otherwise. Damaged
// streams end the reading with the links read so far.
void ReadContactLinks(CContactLinks& links, const CGenMapiPropPtr& message);
// Replaces the links of `message`, which is not saved. Throws.
void WriteContactLinks(const CContactLinks& links, CGenMapiPropPtr& message);
// Appends a link to a message (a contact). Throws.
void AddContactLink(CContactLinks& links, const CGenMapiPropPtr& message);
