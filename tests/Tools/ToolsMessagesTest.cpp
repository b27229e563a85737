// Attachments by name, and moving to the wastebasket.
#include <MapiWrapper/FakeStore.h>
#include <Platform/UserInterface.h>
#include <Tools/MessageTools.h>
#include <gtest/gtest.h>

namespace {

using namespace fakes;

class ToolsAttachments : public NoFakeOutlives {
protected:
    ToolsAttachments() { m_message.Attach(m_fake); }
    CFakeAttach* Add(const char* name) {
        ULONG number = 0;
        IAttachPtr attach;
        m_fake->CreateAttach(nullptr, 0, &number, attach.Out());
        m_fake->attachments.back()->values[PR_ATTACH_FILENAME_A] = Text(PR_ATTACH_FILENAME_A, name);
        return m_fake->attachments.back().Get();
    }
    CFakeMessage* m_fake = new CFakeMessage;
    IMessagePtr m_message;
};

TEST_F(ToolsAttachments, AreFoundByTheirNameWithoutDirectoryAndCase) {
    Add("other.sync");
    CFakeAttach* wanted = Add("C:\\dir\\X.SYNC");
    Add("x.sync");
    IAttachPtr attach;
    bool created = false;
    FindAttachment(m_message, "x.sync", attach, true, &created);
    EXPECT_EQ(attach.Get(), wanted);
    EXPECT_FALSE(created);
    EXPECT_EQ(wanted->References(), 2u);
}

TEST_F(ToolsAttachments, AreCreatedOnDemandOnly) {
    IAttachPtr attach;
    attach.Attach(new CFakeAttach);
    FindAttachment(m_message, "x.sync", attach, false);
    EXPECT_FALSE(attach.IsValid());
    bool created = false;
    FindAttachment(m_message, "x.sync", attach, true, &created);
    EXPECT_TRUE(created);
    EXPECT_EQ(attach.Get(), m_fake->attachments.back().Get());
}

TEST_F(ToolsAttachments, AFailureKeepsWhatTheCallerHad) {
    Add("x.sync");
    IAttachPtr attach;
    CFakeAttach* former = new CFakeAttach;
    attach.Attach(former);
    m_fake->openAttachResult = static_cast<HRESULT>(MAPI_E_NO_ACCESS);
    bool created = false;
    FindAttachment(m_message, "x.sync", attach, true, &created);
    EXPECT_EQ(attach.Get(), former);
    EXPECT_FALSE(created);
}

class ToolsDelete : public NoFakeOutlives {
protected:
    ToolsDelete() {
        m_session.Attach(new CFakeSession(m_world));
        m_folder = m_world.Add("folder", new CFakeFolder(m_world));
        m_bin = m_world.Add("bin", new CFakeFolder(m_world));
        m_store = m_world.Add("store", new CFakeMsgStore(m_world));
        m_folder->values[PR_STORE_ENTRYID] = Bytes(PR_STORE_ENTRYID, "store");
        m_messages = {CMapiBinary(View("one")), CMapiBinary(View("two"))};
    }
    void Delete() { DeleteMessages(m_messages, IMAPIFolderPtr(m_folder), m_session); }
    CRecordingUserInterface m_ui;
    CFakeWorld m_world;
    CMapiSession m_session;
    CFakeFolder *m_folder, *m_bin;
    CFakeMsgStore* m_store;
    std::vector<CMapiBinary> m_messages;
};

TEST_F(ToolsDelete, MovesToTheWastebasketInOrder) {
    m_store->values[PR_IPM_WASTEBASKET_ENTRYID] = Bytes(PR_IPM_WASTEBASKET_ENTRYID, "bin");
    Delete();
    EXPECT_EQ(m_folder->moved, (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(m_folder->movedTo, m_bin);
    EXPECT_EQ(m_folder->createFlags, std::vector<ULONG>{MESSAGE_MOVE});
    EXPECT_TRUE(m_ui.messages.empty());
}

TEST_F(ToolsDelete, WithoutAWastebasketNothingHappensAndNothingIsSaid) {
    Delete();
    EXPECT_TRUE(m_folder->moved.empty());
    EXPECT_TRUE(m_ui.messages.empty());
}

TEST_F(ToolsDelete, FailuresAreShown) {
    m_store->values[PR_IPM_WASTEBASKET_ENTRYID] = Bytes(PR_IPM_WASTEBASKET_ENTRYID, "bin");
    m_folder->moveResult = static_cast<HRESULT>(MAPI_E_NO_ACCESS);
    Delete();
    m_session.Free();  // a use of nothing
    Delete();
    ASSERT_EQ(m_ui.messages.size(), 2u);
    EXPECT_EQ(m_ui.messages[0].text, "DeleteMessages");
    EXPECT_EQ(m_ui.messages[0].caption, ErrorName(static_cast<HRESULT>(MAPI_E_NO_ACCESS)));
    EXPECT_EQ(m_ui.messages[1].text, "Error delete messages");
    EXPECT_EQ(m_ui.messages[1].caption, "");
}

}  // namespace
