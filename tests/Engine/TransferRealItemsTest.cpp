// Items as people have them: recurring appointments with changed occurrences, contacts, embedded
// messages. Whatever the importer made of a file has to arrive whole on the other side.
#include <MapiWrapper/GuidText.h>
#include <Platform/Files.h>
#include <Platform/Machine.h>
#include <Platform/Utf8.h>

#include <algorithm>
#include <cstdlib>
#include <map>

#include "CopyFixture.h"

namespace {
std::string ItemDirectory() {
    const char* given = std::getenv("VELLUM_TEST_DATA");
    return JoinPath(given ? given : VELLUM_TEST_DATA, "msg");
}

std::vector<std::string> ItemFiles() {
    std::vector<std::string> files;
    for (const DirectoryEntry& entry : ListDirectory(ItemDirectory()))
        if (!entry.isDirectory && entry.name.size() > 4 && entry.name.substr(entry.name.size() - 4) == ".msg")
            files.push_back(entry.name);
    return files;
}

// Given by the store, or put right by the copy.
bool IsStoresOwn(ULONG tag) {
    static const ULONG own[] = {PR_ENTRYID,
                                PR_RECORD_KEY,
                                PR_INSTANCE_KEY,
                                PR_PARENT_ENTRYID,
                                PR_STORE_ENTRYID,
                                PR_STORE_RECORD_KEY,
                                PR_MAPPING_SIGNATURE,
                                PR_STORE_SUPPORT_MASK,
                                PR_LAST_MODIFICATION_TIME,
                                PR_ACCESS,
                                PR_ACCESS_LEVEL,
                                PR_OBJECT_TYPE,
                                PR_MESSAGE_SIZE,
                                PR_MESSAGE_FLAGS,
                                PR_MDB_PROVIDER,
                                PROP_TAG(PT_BINARY, 0x65E2),   // change key
                                PROP_TAG(PT_BINARY, 0x65E3)};  // predecessors
    return std::any_of(std::begin(own), std::end(own), [tag](ULONG t) { return PROP_ID(t) == PROP_ID(tag); });
}

// The text of a value of any kind and size.
std::string WholeValue(IMAPIProp* object, ULONG tag) {
    LPSPropValue value = nullptr;
    const HRESULT hr = HrGetOneProp(object, tag, &value);
    if (hr == MAPI_E_NOT_ENOUGH_MEMORY) return StreamOf(object, tag);
    if (hr != S_OK) return "error " + std::to_string(static_cast<unsigned>(hr));
    std::string text = ValueText(value);
    if (PROP_TYPE(tag) == PT_UNICODE) text = Utf8FromWide(value->Value.lpszW);
    MAPIFreeBuffer(value);
    return text;
}

// What an object holds, by names that are the same in every store.
std::map<std::string, std::string> Contents(IMAPIProp* object) {
    std::map<std::string, std::string> contents;
    LPSPropTagArray tags = nullptr;
    EXPECT_EQ(object->GetPropList(0, &tags), S_OK);
    if (!tags) return contents;
    for (ULONG i = 0; i < tags->cValues; ++i) {
        const ULONG tag = tags->aulPropTag[i];
        if (PROP_TYPE(tag) == PT_OBJECT || IsStoresOwn(tag)) continue;
        std::string name = FormatText("%08x", static_cast<unsigned>(tag));
        if (PROP_ID(tag) >= 0x8000) {
            SizedSPropTagArray(1, one) = {1, {tag}};
            LPSPropTagArray asked = reinterpret_cast<LPSPropTagArray>(&one);
            ULONG count = 0;
            LPMAPINAMEID* names = nullptr;
            if (object->GetNamesFromIDs(&asked, nullptr, 0, &count, &names) == S_OK && count == 1 && names[0])
                name = (names[0]->ulKind == MNID_ID ? std::to_string(names[0]->Kind.lID)
                                                    : Utf8FromWide(names[0]->Kind.lpwstrName)) +
                       GuidToText(*names[0]->lpguid);
            MAPIFreeBuffer(names);
        }
        if (name.find("Larch") != std::string::npos || name.find("TarnPriv") != std::string::npos) continue;
        contents[name] = WholeValue(object, tag);
    }
    MAPIFreeBuffer(tags);
    return contents;
}

std::vector<std::string> RecipientTexts(const TestRef<IMessage>& message) {
    TestRef<IMAPITable> table;
    EXPECT_EQ(message->GetRecipientTable(0, table.Out()), S_OK);
    const TestRows rows(table.Get(), {PR_DISPLAY_NAME_A, PR_EMAIL_ADDRESS_A, PR_RECIPIENT_TYPE});
    std::vector<std::string> texts;
    for (ULONG i = 0; i < rows.Count(); ++i)
        texts.push_back(rows.Text(i, 0) + "|" + rows.Text(i, 1) + "|" +
                        std::to_string(static_cast<long>(rows.Cell(i, 2).Value.l)));
    return texts;
}

class RealItemsTest : public CopyFixture {
protected:
    void SetUp() override {
        CopyFixture::SetUp();
        if (ItemFiles().empty()) GTEST_SKIP() << "no items in " << ItemDirectory();
    }

