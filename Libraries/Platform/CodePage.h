// Text in code pages other than the system's, as old RTF and 8-bit messages carry it.
#pragma once
#include <string>
#include <string_view>

// The bytes as UTF-8. `codePage` is a Windows number (1252, 932, 65001, 20127 ...); an unknown one reads
// as 1252. What the code page does not define becomes U+FFFD; never fails.
std::string Utf8FromCodePage(std::string_view bytes, unsigned codePage);
// The reverse, for the few writers that must not use UTF-8; what has no counterpart becomes '?'.
std::string CodePageFromUtf8(std::string_view utf8, unsigned codePage);
