#include <Platform/Registry.h>
#include <gtest/gtest.h>

namespace {

constexpr char Path[] = "Software\\VellumTest\\Key";

class RegistryTest : public ::testing::Test {
protected:
    void TearDown() override { DeleteRegistryTree(RegistryRoot::CurrentUser, "Software\\VellumTest"); }

    static CRegistryKey Created(const std::string& path = Path) {
        CRegistryKey key;
        EXPECT_EQ(ERROR_SUCCESS, key.Create(RegistryRoot::CurrentUser, path));
        return key;
    }
    static LONG TryOpen(const std::string& path) {
        CRegistryKey key;
        return key.Open(RegistryRoot::CurrentUser, path);
    }
};

}  // namespace

TEST_F(RegistryTest, ValuesComeBackInTheirType) {
    CRegistryKey key = Created();
    const std::string awkward = "quotes \" and \\ and\r\nlines\tand = and [brackets] and \x01";
    EXPECT_EQ(ERROR_SUCCESS, key.WriteString("Text", awkward));
    EXPECT_EQ(ERROR_SUCCESS, key.WriteString("", "of the key itself"));
    EXPECT_EQ(ERROR_SUCCESS, key.WriteDword("Number", 0xFFFFFFFF));
    EXPECT_EQ(ERROR_SUCCESS, key.WriteString("Odd \"name\"=", "x"));

    CRegistryKey again;
    ASSERT_EQ(ERROR_SUCCESS, again.Open(RegistryRoot::CurrentUser, Path));
    EXPECT_EQ(awkward, again.ReadString("Text"));
    EXPECT_EQ("of the key itself", again.ReadString(""));
    EXPECT_EQ(0xFFFFFFFFu, again.ReadDword("Number"));
    EXPECT_EQ("x", again.ReadString("Odd \"name\"="));
    EXPECT_EQ(std::nullopt, again.ReadDword("Text"));
    EXPECT_EQ(std::nullopt, again.ReadString("Number"));
    EXPECT_EQ(std::nullopt, again.ReadString("Absent"));
}

TEST_F(RegistryTest, LaterWritesReplaceValueAndType) {
    CRegistryKey key = Created();
    key.WriteString("Value", "old");
    key.WriteDword("VALUE", 7);  // names do not tell upper from lower case
    EXPECT_EQ(7u, key.ReadDword("Value"));
    EXPECT_EQ(std::nullopt, key.ReadString("Value"));
    EXPECT_EQ(ERROR_SUCCESS, key.DeleteValue("value"));
    EXPECT_EQ(std::nullopt, key.ReadDword("Value"));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, key.DeleteValue("value"));
}

TEST_F(RegistryTest, TheSpellingWithALeadingBackslashDoesNotOpenThePlainKey) {
    Created().WriteDword("Value", 1);
    EXPECT_EQ(ERROR_SUCCESS, TryOpen(Path));
    EXPECT_NE(ERROR_SUCCESS, TryOpen(std::string("\\") + Path));
}

TEST_F(RegistryTest, KeysAreThereWithThoseAboveAndGoWithThoseBelow) {
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, TryOpen(Path));
    Created(std::string(Path) + "\\Deeper");
    EXPECT_EQ(ERROR_SUCCESS, TryOpen(Path));
    EXPECT_EQ(ERROR_SUCCESS, TryOpen("software\\vellumtest"));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, TryOpen("Software\\Vellum Test"));
    EXPECT_EQ(ERROR_SUCCESS, DeleteRegistryTree(RegistryRoot::CurrentUser, "Software\\VellumTest"));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, TryOpen(std::string(Path) + "\\Deeper"));
}

TEST_F(RegistryTest, AKeyThatIsNotOpenAnswersCodes) {
    CRegistryKey key = Created();
    const CRegistryKey moved = std::move(key);
    EXPECT_TRUE(moved.IsOpen());
    EXPECT_FALSE(key.IsOpen());
    EXPECT_EQ(ERROR_INVALID_HANDLE, key.WriteDword("Value", 1));
    EXPECT_EQ(std::nullopt, key.ReadString("Value"));
}
