// The progress of a run: a bar on a terminal, a line for each folder elsewhere, Ctrl-C as Cancel.
#pragma once
#include <Programs/vellum/Console/ProgressLine.h>
#include <Tarn/Engine/SyncProgress.h>

#include <functional>
#include <string>

class CConsole;

class CTerminalProgress : public CSyncProgress {
public:
    // `announce`: a line for each folder where there is no terminal to draw on.
    explicit CTerminalProgress(CConsole& console, bool announce = true)
        : m_console(console), m_line(console), m_announce(announce) {}
    // Called once for each item that a run takes in hand, before it does.
    void OnStep(std::function<void()> step) { m_step = std::move(step); }

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
    bool m_announce;
    std::function<void()> m_step;
    std::string m_caption;
    std::string m_status;
    unsigned m_done = 0;
    unsigned m_total = 0;
};
