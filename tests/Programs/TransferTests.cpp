// Import and export of files.
#include <fstream>

#include "CommandFixture.h"

namespace {

class Transfer : public CommandTest {
protected:
    std::string WriteFile(const std::string& name, const std::string& bytes) {
        const std::string path = PathOf(name);
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }
    unsigned ItemsBelow(const std::string& folder) {
        unsigned items = 0;
        for (const Json& row : RunJson({"folder", "list", folder}))
            items += row["items"].get<unsigned>();
        return items;
    }
};

TEST_F(Transfer, MessagesSurviveExportAndImportPropertyForProperty) {
    const auto samples = SampleMessages();
    if (samples.empty()) GTEST_SKIP() << "no sample messages here";
    MakeStores();
    RunDone({"folder", "create", "Home/A"});
    RunDone({"folder", "create", "Office/B"});
    std::vector<std::string> words = {"import"};
    words.insert(words.end(), samples.begin(), samples.end());
    words.insert(words.end(), {"--into", "Home/A"});
    RunDone(words);
    EXPECT_EQ(ItemsBelow("Home/A"), samples.size());
    RunDone({"export", "Home/A", "--to", PathOf("out")});
    words = {"import"};
    for (const DirectoryEntry& file : ListDirectory(PathOf("out")))
        words.push_back(JoinPath(PathOf("out"), file.name));
    words.insert(words.end(), {"--into", "Office/B"});
    RunDone(words);
    const Json left = RunJson({"item", "list", "Home/A"});
    const Json right = RunJson({"item", "list", "Office/B"});
    ASSERT_EQ(left.size(), samples.size());
    ASSERT_EQ(right.size(), samples.size());
    std::multimap<std::string, Json> expected;
    std::multimap<std::string, Json> found;
    const auto add = [&](std::multimap<std::string, Json>& map, const std::string& folder, const Json& row) {
        const Json item = Comparable(RunJson({"item", "show", folder, row["id"]}));
        map.emplace(item["subject"].get<std::string>() + item["properties"].dump(), item);
    };
    for (std::size_t i = 0; i < left.size(); ++i) {
        add(expected, "Home/A", left[i]);
        add(found, "Office/B", right[i]);
    }
    for (auto a = expected.begin(), b = found.begin(); a != expected.end(); ++a, ++b)
        EXPECT_EQ(Json::diff(a->second, b->second).dump(2), "[]") << a->second["subject"];
}

TEST_F(Transfer, RecipientsAttachmentsAndEmbeddedMessagesArrive) {
    MakeStores();
    bool seen = false;
    for (const std::string& sample : SampleMessages()) {
        if (sample.find("msgInMsg") == std::string::npos &&
            sample.find("200_recipients") == std::string::npos &&
            sample.find("attachmentFiles") == std::string::npos)
            continue;
        RunDone({"import", sample, "--into", "Home/Inbox"});
        const Json item = RunJson({"item", "show", "Home/Inbox", "1"});
        if (sample.find("msgInMsg") != std::string::npos) {
            ASSERT_GE(item["attachments"].size(), 1u);
            EXPECT_TRUE(item["attachments"][0]["item"].is_object());
            EXPECT_GT(item["attachments"][0]["item"]["properties"].size(), 5u);
        } else if (sample.find("200") != std::string::npos) {
            EXPECT_EQ(item["recipients"].size(), 200u);
        } else {
            EXPECT_GE(item["attachments"].size(), 1u);
        }
        RunDone({"item", "delete", "Home/Inbox", "1", "--permanently"});
        seen = true;
    }
    if (!seen) GTEST_SKIP() << "no sample messages here";
}

TEST_F(Transfer, FilesThatAreNoMailAreRefusedBeforeAnythingIsWritten) {
    MakeStores();
    const Json before = Snapshot();
    const std::string text = WriteFile("letter.pst", "Dear Ann, this is no mailbox file.");
    ExpectRefusal({"import", text, "--into", "Home/Inbox"}, 6, {"letter.pst", "mailbox file", ".msg"});
    ExpectRefusal({"import", PathOf("absent.pst"), "--into", "Home/Inbox"}, 6, {"no file", "absent.pst"});
    ExpectRefusal({"import", PathOf("base"), "--into", "Home/Inbox"}, 6, {"is a directory"});
    const std::string head = WriteFile("head.msg", "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1 and no more");
    const CommandRun run = Run({"import", head, "--into", "Home/Inbox"});
    EXPECT_EQ(run.code, 1);
    EXPECT_NE(run.err.find("head.msg"), std::string::npos);
    EXPECT_EQ(Snapshot(), before);
}

TEST_F(Transfer, ExportLeavesFilesThatAreThereAlone) {
    MakeStores();
    RunDone({"item", "new", "Home/Inbox", "--subject", "a/b:c", "--body", "x"});
    RunDone({"export", "Home/Inbox", "--to", PathOf("out")});
    const auto files = ListDirectory(PathOf("out"));
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0].name, "00001 a_b_c.msg");
    const CommandRun again = Run({"export", "Home/Inbox", "--to", PathOf("out")});
    EXPECT_EQ(again.code, 1);
    EXPECT_NE(again.err.find("is there already"), std::string::npos);
}

