// Messages on compound files: real ones, round trips through a store, damaged ones.
#include <MapiStore/MsgFiles/MsgFormat.h>
#include <Platform/Files.h>

#include <algorithm>
#include <map>
#include <random>

#include "ItemParts.h"

namespace {

using Bytes = std::string;

// A compound file in memory.
class MemoryFile {
public:
    MemoryFile() { Make(); }
    explicit MemoryFile(const Bytes& bytes) {
        EXPECT_EQ(S_OK, CreateILockBytesOnHGlobal(nullptr, TRUE, m_bytes.Out()));
        ULONG written = 0;
        m_bytes->WriteAt({}, bytes.data(), static_cast<ULONG>(bytes.size()), &written);
        StgOpenStorageOnILockBytes(m_bytes.Get(), nullptr, STGM_READWRITE | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                   m_storage.Out());
    }
    // Null if the bytes are no compound file.
    IStorage* Storage() { return m_storage.Get(); }
    Bytes Take() {
        m_storage->Commit(STGC_DEFAULT);
        m_storage.Reset();
        STATSTG stat{};
        m_bytes->Stat(&stat, STATFLAG_NONAME);
        Bytes bytes(static_cast<std::size_t>(stat.cbSize.QuadPart), '\0');
        ULONG read = 0;
        m_bytes->ReadAt({}, bytes.data(), static_cast<ULONG>(bytes.size()), &read);
        return bytes;
    }

private:
    void Make() {
        EXPECT_EQ(S_OK, CreateILockBytesOnHGlobal(nullptr, TRUE, m_bytes.Out()));
        EXPECT_EQ(S_OK, StgCreateDocfileOnILockBytes(m_bytes.Get(),
                                                     STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0,
                                                     m_storage.Out()));
    }
    TestRef<ILockBytes> m_bytes;
    TestRef<IStorage> m_storage;
};

SCODE OpenMsg(IStorage* storage, IMessage** message) {
    LPMSGSESS session = nullptr;
    EXPECT_EQ(S_OK, OpenIMsgSession(MAPIGetDefaultMalloc(), 0, &session));
    const SCODE code = OpenIMsgOnIStg(session, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer,
                                      MAPIGetDefaultMalloc(), nullptr, storage, nullptr, 0, 0, message);
    CloseIMsgSession(session);
    return code;
}

// --- a message told in lines, for comparison --------------------------------------------------------

using Story = std::map<std::string, std::string>;

std::string Hex(const void* bytes, std::size_t cb) {
    std::string text(cb * 2 + 1, '\0');
    HexFromBin(static_cast<LPBYTE>(const_cast<void*>(bytes)), static_cast<int>(cb), text.data());
    text.resize(cb * 2);
    return text;
}

// Named properties go by their names, since every object numbers them in its own way.
std::string LabelOf(IMAPIProp* object, ULONG tag) {
    ULONG type = PROP_TYPE(tag);
    if ((type & ~static_cast<ULONG>(MV_FLAG)) == PT_UNICODE) type = PT_STRING8 | (type & MV_FLAG);
    if (PROP_ID(tag) < 0x8000) return std::to_string(PROP_ID(tag)) + ":" + std::to_string(type);
    SizedSPropTagArray(1, one) = {1, {tag}};
    auto* tags = reinterpret_cast<LPSPropTagArray>(&one);
    ULONG count = 0;
    LPMAPINAMEID* names = nullptr;
    object->GetNamesFromIDs(&tags, nullptr, 0, &count, &names);
    if (count != 1 || !names || !names[0]) return "unnamed";
    std::string label = Hex(names[0]->lpguid, sizeof(GUID)) + "/";
    if (names[0]->ulKind == MNID_ID)
        label += std::to_string(names[0]->Kind.lID);
    else
        for (const wchar_t* c = names[0]->Kind.lpwstrName; *c; ++c)
            label += static_cast<char>(*c);
    MAPIFreeBuffer(names);
    return label + ":" + std::to_string(type);
}

bool IsOfTheObject(ULONG tag) {
    static const ULONG own[] = {PR_LAST_MODIFICATION_TIME,
                                PR_CREATION_TIME,
                                PR_ENTRYID,
                                PR_RECORD_KEY,
                                PR_INSTANCE_KEY,
                                PR_PARENT_ENTRYID,
                                PR_STORE_ENTRYID,
                                PR_STORE_RECORD_KEY,
                                PR_MAPPING_SIGNATURE,
                                PR_MDB_PROVIDER,
                                PR_MESSAGE_SIZE,
                                PR_MSG_STATUS,
                                PR_MESSAGE_FLAGS,
                                PR_ATTACH_SIZE,
                                PR_STORE_SUPPORT_MASK,
                                PR_ACCESS,
                                PR_ACCESS_LEVEL,
                                PR_DISPLAY_TO,
                                PR_DISPLAY_CC,
                                PR_DISPLAY_BCC};
    return PROP_TYPE(tag) == PT_OBJECT ||
           std::any_of(std::begin(own), std::end(own), [tag](ULONG t) { return PROP_ID(t) == PROP_ID(tag); });
}

void TellProps(IMAPIProp* object, const std::string& prefix, Story& story) {
    LPSPropTagArray tags = nullptr;
    if (FAILED(object->GetPropList(MAPI_UNICODE, &tags))) return;
    for (ULONG i = 0; i < tags->cValues; ++i) {
        const ULONG tag = tags->aulPropTag[i];
        if (IsOfTheObject(tag)) continue;
        const std::string label = prefix + LabelOf(object, tag);
        const ULONG type = PROP_TYPE(tag);
        LPSPropValue value = nullptr;
        if (type == PT_UNICODE || type == PT_BINARY)
            story[label] = StreamOf(object, tag);
        else if (SUCCEEDED(HrGetOneProp(object, tag, &value)))
            story[label] = (type & MV_FLAG) ? std::to_string(value->Value.MVl.cValues) + "/" +
                                                  std::to_string(UlPropSize(value))
                                            : Hex(&value->Value.b, type == PT_BOOLEAN || type == PT_I2 ? 2
                                                                   : UlPropSize(value) == 4            ? 4
                                                                                                       : 8);
        MAPIFreeBuffer(value);
    }
    MAPIFreeBuffer(tags);
}

void Tell(IMessage* message, const std::string& prefix, Story& story);

void TellAttachments(IMessage* message, const std::string& prefix, Story& story) {
    TestRef<IMAPITable> table;
    if (FAILED(message->GetAttachmentTable(0, table.Out()))) return;
    const TestRows rows(table.Get(), {PR_ATTACH_NUM});
    for (ULONG i = 0; i < rows.Count(); ++i) {
        TestRef<IAttach> attach;
        const auto number = static_cast<ULONG>(rows.Cell(i, 0).Value.l);
        if (FAILED(message->OpenAttach(number, nullptr, 0, attach.Out()))) continue;
        const std::string here = prefix + "attachment " + std::to_string(i) + " ";
        TellProps(attach.Get(), here, story);
        if (const auto embedded = EmbeddedIn(attach.Get(), 0)) Tell(embedded.Get(), here, story);
    }
}

void TellRecipients(IMessage* message, const std::string& prefix, Story& story) {
    TestRef<IMAPITable> table;
    if (FAILED(message->GetRecipientTable(0, table.Out()))) return;
    const TestRows rows(
        table.Get(), {PR_DISPLAY_NAME_A, PR_EMAIL_ADDRESS_A, PR_ADDRTYPE_A, PR_ENTRYID, PR_RECIPIENT_TYPE});
    for (ULONG i = 0; i < rows.Count(); ++i)
        story[prefix + "recipient " + std::to_string(i)] = rows.Text(i, 0) + "|" + rows.Text(i, 1) + "|" +
                                                           rows.Text(i, 2) + "|" + rows.Bytes(i, 3) + "|" +
                                                           std::to_string(rows.Cell(i, 4).Value.l);
}

void Tell(IMessage* message, const std::string& prefix, Story& story) {
    TellProps(message, prefix, story);
    TellRecipients(message, prefix, story);
    TellAttachments(message, prefix, story);
}

Story StoryOf(IMessage* message) {
    Story story;
    Tell(message, "", story);
    return story;
}

void ExpectSame(const Story& expected, const Story& actual, const std::string& where) {
    for (const auto& [label, value] : expected) {
        const auto found = actual.find(label);
        ASSERT_NE(found, actual.end()) << where << " lost " << label;
        EXPECT_EQ(value.substr(0, 200), found->second.substr(0, 200)) << where << " " << label;
        EXPECT_EQ(value.size(), found->second.size()) << where << " " << label;
    }
    for (const auto& [label, value] : actual)
        EXPECT_TRUE(expected.count(label))
            << where << " has gained " << label << " = " << value.substr(0, 80);
}

std::vector<std::pair<std::string, Bytes>> RealFiles() {
    std::vector<std::pair<std::string, Bytes>> files;
    const std::string directory = JoinPath(VELLUM_TEST_DATA, "msg");
    for (const DirectoryEntry& entry : ListDirectory(directory)) {
        Bytes bytes;
        if (!entry.isDirectory && ReadFileBytes(JoinPath(directory, entry.name), bytes))
            files.emplace_back(entry.name, std::move(bytes));
    }
    return files;
}

TestRef<IMessage> MessageOn(MemoryFile& file) {
    TestRef<IMessage> message;
    EXPECT_EQ(S_OK, OpenMsg(file.Storage(), message.Out()));
    return message;
}

constexpr char kSubject[] =
    "Gr\xC3\xBC\xC3\x9F"
    "e";

// A message with everything: text, named properties, recipients, data, an embedded message.
void Fill(IMessage* message) {
    EXPECT_EQ(S_OK, SetText(message, PR_MESSAGE_CLASS_A, "IPM.Note"));
    EXPECT_EQ(S_OK, SetText(message, PR_SUBJECT_A, kSubject));
    EXPECT_EQ(S_OK, SetText(message, PR_BODY_A, std::string(70000, 'b')));
    const char* words[] = {"red", "green"};
    SPropValue keywords{};
    keywords.ulPropTag = NamedTag(message, L"Keywords", PT_MV_STRING8);
    keywords.Value.MVszA = {2, const_cast<LPSTR*>(words)};
    EXPECT_EQ(S_OK, HrSetOneProp(message, &keywords));
    EXPECT_EQ(S_OK, ModifyRecipient(message, MODRECIP_ADD, "Ann", MAPI_CC));

    TestRef<IAttach> attach;
    ULONG number = 0;
    ASSERT_EQ(S_OK, message->CreateAttach(nullptr, 0, &number, attach.Out()));
    EXPECT_EQ(S_OK, SetLong(attach.Get(), PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG));
    const auto inner = EmbeddedIn(attach.Get(), MAPI_CREATE | MAPI_MODIFY);
    ASSERT_TRUE(inner);
    EXPECT_EQ(S_OK, SetText(inner.Get(), PR_SUBJECT_A, "inner"));
    EXPECT_EQ(S_OK, inner->SaveChanges(KEEP_OPEN_READWRITE));
    EXPECT_EQ(S_OK, attach->SaveChanges(0));
}

TEST(Msg, NewMessageComesBackFromItsFile) {
    MemoryFile file;
    Story told;
    {
        const auto message = MessageOn(file);
        Fill(message.Get());
        EXPECT_EQ(S_OK, message->SaveChanges(KEEP_OPEN_READWRITE));
        told = StoryOf(message.Get());
    }
    CLSID id{};
    EXPECT_EQ(S_OK, ReadClassStg(file.Storage(), &id));
    EXPECT_TRUE(IsEqualGUID(id, msg::kMessageClass));
    MemoryFile again(file.Take());
    ASSERT_NE(nullptr, again.Storage());
    const auto message = MessageOn(again);
    ExpectSame(told, StoryOf(message.Get()), "file");
    EXPECT_EQ(kSubject, TextOf(message.Get(), PR_SUBJECT_A));
    EXPECT_EQ("Ann", TextOf(message.Get(), PR_DISPLAY_CC_A));
}

TEST(Msg, SavingAgainLeavesNothingOfTheOldMessage) {
    MemoryFile file;
    {
        const auto message = MessageOn(file);
        Fill(message.Get());
        EXPECT_EQ(S_OK, message->SaveChanges(KEEP_OPEN_READWRITE));
        EXPECT_EQ(S_OK, message->DeleteAttach(0, 0, nullptr, 0));
        SizedSPropTagArray(1, body) = {1, {PR_BODY_A}};
        EXPECT_EQ(S_OK, message->DeleteProps(reinterpret_cast<LPSPropTagArray>(&body), nullptr));
        EXPECT_EQ(S_OK, message->SaveChanges(0));
    }
    const auto message = MessageOn(file);
    const Story story = StoryOf(message.Get());
    for (const auto& [label, value] : story)
        EXPECT_EQ(std::string::npos, label.find("attachment")) << label;
    EXPECT_FALSE(HasProp(message.Get(), PR_BODY_A));
}

TEST(Msg, ReleaseIsToldToTheCaller) {
    static int released;
    static ULONG data;
    released = 0;
    MemoryFile file;
    IMessage* message = nullptr;
    const auto onRelease = [](ULONG caller, IMessage*) {
        ++released;
        data = caller;
    };
    ASSERT_EQ(S_OK, OpenIMsgOnIStg(nullptr, MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer, nullptr,
                                   nullptr, file.Storage(), +onRelease, 7, 0, &message));
    message->AddRef();
    message->Release();
    EXPECT_EQ(0, released);
    EXPECT_EQ(0u, message->Release());
    EXPECT_EQ(1, released);
    EXPECT_EQ(7u, data);
}

TEST(Msg, WhatIsNoMessageIsRefused) {
    MemoryFile file;
    TestRef<IStream> stream;
    EXPECT_EQ(S_OK,
              file.Storage()->CreateStream(
                  L"WordDocument", STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0, stream.Out()));
    stream.Reset();
    TestRef<IMessage> message;
    EXPECT_EQ(MAPI_E_CORRUPT_DATA, OpenMsg(file.Storage(), message.Out()));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, OpenMsg(nullptr, message.Out()));
}

