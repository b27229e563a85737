// Between SPropValue and the stored form of ValueBlock.h.
#pragma once
#include <Platform/Utf8.h>

#include "ValueBlock.h"

#include <optional>

// What a string or binary may have at most in a table cell, and GetProps gives at most.
inline constexpr std::size_t kCellCharacters = 255;
inline constexpr std::size_t kCellBytes = 510;
inline constexpr std::size_t kGetPropsLimit = 32 * 1024;

// The stored type for a MAPI type (text becomes PT_STRING8 ...); 0 for a type that cannot be stored
// (PT_OBJECT, PT_ERROR, PT_NULL, PT_UNSPECIFIED, unknown ones).
PropType StoredTypeOf(ULONG mapiType);

// Appends the stored form of a value. False for a type that cannot be stored; throws
// MAPI_E_INVALID_PARAMETER for a null pointer behind the value. Nothing is appended then.
bool AppendStored(const SPropValue& value, std::string& bytes, PropType& type);

// The MAPI type under which a value of `stored` is given when `wanted` is asked for: PT_UNSPECIFIED
// gives the type itself (text in the width of `unicode`), text goes in either width. Empty when the
// property does not have the wanted type, which a caller answers with PT_ERROR / MAPI_E_NOT_FOUND.
std::optional<PropType> GivenType(PropType stored, ULONG wanted, bool unicode);

// Bytes needed behind the SPropValue, aligned to 8; 0 for fixed sizes. `cell`: cut as a table cell.
// A large value without bytes counts as empty: load it first where its contents matter.
std::size_t RoomFor(const CStoredValue& value, PropType given, bool cell);

// Fills `out` and moves `room` past what it wrote there (RoomFor bytes at most). `tag` is the tag to
// give (ID and given type). Damaged stored bytes throw MAPI_E_CORRUPT_DATA.
void GiveValue(const CStoredValue& value, ULONG tag, bool cell, SPropValue& out, char*& room);

// PT_ERROR in `out` for the property.
inline void GiveError(ULONG tag, SCODE code, SPropValue& out) {
    out.ulPropTag = PROP_TAG(PT_ERROR, PROP_ID(tag));
    out.dwAlignPad = 0;
    out.Value.li.QuadPart = 0;
    out.Value.err = code;
}

// Text between the 8-bit form of the published interfaces and the UTF-8 of the store (Platform/Utf8.h has
// the wide one). Where the code page is not UTF-8 the 8-bit form converts, and what it lacks becomes '?'.
std::string Utf8FromNarrow(std::string_view text);
std::string NarrowFromUtf8(std::string_view utf8);
// Whether a text is the same in both.
bool IsSameNarrow(std::string_view utf8);
// An LPTSTR argument: wide when `flags` has MAPI_UNICODE. Null gives the empty text.
std::string Utf8FromArgument(const void* text, ULONG flags);
