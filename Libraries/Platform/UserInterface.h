// The way from a lower room to a person. The top of the program (add-in, command line, test)
// installs one object; whoever must tell or ask something calls the free functions.
#pragma once
#include <windows.h>
#include <string>
#include <vector>

// What the top of the program answers with. Calls may come from the thread of a run.
class IUserInterface {
public:
    virtual ~IUserInterface() = default;

    // A plain message box without owner. `style` takes the published MB_ values, the answer is one
    // of the ID values (IDOK for a box with a single button).
    virtual int OnMessageBox(const std::string& text, const std::string& caption, unsigned style) = 0;

    // Folder paths that have no counterpart on the other side of a pair and were not created.
    virtual void OnMissingFolders(const std::vector<std::string>& paths) = 0;
};

// Installs `ui` and returns the one that was in place. Null brings the default back, which prints
// "caption: text" on standard error, never blocks and answers IDOK (IDNO to a question). The caller
// keeps ownership and must take the object out before it dies.
IUserInterface* InstallUserInterface(IUserInterface* ui);

// Never throw. An exception out of the installed object is swallowed and answered with IDOK.
int ShowMessageBox(const std::string& text, const std::string& caption, unsigned style = MB_OK);
void ShowMissingFolders(const std::vector<std::string>& paths);

// Records everything and answers `answer`; installs itself for its lifetime. For tests.
class CRecordingUserInterface : public IUserInterface {
public:
    struct Message {
        std::string text;
        std::string caption;
        unsigned style;
    };
    CRecordingUserInterface();
    ~CRecordingUserInterface() override;
    CRecordingUserInterface(const CRecordingUserInterface&) = delete;
    CRecordingUserInterface& operator=(const CRecordingUserInterface&) = delete;

    int OnMessageBox(const std::string& text, const std::string& caption, unsigned style) override;
    void OnMissingFolders(const std::vector<std::string>& paths) override;

    int answer = IDOK;
    std::vector<Message> messages;
    std::vector<std::string> missingFolders;

private:
    IUserInterface* m_previous;
};
