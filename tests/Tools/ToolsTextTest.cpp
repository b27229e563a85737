#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Tools/tools.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace {

TEST(ToolsCharClasses, AreThoseOfAscii) {
    int space = 0, alpha = 0, digit = 0, alnum = 0;
    for (int c = -128; c < 128; ++c) {
        space += IsSpace(static_cast<char>(c));
        alpha += IsAlpha(static_cast<char>(c));
        digit += IsDigit(static_cast<char>(c));
        alnum += IsAlnum(static_cast<char>(c));
    }
    EXPECT_EQ(space, 4);
    EXPECT_EQ(alpha, 52);
    EXPECT_EQ(digit, 10);
    EXPECT_EQ(alnum, 62);
    EXPECT_FALSE(IsSpace('\v'));
}

TEST(ToolsPaths, HeadsAndParents) {
    EXPECT_EQ(ParentPath("a"), "a");
    EXPECT_EQ(ParentPath("a\\b\\c"), "a\\b");
    EXPECT_EQ(ParentPath("\\a"), "");
    std::string rest = "old";
    EXPECT_EQ(SplitPathHead("a\\b\\c", rest), "a");
    EXPECT_EQ(rest, "b\\c");
    EXPECT_EQ(SplitPathHead("a", rest), "a");
    EXPECT_EQ(rest, "");
    const std::string beside = ModuleRelativePath("file.ini");
    EXPECT_EQ(beside.substr(beside.size() - 8), "file.ini");
    EXPECT_GT(beside.size(), 8u);
}

class ToolsFiles : public testing::Test {
protected:
    ToolsFiles() : m_former(std::filesystem::current_path()), m_dir(JoinPath(DataDirectory(), "tools-test")) {
        RemoveTree(m_dir);
        MakeDirectories(m_dir);
    }
    ~ToolsFiles() override {
        std::filesystem::current_path(m_former);
        RemoveTree(m_dir);
    }
    std::filesystem::path m_former;
    std::string m_dir;
};

TEST_F(ToolsFiles, APathIsCreatedAndTheWorkingDirectoryMoves) {
    const std::string path = JoinPath(JoinPath(m_dir, "one"), "two");
    EXPECT_EQ(CreatePath(path), 0);
    EXPECT_TRUE(DirectoryExists(path));
    EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::current_path(), m_dir));
    EXPECT_EQ(CreatePath(path), 0);  // all there: entered
    EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::current_path(), path));
    WriteTextFile(JoinPath(m_dir, "file"), "x");
    EXPECT_EQ(CreatePath(JoinPath(JoinPath(m_dir, "file"), "below")), -1);
}

TEST_F(ToolsFiles, TextsGoRoundWithTheirEnd) {
    const std::string path = JoinPath(m_dir, "text");
    WriteTextFile(path, "one");
    EXPECT_EQ(ReadTextFile(path), "one");
    std::unique_ptr<char[]> block;
    size_t size = 0;
    ReadFileBlock(path, block, size);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(block[3], 0);
    WriteTextFile(path, "two", "ab");
    ReadFileBlock(path, block, size);
    EXPECT_EQ(std::string(block.get(), size), std::string("one\0two\0", 8));
    EXPECT_EQ(ReadTextFile(path), "one");
}

TEST_F(ToolsFiles, AbsentFilesReadAsNothing) {
    const std::string path = JoinPath(JoinPath(m_dir, "no"), "file");
    WriteTextFile(path, "ignored");
    EXPECT_EQ(ReadTextFile(path), "");
    std::unique_ptr<char[]> block = std::make_unique<char[]>(1);
    size_t size = 17;
    ReadFileBlock(path, block, size);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(size, 17u);
}

}  // namespace
