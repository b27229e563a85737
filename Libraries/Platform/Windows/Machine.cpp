#include <Platform/Machine.h>
#include <Platform/Utf8.h>

#include <objbase.h>
#include <shellapi.h>

#include <atomic>
#include <iterator>
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
    if (const std::string outside = EnvironmentVariable("VELLUM_COMPUTER_NAME"); !outside.empty()) {
        return outside.substr(0, MaxComputerName);
    }
    wchar_t name[MaxComputerName + 1] = {};
    DWORD size = MaxComputerName + 1;
    return GetComputerNameW(name, &size) && *name ? Utf8FromWide(name) : "unknown";
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

std::string SystemMessage(HRESULT hr) {
    wchar_t text[512] = {};
    constexpr DWORD flags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    const DWORD length =
        FormatMessageW(flags, nullptr, static_cast<DWORD>(hr), 0, text, std::size(text), nullptr);
    std::string message = Utf8FromWide(text, length);
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
    const HINSTANCE result = ShellExecuteW(nullptr, L"open", WideFromUtf8(path).c_str(),
                                           WideFromUtf8(arguments).c_str(), nullptr, SW_SHOWNORMAL);
    return reinterpret_cast<INT_PTR>(result) > 32;  // up to 32 are the published error codes
}

DWORD ProcessId() {
    return GetCurrentProcessId();
}
