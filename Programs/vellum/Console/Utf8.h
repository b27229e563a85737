// Text for the terminal and for JSON.
#pragma once
#include <Platform/Utf8.h>

#include <string>

// What is no character becomes U+FFFD, so the result is always valid.
std::string Utf8FromNarrow(const std::string& text);

// Characters.
std::size_t Utf8Length(const std::string& text);
// Columns on a terminal, where East Asian characters take two and combining ones none.
std::size_t Utf8Width(const std::string& text);
// As much of the text as fits into `width` columns, an ellipsis at the end if something is missing.
std::string Utf8Shorten(const std::string& text, std::size_t width);

// The text on one line: control characters, which could also steer the terminal, become blanks.
std::string OneLine(const std::string& text);
// Several lines: all control characters but line feeds and tabs are dropped.
std::string PlainLines(const std::string& text);
