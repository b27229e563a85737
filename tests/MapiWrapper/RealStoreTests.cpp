// The wrappers on the embedded store: what only a real store can show.
#include <MapiWrapper/ExchangeTags.h>
#include <MapiWrapper/MapiWrapper.h>
#include <MapiWrapper/MapiWrapper_std.h>
#include <gtest/gtest.h>

#include <support/StoreFixture.h>

namespace {

class RealStore : public TwoStores {
protected:
    void SetUp() override {
        TwoStores::SetUp();
        m_session = CMapiSession(session.Get());
        m_left = IMAPIFolderPtr(left.Get());
        m_right = IMAPIFolderPtr(right.Get());
        m_message = m_left.CreateMessage(nullptr, 0);
    }
    void TearDown() override {
        m_message = IMessagePtr();
        m_left = m_right = IMAPIFolderPtr();
        m_session.Free();
        TwoStores::TearDown();
    }
    // Saved and opened anew, so that it shows what lies in the store.
    IMessagePtr Reopened() {
        m_message.SaveChanges(KEEP_OPEN_READWRITE);
        return m_left.OpenEntryv(m_message.GetBinProp(PR_ENTRYID)).As<IMessagePtr>();
    }
    CMapiSession m_session;
    IMAPIFolderPtr m_left, m_right;
    IMessagePtr m_message;
};

TEST_F(RealStore, BodiesOfEveryForm) {
    const std::string body(100000, 'b');  // more than a property call gives
    m_message.SetBody(body);
    EXPECT_EQ(m_message.GetBody(), body);
    IMessagePtr message = Reopened();
    EXPECT_EQ(message.GetBody(), body);
    EXPECT_EQ(message.GetLongText(PR_BODY_A), body);
    message.SetBody("short");
    EXPECT_EQ(message.GetBody(), "short");
    message.SetBodyW(L"w\u00E4\u20AC");
    EXPECT_EQ(message.GetBody(), WideToAnsi(L"w\u00E4\u20AC"));
}

TEST_F(RealStore, RtfGoesThroughItsCompression) {
    std::string text = "{\\rtf1\\ansi\\deff0{\\fonttbl{\\f0 Arial;}}";
    for (int i = 0; i < 3000; ++i)
        text += "\\pard line " + std::to_string(i) + "\\par\r\n";
    text += "}";
    m_message.SetRtf(text, true);
    IMessagePtr message = Reopened();
    EXPECT_EQ(message.GetRtf(), text);
    EXPECT_NE(message.GetBody().find("line 2999"), std::string::npos);  // synchronised
}

TEST_F(RealStore, HtmlLiesInTheRtf) {
    m_message.SetHtml("a{b\n");
    EXPECT_EQ(m_message.GetRtf(), "{\\fromhtml1 a\\{b \r\n}");
    m_message.SetHtml("a<b>x</b>");
    EXPECT_EQ(m_message.GetHtml(), "<b>x</b>");
    m_message.SetRtf("{\\rtf1 nothing of it}", false);
    EXPECT_EQ(m_message.GetHtml(), "");
}

TEST_F(RealStore, RecipientsAreResolvedAndListed) {
    ASSERT_EQ(m_message.AddRecipient(session.Get(), "Ann", "ann@example.org", "SMTP", false, MAPI_TO), S_OK);
    ASSERT_EQ(m_message.AddRecipient(session.Get(), "Bob", "bob@example.org", "SMTP", true, MAPI_CC), S_OK);
    const CRecipients recipients = Reopened().rawGetRecipients();
    ASSERT_EQ(recipients.size(), 2u);
    EXPECT_EQ(recipients[0]->displayName, "Ann");
    EXPECT_EQ(recipients[0]->emailAddress, "ann@example.org");
    EXPECT_EQ(recipients[0]->addressType, "SMTP");
    EXPECT_EQ(recipients[1]->recipientType, MAPI_CC);
    EXPECT_FALSE(recipients[0]->entryId.IsEmpty());
}

TEST_F(RealStore, ContactLinksGoRound) {
    CContactLinks links;
    m_message.SetStrProp(PR_SUBJECT_A, "contact");
    IMessagePtr contact = Reopened();
    ReadContactLinks(links, contact);
    EXPECT_TRUE(links.empty());
    AddContactLink(links, contact);
    AddContactLink(links, contact);
    WriteContactLinks(links, m_message);
    CContactLinks read;
    ReadContactLinks(read, Reopened());
    ASSERT_EQ(read.size(), 2u);
    EXPECT_EQ(read.back().name, "contact");
    EXPECT_TRUE(read.back().entryId == contact.GetBinProp(PR_ENTRYID));
    EXPECT_TRUE(read.back().searchKey == contact.GetBinProp(PR_SEARCH_KEY));
    EXPECT_EQ(read.back().words, links.back().words);
    EXPECT_EQ(read.back().words[1], 178930430u);
    EXPECT_EQ(read.back().closing, 0x00510000u);
}

// Every call of the store fails once, and then from there on: what was opened is released, nothing but
// CMAPIException comes out, and afterwards the same work succeeds.
TEST_F(RealStore, EveryCallMayFail) {
    CComPtr<IStoreFaults> faults;
    ASSERT_GE(leftStore->QueryInterface(IID_IStoreFaults, reinterpret_cast<void**>(faults.Out())), 0);
    const auto work = [&] {
        IMessagePtr hidden = FindOrCreateHidden(m_left, "Vellum", "IPM.Vellum.IDs", true);
        hidden.SetNamedStr(L"LarchID", "id");
        THROW_ON_FAILURE(hidden.AddAttachmentData("data", 4, "x\\a.sync"));
        hidden.SaveChanges(KEEP_OPEN_READWRITE);
        THROW_ON_FAILURE(FindOrCreateHidden(m_left, "Vellum", "IPM.Vellum.IDs", false).IsValid() ? S_OK
                                                                                                 : E_FAIL);
        const IMAPIFolderPtr one = CreateFolderPath(m_left, "One\\Two", '\\').As<IMAPIFolderPtr>();
        THROW_ON_FAILURE(GetFolderPath(m_session, one, '\\').empty() ? E_FAIL : S_OK);
    };
    for (const BOOL forGood : {FALSE, TRUE}) {
        ULONG n = 1;
        for (; n < 500; ++n) {
            faults->SetFault(n, static_cast<HRESULT>(MAPI_E_DISK_ERROR), forGood);
            try {
                work();
            } catch (const CMAPIException&) {
            }
            const bool reached = faults->CallCount() >= n;
            faults->SetFault(0, S_OK, FALSE);
            if (!reached) break;
        }
        EXPECT_GT(n, 15u);
        EXPECT_LT(n, 500u);
        EXPECT_NO_THROW(work());
    }
}

TEST_F(RealStore, ALogonOfItsOwn) {
    CMapiSession own;
    ASSERT_EQ(LogonMapi(Profile().Name(), own), S_OK);
    EXPECT_EQ(own.OpenDefaultStore().GetStrProp(PR_DISPLAY_NAME_A), "Store 1");
    LogoffMapi(own);
    EXPECT_FALSE(own.IsValid());
    LogoffMapi(own);  // nothing to leave
}

}  // namespace
