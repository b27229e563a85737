// Every letter from one end to the other, under a code page that holds few of them.
#include <Platform/CodePage.h>
#include <support/Letters.h>

#include <algorithm>

#include "CommandFixture.h"

namespace {

class LettersOfCommands : public CommandTest {
protected:
    void SetUp() override {
        CommandTest::SetUp();
        RunDone({"profile", "create", "Профиль"});
        RunDone({"store", "create", "Дом"});
        RunDone({"store", "create", "Büro 日本"});
    }
    std::vector<std::string> Folders(const std::string& below) {
        std::vector<std::string> paths;
        for (const Json& folder : RunJson({"folder", "list", below}))
            paths.push_back(folder["path"].get<std::string>().substr(below.size()));
        std::sort(paths.begin(), paths.end());
        return paths;
    }

private:
    const CCodePageChoice m_western;
};

TEST_F(LettersOfCommands, TreesOfFoldersThatOneCodePageMakesEqual) {
    const std::string source = "Дом\\Календарь";
    const std::string target = "Büro 日本\\Календарь";
    RunDone({"folder", "create", source});
    RunDone({"folder", "create", target});
    for (const std::string& name : Letters()) {
        RunDone({"folder", "create", source + "\\" + name + "\\" + name});
        RunDone(
            {"item", "new", source + "\\" + name, "--subject", "in " + name, "--body", name + " " + name});
    }
    RunDone({"pair", "add", source, target, "--both", "--delete", "--subfolders", "--create-subfolders",
             "--name", "Пара \U0001F4C1"});
    const Json run = RunJson({"sync"});
    EXPECT_EQ(run[0]["name"], "Пара \U0001F4C1");
    EXPECT_EQ(run[0]["source"], source);
    EXPECT_EQ(Folders(source), Folders(target));
    for (const std::string& name : Letters())
        EXPECT_EQ(Contents(target + "\\" + name),
                  std::vector<std::string>{"in " + name + "=" + name + " " + name});

    // A folder that one side has anew, changes, and deletions, back and forth.
    RunDone({"folder", "create", target + "\\Новая"});
    RunDone({"item", "new", target + "\\Новая", "--subject", "Письмо ж"});
    RunDone({"item", "new", target + "\\Новая", "--subject", "Письмо я"});
    RunDone({"item", "set", target + "\\Работа", "in Работа", "--subject", "Дело", "--body", "тело"});
    RunDone({"item", "delete", target + "\\Личное", "in Личное"});
    RunDone({"sync"});
    EXPECT_EQ(Folders(source), Folders(target));
    EXPECT_EQ(Contents(source + "\\Новая"), (std::vector<std::string>{"Письмо ж=", "Письмо я="}));
    EXPECT_EQ(Contents(source + "\\Работа"), std::vector<std::string>{"Дело=тело"});
    EXPECT_EQ(Contents(source + "\\Личное"), std::vector<std::string>());
    const std::string protocol = RunDone({"protocol"});
    for (const char* told : {"Дело", "in Личное", "Письмо ж", "Работа"})
        EXPECT_NE(protocol.find(told), std::string::npos) << told << " in " << protocol;
    const Json before = Snapshot();
    RunDone({"sync"});
    EXPECT_EQ(Snapshot(), before) << "nothing to do";
}

TEST_F(LettersOfCommands, APrivateAppointmentComesBackWithItsWords) {
    RunDone({"folder", "create", "Дом\\A", "--class", "IPF.Appointment"});
    RunDone({"folder", "create", "Büro 日本\\B", "--class", "IPF.Appointment"});
    std::string longText;
    while (longText.size() < 40000)
        longText += "Встреча ЖЯ \U0001F4C1 ";  // more than a property call gives
    for (const std::string& subject : Letters())
        RunDone({"item", "new", "Дом\\A", "--class", "IPM.Appointment", "--subject", subject, "--set",
                 "Sensitivity=2", "--body", subject == Letters()[0] ? longText : "тело " + subject, "--set",
                 "PR_SENDER_NAME=Анна"});
    RunDone({"pair", "add", "Дом\\A", "Büro 日本\\B", "--both", "--strip-private"});
    RunDone({"sync"});
    const auto original = Contents("Дом\\A");
    for (const Json& copy : RunJson({"item", "list", "Büro 日本\\B"})) {
        EXPECT_EQ(copy["subject"], "[Анна] Private appointment");
        // Moved by an hour on the side that must not know what it is about.
        RunDone({"item", "set", "Büro 日本\\B", copy["id"], "--set", "Importance=2"});
    }
    RunDone({"sync"});
    EXPECT_EQ(Contents("Дом\\A"), original);
    for (const Json& item : RunJson({"item", "list", "Дом\\A"})) {
        const Json shown = RunJson({"item", "show", "Дом\\A", item["id"]});
        EXPECT_EQ(PropertyOf(shown["properties"], "PR_IMPORTANCE")["value"], 2) << "the change has come";
    }
}

TEST_F(LettersOfCommands, QueriesTellLettersApart) {
    RunDone({"folder", "create", "Дом\\A"});
    RunDone({"folder", "create", "Büro 日本\\B"});
    for (const std::string& subject : Letters())
        RunDone({"item", "new", "Дом\\A", "--subject", subject});
    for (const std::string& subject : Letters()) {
        for (const std::string& query :
             {"Subject = \"" + subject + "\"", "not (Subject <> \"" + subject + "\")"}) {
            const Json found = RunJson({"query", "run", query, "--in", "Дом\\A"});
            ASSERT_EQ(found.size(), 1u) << query;
            EXPECT_EQ(found[0]["Subject"], subject) << query;
        }
    }
    RunDone({"pair", "add", "Дом\\A", "Büro 日本\\B", "--both", "--query", "Subject = \"Личное\""});
    EXPECT_EQ(RunJson({"pair", "list"})[0]["query"], "Subject = \"Личное\"");
    RunDone({"sync"});
    EXPECT_EQ(Contents("Büro 日本\\B"), std::vector<std::string>{"Личное="});

    // Stored queries as editors leave them: in UTF-8 with a mark, or in the code page.
    const std::string stored = "name=Größe\nquery=Subject = \"Größe\"\n";
    for (const std::string& bytes : {"\xEF\xBB\xBF" + stored, CodePageFromUtf8(stored, AnsiCodePage())}) {
        ASSERT_TRUE(WriteFileDurably(JoinPath(ModuleDirectory(), "queries.ini"), bytes));
        const Json list = RunJson({"query", "stored"});
        ASSERT_EQ(list.size(), 1u);
        EXPECT_EQ(list[0]["name"], "Größe");
        EXPECT_EQ(list[0]["query"], "Subject = \"Größe\"");
    }
}

TEST_F(LettersOfCommands, SettingsKeepThem) {
    RunDone({"folder", "create", "Дом\\Личное"});
    RunDone({"folder", "create", "Büro 日本\\Работа"});
    RunDone({"pair", "add", "Дом\\Личное", "Büro 日本\\Работа", "--name", "Ж\U00020000", "--query",
             "Subject = \"ﬀ ½\""});
    const Json pair = RunJson({"pair", "list"});
    for (const char* inFile : {"1", "0"}) {
        RunDone({"settings", "set", "store-in-ini", inFile});
        EXPECT_EQ(RunJson({"pair", "list"}), pair) << inFile;
    }
    const std::string file = PathOf("Настройки.txt");
    RunDone({"settings", "export", file});
    RunDone({"pair", "remove", "Ж\U00020000"});
    RunDone({"settings", "import", file});
    EXPECT_EQ(RunJson({"pair", "list"}), pair);
    EXPECT_EQ(RunJson({"profile", "list"})[0]["name"], "Профиль");

    RunDone({"item", "new", "Дом\\Личное", "--subject", "Приложение", "--attach", file});
    const Json item = RunJson({"item", "show", "Дом\\Личное", "Приложение"});
    EXPECT_EQ(item["attachments"][0]["name"], "Настройки.txt");
    RunDone({"export", "Дом\\Личное", "--to", PathOf("Выход")});
    RunDone({"import", JoinPath(PathOf("Выход"), "00001 Приложение.msg"), "--into", "Büro 日本\\Работа"});
    EXPECT_EQ(Contents("Büro 日本\\Работа"), std::vector<std::string>{"Приложение="});
}

}  // namespace
