#include <Programs/vellum/Console/Utf8.h>

#include <cstdint>

namespace {

constexpr char32_t replacement = 0xFFFD;

void Append(std::string& out, char32_t c) {
    if (c > 0x10FFFF || (c >= 0xD800 && c < 0xE000)) c = replacement;
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

bool IsTrail(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// The next character, and `at` moved behind it. A byte out of place counts as one character.
char32_t NextUtf8(const std::string& text, std::size_t& at) {
    const auto lead = static_cast<unsigned char>(text[at++]);
    if (lead < 0x80) return lead;
    const int trail = lead >= 0xF0 && lead < 0xF5 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC2 ? 1 : 0;
    if (trail == 0 || lead >= 0xF5) return replacement;
    char32_t c = lead & (0x3F >> trail);
    for (int i = 0; i < trail; ++i) {
        if (at >= text.size() || !IsTrail(static_cast<unsigned char>(text[at]))) return replacement;
        c = (c << 6) | (static_cast<unsigned char>(text[at++]) & 0x3F);
    }
    static constexpr char32_t least[] = {0, 0x80, 0x800, 0x10000};
    return c < least[trail] || (c >= 0xD800 && c < 0xE000) || c > 0x10FFFF ? replacement : c;
}

struct CWidthRange {
    char32_t first;
    char32_t last;
    std::size_t width;
};
constexpr CWidthRange unusualWidths[] = {
    {0x0300, 0x036F, 0},   {0x200B, 0x200F, 0}, {0x1100, 0x115F, 2},   {0x2E80, 0xA4CF, 2},
    {0xAC00, 0xD7A3, 2},   {0xF900, 0xFAFF, 2}, {0xFE00, 0xFE0F, 0},   {0xFE30, 0xFE6F, 2},
    {0xFF00, 0xFF60, 2},   {0xFFE0, 0xFFE6, 2}, {0x1F300, 0x1F64F, 2}, {0x1F900, 0x1F9FF, 2},
    {0x20000, 0x3FFFD, 2},
};

std::size_t WidthOf(char32_t c) {
    for (const CWidthRange& range : unusualWidths)
        if (c >= range.first && c <= range.last) return range.width;
    return 1;
}

}  // namespace

std::string Utf8FromNarrow(const std::string& text) {
    if (IsUtf8(text)) return text;
    return Utf8FromWide(WideFromUtf8(text));
}

std::size_t Utf8Length(const std::string& text) {
    std::size_t length = 0;
    for (const char c : text)
        if (!IsTrail(static_cast<unsigned char>(c))) ++length;
    return length;
}

std::size_t Utf8Width(const std::string& text) {
    std::size_t width = 0;
    for (std::size_t at = 0; at < text.size();)
        width += WidthOf(NextUtf8(text, at));
    return width;
}

std::string Utf8Shorten(const std::string& text, std::size_t width) {
    if (width == 0 || Utf8Width(text) <= width) return text;
    std::size_t used = 0;
    std::size_t end = 0;
    for (std::size_t at = 0; at < text.size(); end = at) {
        used += WidthOf(NextUtf8(text, at));
        if (used + 1 > width) break;
    }
    return text.substr(0, end) + "\xE2\x80\xA6";
}

std::string OneLine(const std::string& text) {
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        const char32_t c = NextUtf8(text, at);
        Append(out, c < 0x20 || (c >= 0x7F && c < 0xA0) ? U' ' : c);
    }
    return out;
}

std::string PlainLines(const std::string& text) {
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        const char32_t c = NextUtf8(text, at);
        const bool isControl = c < 0x20 || (c >= 0x7F && c < 0xA0);
        if (!isControl || c == '\n' || c == '\t') Append(out, c);
    }
    return out;
}
