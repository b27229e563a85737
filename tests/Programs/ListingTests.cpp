// Profiles, stores, folders and items: what is listed, and what is refused.
#include "CommandFixture.h"

namespace {

class Listings : public CommandTest {};

TEST_F(Listings, FirstProfileAndFirstStoreBecomeTheDefaultOnes) {
    MakeStores();
    RunDone({"profile", "create", "other"});
    EXPECT_EQ(RunJson({"profile", "list"}), Json::parse(R"([
        {"name": "me", "default": true, "stores": 2},
        {"name": "other", "default": false, "stores": 0}])"));
    RunDone({"profile", "default", "other"});
    EXPECT_EQ(RunJson({"store", "list"}), Json::array());
    const Json stores = RunJson({"store", "list", "--profile", "me"});
    ASSERT_EQ(stores.size(), 2u);
    EXPECT_EQ(stores[0]["name"], "Home");
    EXPECT_EQ(stores[0]["default"], true);
    EXPECT_EQ(stores[1]["default"], false);
    EXPECT_GT(stores[1]["folders"].get<int>(), 5);
    RunDone({"store", "default", "Office", "--profile", "me"});
    EXPECT_EQ(RunJson({"store", "list", "--profile", "me"})[1]["default"], true);
}

TEST_F(Listings, FoldersAreATreeWithCounts) {
    MakeStores();
    RunDone({"folder", "create", "Home/Inbox/Projects/Old", "--class", "IPF.Note"});
    RunDone({"item", "new", "Home/Inbox/Projects", "--subject", "One"});
    const Json tree = RunJson({"folder", "list", "Home\\Inbox"});
    ASSERT_EQ(tree.size(), 3u);
    EXPECT_EQ(tree[1]["path"], "Home\\Inbox\\Projects");
    EXPECT_EQ(tree[1]["items"], 1);
    EXPECT_EQ(tree[2]["path"], "Home\\Inbox\\Projects\\Old");
    EXPECT_EQ(tree[2]["class"], "IPF.Note");
    const std::string text = RunDone({"folder", "list", "Home/Inbox"});
    EXPECT_NE(text.find("\n  Projects"), std::string::npos) << text;
    EXPECT_NE(text.find("\n    Old"), std::string::npos) << text;
    RunDone({"folder", "remove", "Home/Inbox/Projects", "--force"});
    EXPECT_EQ(RunJson({"folder", "list", "Home/Inbox"}).size(), 1u);
}

TEST_F(Listings, ItemsAreFoundByNumberSubjectAndId) {
    MakeStores();
    RunDone({"item", "new", "Home/Inbox", "--subject", "Alpha", "--body", "first"});
    RunDone({"item", "new", "Home/Inbox", "--subject", "Beta", "--body", "second"});
    RunDone({"item", "new", "Home/Inbox", "--subject", "Beta", "--body", "third"});
    const Json items = RunJson({"item", "list", "Home/Inbox"});
    ASSERT_EQ(items.size(), 3u);
    for (const char* key :
         {"number", "date", "from", "subject", "class", "size", "created", "modified", "id"})
        EXPECT_TRUE(items[0].contains(key)) << key;
    EXPECT_EQ(RunJson({"item", "show", "Home/Inbox", "Alpha"})["subject"], "Alpha");
    EXPECT_EQ(
        PropertyOf(RunJson({"item", "show", "Home/Inbox", items[2]["id"]})["properties"], "PR_BODY")["value"],
        "third");
    EXPECT_NE(RunDone({"item", "show", "Home/Inbox", "2"}).find("second"), std::string::npos);
    ExpectRefusal({"item", "show", "Home/Inbox", "Beta"}, 2,
                  {"2 items", "\"Beta\"", "by its number: 2", "3 ("});
    ExpectRefusal({"item", "show", "Home/Inbox", "Gamma"}, 2, {"no item \"Gamma\"", "vellum item list"});
    EXPECT_EQ(RunJson({"item", "list", "Home/Inbox", "--query", "Subject = \"Alpha\""}).size(), 1u);
}

TEST_F(Listings, ItemsChangeMoveCopyAndGo) {
    MakeStores();
    RunDone({"item", "new", "Home/Inbox", "--subject", "Letter", "--body", "text", "--to", "ann@example.org",
             "--cc", "bob@example.org", "--set", "Importance=2", "--set", "string:Colour=blue", "--set",
             "PR_CLIENT_SUBMIT_TIME=2024-05-14 23:39"});
    Json item = RunJson({"item", "show", "Home/Inbox", "Letter"});
    EXPECT_EQ(PropertyOf(item["properties"], "PR_IMPORTANCE")["value"], 2);
    EXPECT_EQ(PropertyOf(item["properties"], "PR_CLIENT_SUBMIT_TIME")["value"],
              "2024-05-14T23:39:00.0000000Z");
    const Json colour = PropertyOf(item["properties"], "Colour");
    EXPECT_EQ(colour["set"], "PS_PUBLIC_STRINGS");
    EXPECT_EQ(colour["value"], "blue");
    ASSERT_EQ(item["recipients"].size(), 2u);
    EXPECT_EQ(item["recipients"][1]["type"], "cc");
    EXPECT_EQ(item["recipients"][1]["address"], "bob@example.org");

    RunDone({"item", "set", "Home/Inbox", "Letter", "--subject", "Note", "--unset", "Importance"});
    item = RunJson({"item", "show", "Home/Inbox", "Note"});
    EXPECT_TRUE(PropertyOf(item["properties"], "PR_IMPORTANCE").is_null());
    RunDone({"item", "copy", "Home/Inbox", "Note", "--to", "Office/Inbox"});
    EXPECT_EQ(Contents("Office/Inbox"), Contents("Home/Inbox"));
    EXPECT_EQ(Comparable(RunJson({"item", "show", "Office/Inbox", "Note"})), Comparable(item));
    RunDone({"item", "move", "Office/Inbox", "1", "--to", "Home/Notes"});
    EXPECT_EQ(Contents("Office/Inbox").size(), 0u);
    EXPECT_EQ(Contents("Home/Notes").size(), 1u);
    RunDone({"item", "delete", "Home/Inbox", "Note"});
    EXPECT_EQ(Contents("Home/Deleted Items"), std::vector<std::string>{"Note=text"});
    RunDone({"item", "delete", "Home/Notes", "Note", "--permanently"});
    EXPECT_EQ(Contents("Home/Deleted Items").size(), 1u);
}

TEST_F(Listings, BadInputIsRefusedAndChangesNothing) {
    MakeStores();
    RunDone({"item", "new", "Home/Inbox", "--subject", "Alpha"});
    const Json before = Snapshot();
    ExpectRefusal({"profile", "create", "me"}, 2, {"\"me\" already"});
    ExpectRefusal({"profile", "create", "a/b"}, 2, {"\"a/b\"", "name of a profile"});
    ExpectRefusal({"profile", "remove", "nobody"}, 2, {"no profile \"nobody\"", "There are: me"});
    ExpectRefusal({"profile", "remove", "me"}, 4, {"2 store(s)", "--force"});
    ExpectRefusal({"store", "list", "--profile", "nobody"}, 2, {"no profile \"nobody\""});
    ExpectRefusal({"store", "create", "Home"}, 2, {"store \"Home\""});
    ExpectRefusal({"store", "remove", "Cellar"}, 6, {"no store \"Cellar\"", "Home, Office"});
    ExpectRefusal({"store", "remove", "Home"}, 4, {"1 item(s)", "--force"});
    ExpectRefusal({"folder", "create", "Home/Inbox"}, 2, {"Home\\Inbox", "already"});
    ExpectRefusal({"pair", "nonsense"}, 2, {"no command \"vellum pair nonsense\""});
    ExpectRefusal({"item", "list", "Home/Inbox", "--query", "Importance = 2 more"}, 2, {"before \"more\""});
    ExpectRefusal({"item", "set", "Home/Inbox", "1"}, 2, {"Nothing", "--subject"});
    ExpectRefusal({"folder", "list", "Home/Attic"}, 6, {"no folder \"Attic\" in \"Home\"", "Inbox"});
    ExpectRefusal({"folder", "remove", "Home"}, 2, {"is a store"});
    ExpectRefusal({"folder", "remove", "Home/Inbox"}, 4, {"not empty"});
    ExpectRefusal({"item", "set", "Home/Inbox", "1", "--set", "Nonsense=1"}, 2, {"no property \"Nonsense\""});
    ExpectRefusal({"item", "set", "Home/Inbox", "1", "--set", "Importance=high"}, 2,
                  {"\"high\"", "a number"});
    ExpectRefusal({"item", "set", "Home/Inbox", "1", "--subject", "X", "--attach", PathOf("absent")}, 6,
                  {"absent"});
    ExpectRefusal({"item", "new", "Home/Inbox", "--set", "PR_CLIENT_SUBMIT_TIME=2024-02-30"}, 2, {"a time"});
    ExpectRefusal({"item", "list", "Home/Inbox", "--query", "Subject ="}, 2, {"^"});
    ExpectRefusal({"item", "frobnicate"}, 2, {"vellum item --help"});
    ExpectRefusal({}, 2, {"--help"});
    EXPECT_EQ(Snapshot(), before);
}

TEST_F(Listings, ListingsOfNothingAreEmptyArraysAndTellThePerson) {
    const CommandRun text = Run({"profile", "list"});
    EXPECT_EQ(text.code, 0);
    EXPECT_EQ(text.out, "");
    EXPECT_NE(text.err.find("vellum profile create"), std::string::npos);
    EXPECT_EQ(RunJson({"profile", "list"}), Json::array());
    ExpectRefusal({"store", "list"}, 2, {"no profile yet", "vellum profile create"});
    RunDone({"profile", "create", "me"});
    EXPECT_EQ(RunJson({"folder", "list"}), Json::array());
    ExpectRefusal({"pair", "list"}, 6, {"vellum store create"});
}

TEST_F(Listings, HelpAndManualShowEveryCommandWithAnExample) {
    const std::vector<std::pair<std::string, std::vector<std::string>>> groups = {
        {"profile", {"list", "create", "remove", "default"}},
        {"store", {"list", "create", "remove", "default"}},
        {"folder", {"list", "create", "remove"}},
        {"item", {"list", "show", "new", "set", "delete", "move", "copy"}},
        {"pair", {"list", "add", "show", "edit", "remove"}},
        {"query", {"check", "print", "run"}},
        {"settings", {"show", "set", "export", "import"}},
        {"import", {}},
        {"export", {}},
        {"protocol", {}},
        {"watch", {}},
        {"timer", {}},
        {"sync", {}}};
    const std::string manual = RunDone({"--man"});
    const auto check = [&](std::vector<std::string> words, bool isGroup = false) {
        const std::string heading = words.empty()       ? "NAME"
                                    : words.size() == 1 ? words[0]
                                                        : words[0] + " " + words[1];
        EXPECT_TRUE(isGroup || manual.find(heading) != std::string::npos) << heading;
        words.push_back("--help");
        const std::string text = RunDone(words);
        EXPECT_NE(text.find("Example:\n  vellum "), std::string::npos) << words.front();
    };
    check({});
    for (const auto& [group, commands] : groups) {
        check({group}, !commands.empty());
        for (const std::string& command : commands)
            check({group, command});
    }
}

TEST_F(Listings, ControlCharactersDoNotReachTheTerminal) {
    MakeStores();
    RunDone({"item", "new", "Home/Inbox", "--subject", "\x1b[31mred\a", "--body", "a\x1b]0;x\ab\nc"});
    for (const char* command : {"list", "show"}) {
        std::vector<std::string> words = {"item", command, "Home/Inbox"};
        if (words[1] == "show") words.push_back("1");
        const std::string text = RunDone(words);
        EXPECT_EQ(text.find('\x1b'), std::string::npos);
        EXPECT_EQ(text.find('\a'), std::string::npos);
    }
}

}  // namespace
