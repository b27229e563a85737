// Messages: bodies, attachments, recipients, contact links.
#include "FakeStore.h"

#include <MapiWrapper/ExchangeTags.h>
#include <gtest/gtest.h>

namespace {

using namespace fakes;

class Messages : public NoFakeOutlives {
protected:
    Messages() { m_message.Attach(m_fake); }
    CFakeMessage* m_fake = new CFakeMessage;
    IMessagePtr m_message;
};

TEST_F(Messages, TheBodyIsWrittenWithItsEndAndReadPieceByPiece) {
    m_message.SetBody("hello");
    EXPECT_EQ(m_fake->streams[PR_BODY_A].bytes, std::string("hello\0", 6));
    EXPECT_EQ(m_fake->streams[PR_BODY_A].commits, 1);
    EXPECT_EQ(m_message.GetBody(), "hello");
    m_fake->streams[PR_BODY_A].bytes = std::string(200000, 'x');
    EXPECT_EQ(m_message.GetBody().size(), 200000u);
    EXPECT_EQ(m_message.GetLongText(PR_BODY_A).size(), 200000u);
}

TEST_F(Messages, WithoutAStreamTheBodyIsAProperty) {
    m_fake->createsStreams = false;
    EXPECT_EQ(m_message.GetBody(), "");
    m_message.SetBody("short");
    EXPECT_EQ(m_message.GetBody(), "short");
    EXPECT_EQ(m_message.GetLongText(PR_BODY_A), "short");
    m_fake->setResult = static_cast<HRESULT>(MAPI_E_NO_ACCESS);
    EXPECT_THROW(m_message.SetBody("short"), CMAPIException);
    m_fake->setResult = S_OK;
    m_fake->createsStreams = true;
    m_fake->streams[PR_BODY_A].writeResult = static_cast<HRESULT>(MAPI_E_NOT_ENOUGH_DISK);
    m_message.SetBody("lost otherwise");
    EXPECT_EQ(m_fake->values[PR_BODY_A].Str(), "lost otherwise");
    EXPECT_EQ(IMessagePtr().GetBody(), "");
}

TEST_F(Messages, BatchModeKeepsTheBody) {
    m_message.SetBatch(true);
    m_message.SetBody("kept");
    m_fake->streams[PR_BODY_A].bytes = "changed below";
    EXPECT_EQ(m_message.GetBody(), "kept");
    m_message.SetBatch(false);
    EXPECT_EQ(m_message.GetBody(), "changed below");
}

// A store that has nothing but 8-bit text is asked for nothing else, and keeps what its code page has.
TEST_F(Messages, AStoreWithoutWideTextIsConverted) {
    const CCodePageChoice western;
    m_fake->values[PR_STORE_SUPPORT_MASK] = Number(PR_STORE_SUPPORT_MASK, STORE_MODIFY_OK);
    m_message.SetStrProp(PR_SUBJECT_A, "Größe");
    EXPECT_STREQ(m_fake->values[PR_SUBJECT_A].Get()->Value.lpszA,
                 "Gr\xF6\xDF"
                 "e");
    EXPECT_EQ(m_message.GetStrProp(PR_SUBJECT_A), "Größe");
    EXPECT_EQ(m_message.GetProps({PR_SUBJECT_A, PR_SUBJECT_W})[1].Str(), "Größe");
    m_message.SetWideProp(PR_SUBJECT_W, L"\u00DF Ж");
    EXPECT_EQ(m_message.GetTitle(), "ß ?");
    m_message.SetBody("Größe");
    EXPECT_EQ(m_fake->streams[PR_BODY_A].bytes, std::string("Gr\xF6\xDF"
                                                            "e\0",
                                                            6));
    EXPECT_EQ(m_message.GetBody(), "Größe");
    EXPECT_EQ(m_fake->getCalls, 4) << "asked once what it takes";

    const auto fits = [](const std::string& text) {
        CFakeTable::CRow row;
        row[PR_SUBJECT_A] = Text(PR_SUBJECT_A,
                                 "Gr\xF6\xDF"
                                 "e");
        IMAPITablePtr table;
        table.Attach(new CFakeTable({row}));
        table.SetText(TextForm::Narrow);
        SPropValue value{};
        value.ulPropTag = PR_SUBJECT_A;
        value.Value.lpszA = const_cast<char*>(text.c_str());
        SRestriction is{};
        is.rt = RES_PROPERTY;
        is.res.resProperty = {RELOP_EQ, PR_SUBJECT_A, &value};
        return table.FindRow(&is, BOOKMARK_BEGINNING) == S_OK;
    };
    EXPECT_TRUE(fits("Größe"));
    EXPECT_FALSE(fits("??????"));
    EXPECT_FALSE(fits("Работа")) << "what it cannot hold is not what it shows of it";
}

TEST_F(Messages, TitleFallsBackToTheDisplayName) {
    EXPECT_EQ(m_message.GetTitle(), "");
    m_fake->values[PR_DISPLAY_NAME_A] = Text(PR_DISPLAY_NAME_A, "name");
    EXPECT_EQ(m_message.GetTitle(), "name");
    m_fake->values[PR_SUBJECT_A] = Text(PR_SUBJECT_A, "");
    EXPECT_EQ(m_message.GetTitle(), "");
}

TEST_F(Messages, StreamsOfAnyProperty) {
    m_message.WriteStream(PR_BODY_A, "text");
    EXPECT_EQ(m_fake->streams[PR_BODY_A].bytes, "text");
    m_fake->streams[PR_BODY_A].cbPortion = 3;
    EXPECT_EQ(m_message.ReadStream(PR_BODY_A, 2), "text");
    EXPECT_THROW(m_message.ReadStream(PR_HTML, 2), CMAPIException);
    m_fake->streams[PR_BODY_A].readResult = static_cast<HRESULT>(MAPI_E_CORRUPT_DATA);
    EXPECT_THROW(m_message.ReadStream(PR_BODY_A, 2), CMAPIException);
    EXPECT_EQ(m_message.GetBody(), "");
}

TEST_F(Messages, HtmlPropertyGoesBeforeTheRtf) {
    m_fake->values[PR_BODY_HTML_A] = Text(PR_BODY_HTML_A, "<p>");
    EXPECT_EQ(m_message.GetHtml(), "<p>");
    m_fake->values.clear();
    EXPECT_THROW(m_message.GetHtml(), CMAPIException);  // neither
    m_fake->createsStreams = false;
    m_message.SetRtf("{}", true);  // silently nothing
    m_message.SetHtml("<p>");
    EXPECT_TRUE(m_fake->streams.empty());
}

struct CNameCase {
    const char* path;
    const char* fileName;
    const char* location;
    const char* extension;
    const char* mimeType;  // "" where the property is not set
};

TEST_F(Messages, AttachmentNamesComeFromThePath) {
    const CNameCase cases[] = {
        {"C:\\dir\\longfilename.jpg", "longfilename.jpg", "longfil.jpg", ".jpg", "image/jpg"},
        {"/tmp/exactly8.txt", "exactly8.txt", "exactly8.txt", ".txt", ""},
        {"dir/noextensionatall", "noextensionatall", "noextensionatall", "", ""},
        {"d/averylong.tar.gz", "averylong.tar.gz", "averylo.tar.gz", ".gz", ""},
        {"dir.x/plain", "plain", "plain", "", ""},
        {"averylongname.txt", "averylongname.txt", "averylongname.txt", ".txt", ""},
        {"dir\\", "", "", "", ""},
        {"C:\\a.GIF", "a.GIF", "a.GIF", ".GIF", "image/gif"},
        {"C:\\a.png", "a.png", "a.png", ".png", ""},
    };
    for (const CNameCase& c : cases) {
        IAttachPtr attach;
        ASSERT_EQ(m_message.AddAttachment(c.path, ATTACH_BY_VALUE, attach), S_OK) << c.path;
        EXPECT_EQ(attach.GetStrProp(PR_ATTACH_FILENAME_A), c.fileName);
        EXPECT_EQ(attach.GetStrProp(PR_ATTACH_LONG_FILENAME_A), c.fileName);
        EXPECT_EQ(attach.GetStrProp(PR_DISPLAY_NAME_A), c.fileName);
        EXPECT_EQ(attach.GetStrProp(PR_ATTACH_CONTENT_LOCATION_A), c.location);
        EXPECT_EQ(attach.GetStrProp(PR_ATTACH_EXTENSION_A), c.extension);
        EXPECT_EQ(attach.GetStrPropOrEmpty(PR_ATTACH_MIME_TAG_A), c.mimeType);
        EXPECT_EQ(attach.GetLongProp(PR_RENDERING_POSITION), 2000);
        EXPECT_EQ(attach.GetBinProp(PR_ATTACH_TAG).Hex(), "2A864886F714030A04");
    }
    EXPECT_EQ(m_fake->values[PR_ATTACH_FLAGS].Long(), 1);  // on the message as well
    IAttachPtr attach;
    ASSERT_EQ(m_message.AddAttachment(nullptr, ATTACH_BY_VALUE, attach), S_OK);
    EXPECT_EQ(m_fake->attachments.back()->values.size(), 0u);
}

TEST_F(Messages, AttachmentDataIsSavedUnlessTheCallerTakesIt) {
    EXPECT_EQ(m_message.AddAttachmentData("abc", 3, "a\\b.txt"), S_OK);
    EXPECT_EQ(m_fake->attachments[0]->saves, std::vector<ULONG>{FORCE_SAVE});
    IAttachPtr attach;
    EXPECT_EQ(m_message.AddAttachmentData("def", 3, "a\\b.txt", &attach), S_OK);
    EXPECT_TRUE(m_fake->attachments[1]->saves.empty());
    EXPECT_EQ(m_fake->attachments[1]->References(), 2u);
    std::string data;
    EXPECT_TRUE(m_message.ReadAttachment(1, data));
    EXPECT_EQ(data, "def");
    EXPECT_FALSE(m_message.ReadAttachment(7, data));
    EXPECT_EQ(data, "");
    m_fake->attachments[1]->streams[PR_ATTACH_DATA_BIN].cbStat = 0x7FFFFFFF;
    EXPECT_FALSE(m_message.ReadAttachment(1, data));  // a size that nobody can mean
}

TEST_F(Messages, AnAttachmentFileIsCopiedInBlocks) {
    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    const std::string bytes(2500, 'q');
    std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::rewind(file);
    EXPECT_EQ(m_message.AddAttachmentFile(file, "a\\b.txt"), S_OK);
    const CFakeBytes& written = m_fake->attachments[0]->streams[PR_ATTACH_DATA_BIN];
    EXPECT_EQ(written.bytes, bytes);
    EXPECT_EQ(written.writes, (std::vector<ULONG>{1024, 1024, 452}));
    std::fclose(file);
}

TEST_F(Messages, RecipientsMayLackPropertiesAndTheirTableMayFail) {
    m_fake->recipients = {{{PR_DISPLAY_NAME_A, Text(PR_DISPLAY_NAME_A, "Bob")}}};
    const CRecipients recipients = m_message.rawGetRecipients();
    ASSERT_EQ(recipients.size(), 1u);
    EXPECT_EQ(recipients[0]->displayName, "Bob");
    EXPECT_EQ(recipients[0]->emailAddress, "");
    m_fake->recipientResult = static_cast<HRESULT>(MAPI_E_NO_ACCESS);
    ExpectThrows(
        "IMessagePtr::rawGetRecipients", [&] { m_message.rawGetRecipients(); }, m_fake->recipientResult);
    EXPECT_EQ(m_message.AddRecipient(nullptr, "a", "b", "SMTP", false, MAPI_TO),
              static_cast<HRESULT>(MAPI_E_NO_SUPPORT));
}

CContactLinks TwoLinks() {
    CContactLinks links(2);
    links.front().name = "Ann";
    links.front().entryId = BinaryFromHex("0102");
    links.front().searchKey = BinaryFromHex("AABB");
    links.front().words = {1, 2, 3, 4, 5, 6, 7, 8};
    links.front().closing = 9;
    links.back().name = "Bob";
    links.back().entryId = BinaryFromHex("03");
    links.back().searchKey.Assign(std::string(128, 'k').data(), 128);
    return links;
}

const ULONG kEntriesTag = PROP_TAG(PT_BINARY, 0x8D85);  // as the fake numbers 0x8585
const ULONG kKeysTag = PROP_TAG(PT_BINARY, 0x8D84);

TEST_F(Messages, ContactLinksGoRound) {
    CContactLinks links;
    ReadContactLinks(links, m_message);
    EXPECT_TRUE(links.empty());
    WriteContactLinks(TwoLinks(), m_message);
    ReadContactLinks(links, m_message);
    ASSERT_EQ(links.size(), 2u);
    EXPECT_EQ(links.front().name, "Ann");
    EXPECT_EQ(links.front().entryId.Hex(), "0102");
    EXPECT_EQ(links.front().searchKey.Hex(), "AABB");
    EXPECT_EQ(links.front().words[7], 8u);
    EXPECT_EQ(links.front().closing, 9u);
    EXPECT_EQ(links.back().searchKey.Hex(), std::string(32, '0'));  // too long to be kept
    // header, then length word, eight words, blob and closing word of the first entry
    const std::string& a = m_fake->streams[kEntriesTag].bytes;
    EXPECT_EQ(HexFromBinary(View(a.substr(0, 12))),
              "02000000"
              "51000000"
              "29000000");
    EXPECT_EQ(a.size(), 8u + 46 + 45);
    const std::string& b = m_fake->streams[kKeysTag].bytes;
    EXPECT_EQ(HexFromBinary(View(b.substr(0, 14))),
              "02000000"
              "1A000000"
              "02000000"
              "AABB");
    EXPECT_EQ(m_fake->values[PROP_TAG(PT_STRING8, 0x8D86)].Str(), "Ann; Bob");
    EXPECT_EQ(m_fake->streams[kKeysTag].commits, 1);
}

TEST_F(Messages, DamagedContactLinksEndWithThoseReadSoFar) {
    WriteContactLinks(TwoLinks(), m_message);
    const std::string whole = m_fake->streams[kEntriesTag].bytes;
    for (size_t cut = 0; cut < whole.size(); ++cut) {
        m_fake->streams[kEntriesTag].bytes = whole.substr(0, cut);
        CContactLinks links;
        EXPECT_FALSE(ReadContactLinks(links, m_message)) << cut;
        EXPECT_EQ(links.size(), cut < 8 + 46 ? 0u : 1u) << cut;
    }
    m_fake->streams[kEntriesTag].bytes = whole;
    m_fake->streams[kEntriesTag].readResult = static_cast<HRESULT>(MAPI_E_NETWORK_ERROR);
    CContactLinks links;
    EXPECT_THROW(ReadContactLinks(links, m_message), CMAPIException);
}

}  // namespace
