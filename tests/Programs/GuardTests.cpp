// Runs that would delete much are stopped before they do anything.
#include <Platform/Registry.h>
#include <Tools/INIQuerys.h>

#include "CommandFixture.h"

namespace {

class Guard : public CommandTest {
protected:
    void SetUp() override {
        CommandTest::SetUp();
        MakeStores();
        for (const char* folder : {"Home/A/Sub", "Office/B/Sub"})
            RunDone({"folder", "create", folder});
    }
    void Fill(const std::string& folder, int items) {
        for (int i = 0; i < items; ++i)
            RunDone({"item", "new", folder, "--subject", "Item " + std::to_string(100 + i)});
    }
    void Delete(const std::string& folder, int items) {
        for (int i = 0; i < items; ++i)
            RunDone({"item", "delete", folder, "Item " + std::to_string(100 + i)});
    }
    using Texts = std::vector<std::string>;
    std::size_t Count(const std::string& folder) { return Contents(folder).size(); }
};

TEST_F(Guard, MoreThanHalfAndAtLeastTenAreAskedFor) {
    Fill("Home/A", 21);
    RunDone({"pair", "add", "Home/A", "Office/B", "--delete", "--name", "ab"});
    RunDone({"sync"});
    Delete("Home/A", 11);
    RunDone({"item", "new", "Home/A", "--subject", "New"});
    ExpectRefusal({"sync", "--quiet", "ab", "--dry-run", "--mass-delete-share", "0"}, 2, {"range"});
    const CommandRun stopped = Run({"sync"});
    EXPECT_EQ(stopped.code, 4) << stopped.err;
    for (const char* word : {"11 of the 21 items", "\"B\"", "Nothing was changed", "--allow-mass-delete"})
        EXPECT_NE(stopped.err.find(word), std::string::npos) << stopped.err;
    EXPECT_EQ(Count("Office/B"), 21u) << "the new item stayed behind, too";
    const CommandRun timer = Run({"timer", "--seconds", "1", "--times", "2"});
    EXPECT_EQ(timer.code, 4) << timer.err;
    EXPECT_EQ(RunAsked({"sync"}, "no\n").code, 4);
    EXPECT_EQ(RunAsked({"timer", "--times", "1"}, "y\n").code, 4) << "a timer asks nobody";
    EXPECT_EQ(Count("Office/B"), 21u);
    const CommandRun asked = RunAsked({"sync"}, "y\n");
    EXPECT_EQ(asked.code, 0) << asked.err;
    EXPECT_NE(asked.err.find("11 of the 21 items"), std::string::npos) << asked.err;
    EXPECT_EQ(Contents("Office/B"), Contents("Home/A"));
    EXPECT_EQ(Count("Office/B"), 11u);

    RunDone({"item", "delete", "Home/A", "New"});
    Delete("Office/B", 0);
    for (int i = 111; i < 120; ++i)
        RunDone({"item", "delete", "Office/B", "Item " + std::to_string(i)});
    EXPECT_EQ(Run({"sync"}).code, 0) << "nine of ten are few";
    EXPECT_EQ(Count("Home/A"), 1u);
}

TEST_F(Guard, TheShareIsOfTheCommandOrOfTheInstallation) {
    Fill("Home/A", 20);
    RunDone({"pair", "add", "Home/A", "Office/B", "--delete"});
    RunDone({"sync"});
    Delete("Home/A", 10);
    EXPECT_EQ(Run({"sync", "--mass-delete-share", "49"}).code, 4);
    CRegistryKey key;
    ASSERT_EQ(key.Create(RegistryRoot::CurrentUser, "Software\\Ostrand\\Vellum"), ERROR_SUCCESS);
    key.WriteDword("MassDeleteGuard", 40);
    EXPECT_EQ(Run({"sync"}).code, 4);
    EXPECT_EQ(Run({"sync", "--mass-delete-share", "50"}).code, 0) << "half is not more than half";
    EXPECT_EQ(Count("Office/B"), 10u);
    key.WriteDword("MassDeleteGuard", 0);
    for (int i = 110; i < 120; ++i)
        RunDone({"item", "delete", "Home/A", "Item " + std::to_string(i)});
    EXPECT_EQ(Run({"sync"}).code, 0) << "switched off";
    EXPECT_EQ(Count("Office/B"), 0u);
}

// The folder that holds too much comes last, and all of them together hold it.
TEST_F(Guard, ATreeIsLookedAtAsAWhole) {
    Fill("Home/A", 12);
    Fill("Home/A/Sub", 6);
    RunDone({"folder", "create", "Home/A/New"});
    RunDone({"pair", "add", "Home/A", "Office/B", "--delete", "--create-subfolders"});
    RunDone({"sync"});
    RunDone({"folder", "create", "Home/A/Later"});
    RunDone({"item", "delete", "Home/A/Sub", "Item 100"});
    Delete("Home/A", 12);
    const CommandRun folder = Run({"sync", "--mass-delete-share", "80"});
    EXPECT_EQ(folder.code, 4) << folder.err;
    EXPECT_NE(folder.err.find("12 of the 12 items in \"Office\\B\""), std::string::npos) << folder.err;
    EXPECT_EQ(Count("Office/B/Sub"), 6u) << "nothing is done to the folders before it either";
    EXPECT_EQ(Run({"folder", "list", "Office/B/Later"}).code, 6);
    EXPECT_EQ(Run({"sync", "--allow-mass-delete"}).code, 0);

    Fill("Home/A", 6);
    RunDone({"sync"});
    Delete("Home/A", 6);
    for (int i = 101; i < 106; ++i)
        RunDone({"item", "delete", "Home/A/Sub", "Item " + std::to_string(i)});
    const CommandRun tree = Run({"sync"});
    EXPECT_EQ(tree.code, 4) << tree.err;
    EXPECT_NE(tree.err.find("11 of the 11 items in \"Office\\B\""), std::string::npos) << tree.err;
    EXPECT_EQ(Count("Office/B") + Count("Office/B/Sub"), 11u);
}

TEST_F(Guard, WhatIsGoneFromBothSidesIsNotCounted) {
    Fill("Home/A", 12);
    RunDone({"pair", "add", "Home/A", "Office/B", "--delete"});
    RunDone({"sync"});
    Delete("Home/A", 12);
    Delete("Office/B", 12);
    EXPECT_EQ(Run({"sync"}).code, 0);
}

// What was correct when the pair was made: a stored query that has gone since, and lists of other programs.
TEST_F(Guard, APairWhoseQueryDoesNotSelectIsStopped) {
    const std::string stored = JoinPath(ModuleDirectory(), kStoredQueryFile);
    ASSERT_TRUE(WriteFileDurably(stored, "name=High\nquery=Importance = 2\n"));
    for (const char* folder : {"Home/A", "Home/A/Sub"}) {
        RunDone({"item", "new", folder, "--subject", "High", "--set", "Importance=2"});
        RunDone({"item", "new", folder, "--subject", "Low", "--set", "Importance=0"});
    }
    RunDone(
        {"pair", "add", "Home/A", "Office/B", "--query", "High()", "--name", "ab", "--create-subfolders"});
    RemoveFile(stored);
    RunDone({"folder", "create", "Home/A/New"});
    for (const Texts& more : {Texts{}, Texts{"--dry-run"}, Texts{"--allow-mass-delete"}}) {
        Texts words = {"sync"};
        words.insert(words.end(), more.begin(), more.end());
        const CommandRun stopped = Run(words);
        EXPECT_EQ(stopped.code, 4) << stopped.err;
        for (const char* word :
             {"\"ab\"", "High()", "stored query", "Nothing was changed", "--query", "--ignore-bad-query"})
            EXPECT_NE(stopped.err.find(word), std::string::npos) << word << " in " << stopped.err;
    }
    EXPECT_EQ(Run({"timer", "--seconds", "1", "--times", "1"}).code, 4);
    EXPECT_EQ(RunAsked({"sync"}, "no\n").code, 4);
    EXPECT_EQ(Count("Office/B") + Count("Office/B/Sub"), 0u);
    EXPECT_EQ(Run({"folder", "list", "Office/B/New"}).code, 6)
        << "nothing is done to the folders before it either";
    RunDone({"pair", "edit", "ab", "--delete"});
    EXPECT_EQ(Run({"sync", "--ignore-bad-query"}).code, 0);
    EXPECT_EQ(Count("Office/B") + Count("Office/B/Sub"), 4u);
    RunDone({"settings", "set", "query-guard", "0"});
    EXPECT_EQ(Run({"sync"}).code, 0);
}

}  // namespace
