#include "MessageBoxUserInterface.h"

int CMessageBoxUserInterface::OnMessageBox(const std::string& text, const std::string& caption,
                                           unsigned style) {
    return MessageBoxA(nullptr, text.c_str(), caption.c_str(), style);
}

void CMessageBoxUserInterface::OnMissingFolders(const std::vector<std::string>& paths) {
    std::string text;
    for (const auto& path : paths) {
        text += path + "\n";
    }
    OnMessageBox(text, "Vellum", MB_OK);
}
