// A bar on a terminal, redrawn in place; nothing elsewhere.
#pragma once
#include <chrono>
#include <string>

class CConsole;

class CProgressLine {
public:
    explicit CProgressLine(CConsole& console) : m_console(console) {}
    ~CProgressLine();
    CProgressLine(const CProgressLine&) = delete;
    CProgressLine& operator=(const CProgressLine&) = delete;

    // `total` 0: not known, a count is shown instead of a bar. Draws at most ten times a second unless
    // `always` is set.
    void Show(const std::string& what, unsigned done, unsigned total, bool always = false);

private:
    CConsole& m_console;
    std::chrono::steady_clock::time_point m_drawn{};
};

// "[########------------] 40%  what"
std::string ProgressBarText(const std::string& what, unsigned done, unsigned total);
