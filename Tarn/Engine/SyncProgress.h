// How a run tells what it is doing and asks whether it may go on, without knowing whether anybody
// watches. Every report is a synchronous window message, so the worker's thread touches no window.
#pragma once
#include <Platform/WindowMessages.h>
#include <string>

class CVellumDlg;

// The messages that a status window answers; the numbers are shared with the status program.
enum ProgressMessage : UINT {
    PROGRESS_FOLDER_RANGE = 1025,   // first, last
    PROGRESS_MESSAGE_RANGE = 1026,  // first, last
    PROGRESS_FOLDER_STEP = 1027,
    PROGRESS_MESSAGE_STEP = 1028,
    PROGRESS_QUIT = 1029,
    PROGRESS_CLOSE = 1030,
    PROGRESS_CANCELLED = 1031,  // answers the cancel flag
};
// dwData of the WM_COPYDATA that sets a line of text.
enum ProgressLine : ULONG_PTR {
    PROGRESS_LINE_FOLDER = 1,
    PROGRESS_LINE_DETAIL = 2,
    PROGRESS_LINE_MESSAGE = 3,
    PROGRESS_LINE_CAPTION = 4,
};

class CSyncProgress {
public:
    virtual bool IsVisible() { return true; }
    virtual void SetCaption(const std::string& text) = 0;
    virtual void StepFolder() = 0;
    virtual void StepMessage() = 0;
    virtual void SetFolderRange(int first, int last) = 0;
    virtual void SetMessageRange(int first, int last) = 0;
    virtual void SetDetail(const std::string& text) = 0;
    virtual void SetFolderText(const std::string& text) = 0;
    virtual void SetMessageText(const std::string& text) = 0;
    // Not zero: the person wants the run to end. Asked now and then, never pushed.
    virtual int IsCancelled() = 0;
    virtual void Stop() {}
    virtual void Begin() = 0;
    virtual ~CSyncProgress() = default;

    // What ShellExecute answered when the status program was started; -1: could not be started.
    std::intptr_t m_launchResult = 0;
    WindowHandle m_window = 0;       // 0: no window known
    CVellumDlg* m_dialog = nullptr;  // not owned; null unless a dialog of this process serves the run
};

// Reports to the dialog of this process, or else to a window titled "Vellum" of another program,
// which is started if it is not there. Without a window all operations do nothing.
class CSyncProgressInteraktiv : public CSyncProgress {
public:
    bool IsVisible() override { return true; }
    void SetCaption(const std::string& text) override;
    void StepFolder() override;
    void StepMessage() override;
    void SetFolderRange(int first, int last) override;
    void SetMessageRange(int first, int last) override;
    void SetDetail(const std::string& text) override;
    void SetFolderText(const std::string& text) override;
    void SetMessageText(const std::string& text) override;
    int IsCancelled() override;
    void Stop() override;
    // With a dialog: waits until it has a window. Otherwise finds or starts the status program. Waits up to
    // about five seconds; a dialog that comes up later is found by whatever is reported next.
    void Begin() override;

private:
    void SendLine(ULONG_PTR line, const std::string& text);
    void Send(UINT message, int first = 0, int last = 0);
    bool HasWindow();
    void FindStatusProgram();
};

// Reports nothing; a silent run cannot be cancelled.
class CSyncProgressHidden : public CSyncProgress {
public:
    bool IsVisible() override { return false; }
    void SetCaption(const std::string&) override {}
    void StepFolder() override {}
    void StepMessage() override {}
    void SetFolderRange(int, int) override {}
    void SetMessageRange(int, int) override {}
    void SetDetail(const std::string&) override {}
    void SetFolderText(const std::string&) override {}
    void SetMessageText(const std::string&) override {}
    int IsCancelled() override { return 0; }
    void Begin() override {}
};
