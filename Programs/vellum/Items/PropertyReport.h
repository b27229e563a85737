// Properties as data for scripts: every property of an object with its name, type and value.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Programs/vellum/Console/Listing.h>

#include <string>
#include <vector>

// One value in JSON. Times are "2001-05-14T23:39:00.0000000Z", bytes upper-case hexadecimal, errors
// and objects null, several values an array.
Json ValueToJson(const SPropValue& value);
// A text of any size for a person. Empty where there is none.
std::string ShownText(const CGenMapiPropPtr& object, ULONG tag);
// "text", "long", "time" ...; with "[]" behind it for several values. Both kinds of text are "text",
// so that items of two stores compare.
std::string TypeName(ULONG tag);
// "{00062008-0000-0000-C000-000000000046}", or the published name of a known set.
std::string PropertySetName(const GUID& set);

// The properties of one object, each as
//   {"name": "PR_SUBJECT", "tag": "0x0037", "type": "text", "value": "..."}
//   {"name": "Keywords", "set": "PS_PUBLIC_STRINGS", "type": "text[]", "value": [...]}
//   {"id": "0x8208", "set": "PSETID_Appointment", ...}
// ordered by tag, the named ones behind by set and name. Values of more than 64 KB that are not text
// show "size" and "digest" instead of "value". A value that cannot be read shows "error".
Json PropertiesToJson(const IMAPIPropPtr& object);
// The same for the cells of a table's row; `object` names the named ones (null: none has names).
Json RowToJson(const SRow& row, IMAPIProp* object);
