// The person behind the lower rooms: their message boxes become lines on standard error.
#pragma once
#include <MapiWrapper/MapiException.h>
#include <Platform/UserInterface.h>

#include <string>
#include <vector>

class CConsole;

// Installs itself for its lifetime. Questions are answered with no: nothing waits for a person, and no
// is the answer that changes nothing.
class CCommandLineUi : public IUserInterface {
public:
    explicit CCommandLineUi(CConsole& console);
    ~CCommandLineUi() override;
    CCommandLineUi(const CCommandLineUi&) = delete;
    CCommandLineUi& operator=(const CCommandLineUi&) = delete;

    int OnMessageBox(const std::string& text, const std::string& caption, unsigned style) override;
    void OnMissingFolders(const std::vector<std::string>& paths) override;

private:
    CConsole& m_console;
    IUserInterface* m_previous;
    ReportHook m_previousReport;
};
