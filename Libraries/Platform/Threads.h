// Threads with the two things that std::thread does not tell: a priority, and COM on Windows.
#pragma once
#include <functional>
#include <thread>

enum class ThreadPriority { Normal, Lowest };

// Starts `body` on a thread. The body must not let an exception out. On Windows the thread initialises
// and leaves MAPI's COM apartment by itself.
std::thread StartThread(std::function<void()> body, ThreadPriority priority = ThreadPriority::Normal);
