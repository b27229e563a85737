// Small operations on the query language's texts, independent of the locale.
#pragma once
#include <cstdio>
#include <string>
#include <string_view>

// snprintf into a text; at most 255 characters.
template <class... Args>
std::string FormatText(const char* format, Args... args) {
    char buffer[256];
    std::snprintf(buffer, sizeof buffer, format, args...);
    return buffer;
}

inline char LowerOf(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline std::string LowerCase(std::string text) {
    for (char& c : text)
        c = LowerOf(c);
    return text;
}

inline bool EqualNoCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (LowerOf(a[i]) != LowerOf(b[i])) return false;
    return true;
}
