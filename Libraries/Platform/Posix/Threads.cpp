#include <Platform/Threads.h>

#include <sys/resource.h>
#include <unistd.h>

std::thread StartThread(std::function<void()> body, ThreadPriority priority) {
    FailThreadStartIfAsked();
    return std::thread([body = std::move(body), priority] {
        // On this system a thread has a nice value of its own.
        if (priority == ThreadPriority::Lowest) ::setpriority(PRIO_PROCESS, ::gettid(), 19);
        body();
    });
}
