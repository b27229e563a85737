#include <Platform/CodePage.h>
#include <windows.h>

#include <atomic>

namespace {

std::wstring Widen(std::string_view bytes, unsigned codePage) {
    const int length = static_cast<int>(bytes.size());
    const int count = MultiByteToWideChar(codePage, 0, bytes.data(), length, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(count > 0 ? count : 0), L'\0');
    if (count > 0) MultiByteToWideChar(codePage, 0, bytes.data(), length, wide.data(), count);
    return wide;
}

// Some code pages know every character, or have a way of their own, and refuse flag and default.
bool HasBestFit(unsigned codePage) {
    return codePage != CP_UTF8 && codePage != CP_UTF7 && codePage != 54936 && codePage != 52936 &&
           !(codePage >= 50220 && codePage <= 50229) && !(codePage >= 57002 && codePage <= 57011);
}

// The system's best fit would turn letters into others that look alike.
std::string Narrow(const std::wstring& wide, unsigned codePage) {
    const int length = static_cast<int>(wide.size());
    const DWORD flags = HasBestFit(codePage) ? WC_NO_BEST_FIT_CHARS : 0;
    const char* unknown = flags ? "?" : nullptr;
    const int count = WideCharToMultiByte(codePage, flags, wide.data(), length, nullptr, 0, unknown, nullptr);
    std::string bytes(static_cast<std::size_t>(count > 0 ? count : 0), '\0');
    if (count > 0)
        WideCharToMultiByte(codePage, flags, wide.data(), length, bytes.data(), count, unknown, nullptr);
    return bytes;
}

unsigned Known(unsigned codePage) {
    return IsValidCodePage(codePage) ? codePage : 1252;
}

// Of this module alone: the others, and the system, go on with the system's.
std::atomic<unsigned> g_codePage{0};

}  // namespace

unsigned AnsiCodePage() {
    const unsigned chosen = g_codePage.load(std::memory_order_relaxed);
    return chosen ? chosen : GetACP();
}

void ChooseAnsiCodePage(unsigned codePage) {
    g_codePage = codePage;
}

std::string Utf8FromCodePage(std::string_view bytes, unsigned codePage) {
    if (bytes.empty() || bytes.size() > 0x7FFFFFFF) return {};
    return Narrow(Widen(bytes, Known(codePage)), CP_UTF8);
}

std::string CodePageFromUtf8(std::string_view utf8, unsigned codePage) {
    if (utf8.empty() || utf8.size() > 0x7FFFFFFF) return {};
    return Narrow(Widen(utf8, CP_UTF8), Known(codePage));
}
