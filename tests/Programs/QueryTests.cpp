// The query language on the command line.
#include <Platform/Machine.h>
#include <Platform/Utf8.h>
#include <Tools/INIQuerys.h>

#include <set>

#include "CommandFixture.h"

namespace {

class Queries : public CommandTest {
protected:
    void AddItems() {
        MakeStores();
        RunDone({"item", "new", "Home/Inbox", "--subject", "Alpha", "--set", "Importance=2"});
        RunDone({"item", "new", "Home/Inbox", "--subject", "Beta", "--set", "Importance=0"});
        RunDone({"item", "new", "Home/Inbox", "--subject", "alphabet", "--set", "Importance=1"});
    }

    std::vector<std::string> Subjects(const std::string& query, const std::string& folder = "Home/Inbox") {
        std::vector<std::string> subjects;
        for (const Json& row : RunJson({"query", "run", query, "--in", folder}))
            subjects.push_back(row["Subject"].get<std::string>());
        return subjects;
    }
};

TEST_F(Queries, RunListsWhatFitsInTheOrderOfTheText) {
    AddItems();
    using List = std::vector<std::string>;
    EXPECT_EQ(Subjects("Importance >= 1 order by descending Importance"), (List{"Alpha", "alphabet"}));
    EXPECT_EQ(Subjects("order by Importance"), (List{"Beta", "alphabet", "Alpha"}));
    EXPECT_EQ(Subjects("Subject = prefix ignorecase alpha order by Importance"), (List{"alphabet", "Alpha"}));
    EXPECT_EQ(Subjects("Subject = nobody"), List{});
    const std::string withFolder = "select Subject from \"Home\\Inbox\" where Importance = 0";
    const Json found = RunJson({"query", "run", withFolder});
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0]["Subject"], "Beta");
    ExpectRefusal({"query", "run", withFolder, "--in", "Office/Inbox"}, 2, {"from \"Home\\Inbox\"", "--in"});
    ExpectRefusal({"query", "run", "Importance = 0"}, 2, {"which folder", "--in"});
    ExpectRefusal({"query", "run", "select Subject from \"Home/Inbox\" where Importance = 0"}, 6,
                  {"no folder \"Home/Inbox\"", "backslash"});
    EXPECT_NE(Run({"query", "run", "Subject = nobody", "--in", "Home/Inbox"}).err.find("No item fits"),
              std::string::npos);
}

TEST_F(Queries, RunShowsTheColumnsThatTheTextNames) {
    AddItems();
    const auto keys = [](const Json& row) {
        std::string names;
        for (const auto& cell : row.items())
            names += cell.key() + " ";
        return names;
    };
    const Json all = RunJson({"query", "run", "Importance = 2 or Private = 1", "--in", "Home/Inbox"});
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(keys(all[0]), "id Subject Importance Private ");
    EXPECT_EQ(all[0]["Importance"], 2);
    EXPECT_TRUE(all[0]["Private"].is_null());
    const Json chosen = RunJson(
        {"query", "run", "select MessageClass, Importance where Subject = Beta", "--in", "Home/Inbox"});
    ASSERT_EQ(chosen.size(), 1u);
    EXPECT_EQ(keys(chosen[0]), "id MessageClass Importance Subject ");
    EXPECT_EQ(chosen[0]["MessageClass"], "IPM.Note");
}

