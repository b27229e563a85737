// The main of every test program: nothing that a test does may touch the person's own settings or
// stores, and no message box may wait for anybody.
#include <Platform/CodePage.h>
#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Platform/Machine.h>
#include <Platform/UserInterface.h>
#include <gtest/gtest.h>

#include <filesystem>

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    const auto base = std::filesystem::temp_directory_path() / ("vellum-test-" + std::to_string(ProcessId()));
    RemoveTree(base.string());
    SetBaseDirectory(base.string());
    SetUserLanguage(Language::English);
    // All tests of a program under another code page of 8-bit text.
    const std::string codePage = EnvironmentVariable("VELLUM_CODE_PAGE");
    if (!codePage.empty()) ChooseAnsiCodePage(static_cast<unsigned>(std::stoul(codePage)));
    CRecordingUserInterface silent;
    const int result = RUN_ALL_TESTS();
    RemoveTree(base.string());
    return result;
}
