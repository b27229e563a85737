#include <MapiWrapper/HexText.h>

std::string HexFromBinary(const SBinary& bin) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    if (!bin.lpb) return text;
    text.resize(static_cast<size_t>(bin.cb) * 2);
    for (size_t i = 0; i < bin.cb; ++i) {
        text[2 * i] = digits[bin.lpb[i] >> 4];
        text[2 * i + 1] = digits[bin.lpb[i] & 15];
    }
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
