#include <Programs/vellum/Sync/TerminalProgress.h>

#include <Programs/vellum/Console/Console.h>
#include <Programs/vellum/Console/Interrupt.h>
#include <Programs/vellum/Console/Utf8.h>

void CTerminalProgress::Draw(bool always) {
    std::string text = Utf8FromNarrow(m_caption);
    if (!m_status.empty()) text += (text.empty() ? "" : ": ") + Utf8FromNarrow(m_status);
    m_line.Show(text, m_done, m_total, always);
}

void CTerminalProgress::SetCaption(const std::string& text) {
    m_caption = text;
    m_status.clear();
    m_done = m_total = 0;
    if (m_announce && !m_console.Settings().errIsTerminal)
        m_console.Note("  folder " + OneLine(Utf8FromNarrow(text)));
    Draw(true);
}

void CTerminalProgress::SetMessageRange(int first, int last) {
    m_done = 0;
    m_total = last >= first ? static_cast<unsigned>(last - first + 1) : 0;
    Draw(true);
}

void CTerminalProgress::StepMessage() {
    ++m_done;
    Draw(false);
}

void CTerminalProgress::SetMessageText(const std::string& text) {
    m_status = text;
    Draw(false);
}

int CTerminalProgress::IsCancelled() {
    return InterruptRequested() ? 1 : 0;
}

void CTerminalProgress::Stop() {
    m_console.ClearTransient();
}
