// Stores checked, compacted, backed up and restored from the command line.
#include "CommandFixture.h"

#include <sqlite3.h>

#include <filesystem>

namespace {

class StoreCare : public CommandTest {
protected:
    void SetUp() override {
        CommandTest::SetUp();
        MakeStores();
        RunDone({"item", "new", "Home/Inbox", "--subject", "One", "--body", "first"});
    }
    std::string FileOf(const std::string& name) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(PathOf("base")))
            if (entry.path().filename() == name) return entry.path().string();
        return {};
    }
    void Damage(const std::string& file, const char* statement) {
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open(file.c_str(), &database), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(database, statement, nullptr, nullptr, nullptr), SQLITE_OK);
        sqlite3_close(database);
    }
    using Words = std::vector<std::string>;
};

TEST_F(StoreCare, ABackupComesBackAndKeepsWhatItReplaces) {
    const std::string file = PathOf("home.vst");
    EXPECT_EQ(RunJson({"store", "backup", "Home", file})["store"], "Home");
    ExpectRefusal({"store", "backup", "Home", file}, 4, {"home.vst", "--replace"});
    RunDone({"store", "backup", "Home", file, "--replace"});
#ifndef _WIN32
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
#endif
    RunDone({"item", "new", "Home/Inbox", "--subject", "Two"});
    const Json restored = RunJson({"store", "restore", "Home", file});
    EXPECT_EQ(Contents("Home/Inbox"), Words{"One=first"});
    EXPECT_TRUE(FileExists(restored["kept"]));
    RunDone({"store", "restore", "Home", restored["kept"]});
    EXPECT_EQ(Contents("Home/Inbox").size(), 2u);
    EXPECT_EQ(RunJson({"store", "check"}), Json::array());
    const Json sizes = RunJson({"store", "compact", "Home"});
    EXPECT_LE(sizes["after"], sizes["before"]);
    for (const DirectoryEntry& entry :
         ListDirectory(std::filesystem::path(FileOf("store1.vst")).parent_path().string()))
        EXPECT_EQ(entry.name.find(".restore"), std::string::npos) << entry.name;
}

TEST_F(StoreCare, WhatIsNoBackupOfTheStoreIsRefusedAndChangesNothing) {
    const std::string home = PathOf("home.vst"), bad = PathOf("bad.vst");
    RunDone({"store", "backup", "Home", home});
    for (const char* ours : {"store1.vst", "store2.vst", "profile"})
        ExpectRefusal({"store", "backup", "Home", FileOf(ours), "--replace"}, 2, {"in use"});
    ExpectRefusal({"store", "restore", "Home", PathOf("absent.vst")}, 6, {"absent.vst", "does not exist"});
    ExpectRefusal({"store", "restore", "Nowhere", home}, 6, {"Nowhere"});
    ExpectRefusal({"store", "restore", "Office", home}, 4, {"another store"});
    WriteFileDurably(bad, std::string(20000, 'x'));
    ExpectRefusal({"store", "restore", "Home", bad}, 6, {"bad.vst"});
    CopyFileTo(home, bad);
    Damage(bad, "DELETE FROM large; UPDATE message SET attachments = 3");
    ExpectRefusal({"store", "restore", "Home", bad}, 6, {"damaged", "--force"});
    EXPECT_EQ(Contents("Home/Inbox"), Words{"One=first"});
    RunDone({"store", "restore", "Home", bad, "--force"});
    const CommandRun check = Run({"store", "check", "Home", "--json"});
    EXPECT_EQ(check.code, 1) << check.err;
    EXPECT_EQ(check.Data()[0]["kind"], "count");
    EXPECT_NE(check.Data()[0]["text"].get<std::string>().find("\"One\" in the folder \"\\Inbox\""),
              std::string::npos)
        << check.out;
}

// The pair is in order, and nobody shall be told to remove it.
TEST_F(StoreCare, ARunNamesTheStoreThatDoesNotOpen) {
    RunDone({"pair", "add", "Home/Inbox", "Office/Inbox", "--name", "ours"});
    WriteFileDurably(FileOf("store2.vst"), std::string(20000, 'x'));
    ExpectRefusal({"sync"}, 6, {"\"ours\": The store \"Office\" cannot be opened", "is damaged"});
    ExpectRefusal({"sync", "--dry-run"}, 6, {"The store \"Office\" cannot be opened", "is damaged"});
    RemoveFile(FileOf("store2.vst"));
    ExpectRefusal({"sync"}, 6, {"The store \"Office\" cannot be opened", "does not exist"});
}

