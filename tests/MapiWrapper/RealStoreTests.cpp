// The wrappers on the embedded store: what only a real store can show.
#include <MapiWrapper/ExchangeTags.h>
#include <MapiWrapper/MapiWrapper.h>
#include <MapiWrapper/MapiWrapper_std.h>
#include <gtest/gtest.h>

#include <Platform/Clock.h>
#include <support/Letters.h>
#include <support/StoreFixture.h>

#include <filesystem>

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
        LeaveStores();
        TwoStores::TearDown();
    }
    void LeaveStores() {
        m_message = IMessagePtr();
        m_left = m_right = IMAPIFolderPtr();
        m_session.Free();
        CloseStores();
    }
    // A store that nobody holds any more has no journal. The thread that looks out for other processes may
    // hold it a moment longer.
    static bool StoresAreLeft() {
        const auto isHeld = [] {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(DataDirectory()))
                if (entry.path().extension().string().find("-wal") != std::string::npos) return true;
            return false;
        };
        for (int i = 0; i < 2000 && isHeld(); ++i)
            SleepMs(1);
        return !isHeld();
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
        EXPECT_EQ(ContentsOf(left.Get(), {PR_ENTRYID}, MAPI_ASSOCIATED).Count(), 1u)
            << "a search that failed was taken for one that found nothing";
    }
    faults.Free();
    LeaveStores();
    EXPECT_TRUE(StoresAreLeft()) << "something that was opened is still held";
}

// Every way in and every way out, under a code page that has hardly any of the letters.
TEST_F(RealStore, EveryLetterGoesInAndComesOut) {
    const CCodePageChoice western;
    m_left.Attach(m_left.Detach());  // forgets that 8-bit text was UTF-8 until now
    for (const std::string& text : Letters()) {
        SCOPED_TRACE(text);
        m_message = m_left.CreateMessage(nullptr, 0);
        const ULONG named = m_message.GetIDFromName(PS_PUBLIC_STRINGS, L"Ort", PT_STRING8);
        const ULONG many = m_message.GetIDFromName(PS_PUBLIC_STRINGS, L"Viele", PT_MV_STRING8);
        m_message.SetBatch(true);
        m_message.SetStrProp(PR_SUBJECT_A, text);
        m_message.SetBatch(false);
        m_message.SaveProps();
        m_message.SetStrProp(named, text);
        m_message.SetNamedStr(L"Name", text.c_str());
        char* twice[] = {const_cast<char*>(text.c_str()), const_cast<char*>("a")};
        SPropValue values{};
        values.ulPropTag = many;
        values.Value.MVszA = {2, twice};
        ASSERT_EQ(m_message.SetPropsHr(&values, 1), S_OK);
        std::string body;
        while (body.size() < 100000)  // more than a property call gives, and than one portion of a stream
            body += text + " ";
        m_message.SetBody(body);
        m_message.WriteStream(PR_BODY_HTML_A, text);
        ASSERT_EQ(m_message.AddRecipient(session.Get(), text, "a@example.org", "SMTP", true, MAPI_TO), S_OK);
        IAttachPtr attachment;
        ASSERT_EQ(m_message.AddAttachment((text + ".txt").c_str(), ATTACH_BY_VALUE, attachment), S_OK);
        attachment.SaveChanges();

        const IMessagePtr read = Reopened();
        EXPECT_EQ(read.GetStrProp(PR_SUBJECT_A), text);
        EXPECT_EQ(read.GetTitle(), text);
        EXPECT_EQ(read.GetStrPropOrEmpty(named), text);
        EXPECT_EQ(read.GetNamedStr(L"Name"), text);
        EXPECT_EQ(read.GetProps({many})[0].Text(), text + "; a");
        EXPECT_EQ(read.GetBody(), body);
        EXPECT_EQ(read.GetLongText(PR_BODY_A), body);
        EXPECT_EQ(read.GetHtml(), text);
        EXPECT_EQ(read.rawGetRecipients().at(0)->displayName, text);
        const CMapiPropValues any =
            read.GetProps({PROP_TAG(PT_UNSPECIFIED, PROP_ID(PR_SUBJECT)), PR_SUBJECT_W});
        EXPECT_EQ(any[0].Tag(), PR_SUBJECT_A);
        EXPECT_EQ(any[0].Str(), text);
        EXPECT_EQ(any[1].Type(), PT_UNICODE) << "asked for by that name";
        EXPECT_EQ(any[1].Str(), text);

        const IMAPIFolderPtr folder = CreateFolderPath(m_left, text + "\\x", '\\').As<IMAPIFolderPtr>();
        EXPECT_EQ(GetFolderPath(m_session, folder, '\\'), "Left\\" + text + "\\x");
        EXPECT_EQ(FindSubfolder(m_left, text).GetStrProp(PR_DISPLAY_NAME_A), text);
        const IMessagePtr hidden = FindOrCreateHidden(m_left, text, "IPM.Vellum.IDs", true);
        EXPECT_EQ(hidden.GetTitle(), text);
    }
    EXPECT_EQ(m_left._rawHierrarchyTable().QueryRows({PR_DISPLAY_NAME_A}).Count(), Letters().size());
    const CMapiRowSet rows = m_left._rawContentsTable().QueryRows({PR_SUBJECT_A});
    for (const std::string& text : Letters())
        EXPECT_GE(rows.FindRow(0, text), 0) << text;
}

TEST_F(RealStore, ALogonOfItsOwn) {
    CMapiSession own;
    ASSERT_EQ(LogonMapi(Profile().Name(), own), S_OK);
    EXPECT_EQ(own.OpenDefaultStore().GetStrProp(PR_DISPLAY_NAME_A), "Store 1");
    LogoffMapi(own);
    EXPECT_FALSE(own.IsValid());
    LogoffMapi(own);  // nothing to leave
}

TEST_F(RealStore, ANamedProfileIsNotTheOneThatSomebodyShares) {
    TestProfile other("shared by others", 1);
    TestRef<IMAPISession> shared;
    ASSERT_EQ(MAPILogonEx(0, reinterpret_cast<LPTSTR>(const_cast<char*>(other.Name().c_str())), nullptr,
                          MAPI_EXTENDED | MAPI_NEW_SESSION | MAPI_ALLOW_OTHERS, shared.Out()),
              S_OK);
    const auto keyOf = [](const CMapiSession& from) {
        return from.OpenDefaultStore().GetBinProp(PR_RECORD_KEY).Hex();
    };
    CMapiSession named, unnamed;
    ASSERT_EQ(LogonMapi(Profile().Name(), named), S_OK);
    EXPECT_EQ(keyOf(named), keyOf(CMapiSession(session.Get())));
    ASSERT_EQ(LogonMapi("", unnamed), S_OK);
    EXPECT_EQ(keyOf(unnamed), keyOf(CMapiSession(shared.Get()))) << "without a name the shared one will do";
    LogoffMapi(named);
    LogoffMapi(unnamed);
    shared->Logoff(0, 0, 0);
}

}  // namespace