TEST(Msg, RealFilesKeepEverythingThroughAStore) {
    const auto files = RealFiles();
    if (files.empty()) GTEST_SKIP() << "no real messages here";
    TestProfile profile("Msg", 1);
    const auto session = profile.LogOn();
    const auto store = OpenTestStore(session.Get(), "Store 1");
    const auto inbox = OpenReceiveFolder(store.Get());
    for (const auto& [name, bytes] : files) {
        MemoryFile file(bytes);
        ASSERT_NE(nullptr, file.Storage()) << name;
        const auto original = MessageOn(file);
        ASSERT_TRUE(original) << name;
        EXPECT_EQ("IPM", TextOf(original.Get(), PR_MESSAGE_CLASS_A).substr(0, 3)) << name;
        const Story expected = StoryOf(original.Get());

        TestRef<IMessage> stored;
        ASSERT_EQ(S_OK, inbox->CreateMessage(nullptr, 0, stored.Out()));
        LPSPropProblemArray problems = nullptr;
        EXPECT_EQ(S_OK, original->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, stored.Get(), 0,
                                         &problems))
            << name;
        EXPECT_EQ(nullptr, problems) << name;
        MAPIFreeBuffer(problems);
        ASSERT_EQ(S_OK, stored->SaveChanges(KEEP_OPEN_READWRITE)) << name;
        EXPECT_EQ(expected.size(), StoryOf(stored.Get()).size() - 0) << name;

        MemoryFile copy;
        {
            const auto target = MessageOn(copy);
            EXPECT_EQ(S_OK, stored->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, target.Get(), 0,
                                           nullptr))
                << name;
            ASSERT_EQ(S_OK, target->SaveChanges(0)) << name;
        }
        MemoryFile again(copy.Take());
        ExpectSame(expected, StoryOf(MessageOn(again).Get()), name);
    }
}

