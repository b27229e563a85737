#include "TextFold.h"

namespace {

// Base letters of U+00C0..U+017F, in order; a blank keeps the character as it is.
constexpr char kBaseLetters[] =
    "AAAAAA CEEEEIIII NOOOOO OUUUUY  "  // 00C0
    "aaaaaa ceeeeiiii nooooo ouuuuy y"  // 00E0
    "AaAaAaCcCcCcCcDd"                  // 0100
    "DdEeEeEeEeEeGgGg"                  // 0110
    "GgGgHhHhIiIiIiIi"                  // 0120
    "Ii  JjKk LlLlLlL"                  // 0130
    "lLlNnNnNn   OoOo"                  // 0140
    "Oo  RrRrRrSsSsSs"                  // 0150
    "SsTtTtTtUuUuUuUu"                  // 0160
    "UuUuWwYyYZzZzZz ";                 // 0170

bool IsCombining(char32_t c) {
    return (c >= 0x300 && c <= 0x36F) || (c >= 0x1AB0 && c <= 0x1AFF) || (c >= 0x20D0 && c <= 0x20FF);
}

// Ranges in which upper and lower case alternate, the even (or odd) code point being the upper one.
char32_t LowerOfPairs(char32_t c) {
    const bool evenIsUpper = (c >= 0x100 && c <= 0x137 && c != 0x130 && c != 0x131) ||
                             (c >= 0x14A && c <= 0x177) || (c >= 0x1E00 && c <= 0x1E95) ||
                             (c >= 0x1EA0 && c <= 0x1EFF) || (c >= 0x460 && c <= 0x481) ||
                             (c >= 0x48A && c <= 0x4BF) || (c >= 0x4D0 && c <= 0x52F) ||
                             (c >= 0x1DE && c <= 0x1EF) || (c >= 0x1F8 && c <= 0x21F);
    if (evenIsUpper) return c | 1;
    const bool oddIsUpper = (c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E) ||
                            (c >= 0x1CD && c <= 0x1DC) || (c >= 0x4C1 && c <= 0x4CE);
    if (oddIsUpper && (c & 1)) return c + 1;
    return c;
}

char32_t LowerOf(char32_t c) {
    if (c < 0x80) return (c >= 'A' && c <= 'Z') ? c + 32 : c;
    if (c >= 0xC0 && c <= 0xDE) return c == 0xD7 ? c : c + 32;
    if (c == 0x178) return 0xFF;
    if (c == 0x130) return 'i';
    if (c >= 0x391 && c <= 0x3AB && c != 0x3A2) return c + 32;
    if (c == 0x3C2) return 0x3C3;  // final sigma
    if (c == 0x386) return 0x3AC;
    if (c >= 0x388 && c <= 0x38A) return c + 37;
    if (c == 0x38C) return 0x3CC;
    if (c == 0x38E || c == 0x38F) return c + 63;
    if (c >= 0x410 && c <= 0x42F) return c + 32;
    if (c >= 0x400 && c <= 0x40F) return c + 80;
    if (c >= 0x531 && c <= 0x556) return c + 48;
    if (c == 0x1E9E) return 0xDF;
    if (c >= 0xFF21 && c <= 0xFF3A) return c + 32;
    return LowerOfPairs(c);
}

void Append(char32_t c, unsigned flags, std::u32string& out) {
    if (flags & kFoldAccents) {
        if (IsCombining(c)) return;
        if (c >= 0xC0 && c <= 0x17F && kBaseLetters[c - 0xC0] != ' ')
            c = static_cast<unsigned char>(kBaseLetters[c - 0xC0]);
    }
    if (flags & kFoldCase) c = LowerOf(c);
    out.push_back(c);
}

// The character at `i`, which moves behind it.
char32_t Decode(std::string_view text, std::size_t& i) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const std::size_t more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC2 ? 1 : 0;
    char32_t c = more == 3 ? lead & 0x07u : more == 2 ? lead & 0x0Fu : lead & 0x1Fu;
    if (more == 0 || i + more >= text.size()) return static_cast<unsigned char>(text[i++]);
    for (std::size_t k = 1; k <= more; ++k) {
        const auto next = static_cast<unsigned char>(text[i + k]);
        if ((next & 0xC0) != 0x80) return static_cast<unsigned char>(text[i++]);
        c = (c << 6) | (next & 0x3Fu);
    }
    i += more + 1;
    return c;
}

}  // namespace

static_assert(sizeof kBaseLetters == 0x180 - 0xC0 + 1);

unsigned FoldFlagsOf(ULONG fuzzyLevel) {
    unsigned flags = kFoldNothing;
    if (fuzzyLevel & (FL_IGNORECASE | FL_LOOSE)) flags |= kFoldCase;
    if (fuzzyLevel & (FL_IGNORENONSPACE | FL_LOOSE)) flags |= kFoldAccents;
    return flags;
}

void FoldUtf8(std::string_view text, unsigned flags, std::u32string& out) {
    out.clear();
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        if (lead < 0x80) {
            out.push_back((flags & kFoldCase) ? LowerOf(lead) : lead);
            ++i;
        } else {
            Append(Decode(text, i), flags, out);
        }
    }
}
