#include <MapiWrapper/HexText.h>

void HexInto(std::string& text, const SBinary& bin) {
    static const char digits[] = "0123456789ABCDEF";
    text.resize(bin.lpb ? static_cast<size_t>(bin.cb) * 2 : 0);
    char* next = text.data();
    for (size_t i = 0; i < text.size() / 2; ++i) {
        *next++ = digits[bin.lpb[i] >> 4];
        *next++ = digits[bin.lpb[i] & 15];
    }
}

std::string HexFromBinary(const SBinary& bin) {
    std::string text;
    HexInto(text, bin);
    return text;
}

std::string HexFromBinaryStd(const SBinary& bin) {
    return HexFromBinary(bin);
}

int HexDigitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

ULONG HexToLong(const char* text) {
    ULONG value = 0;
    for (; text && HexDigitValue(*text) >= 0; ++text)
        value = value * 16 + static_cast<ULONG>(HexDigitValue(*text));
    return value;
}