TEST(Msg, RealFilesShowWhatTheyHold) {
    for (const auto& [name, bytes] : RealFiles()) {
        MemoryFile file(bytes);
        const auto message = MessageOn(file);
        const Story story = StoryOf(message.Get());
        const std::string subjectWithin = "attachment 0 " + LabelOf(message.Get(), PR_SUBJECT_A);
        EXPECT_TRUE(name != "200_recipients.msg" || story.count("recipient 199"));
        EXPECT_TRUE(name != "msgInMsg.msg" || story.count(subjectWithin));
    }
}

TEST(Msg, CutAndSpoiledFilesAreReadAsFarAsTheyGo) {
    if (sizeof(wchar_t) == 2) GTEST_SKIP() << "compound files are the system's own here, damaged ones too";
    Bytes whole;
    {
        MemoryFile file;
        {
            const auto message = MessageOn(file);
            Fill(message.Get());
            ASSERT_EQ(S_OK, message->SaveChanges(0));
        }
        whole = file.Take();
    }
    std::size_t opened = 0;
    const auto look = [&](const Bytes& bytes) {
        MemoryFile file(bytes);
        if (!file.Storage()) return;
        TestRef<IMessage> message;
        if (FAILED(OpenMsg(file.Storage(), message.Out()))) return;
        ++opened;
        StoryOf(message.Get());
    };
    for (std::size_t size = 0; size < whole.size(); size += 64)
        look(whole.substr(0, size));
    std::mt19937 random(3);
    for (int round = 0; round < 300; ++round) {
        Bytes spoiled = whole;
        for (int i = 0; i < 4; ++i)
            spoiled[random() % spoiled.size()] = static_cast<char>(random());
        look(spoiled);
    }
    EXPECT_GT(opened, 100u);
}

}  // namespace
