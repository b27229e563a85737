#include <Programs/vellum/Console/CommandLineUi.h>

#include <Programs/vellum/Console/Console.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Session/Explain.h>

namespace {
constexpr unsigned buttonsMask = 0x0F;

// The caption of a message box, which names the error, is not shown on a terminal.
void ShowReport(const char* text, const CMAPIException& e) {
    const std::string where = e.Context().empty() ? std::string() : " in " + e.Context();
    ShowMessageBox((text ? text : "") + where + ": " + Explain(e), {});
}
}  // namespace

CCommandLineUi::CCommandLineUi(CConsole& console)
    : m_console(console),
      m_previous(InstallUserInterface(this)),
      m_previousReport(SetReportHook(ShowReport)) {}

CCommandLineUi::~CCommandLineUi() {
    SetReportHook(m_previousReport);
    InstallUserInterface(m_previous);
}

int CCommandLineUi::OnMessageBox(const std::string& text, const std::string&, unsigned style) {
    m_console.Warn(OneLine(Utf8FromNarrow(text)));
    switch (style & buttonsMask) {
        case MB_OKCANCEL:
            return IDCANCEL;
        case MB_YESNO:
            return IDNO;
        default:
            return IDOK;
    }
}

void CCommandLineUi::OnMissingFolders(const std::vector<std::string>& paths) {
    for (const std::string& path : paths)
        m_console.Note("No counterpart for the folder \"" + Utf8FromNarrow(path) + "\"");
}