TEST_F(Transfer, MailboxFileBringsFoldersItemsAndAttachments) {
    if (SampleMailbox().empty())
        GTEST_SKIP() << "no sample mailbox that this build reads; scripts/setup fetches it";
    MakeStores();
    RunDone({"folder", "create", "Home/Mail"});
    const Json result = RunJson({"import", SampleMailbox(), "--into", "Home/Mail"});
    EXPECT_EQ(result["failed"], 0);
    EXPECT_EQ(result["items"].get<unsigned>(), ItemsBelow("Home/Mail"));
    EXPECT_GE(result["items"].get<unsigned>(), 71u);
    unsigned attachments = 0;
    unsigned recipients = 0;
    for (const Json& folder : RunJson({"folder", "list", "Home/Mail"}))
        for (const Json& row : RunJson({"item", "list", folder["path"]})) {
            const Json item = RunJson({"item", "show", folder["path"], row["id"]});
            attachments += static_cast<unsigned>(item["attachments"].size());
            recipients += static_cast<unsigned>(item["recipients"].size());
            EXPECT_TRUE(PropertyOf(item["properties"], "PR_SEARCH_KEY").is_object());
            EXPECT_EQ(item["subject"].get<std::string>().find('\x01'), std::string::npos);
        }
    EXPECT_GT(attachments, 10u);
    EXPECT_GT(recipients, 71u);
}

// What can be read of a cut or spoiled file arrives, the rest is named, and nothing crashes.
TEST_F(Transfer, DamagedMailboxFilesLoseOnlyWhatIsDamaged) {
    if (SampleMailbox().empty())
        GTEST_SKIP() << "no sample mailbox that this build reads; scripts/setup fetches it";
    std::string whole;
    ASSERT_TRUE(ReadFileBytes(SampleMailbox(), whole));
    MakeStores();
    unsigned imported = 0;
    unsigned complaints = 0;
    for (int kind = 0; kind < 6; ++kind) {
        SCOPED_TRACE(kind);
        std::string bytes = whole;
        if (kind < 2) bytes.resize(whole.size() / (kind + 2));
        const std::size_t step = 20011 * static_cast<std::size_t>(kind);
        for (std::size_t at = 600 + step; kind >= 2 && at + 8 < bytes.size(); at += step)
            bytes.replace(at, 8, "\xFF\x00\x7F\x80\x01\xFE\x55\xAA", 8);
        const std::string folder = "Home/Damaged " + std::to_string(kind);
        RunDone({"folder", "create", folder});
        const CommandRun run = Run({"import", WriteFile("damaged.pst", bytes), "--into", folder, "--json"});
        EXPECT_TRUE(run.code == 0 || run.code == 1) << run.code << run.err;
        const unsigned items = run.Data()["items"].get<unsigned>();
        EXPECT_EQ(items, ItemsBelow(folder));
        EXPECT_EQ(run.code == 1, run.err.find("warning:") != std::string::npos) << run.err;
        imported += items;
        complaints += run.code == 1;
    }
    EXPECT_GT(imported, 0u);
    EXPECT_GE(complaints, 2u);
}

}  // namespace
