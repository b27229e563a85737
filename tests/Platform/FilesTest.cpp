#include <Platform/Clock.h>
#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <gtest/gtest.h>

namespace {

class FilesTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(MakeDirectories(m_directory)); }
    void TearDown() override { RemoveTree(m_directory); }
    std::string In(const std::string& name) const { return JoinPath(m_directory, name); }

    const std::string m_directory = JoinPath(DataDirectory(), "files");
};

}  // namespace

TEST_F(FilesTest, BytesComeBackAndReplaceOlderOnes) {
    const std::string bytes("a\r\n\0b\x1A\xFF", 7);
    ASSERT_TRUE(WriteFileDurably(In("f"), "something longer than what follows"));
    ASSERT_TRUE(WriteFileDurably(In("f"), bytes));
    std::string read;
    ASSERT_TRUE(ReadFileBytes(In("f"), read));
    EXPECT_EQ(bytes, read);
    EXPECT_EQ(1u, ListDirectory(m_directory).size()) << "nothing temporary is left";
}

TEST_F(FilesTest, AFailureLeavesTheOldFileAndAReason) {
    std::string read;
    EXPECT_FALSE(ReadFileBytes(In("absent"), read));
    EXPECT_NE("", LastFileError());
    EXPECT_FALSE(ReadFileBytes(m_directory, read)) << "a directory has no bytes";
    EXPECT_FALSE(WriteFileDurably(JoinPath(In("absent"), "f"), "x"));
    EXPECT_FALSE(RemoveFile(In("absent")));
    EXPECT_FALSE(RenameFile(In("absent"), In("other")));
    EXPECT_FALSE(CopyFileTo(In("absent"), In("other")));
    EXPECT_TRUE(RemoveTree(In("absent"))) << "what is not there counts as removed";
    EXPECT_FALSE(RemoveTree(""));
}

TEST_F(FilesTest, ADirectoryListsItsEntriesInByteOrder) {
    WriteFileDurably(In("b"), "12345");
    WriteFileDurably(In("B"), "");
    MakeDirectories(JoinPath(In("a"), "deep"));
    const auto entries = ListDirectory(m_directory);
    ASSERT_GE(entries.size(), 2u);
    EXPECT_EQ("a", entries[entries.size() - 2].name);
    EXPECT_TRUE(entries[entries.size() - 2].isDirectory);
    EXPECT_LT(TicksOf(UtcNow()) - entries[0].written, 600'000'000'0u) << "written in the last ten minutes";
    EXPECT_TRUE(ListDirectory(In("absent")).empty());
    EXPECT_TRUE(DirectoryExists(In("a")));
    EXPECT_FALSE(FileExists(In("a")));
    EXPECT_FALSE(RemoveFile(In("a")));
    EXPECT_TRUE(RemoveTree(In("a")));
    EXPECT_FALSE(DirectoryExists(In("a")));
}

TEST_F(FilesTest, CopiesAndRenamesReplaceTheTarget) {
    WriteFileDurably(In("from"), "new");
    WriteFileDurably(In("to"), "old");
    EXPECT_TRUE(CopyFileTo(In("from"), In("to")));
    std::string read;
    ReadFileBytes(In("to"), read);
    EXPECT_EQ("new", read);
    WriteFileDurably(In("from"), "newer");
    EXPECT_TRUE(RenameFile(In("from"), In("to")));
    ReadFileBytes(In("to"), read);
    EXPECT_EQ("newer", read);
    EXPECT_FALSE(FileExists(In("from")));
}

TEST_F(FilesTest, ALockIsForOneObjectAtATime) {
    CProcessLock first;
    CProcessLock second;
    std::string holder;
    EXPECT_TRUE(first.TryLock(In("lock"), "the first", holder));
    EXPECT_FALSE(second.TryLock(In("lock"), "the second", holder, 30));
    EXPECT_EQ("the first", holder);

    CProcessLock moved = std::move(first);
    EXPECT_FALSE(second.TryLock(In("lock"), "the second", holder));
    moved.Unlock();
    EXPECT_TRUE(second.TryLock(In("lock"), "the second", holder));
    EXPECT_FALSE(moved.TryLock(JoinPath(In("absent"), "lock"), "", holder));
    EXPECT_EQ("", holder);
}
