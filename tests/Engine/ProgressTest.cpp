// What a run tells its status window, and what the progress dialog makes of it.
#include <Platform/Clock.h>
#include <Tarn/Engine/SyncProgress.h>
#include <Tarn/Engine/VellumDlg.h>
#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace {
// Writes down what arrives at a window.
class CRecordingWindow : public IWindowMessageSink {
public:
    LRESULT OnWindowMessage(UINT message, WPARAM wParam, LPARAM lParam) override {
        std::ostringstream line;
        if (message == WM_COPYDATA) {
            const auto* data = reinterpret_cast<const COPYDATASTRUCT*>(lParam);
            line << "line " << data->dwData << " " << static_cast<const char*>(data->lpData) << " ("
                 << data->cbData << ")";
        } else {
            line << message << " " << wParam << " " << lParam;
        }
        received.push_back(line.str());
        return answer;
    }
    std::vector<std::string> received;
    LRESULT answer = 0;
};

class CRecordingView : public IVellumDlgView {
public:
    void ShowLine(int line, const std::string& text) override {
        Note("line " + std::to_string(line) + " " + text);
    }
    void ShowFolderCount(const std::string& text) override { Note(text); }
    void ShowMessageCount(const std::string& text) override { Note(text); }
    void SetFolderBar(int first, int last, int step) override { Note(Bar("folders", first, last, step)); }
    void SetMessageBar(int first, int last, int step) override { Note(Bar("messages", first, last, step)); }
    void StepFolderBar() override { Note("step folders"); }
    void StepMessageBar() override { Note("step messages"); }
    void EndAsOk() override { Note("end"); }
    void QuitLoop() override { Note("quit"); }
    std::vector<std::string> shown;

private:
    static std::string Bar(const char* name, int first, int last, int step) {
        return std::string(name) + " " + std::to_string(first) + ".." + std::to_string(last) + " by " +
               std::to_string(step);
    }
    void Note(const std::string& text) { shown.push_back(text); }
};

using Lines = std::vector<std::string>;
}  // namespace

TEST(Progress, EachReportIsOneMessage) {
    CRecordingWindow window;
    CWindowRegistration registration("Vellum", window);
    CSyncProgressInteraktiv progress;
    progress.Begin();
    progress.SetCaption("Calendar");
    progress.SetFolderText("a");
    progress.SetDetail("b");
    progress.SetMessageText("c");
    progress.SetFolderRange(1, 3);
    progress.SetMessageRange(1, 20);
    progress.StepFolder();
    progress.StepMessage();
    EXPECT_EQ(progress.IsCancelled(), 0);
    window.answer = 1;
    EXPECT_EQ(progress.IsCancelled(), 1);
    progress.Stop();
    EXPECT_EQ(window.received,
              (Lines{"line 4 Calendar (9)", "line 1 a (2)", "line 2 b (2)", "line 3 c (2)", "1025 1 3",
                     "1026 1 20", "1027 0 0", "1028 0 0", "1031 0 0", "1031 0 0", "1029 0 0"}));
}

TEST(Progress, WithoutAWindowTheRunGoesOnInSilence) {
    CClockOverride clock(FileTimeOf(0));
    CSyncProgressInteraktiv progress;
    progress.Begin();
    progress.SetCaption("Calendar");
    progress.StepMessage();
    EXPECT_EQ(progress.m_window, 0u);
    EXPECT_EQ(progress.IsCancelled(), 0);
    progress.Stop();
}

TEST(Progress, DialogIsClosedBeforeItsLoopEnds) {
    CRecordingView view;
    CVellumDlg dialog(&view);
    CWindowRegistration registration("Progress under test", dialog);
    ASSERT_NE(registration.Handle(), 0u) << "no window can be opened here";
    dialog.SetWindow(registration.Handle());
    CSyncProgressInteraktiv progress;
    progress.m_dialog = &dialog;
    progress.Begin();
    progress.Stop();
    EXPECT_EQ(view.shown, (Lines{"end", "quit"}));
    EXPECT_EQ(progress.IsCancelled(), 0);
    dialog.Cancel();
    EXPECT_EQ(progress.IsCancelled(), 1);
}

TEST(Progress, HiddenIsNeverCancelled) {
    CSyncProgressHidden progress;
    EXPECT_FALSE(progress.IsVisible());
    EXPECT_EQ(progress.IsCancelled(), 0);
}

TEST(VellumDlg, EighthMessageMovesTheBarAndRunsAhead) {
    CRecordingView view;
    CVellumDlg dialog(&view);
    for (int i = 0; i < 7; ++i)
        dialog.OnWindowMessage(PROGRESS_MESSAGE_STEP, 0, 0);
    EXPECT_TRUE(view.shown.empty());
    dialog.OnWindowMessage(PROGRESS_MESSAGE_STEP, 0, 0);
    EXPECT_EQ(view.shown, (Lines{"step messages", "Message 9 from 0"}));
}

TEST(VellumDlg, RangesAndFoldersAreShown) {
    CRecordingView view;
    CVellumDlg dialog(&view);
    dialog.OnWindowMessage(PROGRESS_FOLDER_RANGE, 1, 4);
    dialog.OnWindowMessage(PROGRESS_FOLDER_STEP, 0, 0);
    dialog.OnWindowMessage(PROGRESS_MESSAGE_RANGE, 0, 0);
    EXPECT_EQ(view.shown, (Lines{"folders 1..4 by 1", "Folder 1 from 4", "step folders", "Folder 2 from 4",
                                 "messages 0..0 by 8", "Message 0 from 0"}));
}

TEST(VellumDlg, TextWithoutItsEndIsTakenAsFarAsItGoes) {
    CRecordingView view;
    CVellumDlg dialog(&view);
    char text[] = {'a', 'b', 'c'};
    COPYDATASTRUCT data{PROGRESS_LINE_DETAIL, sizeof text, text};
    dialog.OnWindowMessage(WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&data));
    data.dwData = 9;
    dialog.OnWindowMessage(WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&data));
    EXPECT_EQ(view.shown, (Lines{"line 2 abc"}));
}
