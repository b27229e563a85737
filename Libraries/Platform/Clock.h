// Time, as the system gives it or as a test sets it. FILETIMEs are UTC, 100-nanosecond ticks since
// 1 January 1601. All functions may be called from any thread.
#pragma once
#include <windows.h>
#include <cstdint>

FILETIME UtcNow();
SYSTEMTIME LocalNow();   // local wall clock
DWORD TickCount();       // milliseconds, wraps at 32 bits
void SleepMs(DWORD ms);  // returns at once while a CClockOverride is in force, which it advances

// Published conversions without time-zone arithmetic. SplitFileTime answers false and zeroes the
// result for a value past 30827 AD; JoinFileTime answers false for a date that does not exist.
bool SplitFileTime(const FILETIME& ft, SYSTEMTIME& st);
bool JoinFileTime(const SYSTEMTIME& st, FILETIME& ft);

inline std::uint64_t TicksOf(const FILETIME& ft) {
    return (static_cast<std::uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
}
inline FILETIME FileTimeOf(std::uint64_t ticks) {
    FILETIME ft;
    ft.dwLowDateTime = static_cast<DWORD>(ticks);
    ft.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return ft;
}

// While one lives, the clock stands still at `start` and moves only by Advance and SleepMs; local
// time then equals UTC. One at a time in a process.
class CClockOverride {
public:
    explicit CClockOverride(FILETIME start);
    ~CClockOverride();
    CClockOverride(const CClockOverride&) = delete;
    CClockOverride& operator=(const CClockOverride&) = delete;
    void Advance(std::uint64_t ticks);
};
