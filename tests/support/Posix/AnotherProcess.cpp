#include <gtest/gtest.h>
#include <support/AnotherProcess.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iterator>
#include <thread>

namespace {
constexpr unsigned kLongestSeconds = 300;

// The thread that looks out for other processes may outlive the store's last user by a moment. A lock that it
// holds while the process is copied would never be released in the copy.
void AwaitOnlyThread() {
    namespace fs = std::filesystem;
    const fs::path threads = "/proc/self/task";
    std::error_code none;
    for (int tries = 0; tries < 5000 && fs::exists(threads, none); ++tries) {
        if (std::distance(fs::directory_iterator(threads), fs::directory_iterator()) == 1) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}
}  // namespace

bool DiesInAnotherProcess(const std::function<void()>& body) {
    AwaitOnlyThread();
    const pid_t child = ::fork();
    EXPECT_GE(child, 0);
    if (child == 0) {
        ::alarm(kLongestSeconds);
        body();
        ::_exit(0);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "the copy did not come to its end";
    return WEXITSTATUS(status) != 0;
}

void LeaveProcess() {
    ::_exit(1);
}
