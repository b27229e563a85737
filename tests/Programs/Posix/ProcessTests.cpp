// What only several processes can show.
#include <Platform/Clock.h>
#include <Platform/Machine.h>
#include <Programs/vellum/Session/ProfileSession.h>
#include <Programs/vellum/Sync/PairLock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "../CommandFixture.h"
#include "ChildProcess.h"

namespace {

class Processes : public CommandTest {
protected:
    using Texts = std::vector<std::string>;
    void SetUp() override {
        CommandTest::SetUp();
        MakeStores();
        for (const char* folder : {"Home/A", "Home/C", "Home/E", "Office/B", "Office/D"})
            RunDone({"folder", "create", folder});
    }
    CTarnSetting Pair(const std::string& source, const std::string& target) {
        CProfileSession session("");
        CTarnSetting pair;
        pair.m_sourceKey = session.OpenFolder(source).Key();
        pair.m_targetKey = session.OpenFolder(target).Key();
        return pair;
    }
};

TEST_F(Processes, APairThatIsRunByAnotherProcessIsRefusedOrWaitedFor) {
    RunDone({"item", "new", "Home/A", "--subject", "One"});
    RunDone({"pair", "add", "Home/A", "Office/B", "--name", "ab"});
    RunDone({"pair", "add", "Home/C", "Office/D", "--name", "cd"});
    RunDone({"pair", "add", "Home/E", "Office/B", "--name", "eb"});
    std::string holder;
    CPairLock lock;
    ASSERT_EQ(lock.Take("me", Pair("Home/A", "Office/B"), {}, holder), LockAnswer::Taken);

    CChildProcess refused(PathOf(""), "refused", {"sync", "ab"});
    CChildProcess patient(PathOf(""), "patient", {"sync", "--wait", "ab"});
    CChildProcess impatient(PathOf(""), "impatient", {"sync", "ab", "--wait", "1"});
    CChildProcess interrupted(PathOf(""), "interrupted", {"sync", "ab", "--wait"});
    CChildProcess sharing(PathOf(""), "sharing", {"sync", "eb"});
    CChildProcess apart(PathOf(""), "apart", {"sync", "cd"});
    EXPECT_EQ(refused.Wait(), 3);
    for (const std::string& word : {"process " + std::to_string(static_cast<unsigned>(ProcessId())),
                                    " on " + ComputerName(), std::string("since 20"), std::string("--wait")})
        EXPECT_NE(refused.Err().find(word), std::string::npos) << refused.Err();
    EXPECT_EQ(apart.Wait(), 0) << apart.Err();
    EXPECT_EQ(impatient.Wait(), 3) << impatient.Err();
    EXPECT_NE(impatient.Err().find("waits for another run: process "), std::string::npos);
    interrupted.Signal(SIGINT);
    EXPECT_EQ(interrupted.Wait(), 5) << interrupted.Err();
    EXPECT_TRUE(patient.Runs());
    EXPECT_TRUE(sharing.Runs()) << "one folder is not written to by two runs";
    EXPECT_EQ(Contents("Office/B"), Texts{});
    lock = CPairLock();
    EXPECT_EQ(patient.Wait(), 0) << patient.Err();
    EXPECT_EQ(sharing.Wait(), 0) << sharing.Err();
    EXPECT_EQ(Contents("Office/B"), Texts{"One="});
}

TEST_F(Processes, ALockDiesWithItsProcess) {
    RunDone({"pair", "add", "Home/A", "Office/B", "--name", "ab"});
    const CTarnSetting pair = Pair("Home/A", "Office/B");
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        std::string holder;
        CPairLock lock;
        const char answer = lock.Take("me", pair, {}, holder) == LockAnswer::Taken ? '+' : '-';
        if (::write(ready[1], &answer, 1) != 1) ::_exit(1);
        ::pause();
    }
    char answer = 0;
    ASSERT_EQ(::read(ready[0], &answer, 1), 1);
    ASSERT_EQ(answer, '+');
    const CommandRun busy = Run({"sync"});
    EXPECT_EQ(busy.code, 3);
    EXPECT_NE(busy.err.find("process " + std::to_string(child) + " on "), std::string::npos) << busy.err;
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    EXPECT_EQ(Run({"sync"}).code, 0);
    ::close(ready[0]);
    ::close(ready[1]);
}

}  // namespace
