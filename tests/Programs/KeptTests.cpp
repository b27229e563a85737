// What stays behind a run: its protocol, the values of the installation, the pairs as text.
#include <Platform/Machine.h>
#include <Platform/Registry.h>

#include <algorithm>

#include "CommandFixture.h"

namespace {

class Kept : public CommandTest {
protected:
    using Texts = std::vector<std::string>;
    void SetUp() override {
        CommandTest::SetUp();
        MakeStores();
        for (const char* folder : {"Home/A", "Home/C", "Office/B", "Office/D"})
            RunDone({"folder", "create", folder});
    }
    std::string Read(const std::string& name) {
        std::string bytes;
        EXPECT_TRUE(ReadFileBytes(PathOf(name), bytes)) << name;
        return bytes;
    }
    Texts PairNames() {
        Texts names;
        for (const Json& pair : RunJson({"pair", "list"}))
            names.push_back(pair["name"]);
        return names;
    }
};

TEST_F(Kept, TheProtocolOfTheLastRunIsShownFilteredAndExported) {
    ExpectRefusal({"protocol"}, 2, {"not seen a run"});
    RunDone({"item", "new", "Home/A", "--subject", "One; or two"});
    RunDone({"item", "new", "Home/A", "--subject", "Gone"});
    RunDone({"pair", "add", "Home/A", "Office/B", "--delete", "--name", "ab"});
    RunDone({"sync"});
    RunDone({"item", "delete", "Office/B", "Gone"});
    RunDone({"item", "new", "Office/B", "--subject", "Back"});
    RunDone({"sync", "--quiet"});
    RunDone({"sync", "--dry-run"});
    RunDone({"timer", "--times", "1"});
    RunDone({"sync"});

    const auto subjects = [&](Texts words) {
        words.insert(words.begin(), "protocol");
        Texts found;
        const Json run = RunJson(words);
        for (const Json& entry : run["pairs"][0]["protocol"])
            found.push_back(entry["state"].get<std::string>() + " " + entry["subject"].get<std::string>());
        return found;
    };
    EXPECT_EQ(subjects({}), (Texts{"new Back", "deleted Gone"})) << "neither the dry run nor idle ones";
    EXPECT_EQ(subjects({"--filter", "deleted"}), Texts{"deleted Gone"});
    EXPECT_EQ(subjects({"--filter", "new"}), Texts{"new Back"});
    EXPECT_EQ(subjects({"--filter", "conflicts"}), Texts{});
    EXPECT_EQ(RunJson({"protocol"})["pairs"][0]["protocol"][0]["direction"], "to-source");
    ExpectRefusal({"protocol", "--filter", "old"}, 2, {"old"});
    const CommandRun shown = Run({"protocol", "--filter", "changed"});
    EXPECT_NE((shown.out + shown.err).find("nothing to show"), std::string::npos) << shown.out << shown.err;

    RunDone({"item", "set", "Home/A", "One; or two", "--body", "x"});
    RunDone({"sync"});
    const std::string csv = RunDone({"protocol", "--csv", "--filter", "deleted"});
    EXPECT_EQ(
        csv.rfind("To folder;From folder;Item;State;What was done;ID\nB;A;One; or two;Changed;Updated;", 0),
        0u)
        << csv;
    EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 2);
    EXPECT_EQ(RunDone({"protocol", "--csv", "--language", "de"}).rfind("Nach Ordner;", 0), 0u);
    SetUserLanguage(Language::English);

    // A run that another one kept away leaves its reason.
    RunDone({"folder", "remove", "Office/B", "--force"});
    EXPECT_EQ(Run({"sync"}).code, 6);
    EXPECT_NE(RunJson({"protocol"})["pairs"][0]["remark"].get<std::string>().find("Office\\B"),
              std::string::npos);
    WriteFileDurably(JoinPath(ConfigDirectory(), "protocols/me.json"), "{\"pairs\": 3");
    ExpectRefusal({"protocol"}, 6, {"damaged"});
}

TEST_F(Kept, ValuesOfTheInstallationAreShownAndSet) {
    const auto value = [&](const std::string& name) -> Json {
        for (const Json& row : RunJson({"settings", "show"}))
            if (row["name"] == name) return row["value"];
        return nullptr;
    };
    EXPECT_EQ(value("show-protocol"), 1);
    EXPECT_EQ(value("mass-delete-guard"), 50);
    RunDone({"settings", "set", "mass-delete-guard", "30"});
    EXPECT_EQ(value("mass-delete-guard"), 30);
    EXPECT_EQ(value("show-protocol"), 1) << "a value of its own stays what it was";
    RunDone({"settings", "set", "directory", "C:\\Sync"});
    EXPECT_EQ(value("directory"), "C:\\Sync");
    RunDone({"settings", "set", "show-protocol", "2"});
    RunDone({"pair", "add", "Home/A", "Office/B", "--name", "ab"});
    EXPECT_EQ(value("show-protocol"), 2) << "writing the list keeps it";
    EXPECT_EQ(value("mass-delete-guard"), 30);
    ExpectRefusal({"settings", "set", "show-protocol", "3"}, 2, {"from 0 to 2"});
    ExpectRefusal({"settings", "set", "show-protocol", "-1"}, 2, {});
    ExpectRefusal({"settings", "set", "pump", "yes"}, 2, {"\"yes\""});
    ExpectRefusal({"settings", "set", "colour", "1"}, 2, {"no value \"colour\"", "show-protocol"});

    // The list follows to its new place, and back with what was added there.
    RunDone({"settings", "set", "store-in-ini", "1"});
    EXPECT_EQ(PairNames(), Texts{"ab"});
    RunDone({"pair", "add", "Home/C", "Office/D", "--name", "cd"});
    RunDone({"settings", "set", "store-in-ini", "0"});
    EXPECT_EQ(PairNames(), (Texts{"ab", "cd"}));
}

