// A lock between two processes, and after the death of one.
#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

TEST(LockTest, ItIsRefusedToAnotherProcessAndFreeAfterDeath) {
    const std::string path = JoinPath(DataDirectory(), "pair.lock");
    int ready[2];
    ASSERT_EQ(0, ::pipe(ready));
    const pid_t child = ::fork();
    if (child == 0) {
        CProcessLock lock;
        std::string holder;
        const char taken = lock.TryLock(path, "the child", holder) ? 'y' : 'n';
        [[maybe_unused]] const ssize_t n = ::write(ready[1], &taken, 1);
        for (;;) {
            ::pause();
        }
    }
    char taken = 0;
    ASSERT_EQ(1, ::read(ready[0], &taken, 1));
    EXPECT_EQ('y', taken);

    CProcessLock lock;
    std::string holder;
    EXPECT_FALSE(lock.TryLock(path, "the parent", holder, 50));
    EXPECT_EQ("the child", holder);
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    EXPECT_TRUE(lock.TryLock(path, "the parent", holder));
    ::close(ready[0]);
    ::close(ready[1]);
}
