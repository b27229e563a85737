// Between RTF and the plain text that it shows.
#pragma once
#include <string>
#include <string_view>

// The visible text as UTF-8, paragraphs ended by CR LF. Reads any bytes: unknown words and destinations
// are passed over, broken groups end with the text.
std::string TextFromRtf(std::string_view rtf);

// A small document that shows the text, marked as made from plain text.
std::string RtfFromText(std::string_view utf8);
