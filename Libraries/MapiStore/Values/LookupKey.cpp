#include "LookupKey.h"

#include "PropCompare.h"

namespace {

constexpr std::size_t kMostBytes = 48;  // of text and binary values
constexpr std::size_t kTypeBytes = 2;   // in front of each key, so that values of two types never meet

template <class Unsigned>
void AppendBigEndian(Unsigned value, std::string& key) {
    for (int shift = 8 * (static_cast<int>(sizeof value) - 1); shift >= 0; shift -= 8)
        key.push_back(static_cast<char>(value >> shift));
}

// Folding looks at each character alone, so the text may be taken in pieces.
void AppendFolded(std::string_view text, std::string& key) {
    const std::size_t end = key.size() + kMostBytes;
    std::size_t plain = 0;
    for (; plain < text.size() && key.size() < end && !(text[plain] & 0x80); ++plain) {
        const char c = text[plain];
        key.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c);
    }
    if (plain == text.size() || key.size() == end) return;
    static thread_local std::u32string folded;
    FoldUtf8(text.substr(plain), kFoldCase | kFoldAccents, folded);
    for (std::size_t i = 0; i < folded.size() && key.size() < end; ++i) {
        const char32_t c = folded[i];
        if (c < 0x80) {
            key.push_back(static_cast<char>(c));
        } else {
            key.push_back(static_cast<char>(0x80 | c >> 16));
            key.push_back(static_cast<char>(c >> 8));
            key.push_back(static_cast<char>(c));
        }
    }
    key.resize(std::min(key.size(), end));
}

// False for a type that is not looked up.
bool AppendKey(const CStoredValue& value, std::string& key) {
    AppendBigEndian<std::uint16_t>(value.Type(), key);
    switch (value.Type()) {
        case PT_STRING8:
            AppendFolded(value.Bytes(), key);
            return true;
        case PT_BINARY:
        case PT_CLSID:
            key.append(value.Bytes().substr(0, kMostBytes));
            return true;
        case PT_LONG:
            AppendBigEndian<std::uint32_t>(value.As<std::uint32_t>() ^ 0x80000000u, key);
            return true;
        case PT_I8:
        case PT_CURRENCY:
            AppendBigEndian<std::uint64_t>(value.As<std::uint64_t>() ^ (std::uint64_t{1} << 63), key);
            return true;
        case PT_SYSTIME:
            AppendBigEndian<std::uint64_t>(value.As<std::uint64_t>(), key);
            return true;
        default:
            return false;
    }
}

// The first key behind all that begin with this one. A key begins with its type, which is never all ones.
std::string Behind(std::string key) {
    while (static_cast<unsigned char>(key.back()) == 0xFF)
        key.pop_back();
    ++key.back();
    return key;
}

std::optional<std::string> KeyOf(const CStoredValue& value) {
    std::string key;
    if (!AppendKey(value, key)) return std::nullopt;
    return key;
}

}  // namespace

void ForEachLookupKey(const CStoredValue& value, const OnLookupKey& each) {
    std::string key;
    AnyElement(value, [&](const CStoredValue& element) {
        key.clear();
        if (AppendKey(element, key)) each(key);
        return false;
    });
}

std::optional<LookupRange> RangeOfRelation(ULONG relop, const CStoredValue& constant) {
    const auto key = KeyOf(constant);
    // Text is compared with its case, in which the keys are not ordered.
    if (!key || (constant.Type() == PT_STRING8 && relop != RELOP_EQ)) return std::nullopt;
    const std::string only = *key + '\0';  // nothing lies between a key and this
    const std::string type = key->substr(0, kTypeBytes);
    switch (relop) {
        case RELOP_EQ:
            return LookupRange{constant.Id(), *key, only};
        case RELOP_LT:
        case RELOP_LE:
            return LookupRange{constant.Id(), type, only};
        case RELOP_GT:
        case RELOP_GE:
            return LookupRange{constant.Id(), *key, Behind(type)};
        default:
            return std::nullopt;
    }
}

std::optional<LookupRange> RangeOfContent(const CStoredValue& pattern, ULONG fuzzyLevel) {
    const ULONG how = fuzzyLevel & 0xFFFF;
    if (how == FL_FULLSTRING) return RangeOfRelation(RELOP_EQ, pattern);
    if (how != FL_PREFIX) return std::nullopt;
    std::string_view bytes = pattern.Bytes();
    // A pattern that is compared byte by byte may end within a character, which then reads as another one.
    if (pattern.Type() == PT_STRING8 && FoldFlagsOf(fuzzyLevel) == kFoldNothing)
        while (!bytes.empty() && (bytes.back() & 0x80))
            bytes.remove_suffix(1);
    CStoredValue beginning;
    beginning.View(pattern.Id(), pattern.Type(), bytes);
    const auto key = KeyOf(beginning);
    if (!key || key->size() == kTypeBytes) return std::nullopt;
    return LookupRange{pattern.Id(), *key, Behind(*key)};
}
