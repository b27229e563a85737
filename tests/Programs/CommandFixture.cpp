#include "CommandFixture.h"

#include <Platform/Machine.h>
#include <Platform/Registry.h>
#include <Programs/vellum/Commands/CommandLine.h>
#include <Programs/vellum/Console/Console.h>
#include <Programs/vellum/Mailbox/MailboxReader.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>

namespace {

const std::set<std::string> storesOwn = {"PR_ENTRYID",
                                         "PR_PARENT_ENTRYID",
                                         "PR_RECORD_KEY",
                                         "PR_INSTANCE_KEY",
                                         "PR_STORE_ENTRYID",
                                         "PR_STORE_RECORD_KEY",
                                         "PR_MAPPING_SIGNATURE",
                                         "PR_LAST_MODIFICATION_TIME",
                                         "PR_STORE_SUPPORT_MASK",
                                         "PR_ACCESS",
                                         "PR_ACCESS_LEVEL",
                                         "PR_MESSAGE_SIZE",
                                         "PR_ATTACH_SIZE",
                                         "PR_MDB_PROVIDER",
                                         "PR_HASATTACH",
                                         "PR_ROWID",
                                         "PR_SEARCH_KEY",
                                         "PR_CREATION_TIME",
                                         "PR_MESSAGE_FLAGS",
                                         "LarchID",
                                         "LarchEid",
                                         "LarchParentEid",
                                         "PR_OBJECT_TYPE",
                                         "PR_RTF_IN_SYNC"};

void Strip(Json& node) {
    if (node.is_array()) {
        Json kept = Json::array();
        for (Json& child : node) {
            const bool isOwn =
                child.is_object() && child.contains("type") && storesOwn.count(child.value("name", ""));
            if (isOwn) continue;
            Strip(child);
            kept.push_back(std::move(child));
        }
        node = std::move(kept);
    } else if (node.is_object()) {
        for (auto& [key, value] : node.items())
            if (value.is_structured()) Strip(value);
    }
}

std::string SampleDirectory() {
    const char* given = std::getenv("VELLUM_TEST_DATA");
    return JoinPath(given ? given : VELLUM_TEST_DATA, "msg");
}

CommandRun RunOn(const std::vector<std::string>& arguments, const CConsoleSettings& settings) {
    std::ostringstream out;
    std::ostringstream err;
    CConsole console(out, err, settings);
    CommandRun run;
    run.code = RunCommandLine(arguments, console);
    run.out = out.str();
    run.err = err.str();
    return run;
}

}  // namespace

void CommandTest::SetUp() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    m_directory = (std::filesystem::temp_directory_path() /
                   ("vellum-cli-" + std::to_string(ProcessId()) + "-" + info->name()))
                      .string();
    RemoveTree(m_directory);
    ASSERT_TRUE(MakeDirectories(m_directory));
    SetBaseDirectory(JoinPath(m_directory, "base"));
    // The registry of some systems lies elsewhere, and keeps what an earlier test has set.
    DeleteRegistryTree(RegistryRoot::CurrentUser, "Software\\Ostrand");
}

void CommandTest::TearDown() {
    DeleteRegistryTree(RegistryRoot::CurrentUser, "Software\\Ostrand");
    RemoveTree(m_directory);
}

CommandRun CommandTest::Run(const std::vector<std::string>& arguments) {
    return RunOn(arguments, {});
}

CommandRun CommandTest::RunAsked(const std::vector<std::string>& arguments, const std::string& typed) {
    std::istringstream answers(typed);
    CConsoleSettings settings;
    settings.answers = &answers;
    return RunOn(arguments, settings);
}

Json CommandTest::RunJson(std::vector<std::string> arguments) {
    arguments.push_back("--json");
    const CommandRun run = Run(arguments);
    EXPECT_EQ(run.code, 0) << run.err;
    Json data = Json::parse(run.out, nullptr, false);
    EXPECT_FALSE(data.is_discarded()) << run.out;
    return data;
}

std::string CommandTest::RunDone(const std::vector<std::string>& arguments) {
    const CommandRun run = Run(arguments);
    EXPECT_EQ(run.code, 0) << run.err;
    return run.out;
}

void CommandTest::ExpectRefusal(const std::vector<std::string>& arguments, int code,
                                const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& argument : arguments)
        line += " " + argument;
    SCOPED_TRACE("vellum" + line);
    const CommandRun run = Run(arguments);
    EXPECT_EQ(run.code, code) << run.err;
    EXPECT_EQ(run.out, "");
    for (const std::string& word : words)
        EXPECT_NE(run.err.find(word), std::string::npos) << "no \"" << word << "\" in: " << run.err;
}

void CommandTest::MakeStores() {
    RunDone({"profile", "create", "me"});
    RunDone({"store", "create", "Home"});
    RunDone({"store", "create", "Office"});
}

Json CommandTest::Snapshot() {
    const Json folders = RunJson({"folder", "list"});
    Json items = Json::object();
    for (const Json& folder : folders) {
        const std::string path = folder["path"];
        for (const Json& item : RunJson({"item", "list", path}))
            items[path].push_back(RunJson({"item", "show", path, item["id"]}));
    }
    Json all = Json::object();
    all["profiles"] = RunJson({"profile", "list"});
    all["stores"] = RunJson({"store", "list"});
    all["folders"] = folders;
    all["items"] = items;
    all["pairs"] = RunJson({"pair", "list"});
    return all;
}

std::vector<std::string> CommandTest::Contents(const std::string& folder) {
    std::vector<std::string> contents;
    for (const Json& row : RunJson({"item", "list", folder})) {
        const Json item = RunJson({"item", "show", folder, row["id"]});
        const Json body = PropertyOf(item["properties"], "PR_BODY");
        contents.push_back(item["subject"].get<std::string>() + "=" +
                           (body.is_null() ? "" : body["value"].get<std::string>()));
    }
    std::sort(contents.begin(), contents.end());
    return contents;
}

Json PropertyOf(const Json& properties, const std::string& name) {
    for (const Json& property : properties)
        if (property.value("name", "") == name) return property;
    return nullptr;
}

Json Comparable(const Json& item) {
    Json copy = item;
    copy.erase("id");
    copy.erase("folder");
    Strip(copy);
    return copy;
}

std::vector<std::string> SampleMessages() {
    std::vector<std::string> paths;
    for (const DirectoryEntry& entry : ListDirectory(SampleDirectory()))
        if (entry.name.ends_with(".msg")) paths.push_back(JoinPath(SampleDirectory(), entry.name));
    return paths;
}

std::string SampleMailbox() {
    return MailboxProblem(VELLUM_MAILBOX).empty() ? VELLUM_MAILBOX : "";
}
