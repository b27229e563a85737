// The 8-bit code page of this target is UTF-8, a wide character is one code point.
#include <Platform/Machine.h>

namespace {

constexpr char32_t Replacement = 0xFFFD;

bool IsSurrogate(char32_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}

struct Lead {
    unsigned following;
    char32_t bits;
    char32_t smallest;  // anything below was written too long
};

// Following is 4 for a byte that cannot start a character.
Lead LeadOf(unsigned char byte) {
    if (byte < 0x80) return {0, byte, 0};
    if (byte >= 0xC2 && byte < 0xE0) return {1, byte & 0x1Fu, 0x80};
    if (byte >= 0xE0 && byte < 0xF0) return {2, byte & 0x0Fu, 0x800};
    if (byte >= 0xF0 && byte < 0xF5) return {3, byte & 0x07u, 0x10000};
    return {4, 0, 0};
}

// Takes one character at `at` and moves on; one byte where it is not a whole one.
char32_t TakeCharacter(const std::string& text, size_t& at) {
    const Lead lead = LeadOf(static_cast<unsigned char>(text[at]));
    const size_t end = at + 1 + lead.following;
    if (lead.following > 3 || end > text.size()) {
        ++at;
        return Replacement;
    }
    char32_t c = lead.bits;
    for (size_t i = at + 1; i < end; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xC0) != 0x80) {
            ++at;
            return Replacement;
        }
        c = (c << 6) | (byte & 0x3Fu);
    }
    if (c < lead.smallest || c > 0x10FFFF || IsSurrogate(c)) {
        ++at;
        return Replacement;
    }
    at = end;
    return c;
}

void AppendCharacter(std::string& text, char32_t c) {
    if (c > 0x10FFFF || IsSurrogate(c)) {
        text += '?';
    } else if (c < 0x80) {
        text += static_cast<char>(c);
    } else if (c < 0x800) {
        text += static_cast<char>(0xC0 | (c >> 6));
        text += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        text += static_cast<char>(0xE0 | (c >> 12));
        text += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        text += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        text += static_cast<char>(0xF0 | (c >> 18));
        text += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        text += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        text += static_cast<char>(0x80 | (c & 0x3F));
    }
}

}  // namespace

std::wstring WideFromNarrow(const std::string& text) {
    std::wstring wide;
    wide.reserve(text.size());
    for (size_t at = 0; at < text.size();) {
        wide += static_cast<wchar_t>(TakeCharacter(text, at));
    }
    return wide;
}

std::string NarrowFromWide(const wchar_t* text, size_t count) {
    std::string narrow;
    narrow.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        char32_t c = static_cast<char32_t>(text[i]);
        // UTF-16 that somebody widened unit by unit
        const bool pair = c >= 0xD800 && c < 0xDC00 && i + 1 < count &&
                          static_cast<char32_t>(text[i + 1]) >= 0xDC00 &&
                          static_cast<char32_t>(text[i + 1]) <= 0xDFFF;
        if (pair) c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char32_t>(text[++i]) - 0xDC00);
        AppendCharacter(narrow, c);
    }
    return narrow;
}

std::string NarrowFromWide(const std::wstring& text) {
    return NarrowFromWide(text.data(), text.size());
}