    // The item of a file as a new item of the folder; null if the file is not there.
    TestRef<IMessage> Import(const std::string& file, const TestRef<IMAPIFolder>& folder) {
        const std::wstring path = WideFromUtf8(JoinPath(ItemDirectory(), file));
        TestRef<IStorage> storage;
        EXPECT_EQ(StgOpenStorage(path.c_str(), nullptr, STGM_READ | STGM_SHARE_DENY_WRITE, nullptr, 0,
                                 storage.Out()),
                  S_OK);
        TestRef<IMessage> onFile;
        if (!storage) return {};
        EXPECT_EQ(OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer,
                                 MAPIGetDefaultMalloc(), nullptr, storage.Get(), nullptr, 0, 0, onFile.Out()),
                  S_OK);
        TestRef<IMessage> item;
        if (!onFile) return item;
        EXPECT_EQ(folder->CreateMessage(nullptr, 0, item.Out()), S_OK);
        EXPECT_GE(onFile->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, item.Get(), 0, nullptr), 0);
        EXPECT_EQ(item->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        return item;
    }

    static void ExpectSame(const TestRef<IMessage>& a, const TestRef<IMessage>& b) {
        EXPECT_EQ(Contents(a.Get()), Contents(b.Get()));
        EXPECT_EQ(RecipientTexts(a), RecipientTexts(b));
        TestRef<IMAPITable> first;
        TestRef<IMAPITable> second;
        a->GetAttachmentTable(0, first.Out());
        b->GetAttachmentTable(0, second.Out());
        const TestRows firstRows(first.Get(), {PR_ATTACH_NUM});
        const TestRows secondRows(second.Get(), {PR_ATTACH_NUM});
        ASSERT_EQ(firstRows.Count(), secondRows.Count());
        for (ULONG i = 0; i < firstRows.Count(); ++i)
            ExpectSameAttachment(a, static_cast<ULONG>(firstRows.Cell(i, 0).Value.l), b,
                                 static_cast<ULONG>(secondRows.Cell(i, 0).Value.l));
    }
    static void ExpectSameAttachment(const TestRef<IMessage>& a, ULONG aNumber, const TestRef<IMessage>& b,
                                     ULONG bNumber) {
        TestRef<IAttach> first;
        TestRef<IAttach> second;
        ASSERT_EQ(a->OpenAttach(aNumber, nullptr, 0, first.Out()), S_OK);
        ASSERT_EQ(b->OpenAttach(bNumber, nullptr, 0, second.Out()), S_OK);
        auto firstContents = Contents(first.Get());
        auto secondContents = Contents(second.Get());
        for (auto* contents : {&firstContents, &secondContents})
            contents->erase(FormatText("%08x", static_cast<unsigned>(PR_ATTACH_NUM)));
        EXPECT_EQ(firstContents, secondContents);
        if (LongOf(first.Get(), PR_ATTACH_METHOD) != ATTACH_EMBEDDED_MSG) return;
        ExpectSame(Embedded(first), Embedded(second));
    }
    static TestRef<IMessage> Embedded(const TestRef<IAttach>& attachment) {
        TestRef<IMessage> message;
        EXPECT_EQ(attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0,
                                           reinterpret_cast<IUnknown**>(message.Out())),
                  S_OK);
        return message;
    }
    TestRef<IMessage> CopiedRight(LONG state) {
        const CMapiRowSet rows = Rows(left);
        CSyncMessages list;
        auto record = std::make_unique<CSyncMessage>();
        record->m_item = KeyOfRow(rows, 0);
        record->m_syncId = rows.Cell(0, COL_SYNC_ID).Str();
        if (record->m_syncId.empty()) record->m_searchKey = rows.Cell(0, COL_SEARCH_KEY).Binary();
        record->m_modified = rows.Cell(0, COL_MODIFIED).Time();
        record->m_state = state;
        list.Add(std::move(record));
        CopyList(left, right, list);
        return OpenOnly(right);
    }
    void Clear() {
        for (const auto* folder : {&left, &right}) {
            const TestRows rows = ContentsOf(folder->Get(), {PR_ENTRYID});
            std::vector<std::string> ids;
            for (ULONG i = 0; i < rows.Count(); ++i)
                ids.push_back(rows.Bytes(i, 0));
            TestEntryList list(ids);
            (*folder)->DeleteMessages(list.Get(), 0, nullptr, 0);
        }
    }
};

