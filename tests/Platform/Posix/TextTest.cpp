#include <Platform/Machine.h>
#include <Platform/Utf8.h>
#include <gtest/gtest.h>

TEST(TextTest, Utf8GoesBothWays) {
    const std::string text = "Zo\xC3\xAB \xE2\x82\xAC \xF0\x9F\x93\x81";
    EXPECT_EQ(L"Zo\x00EB \x20AC \x1F4C1", WideFromUtf8(text));
    EXPECT_EQ(text, Utf8FromWide(WideFromUtf8(text)));
    const wchar_t pair[] = {0xD83D, 0xDCC1};
    EXPECT_EQ("\xF0\x9F\x93\x81", Utf8FromWide(pair, 2)) << "UTF-16 that was widened unit by unit";
}

TEST(TextTest, WhatIsNoTextIsReplaced) {
    const wchar_t u = 0xFFFD;
    const struct {
        std::string narrow;
        std::wstring wide;
        const char* reason;
    } cases[] = {
        {"\x80z", {u, L'z'}, "a following byte alone"},
        {"\xC3", {u}, "cut short"},
        {"\xE2\x82z", {u, u, L'z'}, "broken off by the next character"},
        {"\xC0\x80", {u, u}, "a zero written too long"},
        {"\xED\xA0\x80", {u, u, u}, "half a pair"},
        {"\xF5\x80\x80\x80", {u, u, u, u}, "beyond the last character"},
        {std::string("a\0b", 3), {L'a', 0, L'b'}, "a zero is a character"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.wide, WideFromUtf8(c.narrow)) << c.reason;
    }
    const wchar_t broken[] = {0xD800, L'a', 0x110000};
    EXPECT_EQ(
        "\xEF\xBF\xBD"
        "a\xEF\xBF\xBD",
        Utf8FromWide(broken, 3));
}
