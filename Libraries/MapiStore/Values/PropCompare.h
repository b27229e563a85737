// Order and likeness of values in stored form, shared by restrictions, by sorting and, after encoding,
// by the published utilities. Text is UTF-8 on both sides, whatever width it came in. Large values must
// have been loaded before: without bytes they count as empty.
#pragma once
#include "TextFold.h"
#include "ValueBlock.h"

#include <optional>
#include <string>

// Below zero, zero, above zero. Text is compared by its code points, case and all; binary values byte by
// byte, the shorter first; FALSE before TRUE; multi-valued ones element by element. Nothing for types
// that have no common order.
std::optional<int> CompareStored(const CStoredValue& a, const CStoredValue& b);

// Whether `relop` holds for an order as CompareStored gives it; false for RELOP_RE and unknown ones.
bool RelationHolds(ULONG relop, int order);

// Calls body(const CStoredValue&) for each element of a multi-valued value until one answers true;
// answers whether one did. A single value is its own only element.
template <class Body>
bool AnyElement(const CStoredValue& value, Body&& body);

// Bytes of one element of a fixed-size type (also given with MV_FLAG), 0 for text and binary.
std::size_t FixedSizeOf(PropType type);

// The right-hand side of a content restriction, folded once. Text matches text, bytes match bytes
// (without folding). Not for several threads at once: it keeps scratch room.
class CContentPattern {
public:
    // `value`: PT_STRING8 or PT_BINARY in stored form.
    CContentPattern(const CStoredValue& value, ULONG fuzzyLevel);
    bool Matches(const CStoredValue& value) const;  // a multi-valued property matches with any element

private:
    PropType m_type;
    ULONG m_how;  // FL_FULLSTRING, FL_SUBSTRING or FL_PREFIX
    unsigned m_fold;
    std::string m_bytes;
    std::u32string m_text;  // folded, only where m_fold is not zero
    mutable std::u32string m_scratch;
};

template <class Body>
bool AnyElement(const CStoredValue& value, Body&& body) {
    if (!(value.Type() & MV_FLAG)) return body(value);
    const auto type = static_cast<PropType>(value.Type() & ~MV_FLAG);
    CStoredValue element;
    const std::size_t cb = FixedSizeOf(type);
    if (cb == 0) {
        if (value.Bytes().empty()) return false;
        for (std::string_view bytes : SplitElements(value.Bytes())) {
            element.View(value.Id(), type, bytes);
            if (body(static_cast<const CStoredValue&>(element))) return true;
        }
        return false;
    }
    for (std::size_t at = 0; at + cb <= value.Bytes().size(); at += cb) {
        element.View(value.Id(), type, value.Bytes().substr(at, cb));
        if (body(static_cast<const CStoredValue&>(element))) return true;
    }
    return false;
}
