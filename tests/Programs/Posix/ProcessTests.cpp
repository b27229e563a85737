// What only several processes can show.
#include <Platform/Clock.h>
#include <Platform/Machine.h>
#include <Programs/vellum/Session/ProfileSession.h>
#include <Tarn/Dispatch/PairLock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <set>

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
        m_session = std::make_unique<CProfileSession>("");
    }
    void TearDown() override {
        m_session.reset();
        CommandTest::TearDown();
    }
    CTarnSetting Pair(const std::string& source, const std::string& target) {
        CTarnSetting pair;
        pair.m_sourceKey = m_session->OpenFolder(source).Key();
        pair.m_targetKey = m_session->OpenFolder(target).Key();
        return pair;
    }
    LockAnswer Take(CPairLock& lock, const CTarnSetting& pair) {
        std::string holder;
        return lock.Take(m_session->Mapi(), pair, {}, nullptr, holder);
    }
    std::unique_ptr<CProfileSession> m_session;
};

TEST_F(Processes, APairThatIsRunByAnotherProcessIsRefusedOrWaitedFor) {
    RunDone({"item", "new", "Home/A", "--subject", "One"});
    RunDone({"pair", "add", "Home/A", "Office/B", "--name", "ab"});
    RunDone({"pair", "add", "Home/C", "Office/D", "--name", "cd"});
    RunDone({"pair", "add", "Home/E", "Office/B", "--name", "eb"});
    CPairLock lock;
    ASSERT_EQ(Take(lock, Pair("Home/A", "Office/B")), LockAnswer::Taken);

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
    CChildProcess remover(PathOf(""), "remover", {"store", "remove", "Office", "--force"});
    EXPECT_EQ(remover.Wait(), 3);
    EXPECT_NE(remover.Err().find("in use: process "), std::string::npos) << remover.Err();
    lock.Release();
    EXPECT_EQ(patient.Wait(), 0) << patient.Err();
    EXPECT_EQ(sharing.Wait(), 0) << sharing.Err();
    EXPECT_EQ(Contents("Office/B"), Texts{"One="});
}

TEST_F(Processes, StoresThatAreCreatedAtOnceHaveTheirOwnNames) {
    std::vector<std::unique_ptr<CChildProcess>> children;
    for (int i = 0; i < 8; ++i) {
        const std::string name = "S" + std::to_string(i / 2 * 2);
        children.push_back(
            std::make_unique<CChildProcess>(PathOf(""), std::to_string(i), Texts{"store", "create", name}));
    }
    for (int i = 0; i < 8; i += 2) {
        const std::set<int> codes{children[i]->Wait(), children[i + 1]->Wait()};
        EXPECT_EQ(codes, (std::set<int>{0, 2})) << children[i]->Err() << children[i + 1]->Err();
    }
    Texts names;
    for (const Json& store : RunJson({"store", "list"}))
        names.push_back(store["name"]);
    EXPECT_EQ(names, (Texts{"Home", "Office", "S0", "S2", "S4", "S6"}));
}

// Whoever removes or edits a pair may clear its folders next; a run that waited would carry that.
TEST_F(Processes, WhatWaitedIsNotRunAsTheListWas) {
    RunDone({"item", "new", "Home/A", "--subject", "One"});
    RunDone({"pair", "add", "Home/A", "Office/B", "--name", "ab"});
    RunDone({"pair", "add", "Home/C", "Office/D", "--name", "cd"});
    CPairLock ab, cd;
    ASSERT_EQ(Take(ab, Pair("Home/A", "Office/B")), LockAnswer::Taken);
    ASSERT_EQ(Take(cd, Pair("Home/C", "Office/D")), LockAnswer::Taken);
    CChildProcess changed(PathOf(""), "changed", {"sync", "ab", "--wait"});
    CChildProcess removed(PathOf(""), "removed", {"sync", "cd", "--wait"});
    CChildProcess timer(PathOf(""), "timer", {"timer", "cd", "--seconds", "1"});
    for (CChildProcess* child : {&changed, &removed, &timer})
        for (int i = 0; i < 200 && child->Err().find("waits for") == std::string::npos; ++i)
            SleepMs(50);
    RunDone({"pair", "edit", "ab", "--query", "Subject = Two"});
    RunDone({"pair", "remove", "cd"});
    ab.Release();
    cd.Release();
    EXPECT_EQ(changed.Wait(), 2);
    EXPECT_NE(changed.Err().find("changed meanwhile: not run"), std::string::npos) << changed.Err();
    EXPECT_EQ(removed.Wait(), 2);
    EXPECT_NE(removed.Err().find("removed meanwhile: not run"), std::string::npos) << removed.Err();
    EXPECT_EQ(timer.Wait(), 2);
    EXPECT_NE(timer.Err().find("no pair \"cd\" any more"), std::string::npos) << timer.Err();
    EXPECT_EQ(Contents("Office/B"), Texts{});
}

