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

// Appends the links of `message`; true if these are all, also where it has none. False where its streams
// hold fewer than it names: damaged ones end the reading with the links so far. Throws where one cannot
// be read.
bool ReadContactLinks(CContactLinks& links, const CGenMapiPropPtr& message);
// Replaces the links of `message`, which is not saved. Throws.
void WriteContactLinks(const CContactLinks& links, CGenMapiPropPtr& message);
// Appends a link to a message (a contact). Throws.
void AddContactLink(CContactLinks& links, const CGenMapiPropPtr& message);
