#include "MessageBoxUserInterface.h"

#include <Platform/Utf8.h>

int CMessageBoxUserInterface::OnMessageBox(const std::string& text, const std::string& caption,
                                           unsigned style) {
    return MessageBoxW(nullptr, WideFromUtf8(text).c_str(), WideFromUtf8(caption).c_str(), style);
}

void CMessageBoxUserInterface::OnMissingFolders(const std::vector<std::string>& paths) {
    std::string text;
    for (const auto& path : paths) {
        text += path + "\n";
    }
    OnMessageBox(text, "Vellum", MB_OK);
}