TEST_F(Queries, CheckPointsAtThePlace) {
    RunDone({"query", "check", "Importance = 2"});
    ExpectRefusal({"query", "check", "Importance = 2 and (Subject = \"x\""}, 2,
                  {"Syntax error expeced ')'", "Importance = 2 and (Subject = \"x\"\n", "^"});
    ExpectRefusal({"query", "check", Utf8FromWide(L"Subject = \"\u00e4\" and x = 2")}, 2,
                  {"Neither x nor 2 is a keyword", "\n" + std::string(24, ' ') + "^"});
    ExpectRefusal({"query", "check", "Importance = 2 Subject = x"}, 2,
                  {"before \"Subject = x\"", "not read"});
    EXPECT_NE(Run({"query", "check", "Importance = 2"}).err.find("no store here to try it on"),
              std::string::npos);
    const std::string longText = std::string(3000, ' ') + "Importance = (2 or x";
    EXPECT_LT(Run({"query", "check", longText}).err.size(), 500u);
    for (const char* lone : {"Subject", "()", "date(1,1,2020)", "\"x\"", "Subject order by Subject"})
        ExpectRefusal({"query", "check", lone}, 2, {"no condition"});
    for (const char* text : {"", "order by Subject"})
        EXPECT_NE(Run({"query", "check", text}).err.find("restricts nothing"), std::string::npos) << text;
    ExpectRefusal({"query", "check", "Importance = 2147483648"}, 2, {"out of range", "2147483647"});
    EXPECT_EQ(Run({"query", "check", "Importance = 2147483647"}).code, 0);
    ExpectRefusal({"query", "check", "Private = 1"}, 2, {"There is no store here"});
    MakeStores();
    RunDone({"query", "check", "Private = 1"});
    RunDone({"query", "check", "Private = 1", "--in", "Office/Inbox"});
    ExpectRefusal({"query", "check", "a = 1", "--in", "Office/Nowhere"}, 6, {"Nowhere"});
    const CommandRun wrong = Run({"query", "check", "Importance = 2 and", "--json"});
    EXPECT_EQ(wrong.code, 2);
    EXPECT_EQ(wrong.Data()["correct"], false);
    EXPECT_EQ(wrong.Data()["error"], "Crash in Compile");
    EXPECT_EQ(wrong.Data()["offset"], 18);
    EXPECT_NE(wrong.err.find("one side of \"and\""), std::string::npos) << wrong.err;
    EXPECT_EQ(RunJson({"query", "check", "Importance = 2"}),
              Json::parse(R"({"correct": true, "end": 14, "warnings": []})"));
    EXPECT_EQ(RunJson({"query", "check", "Private = true"})["warnings"].size(), 1u);
    ExpectRefusal({"query", "check", "size Subject > 10"}, 6, {"MessageSize"});
}

TEST_F(Queries, PrintShowsTextTreeColumnsAndOrder) {
    MakeStores();
    const Json query = RunJson(
        {"query", "print", "select Subject where not Importance = bit 4 order by descending Subject"});
    EXPECT_EQ(query, Json::parse(R"json({
        "text": "not (Importance = bit 4)", "compiles": true,
        "tree": ["NOT", "  BITMASK 0x00170003 & 0x4 = 0"],
        "columns": [{"word": "Subject", "tag": "0x0037001E", "type": "text"},
                    {"word": "Importance", "tag": "0x00170003", "type": "long"}],
        "order": [{"word": "Subject", "tag": "0x0037001E", "direction": "descending"}]})json"));
    EXPECT_EQ(RunDone({"query", "print", "Importance = 1"}), "Importance = 1\n\nPROPERTY 0x00170003 = 1\n");
    const CommandRun now = Run({"query", "print", "CreationTime > now", "--json"});
    EXPECT_EQ(now.Data()["compiles"], false);
    EXPECT_NE(now.err.find("does not compile"), std::string::npos);
}

TEST_F(Queries, EveryListedFieldIsAField) {
    MakeStores();
    const Json fields = RunJson({"query", "fields"});
    ASSERT_GT(fields.size(), 300u);
    std::set<std::string> words;
    std::string text = "exists Subject";
    for (const Json& field : fields) {
        EXPECT_TRUE(words.insert(field["word"]).second) << field;
        text += " or exists " + field["word"].get<std::string>();
    }
    for (const char* word : {"Subject", "MessageClass", "Importance", "Private", "FileAs"})
        EXPECT_EQ(words.count(word), 1u) << word;
    EXPECT_EQ(words.count("Size"), 0u) << "a keyword";
    RunDone({"query", "check", text});
}

TEST_F(Queries, StoredQueriesAreListedAndCalled) {
    AddItems();
    ExpectRefusal({"query", "run", "size Subject > 10", "--in", "Home/Inbox"}, 6, {"MessageSize"});
    const std::string path = JoinPath(ModuleDirectory(), kStoredQueryFile);
    ASSERT_TRUE(WriteFileDurably(path,
                                 "name=About\ncomment=By subject\nquery=[Subject = $what]\nwhat.text=Words\n"
                                 "what.expression=or\n"));
    const Json stored = RunJson({"query", "stored"});
    EXPECT_EQ(Subjects("About(\"Alpha;Beta\") order by Importance"),
              (std::vector<std::string>{"Beta", "Alpha"}));
    ExpectRefusal({"query", "check", "About"}, 2, {"^"});
    RemoveFile(path);
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0]["name"], "About");
    EXPECT_EQ(stored[0]["query"], "[Subject = $what]");
    EXPECT_EQ(stored[0]["parameters"][0]["name"], "what");
    EXPECT_NE(Run({"query", "stored"}).err.find(kStoredQueryFile), std::string::npos);
}

}  // namespace
