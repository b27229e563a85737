#include <MapiWrapper/TextConvert.h>
#include <Platform/Machine.h>

#include <cstdint>
#include <cstring>
#include <cwchar>

namespace {
constexpr size_t kTextLimit = 0x40000000;
}

std::string WideToAnsi(const wchar_t* text) {
    if (!text) return {};
    const size_t count = std::wcslen(text);
    return count < kTextLimit ? NarrowFromWide(text, count) : std::string();
}

std::string WideToAnsi(const std::wstring& text) {
    return WideToAnsi(text.c_str());
}

std::wstring AnsiToWide(const char* text) {
    if (!text || std::strlen(text) >= kTextLimit) return {};
    return WideFromNarrow(text);
}

std::wstring AnsiToWide(const std::string& text) {
    return AnsiToWide(text.c_str());
}

std::string Utf16Bytes(const std::wstring& text) {
    std::string bytes;
    const auto put = [&bytes](unsigned unit) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    };
    for (const wchar_t c : text) {
        const std::uint32_t code = static_cast<std::uint32_t>(c);
        if (code > 0x10FFFF) {
            put(0xFFFD);
        } else if (code > 0xFFFF) {
            put(0xD800 + ((code - 0x10000) >> 10));
            put(0xDC00 + ((code - 0x10000) & 0x3FF));
        } else {
            put(code);
        }
    }
    return bytes;
}

void SplitToArray(const std::string& text, const char* delimiters, std::vector<std::string>& array) {
    const std::string all = text.c_str();
    size_t start = all.find_first_not_of(delimiters);
    while (start != std::string::npos) {
        const size_t end = all.find_first_of(delimiters, start);
        array.push_back(all.substr(start, end == std::string::npos ? end : end - start));
        start = end == std::string::npos ? end : all.find_first_not_of(delimiters, end);
    }
}

void TextToList(const std::string& text, std::vector<std::string>& array) {
    if (text.find(';') == std::string::npos)
        array.push_back(text);
    else
        SplitToArray(text, ";", array);
}
