#include <Platform/CodePage.h>
#include <windows.h>

namespace {

std::wstring Widen(std::string_view bytes, unsigned codePage) {
    const int length = static_cast<int>(bytes.size());
    const int count = MultiByteToWideChar(codePage, 0, bytes.data(), length, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(count > 0 ? count : 0), L'\0');
    if (count > 0) MultiByteToWideChar(codePage, 0, bytes.data(), length, wide.data(), count);
    return wide;
}

std::string Narrow(const std::wstring& wide, unsigned codePage) {
    const int length = static_cast<int>(wide.size());
    const int count = WideCharToMultiByte(codePage, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
    std::string bytes(static_cast<std::size_t>(count > 0 ? count : 0), '\0');
    if (count > 0)
        WideCharToMultiByte(codePage, 0, wide.data(), length, bytes.data(), count, nullptr, nullptr);
    return bytes;
}

unsigned Known(unsigned codePage) {
    return IsValidCodePage(codePage) ? codePage : 1252;
}

}  // namespace

std::string Utf8FromCodePage(std::string_view bytes, unsigned codePage) {
    if (bytes.empty() || bytes.size() > 0x7FFFFFFF) return {};
    return Narrow(Widen(bytes, Known(codePage)), CP_UTF8);
}

std::string CodePageFromUtf8(std::string_view utf8, unsigned codePage) {
    if (utf8.empty() || utf8.size() > 0x7FFFFFFF) return {};
    return Narrow(Widen(utf8, CP_UTF8), Known(codePage));
}
