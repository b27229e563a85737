// Lists in one text.
#pragma once
#include <Platform/Utf8.h>

#include <string>
#include <vector>

// Splits at any of the characters of `delimiters` and appends the pieces to `array`. Delimiters that
// follow each other count as one, so no piece is empty.
void SplitToArray(const std::string& text, const char* delimiters, std::vector<std::string>& array);
// Splits at ";"; with no ";" the whole text is appended, also when it is empty.
void TextToList(const std::string& text, std::vector<std::string>& array);
