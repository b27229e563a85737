#include <Platform/Machine.h>

#include <objbase.h>
#include <shellapi.h>

#include <atomic>
#include <cstdlib>
#include <mutex>

namespace {

constexpr size_t MaxComputerName = 127;

std::mutex g_lock;
std::string g_computerNameForTest;  // guarded by g_lock
std::atomic<int> g_language{-1};    // -1: as the system says

}  // namespace

std::string ComputerName() {
    {
        const std::lock_guard guard(g_lock);
        if (!g_computerNameForTest.empty()) return g_computerNameForTest.substr(0, MaxComputerName);
    }
    if (const char* outside = std::getenv("VELLUM_COMPUTER_NAME"); outside && *outside) {
        return std::string(outside).substr(0, MaxComputerName);
    }
    char name[MaxComputerName + 1] = {};
    DWORD size = sizeof name;
    return GetComputerNameA(name, &size) && *name ? name : "unknown";
}

void SetComputerNameForTest(const std::string& name) {
    const std::lock_guard guard(g_lock);
    g_computerNameForTest = name;
}

Language UserLanguage() {
    const int set = g_language;
    if (set >= 0) return static_cast<Language>(set);
    return PRIMARYLANGID(GetUserDefaultUILanguage()) == LANG_GERMAN ? Language::German : Language::English;
}

void SetUserLanguage(Language language) {
    g_language = static_cast<int>(language);
}

std::wstring WideFromNarrow(const std::string& text) {
    const int length = static_cast<int>(text.size());
    std::wstring wide(static_cast<size_t>(MultiByteToWideChar(CP_ACP, 0, text.data(), length, nullptr, 0)),
                      L'\0');
    if (!wide.empty()) {
        MultiByteToWideChar(CP_ACP, 0, text.data(), length, wide.data(), static_cast<int>(wide.size()));
    }
    return wide;
}

std::string NarrowFromWide(const wchar_t* text, size_t count) {
    const int length = static_cast<int>(count);
    // The system's best fit would turn letters into others that look alike. A code page that is
    // UTF-8 knows every character and refuses the flag.
    const bool utf8 = GetACP() == CP_UTF8;
    const DWORD flags = utf8 ? 0 : WC_NO_BEST_FIT_CHARS;
    const char* unknown = utf8 ? nullptr : "?";
    const int size = WideCharToMultiByte(CP_ACP, flags, text, length, nullptr, 0, unknown, nullptr);
    std::string narrow(static_cast<size_t>(size), '\0');
    if (size > 0) WideCharToMultiByte(CP_ACP, flags, text, length, narrow.data(), size, unknown, nullptr);
    return narrow;
}

std::string NarrowFromWide(const std::wstring& text) {
    return NarrowFromWide(text.data(), text.size());
}

std::string SystemMessage(HRESULT hr) {
    char text[512] = {};
    constexpr DWORD flags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    const DWORD length =
        FormatMessageA(flags, nullptr, static_cast<DWORD>(hr), 0, text, sizeof text, nullptr);
    std::string message(text, length);
    while (!message.empty() && (message.back() == '\n' || message.back() == '\r' || message.back() == ' ')) {
        message.pop_back();
    }
    return message;
}

GUID NewGuid() {
    GUID guid{};
    CoCreateGuid(&guid);
    return guid;
}

bool LaunchProgram(const std::string& path, const std::string& arguments) {
    const HINSTANCE result =
        ShellExecuteA(nullptr, "open", path.c_str(), arguments.c_str(), nullptr, SW_SHOWNORMAL);
    return reinterpret_cast<INT_PTR>(result) > 32;  // up to 32 are the published error codes
}

DWORD ProcessId() {
    return GetCurrentProcessId();
}
