// Items as people have them: recurring appointments with changed occurrences, contacts, embedded
// messages. Whatever the importer made of a file has to arrive whole on the other side.
#include <MapiWrapper/GuidText.h>
#include <Platform/Files.h>
#include <Platform/Machine.h>
#include <Platform/Utf8.h>
#include <Tarn/Engine/RecurrenceTexts.h>

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

bool IsIn(const std::string& bytes, const std::string& word) {
    std::string wide;
    for (const char letter : word)
        wide.append({letter, '\0'});
    return bytes.find(word) != std::string::npos || bytes.find(wide) != std::string::npos;
}

// All that a person can write, in the series and in its changed occurrence, stays where it was written.
TEST_F(RealItemsTest, NothingWrittenIntoAPrivateSeriesCrosses) {
    Flags(SYNC_TO_TARGET | SYNC_FROM_TARGET | SYNC_STRIP_PRIVATE);
    auto source = Import("Lanch_time_every_friday_in_2023_chgs1.msg", left);
    ASSERT_TRUE(source);
    SetLong(source.Get(), PR_SENSITIVITY, 2);
    std::vector<std::string> words = {"Lanch", "rescheduled", "attached", "guest", "named"};
    const ULONG tags[] = {PR_CONVERSATION_TOPIC_A, PR_ORIGINAL_SUBJECT_A, PR_COMMENT_A, PR_DISPLAY_NAME_A,
                          PROP_TAG(PT_STRING8, 0x3A0D)};
    for (const ULONG tag : tags) {
        words.push_back(FormatText("text%x", static_cast<unsigned>(tag)));
        SetText(source.Get(), tag, words.back());
    }
    // A text under the number of a time is one.
    for (const LONG id : {0x8208, 0x820D, 0x8232}) {
        words.push_back(FormatText("placed%x", static_cast<unsigned>(id)));
        SetText(source.Get(), NamedTag(source.Get(), AppointmentProps, id, PT_STRING8), words.back());
    }
    SetText(source.Get(), NamedTag(source.Get(), L"Mine", PT_STRING8), "named");
    Attach(source, "attached.txt", "attached");
    AddRecipient(source, "guest");
    Save(source);

    source = OpenOnly(left);
    const auto before = Contents(source.Get());
    const auto copy = CopiedRight(STATE_NEW);
    ASSERT_TRUE(IsMarked(copy));
    ASSERT_EQ(AttachmentsOf(copy) + RecipientsOf(copy), 0u);
    for (const auto& [name, value] : Contents(copy.Get()))
        for (const std::string& word : words)
            EXPECT_FALSE(IsIn(value, word)) << name << " shows " << word;
    const std::string pattern =
        BytesOf(copy.Get(), NamedTag(copy.Get(), AppointmentProps, 0x8216, PT_BINARY));
    EXPECT_GT(pattern.size(), 100u) << "the series stays one";
    EXPECT_FALSE(IsIn(pattern, "Lanch"));

    SetLong(copy.Get(), PR_IMPORTANCE, 2);
    Save(copy);
    CopyLeft({{TextOf(copy.Get(), PR_SUBJECT_A), STATE_MODIFIED}});
    auto after = Contents(OpenOnly(left).Get());
    const std::string importance = FormatText("%08x", static_cast<unsigned>(PR_IMPORTANCE));
    EXPECT_EQ(std::exchange(after[importance], before.at(importance)), "2");
    EXPECT_EQ(after, before);
    EXPECT_EQ(AttachmentsOf(OpenOnly(left)), 2u);
    EXPECT_EQ(RecipientTexts(OpenOnly(left)).back(), "guest|guest|1");
}

TEST_F(RealItemsTest, TextsOfOccurrencesComeBackIntoAChangedPattern) {
    const auto source = Import("Lanch_time_every_friday_in_2023_chgs1.msg", left);
    ASSERT_TRUE(source);
    const std::string whole =
        BytesOf(source.Get(), NamedTag(source.Get(), AppointmentProps, 0x8216, PT_BINARY));
    const std::string bare = RecurrenceWithoutTexts(whole).value_or("");
    ASSERT_TRUE(IsIn(whole, "rescheduled"));
    ASSERT_FALSE(bare.empty() || IsIn(bare, "rescheduled"));
    EXPECT_EQ(RecurrenceWithoutTexts(bare), bare);
    EXPECT_EQ(RecurrenceWithTextsOf(whole, bare)->bytes, whole);

    const size_t startTime = 74;  // within the day
    std::string later = bare;
    later[startTime] ^= 1;
    auto returned = RecurrenceWithTextsOf(whole, later);
    std::string expected = whole;
    expected[startTime] ^= 1;
    EXPECT_EQ(returned->bytes, expected);
    EXPECT_FALSE(returned->losesTexts);

    std::string unchanged =
        bare.substr(0, startTime + 8) + std::string(10, '\0');  // the occurrence as others
    EXPECT_TRUE(RecurrenceWithTextsOf(whole, unchanged)->losesTexts);

    for (size_t cb = 0; cb < whole.size(); ++cb) {
        const auto part = RecurrenceWithoutTexts(whole.substr(0, cb));
        EXPECT_FALSE(part && IsIn(*part, "Lanch")) << cb;
        EXPECT_TRUE(part || !RecurrenceWithTextsOf(whole, whole.substr(0, cb))) << cb;
    }
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