// What backups are for.
TEST_F(StoreCare, AStoreWhoseFileIsRubbishOrGoneComesBack) {
    const std::string home = PathOf("home.vst");
    RunDone({"store", "backup", "Home", home});
    WriteFileDurably(FileOf("store1.vst"), std::string(20000, 'x'));
    ExpectRefusal({"pair", "list"}, 6, {"default store, \"Home\"", "is damaged", "restore"});
    RunDone({"store", "restore", "Home", home});
    EXPECT_EQ(Contents("Home/Inbox"), Words{"One=first"});
    RemoveFile(FileOf("store1.vst"));
    ExpectRefusal({"pair", "list"}, 6, {"default store, \"Home\"", "does not exist", "restore"});
    RunDone({"store", "restore", "Home", home});
    EXPECT_EQ(Contents("Home/Inbox"), Words{"One=first"});
    // On a new machine the store takes over the identity of the backup.
    RunDone({"profile", "create", "new"});
    RunDone({"store", "create", "Fresh", "--profile", "new"});
    RunDone({"store", "restore", "Fresh", home, "--force", "--profile", "new"});
    EXPECT_EQ(RunJson({"item", "list", "Fresh/Inbox", "--profile", "new"}).size(), 1u);
    RunDone({"store", "remove", "Home", "--force"});
    ExpectRefusal({"pair", "list"}, 6, {"None of the stores", "store default"});
    RunDone({"store", "default", "Office"});
    RunDone({"pair", "list"});
}

// A drive that is not mounted comes back.
TEST_F(StoreCare, AFileThatIsAwayKeepsItsNameAndAFileOfTwoStoresIsNotRemoved) {
    RunDone({"item", "new", "Office/Inbox", "--subject", "Away"});
    const std::string file = FileOf("store2.vst"), away = PathOf("away.vst");
    ASSERT_TRUE(RenameFile(file, away));
    WriteFileDurably(JoinPath(std::filesystem::path(file).parent_path().string(), "store3.vst-wal"), "left");
    RunDone({"store", "create", "New"});
    EXPECT_FALSE(FileExists(file));
    EXPECT_EQ(FileOf("store3.vst"), "") << "with the log of another file beside it";
    ASSERT_TRUE(RenameFile(away, file));
    EXPECT_EQ(Contents("Office/Inbox"), Words{"Away="});

    const std::string list = FileOf("profile");
    std::string text;
    ASSERT_TRUE(ReadFileBytes(list, text));
    text.replace(text.find("store4.vst"), 10, "store2.vst");
    WriteFileDurably(list, text);
    RunDone({"store", "remove", "New", "--force"});
    EXPECT_EQ(Contents("Office/Inbox"), Words{"Away="});
}

// Another process with the store open: a plain connection to the file stands for it.
TEST_F(StoreCare, AStoreInUseIsNotReplacedButBackedUp) {
    const std::string file = PathOf("home.vst");
    RunDone({"store", "backup", "Home", file});
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(FileOf("store1.vst").c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN; SELECT count(*) FROM message", nullptr, nullptr, nullptr),
              SQLITE_OK);
    ExpectRefusal({"store", "restore", "Home", file}, 3, {"Home", "in use"});
    RunDone({"item", "new", "Home/Inbox", "--subject", "Two"});
    RunDone({"store", "backup", "Home", file, "--replace"});
    ASSERT_EQ(sqlite3_exec(other, "COMMIT; SELECT count(*) FROM message", nullptr, nullptr, nullptr),
              SQLITE_OK);
    ExpectRefusal({"store", "restore", "Home", file}, 3, {"in use"});
    ExpectRefusal({"store", "restore", "Office", FileOf("store1.vst"), "--force"}, 6, {"in use", "backup"});
    ExpectRefusal({"store", "remove", "Home", "--force"}, 3, {"Home", "in use"});
    ExpectRefusal({"profile", "remove", "me", "--force"}, 3, {"me", "in use"});
    sqlite3_close(other);
    RunDone({"store", "restore", "Home", file});
    EXPECT_EQ(Contents("Home/Inbox").size(), 2u);
}

}  // namespace
