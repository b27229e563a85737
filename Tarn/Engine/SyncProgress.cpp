#include <Platform/Clock.h>
#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Platform/Machine.h>
#include <Tarn/Engine/SyncProgress.h>
#include <Tarn/Engine/VellumDlg.h>

namespace {
constexpr char StatusWindowTitle[] = "Vellum";
constexpr char StatusProgram[] = "Vellum.exe";
constexpr DWORD LookIntervalMs = 100;
constexpr int LooksForWindow = 51;
}  // namespace

bool CSyncProgressInteraktiv::HasWindow() {
    if (!m_window && m_dialog) m_window = m_dialog->Window();
    return m_window != 0;
}

void CSyncProgressInteraktiv::SendLine(ULONG_PTR line, const std::string& text) {
    if (HasWindow()) SendCopyData(m_window, line, text);
}

void CSyncProgressInteraktiv::Send(UINT message, int first, int last) {
    if (HasWindow())
        SendWindowMessage(m_window, message, static_cast<WPARAM>(first), static_cast<LPARAM>(last));
}

void CSyncProgressInteraktiv::SetCaption(const std::string& text) {
    SendLine(PROGRESS_LINE_CAPTION, text);
}
void CSyncProgressInteraktiv::SetDetail(const std::string& text) {
    SendLine(PROGRESS_LINE_DETAIL, text);
}
void CSyncProgressInteraktiv::SetFolderText(const std::string& text) {
    SendLine(PROGRESS_LINE_FOLDER, text);
}
void CSyncProgressInteraktiv::SetMessageText(const std::string& text) {
    SendLine(PROGRESS_LINE_MESSAGE, text);
}
void CSyncProgressInteraktiv::StepFolder() {
    Send(PROGRESS_FOLDER_STEP);
}
void CSyncProgressInteraktiv::StepMessage() {
    Send(PROGRESS_MESSAGE_STEP);
}
void CSyncProgressInteraktiv::SetFolderRange(int first, int last) {
    Send(PROGRESS_FOLDER_RANGE, first, last);
}
void CSyncProgressInteraktiv::SetMessageRange(int first, int last) {
    Send(PROGRESS_MESSAGE_RANGE, first, last);
}

int CSyncProgressInteraktiv::IsCancelled() {
    if (!HasWindow()) return 0;
    return static_cast<int>(SendWindowMessage(m_window, PROGRESS_CANCELLED, 0, 0));
}

void CSyncProgressInteraktiv::Stop() {
    if (m_dialog) Send(PROGRESS_CLOSE);
    Send(PROGRESS_QUIT);
}

void CSyncProgressInteraktiv::Begin() {
    if (!m_dialog) return FindStatusProgram();
    // The dialog comes up on the thread that started this one, unless it cannot.
    m_window = 0;
    for (int look = 0; look < LooksForWindow && !HasWindow() && !m_dialog->IsAbandoned(); ++look)
        SleepMs(LookIntervalMs);
}

void CSyncProgressInteraktiv::FindStatusProgram() {
    m_window = FindWindowByTitle(StatusWindowTitle);
    if (m_window) return;
    const bool launched = LaunchProgram(JoinPath(ModuleDirectory(), StatusProgram), "-status");
    m_launchResult = launched ? 0 : -1;
    if (!launched) return;
    for (int look = 0; look < LooksForWindow && !m_window; ++look) {
        if (look) SleepMs(LookIntervalMs);
        m_window = FindWindowByTitle(StatusWindowTitle);
    }
}
