// Threads with the two things that std::thread does not tell: a priority, and COM on Windows.
#pragma once
#include <atomic>
#include <functional>
#include <system_error>
#include <thread>

enum class ThreadPriority { Normal, Lowest };

// Starts `body` on a thread. The body must not let an exception out. On Windows the thread initialises
// and leaves COM by itself. Throws std::system_error where the system gives no thread.
std::thread StartThread(std::function<void()> body, ThreadPriority priority = ThreadPriority::Normal);

// So many starts to come fail as if the system had no thread. For tests.
inline std::atomic<unsigned> g_threadStartsToFail{0};
inline void FailThreadStartIfAsked() {
    if (g_threadStartsToFail == 0) return;
    --g_threadStartsToFail;
    throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
}
