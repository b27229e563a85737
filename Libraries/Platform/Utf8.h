// Text inside this program is UTF-8 on every target. Here it goes to and from wide text.
#pragma once
#include <cstddef>
#include <string>
#include <string_view>

// wchar_t holds UTF-16 on one target and whole characters on the other; pairs are understood on both.
// Half a pair, and a byte or number that is no character, becomes U+FFFD, so the result is always valid.
// Never fail. The first form reads up to the terminating zero; null gives the empty text.
std::string Utf8FromWide(const wchar_t* text);
std::string Utf8FromWide(const wchar_t* text, std::size_t count);
std::string Utf8FromWide(const std::wstring& text);
std::wstring WideFromUtf8(std::string_view utf8);

// The form of wide text in streams and files: UTF-16, little-endian, without a terminating zero. An odd
// byte at the end is dropped.
std::string Utf16BytesFromUtf8(std::string_view utf8);
std::string Utf8FromUtf16Bytes(std::string_view bytes);

bool IsAscii(std::string_view text);
// Whether every byte belongs to a character written as it should be.
bool IsUtf8(std::string_view text);
