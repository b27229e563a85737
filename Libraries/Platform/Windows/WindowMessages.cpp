#include <Platform/Utf8.h>
#include <Platform/WindowMessages.h>

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

namespace {

constexpr wchar_t ClassName[] = L"VellumMessageSink";
constexpr UINT CloseRequest = WM_APP + 1;

// One hidden window with its thread. Messages reach the sink on that thread.
struct Window {
    std::string title;
    IWindowMessageSink* sink = nullptr;
    HWND hwnd = nullptr;
    bool started = false;
    std::thread thread;
};

std::mutex g_lock;
std::condition_variable g_started;
std::map<WindowHandle, std::unique_ptr<Window>> g_windows;  // guarded by g_lock

HWND HwndOf(WindowHandle window) {
    return reinterpret_cast<HWND>(window);
}

// What a sink is meant to see: text, and the numbers from WM_USER up to where the program's own begin.
bool IsForSink(UINT message) {
    return message == WM_COPYDATA || (message >= WM_USER && message < WM_APP);
}

LRESULT CALLBACK WindowProcedure(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    const auto* window = reinterpret_cast<Window*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    if (window && IsForSink(message)) {
        try {
            return window->sink->OnWindowMessage(message, wParam, lParam);
        } catch (...) {
            return 0;  // a fault of the receiver is not the sender's
        }
    }
    if (message == CloseRequest) {
        DestroyWindow(hwnd);
        return 0;
    }
    if (message == WM_DESTROY) PostQuitMessage(0);
    return DefWindowProcW(hwnd, message, wParam, lParam);
}

void RegisterClassOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        WNDCLASSW description{};
        description.lpfnWndProc = WindowProcedure;
        description.hInstance = GetModuleHandleW(nullptr);
        description.lpszClassName = ClassName;
        RegisterClassW(&description);
    });
}

void RunWindow(Window& window) {
    const HWND hwnd =
        CreateWindowExW(WS_EX_TOOLWINDOW, ClassName, WideFromUtf8(window.title).c_str(), WS_POPUP, 0, 0, 0, 0,
                        nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
    if (hwnd) SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(&window));
    {
        const std::lock_guard guard(g_lock);
        window.hwnd = hwnd;
        window.started = true;
    }
    g_started.notify_all();
    MSG message;
    while (hwnd && GetMessageW(&message, nullptr, 0, 0) > 0) {
        DispatchMessageW(&message);
    }
}

}  // namespace

WindowHandle FindWindowByTitle(const std::string& title) {
    return reinterpret_cast<WindowHandle>(FindWindowW(nullptr, WideFromUtf8(title).c_str()));
}

LRESULT SendWindowMessage(WindowHandle window, UINT message, WPARAM wParam, LPARAM lParam) {
    return IsWindow(HwndOf(window)) ? SendMessageW(HwndOf(window), message, wParam, lParam) : 0;
}

LRESULT SendCopyData(WindowHandle window, ULONG_PTR data, const std::string& text) {
    COPYDATASTRUCT copy{};
    copy.dwData = data;
    copy.cbData = static_cast<DWORD>(text.size() + 1);
    copy.lpData = const_cast<char*>(text.c_str());
    return SendWindowMessage(window, WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&copy));
}

CWindowRegistration::CWindowRegistration(const std::string& title, IWindowMessageSink& sink) {
    RegisterClassOnce();
    auto window = std::make_unique<Window>();
    window->title = title;
    window->sink = &sink;
    window->thread = std::thread([&window = *window] { RunWindow(window); });
    std::unique_lock guard(g_lock);
    g_started.wait(guard, [&] { return window->started; });
    m_handle = reinterpret_cast<WindowHandle>(window->hwnd);
    if (m_handle) {
        g_windows[m_handle] = std::move(window);
        return;
    }
    guard.unlock();
    window->thread.join();  // a session without windows: nobody will find this one
}

CWindowRegistration::~CWindowRegistration() {
    std::unique_ptr<Window> window;
    {
        const std::lock_guard guard(g_lock);
        const auto it = g_windows.find(m_handle);
        if (it == g_windows.end()) return;
        window = std::move(it->second);
        g_windows.erase(it);
    }
    // The thread ends with its window, after the message that is under way.
    PostMessageW(window->hwnd, CloseRequest, 0, 0);
    window->thread.join();
}
