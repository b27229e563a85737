#include <gtest/gtest.h>
#include <support/AnotherProcess.h>
#include <sys/wait.h>
#include <unistd.h>

bool DiesInAnotherProcess(const std::function<void()>& body) {
    const pid_t child = ::fork();
    EXPECT_GE(child, 0);
    if (child == 0) {
        body();
        ::_exit(0);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    return WEXITSTATUS(status) != 0;
}

void LeaveProcess() {
    ::_exit(1);
}