TEST_F(RealItemsTest, EveryItemArrivesWholeAndIsRewrittenWhole) {
    for (const std::string& file : ItemFiles()) {
        SCOPED_TRACE(file);
        Clear();
        ASSERT_TRUE(Import(file, left));
        ExpectSame(OpenOnly(left), CopiedRight(STATE_NEW));
        // Old contents under the new ones would show as doubled recipients or attachments.
        ExpectSame(OpenOnly(left), CopiedRight(STATE_MODIFIED));
        EXPECT_TRUE(m_ui.messages.empty());
        if (HasFailure()) break;
    }
}

// The changed occurrences of a series are attachments of it; no code of ours knows that.
TEST_F(RealItemsTest, SeriesKeepsItsRecurrenceAndItsExceptions) {
    const std::string file = "Lanch_time_every_friday_in_2023_chgs1.msg";
    ASSERT_TRUE(Import(file, left));
    const auto source = OpenOnly(left);
    const ULONG recurrence = NamedTag(source.Get(), AppointmentProps, 0x8216, PT_BINARY);
    const std::string pattern = WholeValue(source.Get(), recurrence);
    ASSERT_GT(pattern.size(), 100u);
    ASSERT_GT(AttachmentsOf(source), 0u);
    const auto target = CopiedRight(STATE_NEW);
    EXPECT_EQ(WholeValue(target.Get(), NamedTag(target.Get(), AppointmentProps, 0x8216, PT_BINARY)), pattern);
    EXPECT_EQ(AttachmentsOf(target), AttachmentsOf(source));
}

TEST_F(RealItemsTest, ContactTakesItsPhotoAlongAndDropsTheOldOne) {
    ASSERT_TRUE(Import("contactUnicode.msg", left));
    auto source = OpenOnly(left);
    const ULONG before = AttachmentsOf(source);
    Attach(source, "ContactPicture.jpg", std::string(100000, 'j'));
    Save(source);
    EXPECT_EQ(AttachmentsOf(CopiedRight(STATE_NEW)), before + 1);
    source = OpenOnly(left);
    ASSERT_EQ(source->DeleteAttach(before, 0, nullptr, 0), S_OK);
    Attach(source, "ContactPicture.jpg", std::string(50000, 'k'));
    Save(source);
    const auto target = CopiedRight(STATE_MODIFIED);
    ASSERT_EQ(AttachmentsOf(target), before + 1);
    ExpectSame(OpenOnly(left), target);
}
}  // namespace
