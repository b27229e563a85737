#include <Platform/WindowMessages.h>

#include <strings.h>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>

namespace {

struct Window {
    std::string title;
    IWindowMessageSink* sink;
    unsigned underWay = 0;
};

std::mutex g_lock;
std::condition_variable g_idle;
std::map<WindowHandle, Window> g_windows;  // guarded by g_lock, as the next one
WindowHandle g_next = 1;

}  // namespace

WindowHandle FindWindowByTitle(const std::string& title) {
    const std::lock_guard guard(g_lock);
    // The youngest first, as a new window comes to the top; letter case does not count in titles.
    for (auto it = g_windows.rbegin(); it != g_windows.rend(); ++it) {
        if (::strcasecmp(it->second.title.c_str(), title.c_str()) == 0) return it->first;
    }
    return 0;
}

LRESULT SendWindowMessage(WindowHandle window, UINT message, WPARAM wParam, LPARAM lParam) {
    std::unique_lock guard(g_lock);
    const auto it = g_windows.find(window);
    if (it == g_windows.end()) return 0;
    IWindowMessageSink* sink = it->second.sink;
    ++it->second.underWay;
    guard.unlock();

    LRESULT answer = 0;
    try {
        answer = sink->OnWindowMessage(message, wParam, lParam);
    } catch (...) {
        // A fault of the receiver is not the sender's.
    }

    guard.lock();
    --it->second.underWay;  // the entry stands as long as a message is under way
    g_idle.notify_all();
    return answer;
}

LRESULT SendCopyData(WindowHandle window, ULONG_PTR data, const std::string& text) {
    COPYDATASTRUCT copy{};
    copy.dwData = data;
    copy.cbData = static_cast<DWORD>(text.size() + 1);
    copy.lpData = const_cast<char*>(text.c_str());
    return SendWindowMessage(window, WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&copy));
}

CWindowRegistration::CWindowRegistration(const std::string& title, IWindowMessageSink& sink) {
    const std::lock_guard guard(g_lock);
    m_handle = g_next++;
    g_windows[m_handle] = Window{title, &sink};
}

CWindowRegistration::~CWindowRegistration() {
    std::unique_lock guard(g_lock);
    const auto it = g_windows.find(m_handle);
    g_idle.wait(guard, [&] { return it->second.underWay == 0; });
    g_windows.erase(it);
}
