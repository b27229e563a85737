#include <Platform/Clock.h>
#include <Platform/WindowMessages.h>
#include <Tarn/Engine/SyncTrace.h>

#include <atomic>
#include <cstdarg>

namespace {
constexpr int MaxTraceText = 511;
constexpr char TraceWindowTitle[] = "ServerTrace";

std::atomic<bool> g_lookedForWindow{false};
std::atomic<WindowHandle> g_traceWindow{0};

std::atomic<const char*> g_file{""};
std::atomic<int> g_line{0};
std::atomic<const char*> g_innerFile{""};
std::atomic<int> g_innerLine{0};

// Looked for once: a trace program that starts later is not noticed, and a run without one pays
// nothing per line.
WindowHandle TraceWindow() {
    if (!g_lookedForWindow.load()) {
        g_traceWindow = FindWindowByTitle(TraceWindowTitle);
        g_lookedForWindow = true;
    }
    return g_traceWindow.load();
}

void WriteLine(FILE* file, const char* text) {
    const SYSTEMTIME now = LocalNow();
    const std::string line = FormatText("Vellum: %02d:%02d:%02d.%03d %s", now.wHour, now.wMinute, now.wSecond,
                                        now.wMilliseconds, text);
    if (file) std::fputs(line.c_str(), file);
    if (const WindowHandle window = TraceWindow()) SendCopyData(window, 0, line);
}

std::string FormatArguments(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int needed = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (needed <= 0) return {};
    std::string text(static_cast<size_t>(needed), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}
}  // namespace

void ServerTraceWrite(FILE* file, const char* format, ...) {
    if (!IsTraceActive(file)) return;
    char text[MaxTraceText + 1];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (length > 0 && length <= MaxTraceText) WriteLine(file, text);
}

bool IsTraceWindowThere() {
    return TraceWindow() != 0;
}

bool IsTraceActive(FILE* file) {
    return file != nullptr || IsTraceWindowThere();
}

void ForgetTraceWindow() {
    g_lookedForWindow = false;
    g_traceWindow = 0;
}

void TraceText(FILE* file, const std::string& text) {
    if (!IsTraceActive(file)) return;
    std::string harmless = text;
    for (char& c : harmless)
        if (c == '%') c = '_';
    ServerTraceWrite(file, "%s", harmless.c_str());
}

void TraceFormat(FILE* file, const char* format, ...) {
    if (!IsTraceActive(file)) return;
    char text[MaxTraceText + 1];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (length > 0) TraceText(file, text);
}

std::string FormatText(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::string text = FormatArguments(format, arguments);
    va_end(arguments);
    return text;
}

std::string FormatFileTime(const FILETIME& time) {
    SYSTEMTIME st{};
    SplitFileTime(time, st);
    return FormatText("%02d.%02d.%04d %02d:%02d:%02d.%d", st.wDay, st.wMonth, st.wYear, st.wHour, st.wMinute,
                      st.wSecond, st.wMilliseconds);
}

int CompareFileTimes(const FILETIME& first, const FILETIME& second) {
    const auto a = static_cast<std::int64_t>(TicksOf(first));
    const auto b = static_cast<std::int64_t>(TicksOf(second));
    return a < b ? -1 : a > b ? 1 : 0;
}

CSourcePosition CurrentPosition() {
    return {g_file.load(), g_line.load()};
}
CSourcePosition InnerPosition() {
    return {g_innerFile.load(), g_innerLine.load()};
}
void SetCurrentPosition(const char* file, int line) {
    g_file.store(file, std::memory_order_relaxed);
    g_line.store(line, std::memory_order_relaxed);
}
void SetInnerPosition(const char* file, int line) {
    g_innerFile.store(file, std::memory_order_relaxed);
    g_innerLine.store(line, std::memory_order_relaxed);
}
