#include <Platform/Machine.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/random.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

extern char** environ;

namespace {

constexpr size_t MaxComputerName = 127;

std::mutex g_lock;
std::string g_computerNameForTest;  // guarded by g_lock
std::atomic<int> g_language{-1};    // -1: as the environment says

Language LanguageOfEnvironment() {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (!value || !*value) continue;
        const std::string text = value;
        const bool german = text.compare(0, 2, "de") == 0 && (text.size() == 2 || !isalpha(text[2]));
        return german ? Language::German : Language::English;
    }
    return Language::English;
}

// Splits at blanks; double quotes keep blanks together.
std::vector<std::string> SplitArguments(const std::string& arguments) {
    std::vector<std::string> words;
    bool quoted = false;
    bool inWord = false;
    for (const char c : arguments) {
        if (c == ' ' && !quoted) {
            inWord = false;
            continue;
        }
        if (!inWord) words.emplace_back();
        inWord = true;
        if (c == '"') {
            quoted = !quoted;
        } else {
            words.back() += c;
        }
    }
    return words;
}

}  // namespace

std::string ComputerName() {
    {
        const std::lock_guard guard(g_lock);
        if (!g_computerNameForTest.empty()) return g_computerNameForTest.substr(0, MaxComputerName);
    }
    if (const char* outside = std::getenv("VELLUM_COMPUTER_NAME"); outside && *outside) {
        return std::string(outside).substr(0, MaxComputerName);
    }
    char name[256] = {};
    if (::gethostname(name, sizeof name - 1) != 0 || !*name) return "unknown";
    return std::string(name).substr(0, MaxComputerName);
}

void SetComputerNameForTest(const std::string& name) {
    const std::lock_guard guard(g_lock);
    g_computerNameForTest = name;
}

Language UserLanguage() {
    const int set = g_language;
    return set < 0 ? LanguageOfEnvironment() : static_cast<Language>(set);
}

void SetUserLanguage(Language language) {
    g_language = static_cast<int>(language);
}

GUID NewGuid() {
    GUID guid{};
    unsigned char* bytes = reinterpret_cast<unsigned char*>(&guid);
    if (::getrandom(bytes, sizeof guid, 0) != static_cast<ssize_t>(sizeof guid)) {
        std::random_device device;
        for (size_t i = 0; i < sizeof guid; ++i) {
            bytes[i] = static_cast<unsigned char>(device());
        }
    }
    guid.Data3 = static_cast<std::uint16_t>((guid.Data3 & 0x0FFF) | 0x4000);  // version 4, random
    guid.Data4[0] = static_cast<std::uint8_t>((guid.Data4[0] & 0x3F) | 0x80);
    return guid;
}

bool LaunchProgram(const std::string& path, const std::string& arguments) {
    std::vector<std::string> words = SplitArguments(arguments);
    std::vector<char*> argv{const_cast<char*>(path.c_str())};
    for (auto& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    pid_t pid = 0;
    if (::posix_spawnp(&pid, path.c_str(), nullptr, nullptr, argv.data(), environ) != 0) return false;
    std::thread([pid] { ::waitpid(pid, nullptr, 0); }).detach();  // so that it does not stay a zombie
    return true;
}

DWORD ProcessId() {
    return static_cast<DWORD>(::getpid());
}