// A folder below is held by its own pair, and the other way round.
TEST_F(Processes, ATreeWaitsForWhatIsRunBelowItAndThatForTheTree) {
    for (const char* folder : {"Home/A/S", "Home/A/S/T"})
        RunDone({"folder", "create", folder});
    RunDone({"item", "new", "Home/A/S/T", "--subject", "One"});
    RunDone({"pair", "add", "Home/A", "Office/B", "--create-subfolders", "--name", "tree"});
    RunDone({"pair", "add", "Home/A/S/T", "Office/D", "--no-subfolders", "--name", "below"});
    CPairLock lock;
    ASSERT_EQ(Take(lock, Pair("Home/A/S/T", "Home/C")), LockAnswer::Taken);
    CChildProcess tree(PathOf(""), "tree", {"sync", "tree"});
    CChildProcess bounded(PathOf(""), "bounded", {"sync", "tree", "--wait", "1"});
    EXPECT_EQ(bounded.Wait(), 3) << bounded.Err();
    EXPECT_NE(bounded.Err().find("process " + std::to_string(static_cast<unsigned>(ProcessId()))),
              std::string::npos)
        << bounded.Err();
    EXPECT_TRUE(tree.Runs()) << tree.Err();
    EXPECT_EQ(Contents("Office/B"), Texts{});
    lock.Release();
    EXPECT_EQ(tree.Wait(), 0) << tree.Err();
    EXPECT_EQ(Contents("Office/B/S/T"), Texts{"One="});

    CTarnSetting whole = Pair("Home/A", "Office/B");
    whole.m_flags = SYNC_SUBFOLDERS;
    ASSERT_EQ(Take(lock, whole), LockAnswer::Taken);
    EXPECT_EQ(Run({"sync", "below", "--wait", "0"}).code, 3);
    lock.Release();
    EXPECT_EQ(Run({"sync", "below", "--wait", "0"}).code, 0);
}

