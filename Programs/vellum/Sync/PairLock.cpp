#include <Programs/vellum/Sync/PairLock.h>

#include <Platform/Clock.h>
#include <Platform/Directories.h>
#include <Platform/Machine.h>
#include <Programs/vellum/Console/Interrupt.h>
#include <Programs/vellum/Session/ProfileFiles.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace {

constexpr DWORD pollMs = 50;

// A file name for a text that is longer than a file name may be.
std::string HashOf(const std::string& text) {
    std::uint64_t hash = 0xcbf29ce484222325ull;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3ull;
    char name[32];
    std::snprintf(name, sizeof(name), "%016llx", static_cast<unsigned long long>(hash));
    return name;
}

std::string HolderText() {
    SYSTEMTIME now{};
    SplitFileTime(UtcNow(), now);
    char since[64];
    std::snprintf(since, sizeof(since), "%04d-%02d-%02d %02d:%02d:%02d", now.wYear, now.wMonth, now.wDay,
                  now.wHour, now.wMinute, now.wSecond);
    return "process " + std::to_string(static_cast<unsigned>(ProcessId())) + " on " + ComputerName() +
           ", since " + since + " UTC";
}

// One lock, taken at once or after waiting for whoever has it.
LockAnswer TakeOne(CProcessLock& lock, const std::string& path, const CPatience& patience,
                   std::string& holder) {
    const DWORD begin = TickCount();
    for (bool told = false;; told = true) {
        if (lock.TryLock(path, HolderText(), holder)) return LockAnswer::Taken;
        // Its holder may be between taking the lock and writing its text.
        if (holder.empty()) holder = "another run";
        const DWORD waitedMs = TickCount() - begin;
        if (patience.seconds != CPatience::kForEver && waitedMs >= patience.seconds * 1000ull)
            return LockAnswer::Busy;
        if (!told && patience.onWait) patience.onWait(holder);
        SleepMs(pollMs);
        if (InterruptRequested()) return LockAnswer::Interrupted;
    }
}

}  // namespace

LockAnswer CPairLock::Take(const std::string& profile, const CTarnSetting& pair, const CPatience& patience,
                           std::string& holder) {
    const std::string directory = ProfileLocksDirectory(profile);
    const auto path = [&](const char* kind, const std::string& text) {
        return JoinPath(directory, kind + HashOf(text) + ".lock");
    };
    // Always in the same order, so that two runs never wait for each other.
    const auto [first, second] = std::minmax(pair.m_sourceKey, pair.m_targetKey);
    const LockAnswer answer = TakeOne(m_pair, path("pair-", first + "|" + second), patience, holder);
    if (answer != LockAnswer::Taken) return answer;
    const CPatience endless{CPatience::kForEver, patience.onWait};
    const LockAnswer left = TakeOne(m_first, path("folder-", first), endless, holder);
    return left != LockAnswer::Taken ? left : TakeOne(m_second, path("folder-", second), endless, holder);
}
