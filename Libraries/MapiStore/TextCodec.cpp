// Text between UTF-8, the 8-bit code page and wide characters (declared in PropertyCodec.h).
#include "PropertyCodec.h"

#ifdef _WIN32
#include <Platform/Machine.h>
#endif

namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;

// Takes one code point off `text`; damaged sequences give U+FFFD and lose one byte.
std::uint32_t TakeUtf8(std::string_view text, std::size_t& at) {
    const auto lead = static_cast<unsigned char>(text[at++]);
    if (lead < 0x80) return lead;
    const int more = lead >= 0xF0 && lead < 0xF5   ? 3
                     : lead >= 0xE0 && lead < 0xF0 ? 2
                     : lead >= 0xC2 && lead < 0xE0 ? 1
                                                   : 0;
    if (more == 0 || at + more > text.size()) return kReplacement;
    std::uint32_t code = lead & (0x3F >> more);
    for (int i = 0; i < more; ++i) {
        const auto next = static_cast<unsigned char>(text[at + i]);
        if ((next & 0xC0) != 0x80) return kReplacement;
        code = code << 6 | (next & 0x3F);
    }
    const bool overlong = (more == 2 && code < 0x800) || (more == 3 && code < 0x10000);
    if (overlong || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) return kReplacement;
    at += more;
    return code;
}

void AppendUtf8(std::string& text, std::uint32_t code) {
    if (code < 0x80) {
        text += static_cast<char>(code);
    } else if (code < 0x800) {
        text += static_cast<char>(0xC0 | code >> 6);
        text += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        text += static_cast<char>(0xE0 | code >> 12);
        text += static_cast<char>(0x80 | (code >> 6 & 0x3F));
        text += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        text += static_cast<char>(0xF0 | code >> 18);
        text += static_cast<char>(0x80 | (code >> 12 & 0x3F));
        text += static_cast<char>(0x80 | (code >> 6 & 0x3F));
        text += static_cast<char>(0x80 | (code & 0x3F));
    }
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
        else if ((code >= 0xD800 && code < 0xE000) || code > 0x10FFFF)
            code = kReplacement;
        AppendUtf8(text, code);
    }
    return text;
}

template <class Append>
void Utf16FromUtf8(std::string_view utf8, Append&& append) {
    for (std::size_t at = 0; at < utf8.size();) {
        const std::uint32_t code = TakeUtf8(utf8, at);
        if (code < 0x10000) {
            append(code);
        } else {
            append(0xD800 + ((code - 0x10000) >> 10));
            append(0xDC00 + ((code - 0x10000) & 0x3FF));
        }
    }
}

}  // namespace

std::string Utf8FromWide(const WCHAR* text) {
    std::size_t count = 0;
    while (text[count])
        ++count;
    return Utf8FromUnits(count, [text](std::size_t i) { return static_cast<std::uint32_t>(text[i]); });
}

std::wstring WideFromUtf8(std::string_view utf8) {
    std::wstring wide;
    wide.reserve(utf8.size());
    if constexpr (sizeof(wchar_t) == 2) {
        Utf16FromUtf8(utf8, [&](std::uint32_t unit) { wide += static_cast<wchar_t>(unit); });
    } else {
        for (std::size_t at = 0; at < utf8.size();)
            wide += static_cast<wchar_t>(TakeUtf8(utf8, at));
    }
    return wide;
}

std::string Utf16BytesFromUtf8(std::string_view utf8) {
    std::string bytes;
    bytes.reserve(2 * utf8.size());
    Utf16FromUtf8(utf8, [&](std::uint32_t unit) {
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

#ifdef _WIN32
namespace {
bool IsAscii(std::string_view text) {
    for (const char c : text)
        if (static_cast<unsigned char>(c) >= 0x80) return false;
    return true;
}
}  // namespace

std::string Utf8FromNarrow(const char* text) {
    if (IsAscii(text)) return text;
    return Utf8FromWide(WideFromNarrow(text).c_str());
}

std::string NarrowFromUtf8(std::string_view utf8) {
    if (IsAscii(utf8)) return std::string(utf8);
    return NarrowFromWide(WideFromUtf8(utf8));
}
#else
std::string Utf8FromNarrow(const char* text) {
    return text;
}
std::string NarrowFromUtf8(std::string_view utf8) {
    return std::string(utf8);
}
#endif

std::string Utf8FromArgument(const void* text, ULONG flags) {
    if (!text) return {};
    if (flags & MAPI_UNICODE) return Utf8FromWide(static_cast<const WCHAR*>(text));
    return Utf8FromNarrow(static_cast<const char*>(text));
}
