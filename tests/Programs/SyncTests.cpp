// Pairs and runs.
#include <Programs/vellum/Console/Interrupt.h>
#include <Programs/vellum/Console/ProgressLine.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Items/FolderItems.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "CommandFixture.h"

namespace {

class Pairs : public CommandTest {
protected:
    void SetUp() override {
        CommandTest::SetUp();
        MakeStores();
        RunDone({"folder", "create", "Home/A"});
        RunDone({"folder", "create", "Office/B"});
    }
    using Texts = std::vector<std::string>;
};

TEST_F(Pairs, EveryOptionIsKeptAndCanBeTakenBack) {
    const Texts names = {"delete", "subfolders", "create-subfolders", "strip-private", "skip-private",
                         "renew",  "at-start",   "at-shutdown",       "continuous-to", "continuous-from"};
    RunDone({"pair", "add", "Home/A", "Office/B"});
    Json plain = RunJson({"pair", "show", "A"});
    EXPECT_EQ(plain["direction"], "both");
    EXPECT_EQ(plain["active"], true);
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        std::string key = name;
        for (char& c : key)
            if (c == '-') c = '_';
        EXPECT_EQ(plain[key], false);
        RunDone({"pair", "edit", "A", "--" + name});
        EXPECT_EQ(RunJson({"pair", "show", "A"})[key], true);
        RunDone({"pair", "edit", "A", "--no-" + name});
        EXPECT_EQ(RunJson({"pair", "show", "A"})[key], false);
        if (name == "create-subfolders") RunDone({"pair", "edit", "A", "--no-subfolders"});
    }
    EXPECT_EQ(RunJson({"pair", "show", "A"}), plain);
    for (const char* direction : {"to-target", "from-target", "both"}) {
        RunDone({"pair", "edit", "1", std::string("--") + direction, "--inactive", "--new-only"});
        const Json pair = RunJson({"pair", "show", "Home\\A"});
        EXPECT_EQ(pair["direction"], direction);
        EXPECT_EQ(pair["active"], false);
        EXPECT_EQ(pair["new_only"], true);
    }
    EXPECT_NE(Run({"pair", "edit", "A", "--query", "not Private = true"}).err.find("counts as 0"),
              std::string::npos);
    RunDone({"pair", "edit", "A", "--query", "Importance = 2", "--name", "important"});
    EXPECT_EQ(RunJson({"pair", "show", "important"})["query"], "Importance = 2");
    RunDone({"pair", "edit", "important", "--query", ""});
    EXPECT_EQ(RunJson({"pair", "show", "important"})["query"], "");
    RunDone({"pair", "remove", "important"});
    EXPECT_EQ(RunJson({"pair", "list"}), Json::array());
}

