// The person before a Windows desktop: real message boxes. The add-in installs one.
#pragma once
#include <Platform/UserInterface.h>

class CMessageBoxUserInterface : public IUserInterface {
public:
    // MessageBoxA without owner; blocks until the person answers.
    int OnMessageBox(const std::string& text, const std::string& caption, unsigned style) override;
    // One box with a line per path; a program with a dialog of its own for it overrides this.
    void OnMissingFolders(const std::vector<std::string>& paths) override;
};
