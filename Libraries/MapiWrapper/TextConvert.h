// Between the 8-bit text of this system and the wide text of MAPI, and lists in one text.
#pragma once
#include <string>
#include <vector>

// With the current ANSI code page (UTF-8 where the system has none). Null and a text of 0x40000000
// characters or more give the empty text.
std::string WideToAnsi(const wchar_t* text);
std::string WideToAnsi(const std::wstring& text);
std::wstring AnsiToWide(const char* text);
std::wstring AnsiToWide(const std::string& text);
// The form of wide text in streams and files on every target: UTF-16, little-endian, without a
// terminating zero.
std::string Utf16Bytes(const std::wstring& text);

// Splits at any of the characters of `delimiters` and appends the pieces to `array`. Delimiters that
// follow each other count as one, so no piece is empty.
void SplitToArray(const std::string& text, const char* delimiters, std::vector<std::string>& array);
// Splits at ";"; with no ";" the whole text is appended, also when it is empty.
void TextToList(const std::string& text, std::vector<std::string>& array);
