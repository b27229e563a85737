#include <Tarn/Engine/SyncTrace.h>
#include <Tarn/Engine/VellumDlg.h>

namespace {
constexpr int MessagesPerStep = 8;

std::string CountText(const char* what, int current, int total) {
    return FormatText("%s %d from %d", what, current, total);
}
}  // namespace

LRESULT CVellumDlg::OnWindowMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case WM_COPYDATA:
            if (lParam) OnCopyData(*reinterpret_cast<const COPYDATASTRUCT*>(lParam));
            return 1;
        case PROGRESS_FOLDER_RANGE:
            OnFolderRange(static_cast<int>(wParam), static_cast<int>(lParam));
            break;
        case PROGRESS_MESSAGE_RANGE:
            OnMessageRange(static_cast<int>(wParam), static_cast<int>(lParam));
            break;
        case PROGRESS_FOLDER_STEP:
            OnFolderStep();
            break;
        case PROGRESS_MESSAGE_STEP:
            OnMessageStep();
            break;
        case PROGRESS_QUIT:
            if (m_view) m_view->QuitLoop();
            break;
        case PROGRESS_CLOSE:
            if (m_view) m_view->EndAsOk();
            break;
        case PROGRESS_CANCELLED:
            return m_cancelled.load();
        default:
            break;
    }
    return 0;
}

void CVellumDlg::OnCopyData(const COPYDATASTRUCT& data) {
    if (!m_view || !data.lpData || data.dwData < PROGRESS_LINE_FOLDER || data.dwData > PROGRESS_LINE_CAPTION)
        return;
    std::string text(static_cast<const char*>(data.lpData), data.cbData);
    text.resize(text.find('\0') == std::string::npos ? text.size() : text.find('\0'));
    m_view->ShowLine(static_cast<int>(data.dwData), text);
}

void CVellumDlg::OnFolderRange(int first, int last) {
    m_folder = first;
    m_folders = last;
    if (!m_view) return;
    m_view->SetFolderBar(first, last, 1);
    m_view->ShowFolderCount(CountText("Folder", m_folder, m_folders));
}

void CVellumDlg::OnMessageRange(int first, int last) {
    m_message = first;
    m_messages = last;
    if (!m_view) return;
    m_view->SetMessageBar(first, last, MessagesPerStep);
    m_view->ShowMessageCount(CountText("Message", m_message, m_messages));
}

void CVellumDlg::OnFolderStep() {
    ++m_folder;
    if (!m_view) return;
    m_view->StepFolderBar();
    m_view->ShowFolderCount(CountText("Folder", m_folder, m_folders));
}

// The second count makes the number shown run ahead; people know the display that way.
void CVellumDlg::OnMessageStep() {
    ++m_message;
    if (m_message % MessagesPerStep != 0) return;
    ++m_message;
    if (!m_view) return;
    m_view->StepMessageBar();
    m_view->ShowMessageCount(CountText("Message", m_message, m_messages));
}
