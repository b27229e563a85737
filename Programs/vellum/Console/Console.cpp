#include <Programs/vellum/Console/Console.h>

#include <Programs/vellum/Console/Utf8.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

CConsole::CConsole(std::ostream& out, std::ostream& err, const CConsoleSettings& settings)
    : m_out(out), m_err(err), m_settings(settings) {}

std::string CConsole::Dress(bool colour, Style style, const std::string& text) {
    if (!colour || style == Style::Plain || text.empty()) return text;
    const char* code = "1";
    switch (style) {
        case Style::Dim:
            code = "2";
            break;
        case Style::Good:
            code = "32";
            break;
        case Style::Warning:
            code = "33";
            break;
        case Style::Error:
            code = "31";
            break;
        default:
            break;
    }
    return "\x1b[" + std::string(code) + "m" + text + "\x1b[0m";
}

std::string CConsole::OnOut(Style style, const std::string& text) const {
    return Dress(m_settings.outIsTerminal && m_settings.colourAllowed, style, text);
}

std::string CConsole::OnErr(Style style, const std::string& text) const {
    return Dress(m_settings.errIsTerminal && m_settings.colourAllowed, style, text);
}

void CConsole::Note(const std::string& text) {
    if (m_quiet) return;
    ClearTransient();
    m_err << PlainLines(text) << '\n';
}

void CConsole::Warn(const std::string& text) {
    ClearTransient();
    m_err << OnErr(Style::Warning, "warning:") << ' ' << PlainLines(text) << '\n';
}

void CConsole::Error(const std::string& text, const std::string& hint) {
    ClearTransient();
    m_out.flush();
    m_err << OnErr(Style::Error, "vellum:") << ' ' << PlainLines(text) << '\n';
    if (!hint.empty()) m_err << "  " << PlainLines(hint) << '\n';
}

bool CConsole::Ask(const std::string& question) {
    if (!CanAsk()) return false;
    ClearTransient();
    m_out.flush();
    m_err << PlainLines(question) << " [y/N] " << std::flush;
    std::string answer;
    std::getline(*m_settings.answers, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

void CConsole::ShowTransient(const std::string& text) {
    if (!m_settings.errIsTerminal || m_quiet) return;
    m_err << "\r\x1b[K" << Utf8Shorten(OneLine(text), m_settings.width > 1 ? m_settings.width - 1 : 1)
          << std::flush;
    m_transientShown = true;
}

void CConsole::ClearTransient() {
    if (!m_transientShown) return;
    m_err << "\r\x1b[K" << std::flush;
    m_transientShown = false;
}

CConsoleSettings ConsoleOfThisProcess() {
    CConsoleSettings settings;
    settings.outIsTerminal = isatty(1) != 0;
    settings.errIsTerminal = isatty(2) != 0;
    if (isatty(0) != 0 && settings.errIsTerminal) settings.answers = &std::cin;
    const char* noColour = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    settings.colourAllowed = !(noColour && *noColour) && !(terminal && std::string(terminal) == "dumb");
    if (const char* columns = std::getenv("COLUMNS")) {
        const long width = std::strtol(columns, nullptr, 10);
        if (width >= 20 && width <= 1000) settings.width = static_cast<unsigned>(width);
    }
    return settings;
}
