// GUIDs as text.
#pragma once
#include <Platform/MapiHeaders.h>

#include <string>

// "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X", without braces.
std::string GuidToText(const GUID& guid);

// Reads 8, 4 and 4 hexadecimal digits, then 2 and 2, then six pairs, with any one character between
// the groups and with or without a leading "{". A text that ends early leaves the rest zero and gives
// false; a character that is no digit counts as 0.
bool GuidFromText(const std::string& text, GUID& guid);

// Parses the text as hexadecimal to 16 bytes: Data1 from the first 4 bytes as they stand, Data2 and
// Data3 each high byte first, the rest as it stands. A shorter text leaves the rest zero and gives
// false.
bool GuidFromHex(const std::string& text, GUID& guid);
