// Small texts of the query language's printers.
#pragma once
#include <cstdio>
#include <string>

// snprintf into a text; at most 255 characters.
template <class... Args>
std::string FormatText(const char* format, Args... args) {
    char buffer[256];
    std::snprintf(buffer, sizeof buffer, format, args...);
    return buffer;
}
