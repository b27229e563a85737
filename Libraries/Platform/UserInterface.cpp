#include <Platform/UserInterface.h>

#include <atomic>
#include <cstdio>

namespace {

constexpr unsigned MaskOfButtons = 0x0F;

class CPrintingUserInterface : public IUserInterface {
public:
    int OnMessageBox(const std::string& text, const std::string& caption, unsigned style) override {
        std::fprintf(stderr, "%s: %s\n", caption.c_str(), text.c_str());
        return (style & MaskOfButtons) == MB_YESNO ? IDNO : IDOK;
    }
    void OnMissingFolders(const std::vector<std::string>& paths) override {
        for (const auto& path : paths) {
            std::fprintf(stderr, "missing folder: %s\n", path.c_str());
        }
    }
};

CPrintingUserInterface g_printing;
std::atomic<IUserInterface*> g_installed{nullptr};

IUserInterface& Current() {
    IUserInterface* ui = g_installed.load();
    return ui ? *ui : g_printing;
}

}  // namespace

IUserInterface* InstallUserInterface(IUserInterface* ui) {
    return g_installed.exchange(ui);
}

int ShowMessageBox(const std::string& text, const std::string& caption, unsigned style) {
    try {
        return Current().OnMessageBox(text, caption, style);
    } catch (...) {
        return IDOK;
    }
}

void ShowMissingFolders(const std::vector<std::string>& paths) {
    try {
        Current().OnMissingFolders(paths);
    } catch (...) {
        // Nobody is left to be told.
    }
}

CRecordingUserInterface::CRecordingUserInterface() : m_previous(InstallUserInterface(this)) {}

CRecordingUserInterface::~CRecordingUserInterface() {
    InstallUserInterface(m_previous);
}

int CRecordingUserInterface::OnMessageBox(const std::string& text, const std::string& caption,
                                          unsigned style) {
    messages.push_back({text, caption, style});
    return answer;
}

void CRecordingUserInterface::OnMissingFolders(const std::vector<std::string>& paths) {
    missingFolders.insert(missingFolders.end(), paths.begin(), paths.end());
}