TEST_F(Kept, PairsTravelAsTextAndNothingIsLost) {
    RunDone({"pair", "add", "Home/A", "Office/B", "--name", "ab", "--query", "Importance = 2", "--delete"});
    RunDone({"pair", "add", "Home/C", "Office/D", "--name", "cd"});
    const Json before = RunJson({"pair", "list"});
    RunDone({"settings", "export", PathOf("pairs.ini")});
    EXPECT_EQ(RunDone({"settings", "export", "-"}), Read("pairs.ini"));
    RunDone({"pair", "remove", "ab"});
    RunDone({"pair", "edit", "cd", "--name", "ab"});
    RunDone({"settings", "import", PathOf("pairs.ini")});
    EXPECT_EQ(PairNames(), (Texts{"ab", "ab 2"})) << "known pairs stay, names are made different";
    RunDone({"settings", "import", PathOf("pairs.ini"), "--replace"});
    RunDone({"pair", "remove", "1"});
    RunDone({"pair", "remove", "1"});
    RunDone({"settings", "import", PathOf("pairs.ini")});
    EXPECT_EQ(RunJson({"pair", "list"}), before);

    const Json whole = Snapshot();
    std::string text = Read("pairs.ini");
    text.pop_back();
    WriteFileDurably(PathOf("broken.ini"), text + "\r\nno;pair");
    ExpectRefusal({"settings", "import", PathOf("broken.ini")}, 4, {"2 pair(s)", "--partly"});
    ExpectRefusal({"settings", "import", PathOf("none.ini")}, 6, {"none.ini"});
    WriteFileDurably(PathOf("noise.ini"), std::string(2000, '\xff') + ";;\r+\n;" + std::string(5, '\0'));
    ExpectRefusal({"settings", "import", PathOf("noise.ini"), "--partly"}, 6, {"no settings file"});
    EXPECT_EQ(Snapshot(), whole);
    RunDone({"pair", "remove", "ab"});
    RunDone({"settings", "import", PathOf("broken.ini"), "--partly"});
    EXPECT_EQ(PairNames(), (Texts{"cd", "ab"})) << "what names no folder is no pair";
}

TEST_F(Kept, ACutFileOfPairsIsNeverTakenForWhole) {
    RunDone({"pair", "add", "Home/A", "Office/B", "--name", "ab", "--query", "Subject = \"x y\""});
    RunDone({"pair", "add", "Home/C", "Office/D", "--name", "cd", "--query", "Subject = \"x y\""});
    const Json whole = RunJson({"pair", "list"});
    RunDone({"settings", "export", PathOf("pairs.ini")});
    RunDone({"pair", "remove", "ab"});
    RunDone({"pair", "remove", "cd"});
    const std::string text = Read("pairs.ini");
    unsigned taken = 0;
    for (std::size_t cut = 0; cut<text.size(); cut += text.size() - cut> 40 ? 37 : 1) {
        SCOPED_TRACE(cut);
        WriteFileDurably(PathOf("cut.ini"), text.substr(0, cut));
        const int code = Run({"settings", "import", PathOf("cut.ini")}).code;
        EXPECT_TRUE(code == 4 || code == 6) << code;
        const CommandRun partly = Run({"settings", "import", PathOf("cut.ini"), "--partly"});
        const Json pairs = RunJson({"pair", "list"});
        ASSERT_LE(pairs.size(), 1u) << "of the second one nothing tells that it is all";
        EXPECT_EQ(partly.code, pairs.empty() ? 6 : 0) << partly.err;
        if (pairs.empty()) continue;
        EXPECT_EQ(pairs[0], whole[0]);
        EXPECT_NE(partly.err.find("Imported 1 pair(s)"), std::string::npos) << partly.err;
        RunDone({"pair", "remove", "1"});
        ++taken;
    }
    EXPECT_GT(taken, 20u);
    std::string open = text;
    open.erase(open.rfind('"'), 1);
    WriteFileDurably(PathOf("open.ini"), open);
    ExpectRefusal({"settings", "import", PathOf("open.ini")}, 4, {"1 pair(s)", "--partly"});
}

}  // namespace
