// These tests call the interfaces of the store by themselves, without the library that converts text, so the
// 8-bit text of all of them is UTF-8, also on a system with another code page. That the store converts as it
// should is for the tests of that library and of the commands.
#include <Platform/CodePage.h>
#include <gtest/gtest.h>

namespace {

class CUtf8Everywhere : public ::testing::Environment {
public:
    void SetUp() override { ChooseAnsiCodePage(Utf8CodePage); }
    void TearDown() override { ChooseAnsiCodePage(0); }
};

const ::testing::Environment* const kUtf8 = ::testing::AddGlobalTestEnvironment(new CUtf8Everywhere);

}  // namespace
