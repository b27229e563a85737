#include <Platform/Clock.h>
#include <Platform/OfTarget.h>

#include <chrono>
#include <thread>

namespace {

using std::chrono::days;
using std::chrono::sys_days;
using Ticks = std::chrono::duration<std::uint64_t, std::ratio<1, 10'000'000>>;

constexpr std::uint64_t TicksPerMs = 10'000;
constexpr std::uint64_t TicksPerSecond = 10'000'000;
constexpr std::uint64_t TicksPerDay = TicksPerSecond * 86'400;
constexpr int FirstYear = 1601;
constexpr int LastYear = 30827;
constexpr sys_days Epoch{std::chrono::year{FirstYear} / 1 / 1};

// The days since the epoch become year and day of year by hand: the calendar of the standard library
// does not have to reach beyond the year 32767 and here stays within four centuries.
constexpr std::uint64_t DaysPer400Years = 146'097;

}  // namespace

FILETIME UtcNow() {
    if (SharedClockState().overridden) return FileTimeOf(SharedClockState().ticks);
    // Ticks before anything is added: four centuries in nanoseconds do not fit into 64 bits.
    const auto sinceUnix =
        std::chrono::duration_cast<Ticks>(std::chrono::system_clock::now().time_since_epoch());
    const auto sinceEpoch = std::chrono::sys_time<days>{} - Epoch;
    return FileTimeOf(Ticks(sinceUnix + sinceEpoch).count());
}

SYSTEMTIME LocalNow() {
    if (!SharedClockState().overridden) return SystemLocalTime();
    SYSTEMTIME st;
    SplitFileTime(FileTimeOf(SharedClockState().ticks), st);
    return st;
}

DWORD TickCount() {
    if (SharedClockState().overridden) return static_cast<DWORD>(SharedClockState().ticks / TicksPerMs);
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<DWORD>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

void SleepMs(DWORD ms) {
    if (SharedClockState().overridden) {
        SharedClockState().ticks += ms * TicksPerMs;
        return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

bool SplitFileTime(const FILETIME& ft, SYSTEMTIME& st) {
    st = SYSTEMTIME{};
    const std::uint64_t ticks = TicksOf(ft);
    const std::uint64_t day = ticks / TicksPerDay;
    const std::chrono::year_month_day date{Epoch + days(day % DaysPer400Years)};
    const std::uint64_t year = static_cast<int>(date.year()) + day / DaysPer400Years * 400;
    if (year > LastYear) return false;

    const std::uint64_t inDay = ticks % TicksPerDay;
    st.wYear = static_cast<WORD>(year);
    st.wMonth = static_cast<WORD>(static_cast<unsigned>(date.month()));
    st.wDay = static_cast<WORD>(static_cast<unsigned>(date.day()));
    st.wDayOfWeek = static_cast<WORD>((day + 1) % 7);  // the epoch was a Monday
    st.wHour = static_cast<WORD>(inDay / (TicksPerSecond * 3600));
    st.wMinute = static_cast<WORD>(inDay / (TicksPerSecond * 60) % 60);
    st.wSecond = static_cast<WORD>(inDay / TicksPerSecond % 60);
    st.wMilliseconds = static_cast<WORD>(inDay / TicksPerMs % 1000);
    return true;
}

bool JoinFileTime(const SYSTEMTIME& st, FILETIME& ft) {
    if (st.wYear < FirstYear || st.wYear > LastYear) return false;
    if (st.wHour > 23 || st.wMinute > 59 || st.wSecond > 59 || st.wMilliseconds > 999) return false;
    const unsigned cycles = (st.wYear - FirstYear) / 400;
    const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(st.wYear - cycles * 400)),
                                           std::chrono::month(st.wMonth), std::chrono::day(st.wDay)};
    // chrono keeps months and days in a byte, so a large number has to be refused before it wraps
    if (st.wMonth > 12 || st.wDay > 31 || !date.ok()) return false;

    const std::uint64_t day = (sys_days{date} - Epoch).count() + cycles * DaysPer400Years;
    const std::uint64_t seconds = st.wHour * 3600u + st.wMinute * 60u + st.wSecond;
    ft = FileTimeOf(day * TicksPerDay + seconds * TicksPerSecond + st.wMilliseconds * TicksPerMs);
    return true;
}

CClockOverride::CClockOverride(FILETIME start) {
    SharedClockState().ticks = TicksOf(start);
    SharedClockState().overridden = true;
}

CClockOverride::~CClockOverride() {
    SharedClockState().overridden = false;
}

void CClockOverride::Advance(std::uint64_t ticks) {
    SharedClockState().ticks += ticks;
}