TEST_F(Pairs, WhatCannotWorkIsRefusedAndChangesNothing) {
    RunDone({"folder", "create", "Home/A/Sub"});
    RunDone({"folder", "create", "Home/C"});
    RunDone({"pair", "add", "Home/A", "Office/B", "--name", "first"});
    const Json before = Snapshot();
    ExpectRefusal({"pair", "add", "Home/A", "Home/A"}, 2, {"same folder", "Home\\A"});
    ExpectRefusal({"pair", "add", "Home/A", "Home/C"}, 2, {"already the source", "\"first\""});
    ExpectRefusal({"pair", "add", "Office/B", "Home/A"}, 2, {"\"first\"", "in step already"});
    ExpectRefusal({"pair", "add", "Home/C", "Office/B", "--name", "first"}, 2, {"\"first\" already"});
    ExpectRefusal({"pair", "add", "Home/C", "Office/B", "--name", "7"}, 2, {"\"7\"", "mere number"});
    ExpectRefusal({"pair", "add", "Home/C", "Office/B", "--name", "a;b"}, 2, {"semicolon"});
    ExpectRefusal({"pair", "add", "Home/C", "Office/Nowhere"}, 6, {"no folder \"Nowhere\""});
    ExpectRefusal({"pair", "add", "Home/C", "Cellar/B"}, 6, {"no store \"Cellar\""});
    ExpectRefusal({"pair", "add", "Home/C", "Office/B", "--query", "Subject = = 3"}, 2,
                  {"Subject = = 3", "^"});
    ExpectRefusal({"pair", "add", "Home/C", "Office/B", "--query", "order by Subject"}, 2, {"no condition"});
    ExpectRefusal({"pair", "add", "Home/C", "Office/B", "--query", "a;b"}, 2, {"semicolons"});
    ExpectRefusal({"pair", "edit", "first", "--query", "Subject = \"a"}, 2, {"quote is not closed"});
    ExpectRefusal({"pair", "add", "Home/C", "Office/B", "--query",
                   "select Subject from \"Home\\C\" where Importance = 2"},
                  2, {"leave out \"from"});
    ExpectRefusal({"pair", "edit", "first", "--query", "select Subject from"}, 2, {"names a folder"});
    ExpectRefusal({"pair", "add", "Home/C", "Office/B", "--query", "size Subject > 3"}, 6, {"MessageSize"});
    ExpectRefusal({"pair", "add", "Home/C", "Office/B", "--both", "--to-target"}, 2, {"--both"});
    ExpectRefusal({"pair", "add", "Home/C", "Office/B", "--delete", "--new-only"}, 2,
                  {"--new-only", "deleted"});
    ExpectRefusal({"pair", "add", "Home/C", "Home", "--subfolders"}, 2, {"lies in the other"});
    ExpectRefusal({"pair", "edit", "first", "--query", "not ("}, 2, {"^"});
    ExpectRefusal({"pair", "edit", "first"}, 2, {"what to change"});
    ExpectRefusal({"pair", "edit", "second", "--delete"}, 2, {"no pair \"second\"", "There are: first"});
    ExpectRefusal({"pair", "remove", "9"}, 2, {"no pair \"9\""});
    ExpectRefusal({"sync", "second"}, 2, {"no pair \"second\""});
    ExpectRefusal({"store", "remove", "Office"}, 4, {"first", "--force"});
    EXPECT_EQ(Snapshot(), before);
}

TEST_F(Pairs, RunsCarryNewChangedAndDeletedItems) {
    RunDone({"item", "new", "Home/A", "--subject", "One", "--body", "1"});
    RunDone({"item", "new", "Home/A", "--subject", "Two", "--body", "2"});
    RunDone({"item", "new", "Office/B", "--subject", "Three", "--body", "3"});
    RunDone({"pair", "add", "Home/A", "Office/B", "--delete", "--name", "ab"});
    const Json first = RunJson({"sync"});
    ASSERT_EQ(first.size(), 1u);
    EXPECT_EQ(first[0]["name"], "ab");
    EXPECT_EQ(first[0]["protocol"].size(), 3u);
    for (const Json& entry : first[0]["protocol"])
        EXPECT_EQ(entry["direction"], entry["subject"] == "Three" ? "to-source" : "to-target");
    EXPECT_EQ(first[0]["source_changed"], 1);
    EXPECT_EQ(first[0]["target_changed"], 2);
    EXPECT_EQ(Contents("Home/A"), (Texts{"One=1", "Three=3", "Two=2"}));
    EXPECT_EQ(Contents("Office/B"), Contents("Home/A"));
    EXPECT_EQ(Run({"sync", "--ext-exit"}).code, 0);

    RunDone({"item", "set", "Office/B", "One", "--body", "1 changed"});
    RunDone({"item", "delete", "Home/A", "Two"});
    const CommandRun second = Run({"sync", "ab", "--ext-exit"});
    EXPECT_EQ(second.code, 32 + 64) << second.err;
    EXPECT_NE(second.out.find("changed"), std::string::npos) << second.out;
    EXPECT_NE(second.out.find("deleted"), std::string::npos) << second.out;
    EXPECT_EQ(Contents("Home/A"), (Texts{"One=1 changed", "Three=3"}));
    EXPECT_EQ(Contents("Office/B"), Contents("Home/A"));

    RunDone({"item", "set", "Home/A", "Three", "--body", "3 changed"});
    EXPECT_EQ(Run({"sync", "ab", "--ext-exit"}).code, 64);
    const CommandRun idle = Run({"sync", "ab"});
    EXPECT_NE(idle.out.find("nothing to do"), std::string::npos) << idle.out;
}