TEST_F(Processes, ALockDiesWithItsProcess) {
    RunDone({"pair", "add", "Home/A", "Office/B", "--name", "ab"});
    const auto id = [&](const std::string& folder) {
        const CMapiBinary entryId = m_session->OpenFolder(folder).entryId;
        return std::string(reinterpret_cast<const char*>(entryId.Bin().lpb), entryId.Count());
    };
    const CClaim claim{{CClaimedFolder{id("Home/A"), {}}, CClaimedFolder{id("Office/B"), {}}}, false};
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        std::string holder;
        CFolderClaims claims(JoinPath(DataDirectory(), "locks"));
        const char answer = claims.Take(claim, holder) == ClaimAnswer::Taken ? '+' : '-';
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

// The program itself, in a process of its own, as a person leaves it running.
TEST_F(Processes, WatchHearsOfTheWholeTreeAndComesToRest) {
    RunDone({"folder", "create", "Home/A/Sub"});
    RunDone({"item", "new", "Home/A/Sub", "--subject", "Old"});
    RunDone({"pair", "add", "Home/A", "Office/B", "--delete", "--create-subfolders", "--name", "ab"});
    CChildProcess watch(PathOf(""), "watch", {"watch", "ab", "--trace", PathOf("trace")});
    // Nothing is opened: what is listed may be gone a moment later.
    const auto becomes = [&](const std::string& folder, const std::set<std::string>& wanted) {
        for (int i = 0; i < 200; ++i) {
            const CommandRun list = Run({"item", "list", folder, "--json"});
            std::set<std::string> subjects;
            if (list.code == 0)
                for (const Json& item : list.Data())
                    subjects.insert(item["subject"]);
            if (list.code == 0 && subjects == wanted) return true;
            SleepMs(50);
        }
        return false;
    };
    EXPECT_TRUE(becomes("Office/B/Sub", {"Old"})) << "by the run at the beginning: " << watch.Err();
    RunDone({"item", "delete", "Home/A/Sub", "Old"});
    EXPECT_TRUE(becomes("Office/B/Sub", {})) << "a deletion: " << watch.Err();
    RunDone({"folder", "create", "Home/A/Sub/Later"});
    for (int i = 0; i < 5; ++i)
        RunDone({"item", "new", "Home/A/Sub/Later", "--subject", "N" + std::to_string(i)});
    EXPECT_TRUE(becomes("Office/B/Sub/Later", {"N0", "N1", "N2", "N3", "N4"})) << watch.Err();
    RunDone({"item", "move", "Office/B/Sub/Later", "N3", "--to", "Office/D"});
    EXPECT_TRUE(becomes("Home/A/Sub/Later", {"N0", "N1", "N2", "N4"})) << "a move out: " << watch.Err();

    const auto traced = [&] {
        std::string trace;
        ReadFileBytes(PathOf("trace"), trace);
        return trace.size();
    };
    std::size_t before = 0;
    for (int i = 0; i < 20 && before != traced(); ++i) {
        before = traced();
        SleepMs(1500);
    }
    EXPECT_EQ(before, traced()) << "its own changes do not start it over and over";
    EXPECT_TRUE(watch.Runs());
    watch.Signal(SIGINT);
    EXPECT_EQ(watch.Wait(), 0) << watch.Err();
    EXPECT_NE(watch.Err().find("Watching has ended."), std::string::npos) << watch.Err();
}

TEST_F(Processes, WatchEndsWhereTheFileOfAStoreIsMovedAway) {
    RunDone({"pair", "add", "Home/A", "Office/B", "--name", "ab"});
    CChildProcess watch(PathOf(""), "watch", {"watch", "ab"});
    for (int i = 0; i < 400 && watch.Err().find("Watching 1") == std::string::npos; ++i)
        SleepMs(50);
    SleepMs(2500);
    EXPECT_TRUE(watch.Runs()) << watch.Err();
    const std::string file = JoinPath(DataDirectory(), "profiles/me/store2.vst");
    ASSERT_TRUE(RenameFile(file, PathOf("away.vst")));
    EXPECT_EQ(watch.Wait(), 6);
    EXPECT_NE(watch.Err().find("\"Office\" was moved away or replaced"), std::string::npos) << watch.Err();
}

// What others do to the list while a watcher runs.
TEST_F(Processes, WatchFollowsTheListAndTriesAgainWhatFailed) {
    RunDone({"folder", "create", "Home/Late"});
    RunDone({"pair", "add", "Home/A", "Office/B", "--continuous-to", "--name", "ab"});
    RunDone({"pair", "add", "Home/C", "Office/D", "--name", "cd"});
    CChildProcess watch(PathOf(""), "watch", {"watch"});
    const auto becomes = [&](const std::string& folder, const Texts& wanted) {
        for (int i = 0; i < 400; ++i, SleepMs(50))
            if (Contents(folder) == wanted) return true;
        return false;
    };
    const auto says = [&](const std::string& text) {
        for (int i = 0; i < 400; ++i, SleepMs(50))
            if (watch.Err().find(text) != std::string::npos) return true;
        return false;
    };
    EXPECT_TRUE(says("Watching 1 pair(s)"));
    RunDone({"pair", "edit", "cd", "--continuous-to"});
    EXPECT_TRUE(says("\"cd\" is watched too")) << watch.Err();
    RunDone({"item", "new", "Home/C", "--subject", "Two"});
    EXPECT_TRUE(becomes("Office/D", {"Two="})) << watch.Err();
    RunDone({"pair", "edit", "ab", "--query", "Subject = Wanted"});
    EXPECT_TRUE(says("\"ab\" has been changed")) << watch.Err();
    RunDone({"item", "new", "Home/A", "--subject", "Unwanted"});
    RunDone({"item", "new", "Home/A", "--subject", "Wanted"});
    EXPECT_TRUE(becomes("Office/B", {"Wanted="})) << watch.Err();
    RunDone({"pair", "remove", "cd"});
    EXPECT_TRUE(says("\"cd\" is not watched any more")) << watch.Err();
    RunDone({"pair", "add", "Home/E", "Home/Late", "--continuous-to", "--name", "el"});
    EXPECT_TRUE(says("\"el\" is watched too")) << watch.Err();
    RunDone({"folder", "remove", "Home/Late", "--force"});
    RunDone({"item", "new", "Home/E", "--subject", "Three"});
    EXPECT_TRUE(says("cannot be opened")) << watch.Err();
    EXPECT_TRUE(watch.Runs());
    RunDone({"item", "new", "Home/A", "--subject", "Wanted"});
    EXPECT_TRUE(becomes("Office/B", {"Wanted=", "Wanted="})) << "a pair that fails costs the others nothing";
    watch.Signal(SIGINT);
    EXPECT_EQ(watch.Wait(), 0) << watch.Err();
}

TEST_F(Processes, AStoreThatCannotBeWrittenIsNamedThoughThereIsNothingToDo) {
    namespace fs = std::filesystem;
    constexpr uid_t nobody = 65534;
    RunDone({"store", "create", "List"});
    RunDone({"store", "default", "List"});
    RunDone({"pair", "add", "Home/A", "Office/B", "--name", "ab"});
    RunDone({"sync"});
    m_session.reset();
    for (const auto& entry : fs::recursive_directory_iterator(PathOf("")))
        ASSERT_TRUE(geteuid() != 0 || ::chown(entry.path().c_str(), nobody, nobody) == 0);
    for (const auto& entry : fs::recursive_directory_iterator(PathOf("base")))
        if (entry.path().filename() == "store1.vst") fs::permissions(entry.path(), fs::perms(0400));
    CChildProcess sync(PathOf(""), "sync", {"sync", "--trace", PathOf("base/trace")},
                       geteuid() == 0 ? nobody : 0);
    EXPECT_EQ(sync.Wait(), 1) << sync.Err();
    EXPECT_NE(sync.Err().find("\"Home\" cannot be written: there is no permission"), std::string::npos)
        << sync.Err();
    EXPECT_EQ(fs::status(PathOf("base/trace")).permissions(), fs::perms(0600));
}

TEST(Soak, ThreeProcessesAgreeInTheEnd) {
    const std::string line = std::string("bash \"") + VELLUM_SOAK + "\" 15 \"" + VELLUM_PROGRAM + "\"";
    EXPECT_EQ(std::system(line.c_str()), 0);
}

}  // namespace
