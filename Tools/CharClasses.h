// Classes of characters, independent of the locale.
#pragma once

inline bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}
inline bool IsAlpha(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
inline bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}
inline bool IsAlnum(char c) {
    return IsAlpha(c) || IsDigit(c);
}
