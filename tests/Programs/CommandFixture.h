// Commands run in this process: strings in, text and exit code out.
#pragma once
#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Programs/vellum/Console/Listing.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

struct CommandRun {
    int code = -1;
    std::string out;
    std::string err;
    // What was printed, which must be JSON.
    Json Data() const { return Json::parse(out); }
};

// Each test has a data directory of its own, with no profile in it.
class CommandTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    CommandRun Run(const std::vector<std::string>& arguments);
    // As on a terminal where a person types this.
    CommandRun RunAsked(const std::vector<std::string>& arguments, const std::string& typed);
    // With --json; expects exit code 0 and answers the data.
    Json RunJson(std::vector<std::string> arguments);
    // Expects exit code 0.
    std::string RunDone(const std::vector<std::string>& arguments);
    // Expects that code, nothing on standard output, and every one of `words` in the message.
    void ExpectRefusal(const std::vector<std::string>& arguments, int code,
                       const std::vector<std::string>& words);
    // A profile "me" with the stores "Home" and "Office".
    void MakeStores();
    // Everything that commands can see of the profile: folders, items with all properties, pairs.
    Json Snapshot();
    // "subject=body" of each item, sorted.
    std::vector<std::string> Contents(const std::string& folder);
    std::string PathOf(const std::string& name) const { return JoinPath(m_directory, name); }

private:
    std::string m_directory;
};

// The property of that name in a report of properties; null if it has none.
Json PropertyOf(const Json& properties, const std::string& name);

// A report without what a store gives itself and what a run stamps, for comparing two items.
Json Comparable(const Json& item);

// Files that people have; empty where they are not there, or where this build cannot read them.
std::vector<std::string> SampleMessages();
std::string SampleMailbox();
