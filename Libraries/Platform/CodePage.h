// Text in code pages, as old RTF, 8-bit messages and 8-bit interfaces carry it.
#pragma once
#include <string>
#include <string_view>

// The bytes as UTF-8. `codePage` is a Windows number (1252, 932, 65001, 20127 ...); an unknown one reads
// as 1252. What the code page does not define becomes U+FFFD; never fails.
std::string Utf8FromCodePage(std::string_view bytes, unsigned codePage);
// The reverse, for the few writers that must not use UTF-8; what has no counterpart becomes '?'.
std::string CodePageFromUtf8(std::string_view utf8, unsigned codePage);

inline constexpr unsigned Utf8CodePage = 65001;
// The code page of the 8-bit interfaces of this system and its stores: the one that Windows is set to,
// UTF-8 elsewhere. Cheap.
unsigned AnsiCodePage();
// For tests: another one for this module, 0 for the system's again. On Linux that is the whole process with
// its stores; on Windows the store is a module of its own.
void ChooseAnsiCodePage(unsigned codePage);

// Text that a file of ours holds: UTF-8, or in files from the time before that in the code page. Letters
// of a code page next to each other hardly ever read as UTF-8.
std::string Utf8FromFile(std::string_view bytes);