TEST_F(Pairs, OnlyChosenPairsRun) {
    RunDone({"folder", "create", "Home/C"});
    RunDone({"folder", "create", "Office/D"});
    RunDone({"pair", "add", "Home/A", "Office/B", "--inactive", "--name", "ab"});
    RunDone({"pair", "add", "Home/C", "Office/D", "--at-start", "--name", "cd"});
    const auto names = [&](Texts words) {
        words.insert(words.begin(), "sync");
        Texts found;
        for (const Json& result : RunJson(words))
            found.push_back(result["name"]);
        return found;
    };
    EXPECT_EQ(names({}), (Texts{"cd"}));
    EXPECT_EQ(names({"--all"}), (Texts{"ab", "cd"}));
    EXPECT_EQ(names({"--at-start"}), (Texts{"cd"}));
    EXPECT_EQ(names({"--at-shutdown"}), Texts{});
    EXPECT_EQ(names({"ab", "1", "Home/A"}), (Texts{"ab"}));
}

TEST_F(Pairs, SubfoldersAreNamedOrCreated) {
    RunDone({"folder", "create", "Home/A/Sub"});
    RunDone({"item", "new", "Home/A/Sub", "--subject", "Deep", "--body", "d"});
    RunDone({"pair", "add", "Home/A", "Office/B", "--subfolders"});
    const CommandRun run = Run({"sync"});
    EXPECT_EQ(run.code, 0);
    EXPECT_NE(run.err.find("Sub"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("--create-subfolders"), std::string::npos) << run.err;
    RunDone({"pair", "edit", "A", "--create-subfolders"});
    RunDone({"sync"});
    EXPECT_EQ(Contents("Office/B/Sub"), Texts{"Deep=d"});
}

TEST_F(Pairs, AMissingFolderHasACodeOfItsOwn) {
    RunDone({"pair", "add", "Home/A", "Office/B", "--name", "ab"});
    EXPECT_EQ(Run({"sync"}).code, 0);
    RunDone({"folder", "remove", "Office/B", "--force"});
    const CommandRun gone = Run({"sync"});
    EXPECT_EQ(gone.code, 6);
    EXPECT_NE(gone.err.find("Office\\B"), std::string::npos) << gone.err;
    EXPECT_NE(gone.err.find("\"ab\""), std::string::npos) << gone.err;
}

TEST_F(Pairs, DryRunTellsWhatTheRunThenDoes) {
    RunDone({"item", "new", "Home/A", "--subject", "One", "--body", "1"});
    RunDone({"item", "new", "Home/A", "--subject", "Two", "--body", "2"});
    RunDone({"pair", "add", "Home/A", "Office/B", "--delete", "--create-subfolders"});
    RunDone({"sync"});
    RunDone({"item", "set", "Home/A", "One", "--body", "1 changed"});
    RunDone({"item", "delete", "Office/B", "Two"});
    RunDone({"folder", "create", "Office/B/Sub/Below"});
    RunDone({"item", "new", "Office/B/Sub/Below", "--subject", "Four"});
    RunDone({"item", "new", "Office/B", "--subject", "Three", "--body", "3"});
    const Json before = Snapshot();
    const auto states = [](const Json& results) {
        Texts found;
        for (const Json& entry : results[0]["protocol"])
            found.push_back(entry["state"].get<std::string>() + " " + entry["subject"].get<std::string>());
        std::sort(found.begin(), found.end());
        return found;
    };
    const Texts planned = states(RunJson({"sync", "--dry-run"}));
    EXPECT_EQ(planned, (Texts{"changed One", "deleted Two", "new Four", "new Three"}));
    EXPECT_EQ(Snapshot(), before);
    EXPECT_EQ(states(RunJson({"sync"})), planned);
    EXPECT_EQ(Contents("Home/A"), (Texts{"One=1 changed", "Three=3"}));
}

TEST_F(Pairs, TraceGoesToItsFileAndOnlyThere) {
    RunDone({"item", "new", "Home/A", "--subject", "One"});
    RunDone({"pair", "add", "Home/A", "Office/B"});
    RunDone({"sync", "--trace", PathOf("trace.txt"), "--quiet"});
    std::string trace;
    ASSERT_TRUE(ReadFileBytes(PathOf("trace.txt"), trace));
    EXPECT_EQ(trace.rfind("Vellum: ", 0), 0u) << trace.substr(0, 80);
    EXPECT_NE(trace.find("One"), std::string::npos);
    const std::size_t cb = trace.size();
    RunDone({"sync"});
    ASSERT_TRUE(ReadFileBytes(PathOf("trace.txt"), trace));
    EXPECT_EQ(trace.size(), cb);
    ExpectRefusal({"sync", "--trace", PathOf("no/where.txt")}, 6, {"where.txt"});
}

TEST_F(Pairs, RenewAndQueryAndDirectionReachTheRun) {
    RunDone({"item", "new", "Home/A", "--subject", "Low", "--body", "l", "--set", "Importance=0"});
    RunDone({"item", "new", "Home/A", "--subject", "High", "--body", "h", "--set", "Importance=2"});
    RunDone({"item", "new", "Office/B", "--subject", "Back", "--body", "b", "--set", "Importance=2"});
    RunDone({"pair", "add", "Home/A", "Office/B", "--to-target", "--query", "Importance = 2"});
    RunDone({"sync"});
    EXPECT_EQ(Contents("Office/B"), (Texts{"Back=b", "High=h"}));
    EXPECT_EQ(Contents("Home/A"), (Texts{"High=h", "Low=l"}));
}

TEST_F(Pairs, TimerRunsAgainAndTellsOnlyOfWork) {
    RunDone({"item", "new", "Home/A", "--subject", "One"});
    RunDone({"pair", "add", "Home/A", "Office/B"});
    const CommandRun run = Run({"timer", "--seconds", "1", "--times", "2"});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_NE(run.out.find("One"), std::string::npos) << run.out;
    EXPECT_EQ(run.out.find("nothing to do"), std::string::npos) << run.out;
    ExpectRefusal({"watch"}, 2, {"No pair is to be watched", "--continuous-to"});
    ExpectRefusal({"watch", "Z"}, 2, {"no pair \"Z\""});
}

TEST_F(Pairs, WatchCarriesWhatOthersChange) {
    RunDone({"item", "new", "Home/A", "--subject", "First"});
    RunDone({"pair", "add", "Home/A", "Office/B", "--continuous-to"});
    CommandRun watch;
    std::thread watcher([&] { watch = Run({"watch"}); });
    CProfileSession session("");
    const auto arrives = [&](std::size_t count) {
        for (int i = 0; i < 200; ++i) {
            if (ListItems(session.OpenFolder("Office/B"), "").size() >= count) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    };
    EXPECT_TRUE(arrives(1)) << "by the run at the beginning";
    {
        IMessagePtr message = session.OpenFolder("Home/A").folder.CreateMessage(nullptr, 0);
        message.SetStrProp(PR_SUBJECT_A, "Watched");
        message.SaveChanges();
    }
    EXPECT_TRUE(arrives(2)) << "by the notification";
    RequestInterrupt(true);
    watcher.join();
    EXPECT_EQ(watch.code, 0) << watch.err;
    EXPECT_NE(watch.out.find("Watched"), std::string::npos) << watch.out;
}

TEST(Terminal, ColumnsCountAsTheTerminalDoes) {
    EXPECT_EQ(Utf8Width("K\xC3\xB6ln"), 4u);
    EXPECT_EQ(Utf8Width("\xE4\xBD\xA0\xE5\xA5\xBD"), 4u) << "two Chinese characters";
    EXPECT_EQ(Utf8Width("e\xCC\x81"), 1u) << "a letter and its accent";
    EXPECT_EQ(Utf8Shorten("abcdef", 4), "abc\xE2\x80\xA6");
    EXPECT_EQ(Utf8Shorten("\xE4\xBD\xA0\xE5\xA5\xBD", 3), "\xE4\xBD\xA0\xE2\x80\xA6");
    EXPECT_EQ(Utf8Shorten("abcd", 4), "abcd");
    EXPECT_EQ(Utf8FromWide(WideFromUtf8("a\xFF\xC3")), "a\xEF\xBF\xBD\xEF\xBF\xBD") << "broken text";
}

TEST(Terminal, ProgressBarShowsWhatIsDone) {
    EXPECT_EQ(ProgressBarText("Inbox", 0, 0), "Inbox");
    EXPECT_EQ(ProgressBarText("Inbox", 7, 0), "7  Inbox");
    EXPECT_EQ(ProgressBarText("Inbox", 1, 2), "[############------------]  50%  Inbox");
    EXPECT_EQ(ProgressBarText("Inbox", 9, 3), "[########################] 100%  Inbox");
}

}  // namespace
