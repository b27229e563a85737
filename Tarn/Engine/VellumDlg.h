// The progress dialog without its window: what each message of a run does to the texts and bars.
#pragma once
#include <Tarn/Engine/SyncProgress.h>
#include <atomic>
#include <string>

// What shows the dialog. All calls come on the thread that delivers the window messages.
class IVellumDlgView {
public:
    virtual ~IVellumDlgView() = default;
    virtual void ShowLine(int line, const std::string& text) = 0;  // 1 to 4
    virtual void ShowFolderCount(const std::string& text) = 0;
    virtual void ShowMessageCount(const std::string& text) = 0;
    virtual void SetFolderBar(int first, int last, int step) = 0;
    virtual void SetMessageBar(int first, int last, int step) = 0;
    virtual void StepFolderBar() = 0;
    virtual void StepMessageBar() = 0;
    virtual void EndAsOk() = 0;
    virtual void QuitLoop() = 0;
};

class CVellumDlg : public IWindowMessageSink {
public:
    // The view is not owned; without one only the counters and the cancel flag are kept.
    explicit CVellumDlg(IVellumDlgView* view = nullptr) : m_view(view) {}

    // The window that serves the dialog, 0 until it is up. Set by the thread of the window, read by
    // that of the run.
    WindowHandle Window() const { return m_window.load(); }
    // False: the run has ended already, and nobody will end the dialog any more.
    bool SetWindow(WindowHandle window) {
        m_window.store(window);
        return !m_runEnded.load();
    }
    // By the thread of the run: ends the dialog through its window, now or as soon as it comes up.
    void EndRun() {
        m_runEnded.store(true);
        if (const WindowHandle window = Window()) SendWindowMessage(window, PROGRESS_CLOSE, 0, 0);
    }
    // By the thread of the window: the dialog has gone, or will not come up.
    void Abandon() { m_abandoned.store(true); }
    bool IsAbandoned() const { return m_abandoned.load(); }

    // The Cancel button; any thread. The run sees it at its next look.
    void Cancel() { m_cancelled.store(1); }
    bool IsCancelled() const { return m_cancelled.load() != 0; }

    LRESULT OnWindowMessage(UINT message, WPARAM wParam, LPARAM lParam) override;

private:
    void OnFolderRange(int first, int last);
    void OnMessageRange(int first, int last);
    void OnFolderStep();
    void OnMessageStep();
    void OnCopyData(const COPYDATASTRUCT& data);

    IVellumDlgView* m_view;
    std::atomic<WindowHandle> m_window{0};
    std::atomic<int> m_cancelled{0};
    std::atomic<bool> m_runEnded{false};
    std::atomic<bool> m_abandoned{false};
    int m_message = 0;
    int m_messages = 0;
    int m_folder = 0;
    int m_folders = 0;
};
