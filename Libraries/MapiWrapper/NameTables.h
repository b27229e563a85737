// The symbolic names of MAPI properties: the vocabulary of the query language.
#pragma once
#include <Platform/MapiHeaders.h>

#include <array>
#include <span>
#include <string>

struct CNameRow {
    const char* name;
    ULONG tag;
    ULONG spare;  // 0 in every row
};

// A table ends with a row of tag 0, which the span leaves out.
class CNameTable;
// The published tags in alphabetical order, with a few rows appended.
const CNameTable& MainNameTable();
// A second set in tag order.
const CNameTable& SecondaryNameTable();
std::span<const CNameRow> NameRows(const CNameTable& table);

// The tag of the first row of that name in `table`, then in the secondary one; 0 if there is none.
// Case counts. Names without suffix have their 8-bit type. Logarithmic.
ULONG TagFromName(const std::string& name, const CNameTable& table = MainNameTable());
// The name of the first row with that property identifier, whatever its type, in the main table, then
// in the secondary one; otherwise the tag in lower-case hexadecimal. Logarithmic.
std::string NameFromTag(ULONG tag);

// "PR_MESSAGE_CLASS" gives "MessageClass": two characters are skipped, a "_" is dropped and the letter
// behind it is in upper case, all others in lower case.
std::string QueryWordFromName(const std::string& name);

extern const std::array<const char*, 14> kCategoryLabels;
