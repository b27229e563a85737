#include <Programs/vellum/Console/TraceFile.h>

#include <Platform/Files.h>
#include <Programs/vellum/Console/ExitCode.h>
#include <Tarn/Engine/SyncTrace.h>

#include <cerrno>
#include <cstring>

CTraceFile::CTraceFile(const std::string& path) {
    // It names items and folders. What is there keeps its rights.
    if (FileIsAbsent(path)) CreatePrivateFile(path);
    m_file.reset(OpenFile(path, "a"));
    if (!m_file)
        throw CCommandError(ExitCode::NotOpen,
                            "The trace file \"" + path + "\" cannot be written: " + std::strerror(errno));
    m_window = std::make_unique<CWindowRegistration>("ServerTrace", *this);
    ForgetTraceWindow();
}

CTraceFile::~CTraceFile() {
    m_window.reset();
    ForgetTraceWindow();
}

LRESULT CTraceFile::OnWindowMessage(UINT message, WPARAM, LPARAM lParam) {
    if (message != WM_COPYDATA || lParam == 0) return 0;
    const auto& data = *reinterpret_cast<const COPYDATASTRUCT*>(lParam);
    if (!data.lpData || data.cbData == 0) return 0;
    const auto* text = static_cast<const char*>(data.lpData);
    std::size_t length = data.cbData;
    while (length > 0 && (text[length - 1] == '\0' || text[length - 1] == '\n'))
        --length;
    std::fwrite(text, 1, length, m_file.get());
    std::fputc('\n', m_file.get());
    return 1;
}
