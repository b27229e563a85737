#include <Platform/Machine.h>
#include <Platform/MapiHeaders.h>
#include <Platform/Threads.h>
#include <Platform/UserInterface.h>
#include <Platform/Utf8.h>
#include <Platform/WindowMessages.h>
#include <gtest/gtest.h>

#include <cstring>
#include <mutex>
#include <stdexcept>

namespace {

class CSink : public IWindowMessageSink {
public:
    LRESULT OnWindowMessage(UINT message, WPARAM wParam, LPARAM lParam) override {
        const std::lock_guard guard(m_lock);
        if (message == WM_COPYDATA) {
            const auto* copy = reinterpret_cast<const COPYDATASTRUCT*>(lParam);
            received += std::string(static_cast<const char*>(copy->lpData), copy->cbData - 1) + ";";
            return static_cast<LRESULT>(copy->dwData);
        }
        received += std::to_string(message - WM_USER) + "(" + std::to_string(wParam) + ");";
        return 42;
    }
    std::string received;

private:
    std::mutex m_lock;
};

}  // namespace

TEST(WindowMessagesTest, ATitleIsFoundAsLongAsItIsRegistered) {
    CSink sink;
    EXPECT_EQ(0u, FindWindowByTitle("VellumTestWindow"));
    WindowHandle window = 0;
    {
        const CWindowRegistration registration("VellumTestWindow", sink);
        window = FindWindowByTitle("vellumtestwindow");
        ASSERT_NE(0u, window);
        EXPECT_EQ(registration.Handle(), window);
        EXPECT_EQ(42, SendWindowMessage(window, WM_USER + 3, 7, 0));
        EXPECT_EQ(9, SendCopyData(window, 9, "text"));
    }
    EXPECT_EQ("3(7);text;", sink.received);
    EXPECT_EQ(0u, FindWindowByTitle("VellumTestWindow"));
    EXPECT_EQ(0, SendWindowMessage(window, WM_USER, 0, 0));
    EXPECT_EQ(0, SendCopyData(0, 0, "nobody"));
}

TEST(WindowMessagesTest, ManySendersAndAnEndInTheMiddle) {
    CSink sink;
    std::vector<std::thread> senders;
    {
        const CWindowRegistration registration("VellumTestWindow", sink);
        for (int i = 0; i < 4; ++i) {
            senders.push_back(StartThread([window = registration.Handle()] {
                for (int n = 0; n < 200; ++n) {
                    SendWindowMessage(window, WM_USER, 1, 0);
                }
            }));
        }
        EXPECT_EQ(42, SendWindowMessage(registration.Handle(), WM_USER, 1, 0));
    }
    const std::string received = sink.received;
    for (auto& sender : senders) {
        sender.join();
    }
    EXPECT_EQ(received, sink.received) << "nothing arrives once the registration has gone";
}

TEST(UserInterfaceTest, TheInstalledObjectAnswersAndItsFaultsStayInside) {
    CRecordingUserInterface recorder;
    recorder.answer = IDYES;
    EXPECT_EQ(IDYES, ShowMessageBox("text", "Vellum", MB_YESNO));
    ShowMissingFolders({"A\\B"});
    ASSERT_EQ(1u, recorder.messages.size());
    EXPECT_EQ("text", recorder.messages[0].text);
    EXPECT_EQ(std::vector<std::string>{"A\\B"}, recorder.missingFolders);

    struct CThrowing : IUserInterface {
        int OnMessageBox(const std::string&, const std::string&, unsigned) override {
            throw std::runtime_error("fault");
        }
        void OnMissingFolders(const std::vector<std::string>&) override { throw 1; }
    } throwing;
    IUserInterface* before = InstallUserInterface(&throwing);
    EXPECT_EQ(IDOK, ShowMessageBox("text", "Vellum"));
    ShowMissingFolders({"A"});
    EXPECT_EQ(&throwing, InstallUserInterface(nullptr));
    EXPECT_EQ(IDNO, ShowMessageBox("printed by the default", "Vellum", MB_YESNO | MB_ICONQUESTION));
    EXPECT_EQ(nullptr, InstallUserInterface(before));
}

TEST(MachineTest, ComputerNameCanBePlayed) {
    EXPECT_NE("", ComputerName());
    SetComputerNameForTest(std::string(200, 'x'));
    EXPECT_EQ(std::string(127, 'x'), ComputerName());
    SetComputerNameForTest("");
    EXPECT_NE(std::string(127, 'x'), ComputerName());
}

TEST(MachineTest, TextSurvivesTheWayThroughWide) {
    for (const std::string& text : {std::string(), std::string("plain"), std::string("zero \0 inside", 13)}) {
        EXPECT_EQ(text, Utf8FromWide(WideFromUtf8(text)));
    }
    EXPECT_EQ(L"abc", WideFromUtf8("abc"));
}

TEST(MachineTest, GuidsAreNewAndPublishedOnesDefined) {
    EXPECT_FALSE(IsEqualGUID(NewGuid(), NewGuid()));
    EXPECT_EQ(0x00020329u, PS_PUBLIC_STRINGS.Data1);
    EXPECT_EQ(0x00020328u, PS_MAPI.Data1);
    EXPECT_EQ(0x46, IID_IMessage.Data4[7]);
}

TEST(MachineTest, GlobalMemoryKeepsItsBytesWhenItGrows) {
    for (const UINT flags : {GMEM_MOVEABLE, GMEM_FIXED}) {
        HGLOBAL block = GlobalAlloc(flags, 3);
        ASSERT_NE(nullptr, block);
        std::memcpy(GlobalLock(block), "abc", 3);
        GlobalUnlock(block);
        block = GlobalReAlloc(block, 100000, GMEM_MOVEABLE | GMEM_ZEROINIT);
        ASSERT_NE(nullptr, block);
        EXPECT_GE(GlobalSize(block), 100000u);
        const char* bytes = static_cast<const char*>(GlobalLock(block));
        EXPECT_EQ(0, std::memcmp(bytes, "abc\0\0", 5));
        GlobalUnlock(block);
        EXPECT_EQ(nullptr, GlobalFree(block));
    }
}
