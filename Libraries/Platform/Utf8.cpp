#include <Platform/Utf8.h>

#include <algorithm>
#include <cstdint>
#include <cwchar>

namespace {

constexpr std::uint32_t Replacement = 0xFFFD;

constexpr bool IsSurrogate(std::uint32_t code) {
    return code >= 0xD800 && code < 0xE000;
}

struct Lead {
    unsigned following;
    std::uint32_t bits;
    std::uint32_t smallest;  // anything below was written too long
};

// Following is 4 for a byte that cannot start a character.
Lead LeadOf(unsigned char byte) {
    if (byte < 0x80) return {0, byte, 0};
    if (byte >= 0xC2 && byte < 0xE0) return {1, byte & 0x1Fu, 0x80};
    if (byte >= 0xE0 && byte < 0xF0) return {2, byte & 0x0Fu, 0x800};
    if (byte >= 0xF0 && byte < 0xF5) return {3, byte & 0x07u, 0x10000};
    return {4, 0, 0};
}

// Takes one character at `at` and moves on. Where there is none, false, with `code` replaced and one byte
// used up.
bool TakeCharacter(std::string_view text, std::size_t& at, std::uint32_t& code) {
    const Lead lead = LeadOf(static_cast<unsigned char>(text[at]));
    const std::size_t end = at + 1 + lead.following;
    bool whole = lead.following < 4 && end <= text.size();
    code = lead.bits;
    for (std::size_t i = at + 1; whole && i < end; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        whole = (byte & 0xC0) == 0x80;
        code = code << 6 | (byte & 0x3Fu);
    }
    whole = whole && code >= lead.smallest && code <= 0x10FFFF && !IsSurrogate(code);
    if (!whole) code = Replacement;
    at = whole ? end : at + 1;
    return whole;
}

void AppendCharacter(std::string& text, std::uint32_t code) {
    if (code < 0x80) {
        text += static_cast<char>(code);
        return;
    }
    if (code < 0x800) {
        text += static_cast<char>(0xC0 | code >> 6);
    } else {
        if (code < 0x10000) {
            text += static_cast<char>(0xE0 | code >> 12);
        } else {
            text += static_cast<char>(0xF0 | code >> 18);
            text += static_cast<char>(0x80 | (code >> 12 & 0x3F));
        }
        text += static_cast<char>(0x80 | (code >> 6 & 0x3F));
    }
    text += static_cast<char>(0x80 | (code & 0x3F));
}

// `unit(i)` gives the i-th of `count` wide units, of 16 or 32 bits.
template <class Unit>
std::string Utf8FromUnits(std::size_t count, Unit&& unit) {
    std::string text;
    text.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        std::uint32_t code = unit(i);
        if (code >= 0xD800 && code < 0xDC00 && i + 1 < count && unit(i + 1) >= 0xDC00 && unit(i + 1) < 0xE000)
            code = 0x10000 + ((code - 0xD800) << 10) + (unit(++i) - 0xDC00);
        else if (IsSurrogate(code) || code > 0x10FFFF)
            code = Replacement;
        AppendCharacter(text, code);
    }
    return text;
}

template <class Append>
void ForEachUtf16Unit(std::string_view utf8, Append&& append) {
    std::uint32_t code = 0;
    for (std::size_t at = 0; at < utf8.size();) {
        TakeCharacter(utf8, at, code);
        if (code < 0x10000) {
            append(code);
        } else {
            append(0xD800 + ((code - 0x10000) >> 10));
            append(0xDC00 + ((code - 0x10000) & 0x3FF));
        }
    }
}

}  // namespace

std::string Utf8FromWide(const wchar_t* text) {
    return text ? Utf8FromWide(text, std::wcslen(text)) : std::string();
}

std::string Utf8FromWide(const wchar_t* text, std::size_t count) {
    return Utf8FromUnits(count, [text](std::size_t i) { return static_cast<std::uint32_t>(text[i]); });
}

std::string Utf8FromWide(const std::wstring& text) {
    return Utf8FromWide(text.data(), text.size());
}

std::wstring WideFromUtf8(std::string_view utf8) {
    std::wstring wide;
    wide.reserve(utf8.size());
    if constexpr (sizeof(wchar_t) == 2) {
        ForEachUtf16Unit(utf8, [&wide](std::uint32_t unit) { wide += static_cast<wchar_t>(unit); });
    } else {
        std::uint32_t code = 0;
        for (std::size_t at = 0; at < utf8.size();) {
            TakeCharacter(utf8, at, code);
            wide += static_cast<wchar_t>(code);
        }
    }
    return wide;
}

std::string Utf16BytesFromUtf8(std::string_view utf8) {
    std::string bytes;
    bytes.reserve(2 * utf8.size());
    ForEachUtf16Unit(utf8, [&bytes](std::uint32_t unit) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    });
    return bytes;
}

std::string Utf8FromUtf16Bytes(std::string_view bytes) {
    return Utf8FromUnits(bytes.size() / 2, [bytes](std::size_t i) {
        return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[2 * i])) |
               static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[2 * i + 1])) << 8;
    });
}

bool IsAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool IsUtf8(std::string_view text) {
    std::uint32_t code = 0;
    for (std::size_t at = 0; at < text.size();)
        if (!TakeCharacter(text, at, code)) return false;
    return true;
}
