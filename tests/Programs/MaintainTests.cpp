// Folders put in order from the command line.
#include <Platform/Registry.h>

#include "CommandFixture.h"

namespace {

class Maintain : public CommandTest {
protected:
    void SetUp() override {
        CommandTest::SetUp();
        MakeStores();
        for (const char* folder : {"Home/A", "Office/B"})
            RunDone({"folder", "create", folder});
        for (const char* subject : {"One", "Two"})
            RunDone({"item", "new", "Home/A", "--subject", subject, "--body", subject});
        RunDone({"pair", "add", "Home/A", "Office/B", "--delete", "--name", "ab"});
    }
    void CopyTwice() {
        for (int i = 0; i < 2; ++i)
            RunDone({"item", "copy", "Home/A", "1", "--to", "Home/A"});
    }
    std::size_t Count(const std::string& folder) { return Contents(folder).size(); }
    Json Maintained(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "maintain");
        return RunJson(arguments);
    }
};

TEST_F(Maintain, DuplicatesAreToldAskedForAndMovedOnce) {
    CopyTwice();
    EXPECT_EQ(Maintained({"duplicates", "Home/A", "--dry-run"})[0]["duplicates"], 2);
    ExpectRefusal({"maintain", "duplicates", "Home/A"}, 4,
                  {"2 duplicates of 1 item", "--yes", "pair \"ab\""});
    EXPECT_EQ(RunAsked({"maintain", "duplicates", "Home/A"}, "n\n").code, 4);
    EXPECT_EQ(Count("Home/A"), 4u);
    const CommandRun asked = RunAsked({"--quiet", "maintain", "duplicates", "ab", "--field-compare"}, "y\n");
    EXPECT_EQ(asked.code, 0) << asked.err;
    EXPECT_NE(asked.err.find("2 duplicates of 1 item"), std::string::npos) << asked.err;
    EXPECT_EQ(Count("Home/A"), 2u);
    EXPECT_EQ(Count("Home/Deleted Items/Vellumware/Duplicates/A"), 2u);
    EXPECT_TRUE(FileExists(PathOf("base/data/vellum_delete.log")));
    const Json again = Maintained({"duplicates", "ab"});
    EXPECT_EQ(again.size(), 2u);
    EXPECT_EQ(again[0]["duplicates"], 0);
    ExpectRefusal({"maintain", "duplicates", "Home/Nowhere"}, 6, {"Nowhere"});
}

TEST_F(Maintain, ARunRemovesDuplicatesWhereTheInstallationSaysSo) {
    RunDone({"sync"});
    CopyTwice();
    RunDone({"sync", "--quiet"});
    EXPECT_EQ(Count("Office/B"), 4u);
    CRegistryKey key;
    ASSERT_EQ(key.Create(RegistryRoot::CurrentUser, "Software\\Ostrand\\Vellum"), ERROR_SUCCESS);
    ASSERT_EQ(key.WriteDword("FindDuplicates", 1), ERROR_SUCCESS);
    RunDone({"sync", "--quiet", "--dry-run"});
    EXPECT_EQ(Count("Home/A"), 4u);
    EXPECT_EQ(RunJson({"sync"})[0]["duplicates_moved"], 4);
    const std::vector<std::string> both = {"One=One", "Two=Two"};
    EXPECT_EQ(Contents("Home/A"), both);
    EXPECT_EQ(Contents("Office/B"), both);
    const auto last = RunJson({"sync"})[0];
    EXPECT_EQ(last["protocol"], Json::array());
    EXPECT_EQ(last["duplicates_moved"], 0);
}

