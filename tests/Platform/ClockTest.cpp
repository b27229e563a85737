#include <Platform/Clock.h>
#include <gtest/gtest.h>

#include <cstdio>

namespace {

std::string Text(const SYSTEMTIME& st) {
    char text[64];
    std::snprintf(text, sizeof text, "%u-%u-%u(%u) %u:%u:%u.%u", st.wYear, st.wMonth, st.wDay, st.wDayOfWeek,
                  st.wHour, st.wMinute, st.wSecond, st.wMilliseconds);
    return text;
}

SYSTEMTIME Date(unsigned year, unsigned month, unsigned day, unsigned hour = 0) {
    SYSTEMTIME st{};
    st.wYear = static_cast<WORD>(year);
    st.wMonth = static_cast<WORD>(month);
    st.wDay = static_cast<WORD>(day);
    st.wHour = static_cast<WORD>(hour);
    return st;
}

}  // namespace

TEST(ClockTest, FileTimesSplitAsPublished) {
    const struct {
        std::uint64_t ticks;
        const char* text;
    } cases[] = {
        {0, "1601-1-1(1) 0:0:0.0"},
        {116444736000000000, "1970-1-1(4) 0:0:0.0"},
        {119600064000000000 - 10000, "1979-12-31(1) 23:59:59.999"},
        {125963423999999999, "2000-2-29(2) 23:59:59.999"},  // below a millisecond nothing is rounded up
        {133500000000000000, "2024-1-17(3) 21:20:0.0"},
        {9223149887999990000, "30827-12-31(5) 23:59:59.999"},
    };
    for (const auto& c : cases) {
        SYSTEMTIME st;
        EXPECT_TRUE(SplitFileTime(FileTimeOf(c.ticks), st)) << c.text;
        EXPECT_EQ(c.text, Text(st));
        FILETIME ft;
        EXPECT_TRUE(JoinFileTime(st, ft)) << c.text;
        EXPECT_EQ(c.ticks / 10000 * 10000, TicksOf(ft)) << c.text;
    }
    SYSTEMTIME st = Date(2024, 1, 1);
    EXPECT_FALSE(SplitFileTime(FileTimeOf(UINT64_MAX), st));
    EXPECT_EQ("0-0-0(0) 0:0:0.0", Text(st));
}

TEST(ClockTest, DatesThatDoNotExistDoNotJoin) {
    FILETIME ft;
    EXPECT_TRUE(JoinFileTime(Date(2024, 2, 29), ft));
    for (const auto& st : {Date(2023, 2, 29), Date(2023, 0, 1), Date(2023, 13, 1), Date(2023, 4, 31),
                           Date(2023, 1, 0), Date(1600, 12, 31), Date(30828, 1, 1), Date(2023, 1, 1, 24),
                           Date(2023, 257, 1), Date(2023, 1, 257)}) {
        EXPECT_FALSE(JoinFileTime(st, ft)) << Text(st);
    }
}

TEST(ClockTest, UnderAnOverrideTimeMovesOnlyOnRequest) {
    const std::uint64_t real = TicksOf(UtcNow());
    {
        CClockOverride clock(FileTimeOf(116444736000000000));
        EXPECT_EQ(1970, LocalNow().wYear);
        const DWORD before = TickCount();
        SleepMs(1500);
        EXPECT_EQ(1500u, TickCount() - before);
        clock.Advance(5);
        EXPECT_EQ(116444736000000000u + 15'000'005, TicksOf(UtcNow()));
    }
    EXPECT_GE(TicksOf(UtcNow()), real);
}
