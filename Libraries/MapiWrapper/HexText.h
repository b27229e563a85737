// Hexadecimal digits and text, independent of the locale.
#pragma once
#include <Platform/MapiHeaders.h>

#include <string>

// Upper-case hexadecimal of cb bytes, two digits a byte; the empty text for a null pointer.
std::string HexFromBinary(const SBinary& bin);
// The same into a text that keeps its room, for those who do it for each row.
void HexInto(std::string& text, const SBinary& bin);
std::string HexFromBinaryStd(const SBinary& bin);

// 0 to 15 for a digit in upper or lower case, -1 for anything else.
int HexDigitValue(char c);
// Accumulates digits up to the first that is none; overflow drops the high digits. No "0x" is skipped.
ULONG HexToLong(const char* text);
inline ULONG HexToLong(const std::string& text) {
    return HexToLong(text.c_str());
}
