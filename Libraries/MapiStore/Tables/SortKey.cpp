#include "SortKey.h"

#include <MapiStore/Values/PropCompare.h>
#include <MapiStore/Values/PropertyCodec.h>

#include <cstring>

namespace {

template <class Unsigned>
void AppendBigEndian(Unsigned value, std::string& key) {
    for (int shift = 8 * (static_cast<int>(sizeof value) - 1); shift >= 0; shift -= 8)
        key.push_back(static_cast<char>(value >> shift));
}

template <class Signed, class Unsigned>
void AppendSigned(const CStoredValue& value, std::string& key) {
    constexpr Unsigned sign = Unsigned(1) << (8 * sizeof(Unsigned) - 1);
    AppendBigEndian<Unsigned>(static_cast<Unsigned>(static_cast<Unsigned>(value.As<Signed>()) ^ sign), key);
}

// The bits of a floating-point number in an order that unsigned comparison keeps.
template <class Float, class Unsigned>
void AppendFloat(const CStoredValue& value, std::string& key) {
    constexpr Unsigned sign = Unsigned(1) << (8 * sizeof(Unsigned) - 1);
    const Float number = value.As<Float>();
    Unsigned bits;
    std::memcpy(&bits, &number, sizeof bits);
    AppendBigEndian<Unsigned>((bits & sign) ? ~bits : bits | sign, key);
}

// Bytes with an end that sorts before every continuation.
void AppendEscaped(std::string_view bytes, std::string& key) {
    for (char c : bytes) {
        key.push_back(c);
        if (c == 0) key.push_back(1);
    }
    key.append(2, '\0');
}

void AppendCodePoint(char32_t c, std::string& key) {
    if (c < 0x80) {
        key.push_back(static_cast<char>(c));
        if (c == 0) key.push_back(1);
    } else if (c < 0x800) {
        key.push_back(static_cast<char>(0xC0 | c >> 6));
        key.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        key.push_back(static_cast<char>(0xE0 | c >> 12));
        key.push_back(static_cast<char>(0x80 | (c >> 6 & 0x3F)));
        key.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        key.push_back(static_cast<char>(0xF0 | c >> 18));
        key.push_back(static_cast<char>(0x80 | (c >> 12 & 0x3F)));
        key.push_back(static_cast<char>(0x80 | (c >> 6 & 0x3F)));
        key.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

void AppendText(std::string_view text, std::string& key) {
    static thread_local std::u32string folded;
    FoldUtf8(text.substr(0, kCellCharacters * 4), kFoldCase, folded);
    if (folded.size() > kCellCharacters) folded.resize(kCellCharacters);
    for (char32_t c : folded)
        AppendCodePoint(c, key);
    key.append(2, '\0');
}

void AppendSingle(const CStoredValue& value, std::string& key) {
    switch (value.Type()) {
        case PT_I2:
            return AppendSigned<std::int16_t, std::uint16_t>(value, key);
        case PT_LONG:
            return AppendSigned<std::int32_t, std::uint32_t>(value, key);
        case PT_I8:
        case PT_CURRENCY:
            return AppendSigned<std::int64_t, std::uint64_t>(value, key);
        case PT_SYSTIME:
            return AppendBigEndian(value.As<std::uint64_t>(), key);
        case PT_BOOLEAN:
            key.push_back(value.As<std::uint16_t>() != 0);
            return;
        case PT_R4:
            return AppendFloat<float, std::uint32_t>(value, key);
        case PT_DOUBLE:
        case PT_APPTIME:
            return AppendFloat<double, std::uint64_t>(value, key);
        case PT_STRING8:
            return AppendText(value.Bytes(), key);
        default:
            AppendEscaped(value.Bytes().substr(0, kCellBytes), key);
    }
}

void AppendColumn(const IRow& row, ULONG tag, std::string& key) {
    CStoredValue value;
    const auto id = static_cast<PropId>(PROP_ID(tag));
    const PropType wanted = StoredTypeOf(PROP_TYPE(tag));
    std::string loaded;
    bool there = row.Find(id, value) && (wanted == 0 || value.Type() == wanted);
    if (there && value.IsLarge()) {
        there = row.LoadLarge(id, loaded);
        value.View(id, value.Type(), loaded);
    }
    key.push_back(there ? 1 : 0);
    if (!there) return;
    AnyElement(value, [&key](const CStoredValue& element) {
        AppendSingle(element, key);
        return false;
    });
}

}  // namespace

void AppendSortKey(const IRow& row, const std::vector<SortColumn>& columns, std::string& key) {
    for (const SortColumn& column : columns) {
        const std::size_t begin = key.size();
        AppendColumn(row, column.tag, key);
        if (!column.descending) continue;
        for (std::size_t i = begin; i < key.size(); ++i)
            key[i] = static_cast<char>(~key[i]);
    }
}
