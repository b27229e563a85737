// The registry as a text file that people and accidents edit.
#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Platform/Registry.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <random>

namespace {

class RegistryFileTest : public ::testing::Test {
protected:
    void TearDown() override { RemoveFile(File()); }
    static std::string File() { return JoinPath(ConfigDirectory(), "registry"); }
    static void Write(const std::string& bytes) { ASSERT_TRUE(WriteFileDurably(File(), bytes)); }
    static std::string Bytes() {
        std::string bytes;
        EXPECT_TRUE(ReadFileBytes(File(), bytes));
        return bytes;
    }
    static CRegistryKey Opened(const std::string& path) {
        CRegistryKey key;
        key.Open(RegistryRoot::CurrentUser, path);
        return key;
    }
};

}  // namespace

TEST_F(RegistryFileTest, WhatAnEditorLeavesIsReadAndWhatIsNotUnderstoodIsKept) {
    Write(
        "; a remark\r\n[HKEY_CURRENT_USER\\Software\\A]\r\n\"Good\"=\"yes\"\r\n\"Open=\"no\r\nnonsense\r\n"
        "\"Bad\"=dword:12z\n\"Long\"=dword:123456789\n[broken\n\"Late\"=dword:0000000a");
    CRegistryKey key = Opened("Software\\A");
    ASSERT_TRUE(key.IsOpen());
    EXPECT_EQ("yes", key.ReadString("Good"));
    EXPECT_EQ(10u, key.ReadDword("Late"));
    EXPECT_EQ(std::nullopt, key.ReadDword("Bad"));
    EXPECT_EQ(std::nullopt, key.ReadDword("Long"));

    EXPECT_EQ(ERROR_SUCCESS, key.WriteDword("New", 1));
    for (const char* kept :
         {"; a remark\n", "\"Open=\"no\n", "nonsense\n", "\"Bad\"=dword:12z\n", "[broken\n"}) {
        EXPECT_NE(std::string::npos, Bytes().find(kept)) << kept;
    }
    EXPECT_EQ("yes", key.ReadString("Good"));
}

TEST_F(RegistryFileTest, DamageAnywhereIsHarmless) {
    CRegistryKey key;
    ASSERT_EQ(ERROR_SUCCESS, key.Create(RegistryRoot::CurrentUser, "Software\\A"));
    key.WriteString("Text", "a \\ b \" c\n\x02");
    key.WriteDword("Number", 1);
    const std::string whole = Bytes();
    std::mt19937 random(3);
    for (size_t at = 0; at < whole.size(); ++at) {
        std::string bytes = whole;
        bytes[at] = static_cast<char>(random());
        Write(bytes);
        Opened("Software\\A").ReadString("Text");
        Write(whole.substr(0, at));
        Opened("Software\\A").ReadDword("Number");
    }
    Write(whole);
    EXPECT_EQ(1u, Opened("Software\\A").ReadDword("Number"));
}

TEST_F(RegistryFileTest, TwoProcessesLoseNoWriteOfEachOther) {
    constexpr int writes = 40;
    CRegistryKey key;
    ASSERT_EQ(ERROR_SUCCESS, key.Create(RegistryRoot::CurrentUser, "Software\\A"));
    const auto write = [&](const std::string& prefix) {
        bool ok = true;
        for (int i = 0; i < writes; ++i) {
            ok = key.WriteDword(prefix + std::to_string(i), 1) == ERROR_SUCCESS && ok;
        }
        return ok;
    };
    const pid_t child = ::fork();
    if (child == 0) ::_exit(write("child") ? 0 : 1);
    EXPECT_TRUE(write("parent"));
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
    for (int i = 0; i < writes; ++i) {
        EXPECT_TRUE(key.ReadDword("child" + std::to_string(i)));
        EXPECT_TRUE(key.ReadDword("parent" + std::to_string(i)));
    }
}
