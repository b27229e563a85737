// A restriction as a tree, node by node: what a store is really asked, for diagnosis and tests.
#pragma once
#include <Platform/MapiHeaders.h>

#include <string>

// One line a node, two blanks a level, each ended by "\n":
//
//   AND 2
//     PROPERTY 0x0037001e = "x"
//     NOT
//       BITMASK 0x0e070003 & 0x1 = 0
//
// Tags and masks in hexadecimal, dates as "YYYY-MM-DD hh:mm:ss.mmm", relations that MAPI does not know as
// numbers, a value that is not there as "(none)". A null node is "(NULL)".
std::string RestrictionTree(const SRestriction* node);
