// Messages to top-level windows, as the progress and the trace send them. On Windows these are the
// system's own windows; elsewhere a window is an object of this process that registered a title.
#pragma once
#include <windows.h>
#include <cstdint>
#include <string>

// A known window; zero for none. The number keeps its meaning when the window has gone: a message to
// it then answers 0.
using WindowHandle = std::uintptr_t;

WindowHandle FindWindowByTitle(const std::string& title);

// Synchronous, from any thread. Answers what the window answered, 0 for a window that is not there.
LRESULT SendWindowMessage(WindowHandle window, UINT message, WPARAM wParam, LPARAM lParam);
// WM_COPYDATA with wParam 0; `text` goes with its terminating zero.
LRESULT SendCopyData(WindowHandle window, ULONG_PTR data, const std::string& text);

// A window that is no window: receives the messages of a title (Windows: a hidden message-only-like
// top-level window on a thread of its own; elsewhere a registration). For the terminal form of the
// progress, for trace sinks and for tests.
class IWindowMessageSink {
public:
    virtual ~IWindowMessageSink() = default;
    // Called on the sender's thread where the platform has no windows. For WM_COPYDATA lParam is a
    // COPYDATASTRUCT* valid during the call.
    virtual LRESULT OnWindowMessage(UINT message, WPARAM wParam, LPARAM lParam) = 0;
};

class CWindowRegistration {
public:
    CWindowRegistration(const std::string& title, IWindowMessageSink& sink);
    ~CWindowRegistration();  // waits for a message under way
    CWindowRegistration(const CWindowRegistration&) = delete;
    CWindowRegistration& operator=(const CWindowRegistration&) = delete;
    WindowHandle Handle() const { return m_handle; }

private:
    WindowHandle m_handle = 0;
};
