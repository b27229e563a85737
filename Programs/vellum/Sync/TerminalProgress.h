// The progress of a run: a bar on a terminal, a line for each folder elsewhere, Ctrl-C as Cancel.
#pragma once
#include <Programs/vellum/Console/ProgressLine.h>
#include <Tarn/Engine/SyncProgress.h>

#include <string>

class CConsole;

class CTerminalProgress : public CSyncProgress {
public:
    explicit CTerminalProgress(CConsole& console) : m_console(console), m_line(console) {}
    // A line for each folder where there is no terminal to draw on; from the beginning, unless told
    // otherwise.
    void AnnounceFolders(bool announce) { m_announce = announce; }
    // No dialog serves it: the run stays on its caller's thread.
    bool IsVisible() override { return false; }
    void SetCaption(const std::string& text) override;
    void StepFolder() override {}
    void StepMessage() override;
    void SetFolderRange(int, int) override {}
    void SetMessageRange(int first, int last) override;
    void SetDetail(const std::string&) override {}
    void SetFolderText(const std::string&) override {}
    void SetMessageText(const std::string& text) override;
    int IsCancelled() override;
    void Stop() override;
    void Begin() override {}

private:
    void Draw(bool always);

    CConsole& m_console;
    CProgressLine m_line;
    bool m_announce = true;
    std::string m_caption;
    std::string m_status;
    unsigned m_done = 0;
    unsigned m_total = 0;
};