// What a run wrote last is another copy on either side; the next run must not take both for deleted.
TEST_F(Maintain, BothSidesCleanedByThemselvesKeepTheSameItem) {
    RunDone({"item", "delete", "Home/A", "Two"});
    RunDone({"item", "copy", "Home/A", "1", "--to", "Home/A"});
    RunDone({"sync", "--quiet"});
    RunDone({"item", "set", "Home/A", "2", "--set", "PR_COMMENT_A=x"});
    RunDone({"item", "set", "Office/B", "1", "--set", "PR_COMMENT_A=y"});
    RunDone({"sync", "--quiet"});
    for (const char* folder : {"Home/A", "Office/B"})
        EXPECT_EQ(Maintained({"duplicates", folder, "--yes"})[0]["removed"], 1);
    RunDone({"sync", "--quiet"});
    EXPECT_EQ(Contents("Home/A"), std::vector<std::string>{"One=One"});
    EXPECT_EQ(Contents("Office/B"), std::vector<std::string>{"One=One"});
}

TEST_F(Maintain, MarksMemoriesAndTimesGoAndTheNextRunFindsAllAgain) {
    RunDone({"sync"});
    ExpectRefusal({"maintain", "remove-ids", "ab"}, 4, {"2 marked items in \"Home\\A\"", "--yes"});
    const Json ids = Maintained({"remove-ids", "ab", "--yes"});
    EXPECT_EQ(ids[0]["changed"], 2);
    EXPECT_EQ(ids[1]["changed"], 2);
    EXPECT_EQ(Maintained({"reset-times", "ab", "--dry-run"}).size(), 1u);
    EXPECT_EQ(Maintained({"remove-files", "ab", "--yes"})[0]["changed"], 2);
    for (const char* what : {"remove-ids", "remove-files", "reset-times"})
        EXPECT_EQ(Maintained({what, "ab"})[0]["found"], 0) << what;
    const CommandRun run = Run({"sync"});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_NE(run.out.find("0 changes in the source, 0 changes in the target"), std::string::npos) << run.out;
    RunDone({"item", "delete", "Office/B", "Two"});
    RunDone({"sync"});
    EXPECT_EQ(Contents("Home/A"), std::vector<std::string>{"One=One"});
}

TEST_F(Maintain, NewKeysMakeCopiesItemsOfTheirOwn) {
    CopyTwice();
    const Json shared = Maintained({"list-keys", "Home/A"});
    ASSERT_EQ(shared.size(), 3u);
    std::vector<std::string> arguments = {"new-keys", "Home/A"};
    for (const Json& item : {shared[0], shared[1]})
        arguments.push_back(item["id"]);
    arguments.push_back("--yes");
    EXPECT_EQ(Maintained(arguments)[0]["changed"], 2);
    EXPECT_TRUE(Maintained({"list-keys", "Home/A"}).empty());
    EXPECT_EQ(Maintained({"duplicates", "Home/A"})[0]["duplicates"], 0);
}

// What a person wants to know of an item beside its text.
TEST_F(Maintain, AnItemShowsWhatMattersForItsClass) {
    struct CSample {
        const char* file;
        std::vector<std::string> heads;
    };
    const CSample samples[] = {
        {"A_weekly_1.msg", {"Start:     2022-12-12 07:00", "End:", "Repeats:   weekly"}},
        {"contactUnicode.msg", {"E-mail:    test@example.com", "Mobile:    080-0001-0001", "Company:"}},
        {"attachmentFiles.msg", {"Attached:", " bytes)"}},
    };
    unsigned seen = 0;
    for (const std::string& path : SampleMessages())
        for (const CSample& sample : samples) {
            if (!path.ends_with(sample.file)) continue;
            const std::string folder = "Home/" + std::to_string(++seen);
            RunDone({"folder", "create", folder});
            RunDone({"import", path, "--into", folder});
            const std::string shown = RunDone({"item", "show", folder, "1"});
            for (const std::string& head : sample.heads)
                EXPECT_NE(shown.find(head), std::string::npos) << head << " in:\n" << shown;
        }
    if (SampleMessages().empty()) GTEST_SKIP() << "no items to look at";
    EXPECT_EQ(seen, std::size(samples));
}

}  // namespace
