#include <Programs/vellum/Console/ProgressLine.h>

#include <Programs/vellum/Console/Console.h>

#include <algorithm>

namespace {
constexpr unsigned barWidth = 24;
constexpr std::chrono::milliseconds redraw{100};
}  // namespace

CProgressLine::~CProgressLine() {
    m_console.ClearTransient();
}

void CProgressLine::Show(const std::string& what, unsigned done, unsigned total, bool always) {
    const auto now = std::chrono::steady_clock::now();
    if (!always && now - m_drawn < redraw) return;
    m_drawn = now;
    m_console.ShowTransient(ProgressBarText(what, done, total));
}

std::string ProgressBarText(const std::string& what, unsigned done, unsigned total) {
    if (total == 0) return done == 0 ? what : std::to_string(done) + "  " + what;
    const unsigned shown = std::min(done, total);
    const auto filled = static_cast<unsigned>(static_cast<unsigned long long>(shown) * barWidth / total);
    const auto percent = static_cast<unsigned>(static_cast<unsigned long long>(shown) * 100 / total);
    std::string bar = "[" + std::string(filled, '#') + std::string(barWidth - filled, '-') + "] ";
    if (percent < 100) bar += ' ';
    if (percent < 10) bar += ' ';
    return bar + std::to_string(percent) + "%  " + what;
}
