// The developer's trace, times as text, the protocol, and the texts of two languages.
#include <Platform/Clock.h>
#include <Platform/Machine.h>
#include <Platform/WindowMessages.h>
#include <Tarn/Engine/Strings.h>
#include <Tarn/Engine/SyncProtocol.h>
#include <Tarn/Engine/SyncTrace.h>
#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace {
class CTraceWindow : public IWindowMessageSink {
public:
    LRESULT OnWindowMessage(UINT message, WPARAM, LPARAM lParam) override {
        const auto* data = reinterpret_cast<const COPYDATASTRUCT*>(lParam);
        if (message == WM_COPYDATA) lines.emplace_back(static_cast<const char*>(data->lpData));
        return 1;
    }
    std::vector<std::string> lines;
};

class Trace : public ::testing::Test {
protected:
    Trace() { ForgetTraceWindow(); }
    ~Trace() override { ForgetTraceWindow(); }
    CTraceWindow window;
};

FILETIME At(WORD day, WORD month, WORD year, WORD hour, WORD minute, WORD second, WORD ms) {
    FILETIME time{};
    JoinFileTime({year, month, 0, day, hour, minute, second, ms}, time);
    return time;
}
}  // namespace

TEST_F(Trace, LineCarriesTheTimeOfDay) {
    CClockOverride clock(At(2, 3, 2004, 5, 6, 7, 8));
    CWindowRegistration registration("ServerTrace", window);
    ServerTraceWrite(nullptr, "row %d of %s", 3, "five");
    ASSERT_EQ(window.lines.size(), 1u);
    EXPECT_EQ(window.lines[0], "Vellum: 05:06:07.008 row 3 of five");
}

TEST_F(Trace, PersonsTextIsNeverTakenForAFormat) {
    CWindowRegistration registration("ServerTrace", window);
    TraceText(nullptr, "100%s done %n");
    TraceFormat(nullptr, "Subject = %s", "50%d");
    ASSERT_EQ(window.lines.size(), 2u);
    EXPECT_NE(window.lines[0].find("100_s done _n"), std::string::npos);
    EXPECT_NE(window.lines[1].find("Subject = 50_d"), std::string::npos);
}

TEST_F(Trace, LineThatIsTooLongIsNotWritten) {
    CWindowRegistration registration("ServerTrace", window);
    ServerTraceWrite(nullptr, "%s", std::string(511, 'a').c_str());
    ServerTraceWrite(nullptr, "%s", std::string(512, 'b').c_str());
    ServerTraceWrite(nullptr, "%s", "");
    ASSERT_EQ(window.lines.size(), 1u);
    EXPECT_EQ(window.lines[0].back(), 'a');
}

TEST_F(Trace, WindowThatComesLaterIsNotNoticed) {
    EXPECT_FALSE(IsTraceActive(nullptr));
    CWindowRegistration registration("ServerTrace", window);
    ServerTraceWrite(nullptr, "unheard");
    EXPECT_FALSE(IsTraceActive(nullptr));
    EXPECT_TRUE(window.lines.empty());
}

TEST(FileTimes, AreComparedAsSignedNumbersWithoutTolerance) {
    EXPECT_EQ(CompareFileTimes(FileTimeOf(5), FileTimeOf(5)), 0);
    EXPECT_EQ(CompareFileTimes(FileTimeOf(5), FileTimeOf(6)), -1);
    EXPECT_EQ(CompareFileTimes(FileTimeOf(0x100000000ull), FileTimeOf(0xFFFFFFFFull)), 1);
    EXPECT_EQ(CompareFileTimes(FileTimeOf(0x8000000000000000ull), FileTimeOf(0)), -1);
}

TEST(FileTimes, AreShownInUtcDayFirst) {
    EXPECT_EQ(FormatFileTime(At(2, 3, 2004, 5, 6, 7, 8)), "02.03.2004 05:06:07.8");
    EXPECT_EQ(FormatFileTime(FileTimeOf(~0ull)), "00.00.0000 00:00:00.0");
}

TEST(SyncProtocol, KeepsTheOrderOfWhatHappened) {
    CSyncProtocol protocol;
    protocol.Add("to", "from", "Lunch", 1, "copied", "id1");
    protocol.Add("to", "from", "Dinner", 6, "deleted", "id2");
    ASSERT_EQ(protocol.Count(), 2u);
    EXPECT_EQ(protocol.At(0).m_destination, "to");
    EXPECT_EQ(protocol.At(0).m_origin, "from");
    EXPECT_EQ(protocol.At(1).m_subject, "Dinner");
    EXPECT_EQ(protocol.At(1).m_state, 6);
    EXPECT_EQ(protocol.At(1).m_detail, "deleted");
    EXPECT_EQ(protocol.At(1).m_syncId, "id2");
    protocol.Clear();
    EXPECT_TRUE(protocol.IsEmpty());
}

TEST(Texts, EachHasItsWordingInBothLanguages) {
    std::set<std::string> seen;
    for (const unsigned id : {7u, 10u, 12u, 13u, 15u, 16u, 304u, 306u, 307u, 308u, 309u, 310u, 313u}) {
        SetUserLanguage(Language::German);
        const std::string german = LoadText(id);
        SetUserLanguage(Language::English);
        const std::string english = LoadText(id);
        EXPECT_FALSE(english.empty()) << id;
        EXPECT_NE(german, english) << id;
        EXPECT_EQ(german.find('?'), std::string::npos) << german;
        EXPECT_TRUE(seen.insert(english).second) << english;
    }
    EXPECT_TRUE(LoadText(99999).empty());
}

// They become folder names.
TEST(Texts, FolderLabelsHoldNoSeparator) {
    for (const unsigned id : {15u, 313u})
        EXPECT_EQ(LoadText(id).find('\\'), std::string::npos);
}
