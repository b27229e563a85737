// Messages on compound files: real ones, round trips through a store, damaged ones.
#include <MapiStore/MsgFormat.h>
#include <Platform/Files.h>
#include <support/StoreFixture.h>

#include <map>
#include <random>

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
    if (PROP_ID(tag) < 0x8000)
        return Hex(&tag, 0) + std::to_string(PROP_ID(tag)) + ":" + std::to_string(type);
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

std::string StreamText(IMAPIProp* object, ULONG tag) {
    TestRef<IUnknown> unknown;
    if (FAILED(object->OpenProperty(tag, &IID_IStream, 0, 0, unknown.Out()))) return "?";
    auto* stream = static_cast<IStream*>(unknown.Get());
    std::string bytes(1 << 20, '\0');
    std::string all;
    ULONG read = 0;
    while (SUCCEEDED(stream->Read(bytes.data(), static_cast<ULONG>(bytes.size()), &read)) && read)
        all += Hex(bytes.data(), read);
    return all;
}

bool IsOfTheObject(ULONG tag) {
    switch (PROP_ID(tag)) {
        case PROP_ID(PR_LAST_MODIFICATION_TIME):
        case PROP_ID(PR_CREATION_TIME):
        case PROP_ID(PR_ENTRYID):
        case PROP_ID(PR_RECORD_KEY):
        case PROP_ID(PR_INSTANCE_KEY):
        case PROP_ID(PR_PARENT_ENTRYID):
        case PROP_ID(PR_STORE_ENTRYID):
        case PROP_ID(PR_STORE_RECORD_KEY):
        case PROP_ID(PR_MAPPING_SIGNATURE):
        case PROP_ID(PR_MDB_PROVIDER):
        case PROP_ID(PR_MESSAGE_SIZE):
        case PROP_ID(PR_MSG_STATUS):
        case PROP_ID(PR_MESSAGE_FLAGS):
        case PROP_ID(PR_ATTACH_SIZE):
        case PROP_ID(PR_STORE_SUPPORT_MASK):
        case PROP_ID(PR_ACCESS):
        case PROP_ID(PR_ACCESS_LEVEL):
        case PROP_ID(PR_DISPLAY_TO):
        case PROP_ID(PR_DISPLAY_CC):
        case PROP_ID(PR_DISPLAY_BCC):
            return true;
        default:
            return PROP_TYPE(tag) == PT_OBJECT;
    }
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
            story[label] = StreamText(object, tag);
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

std::vector<std::vector<std::string>> RowsOf(IMAPITable* table, std::initializer_list<ULONG> columns) {
    std::vector<ULONG> words(1, static_cast<ULONG>(columns.size()));
    words.insert(words.end(), columns);
    SRowSet* rows = nullptr;
    EXPECT_EQ(S_OK, HrQueryAllRows(table, reinterpret_cast<LPSPropTagArray>(words.data()), nullptr, nullptr,
                                   0, &rows));
    std::vector<std::vector<std::string>> all;
    for (ULONG r = 0; rows && r < rows->cRows; ++r) {
        all.emplace_back();
        for (ULONG c = 0; c < rows->aRow[r].cValues; ++c) {
            const SPropValue& cell = rows->aRow[r].lpProps[c];
            if (PROP_TYPE(cell.ulPropTag) == PT_STRING8)
                all.back().push_back(cell.Value.lpszA);
            else if (PROP_TYPE(cell.ulPropTag) == PT_LONG)
                all.back().push_back(std::to_string(cell.Value.l));
            else if (PROP_TYPE(cell.ulPropTag) == PT_BINARY)
                all.back().push_back(Hex(cell.Value.bin.lpb, cell.Value.bin.cb));
            else
                all.back().push_back("-");
        }
    }
    FreeProws(rows);
    return all;
}

void TellAttachments(IMessage* message, const std::string& prefix, Story& story) {
    TestRef<IMAPITable> table;
    if (FAILED(message->GetAttachmentTable(0, table.Out()))) return;
    int position = 0;
    for (const auto& row : RowsOf(table.Get(), {PR_ATTACH_NUM})) {
        TestRef<IAttach> attach;
        if (FAILED(message->OpenAttach(static_cast<ULONG>(std::stoul(row[0])), nullptr, 0, attach.Out())))
            continue;
        const std::string here = prefix + "attachment " + std::to_string(position++) + " ";
        TellProps(attach.Get(), here, story);
        TestRef<IUnknown> embedded;
        if (SUCCEEDED(attach->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, embedded.Out())))
            Tell(static_cast<IMessage*>(embedded.Get()), here, story);
    }
}

void Tell(IMessage* message, const std::string& prefix, Story& story) {
    TellProps(message, prefix, story);
    TestRef<IMAPITable> table;
    if (SUCCEEDED(message->GetRecipientTable(0, table.Out()))) {
        int position = 0;
        for (const auto& row : RowsOf(table.Get(), {PR_DISPLAY_NAME_A, PR_EMAIL_ADDRESS_A, PR_ADDRTYPE_A,
                                                    PR_RECIPIENT_TYPE, PR_ENTRYID}))
            for (const auto& cell : row)
                story[prefix + "recipient " + std::to_string(position)] += cell + "|", ++position;
    }
    TellAttachments(message, prefix, story);
}

Story StoryOf(IMessage* message) {
    Story story;
    Tell(message, "", story);
    return story;
}

std::string ShownText(IMAPIProp* object, ULONG tag) {
    LPSPropValue value = nullptr;
    if (FAILED(HrGetOneProp(object, tag, &value))) return "?";
    std::string text = value->Value.lpszA;
    MAPIFreeBuffer(value);
    return text;
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

void SetText(IMAPIProp* object, ULONG tag, const char* text) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.lpszA = const_cast<char*>(text);
    EXPECT_EQ(S_OK, HrSetOneProp(object, &value));
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

// A message with everything: text, named properties, recipients, data, an embedded message.
void Fill(IMessage* message) {
    SetText(message, PR_MESSAGE_CLASS_A, "IPM.Note");
    SetText(message, PR_SUBJECT_A,
            "Gr\xC3\xBC\xC3\x9F"
            "e");
    SetText(message, PR_BODY_A, std::string(70000, 'b').c_str());
    MAPINAMEID name{};
    name.lpguid = const_cast<GUID*>(&PS_PUBLIC_STRINGS);
    name.ulKind = MNID_STRING;
    name.Kind.lpwstrName = const_cast<wchar_t*>(L"Keywords");
    LPMAPINAMEID names[] = {&name};
    LPSPropTagArray tags = nullptr;
    ASSERT_EQ(S_OK, message->GetIDsFromNames(1, names, MAPI_CREATE, &tags));
    const char* words[] = {"red", "green"};
    SPropValue keywords{};
    keywords.ulPropTag = CHANGE_PROP_TYPE(tags->aulPropTag[0], PT_MV_STRING8);
    keywords.Value.MVszA = {2, const_cast<LPSTR*>(words)};
    EXPECT_EQ(S_OK, HrSetOneProp(message, &keywords));
    MAPIFreeBuffer(tags);

    SPropValue props[3] = {};
    props[0].ulPropTag = PR_DISPLAY_NAME_A;
    props[0].Value.lpszA = const_cast<char*>("Ann");
    props[1].ulPropTag = PR_EMAIL_ADDRESS_A;
    props[1].Value.lpszA = const_cast<char*>("ann@example.org");
    props[2].ulPropTag = PR_RECIPIENT_TYPE;
    props[2].Value.l = MAPI_CC;
    ADRLIST list{};
    list.cEntries = 1;
    list.aEntries[0].cValues = 3;
    list.aEntries[0].rgPropVals = props;
    EXPECT_EQ(S_OK, message->ModifyRecipients(MODRECIP_ADD, &list));

    TestRef<IAttach> attach;
    ULONG number = 0;
    ASSERT_EQ(S_OK, message->CreateAttach(nullptr, 0, &number, attach.Out()));
    SPropValue method{};
    method.ulPropTag = PR_ATTACH_METHOD;
    method.Value.l = ATTACH_EMBEDDED_MSG;
    EXPECT_EQ(S_OK, HrSetOneProp(attach.Get(), &method));
    TestRef<IUnknown> embedded;
    ASSERT_EQ(S_OK, attach->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                         embedded.Out()));
    auto* inner = static_cast<IMessage*>(embedded.Get());
    SetText(inner, PR_SUBJECT_A, "inner");
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
    EXPECT_EQ(
        "Gr\xC3\xBC\xC3\x9F"
        "e",
        ShownText(message.Get(), PR_SUBJECT_A));
    EXPECT_EQ("Ann", ShownText(message.Get(), PR_DISPLAY_CC_A));
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
    EXPECT_EQ("?", ShownText(message.Get(), PR_BODY_A));
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
        EXPECT_EQ("IPM", ShownText(original.Get(), PR_MESSAGE_CLASS_A).substr(0, 3)) << name;
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
    const std::map<std::string, std::size_t> recipients{{"200_recipients.msg", 200}};
    for (const auto& [name, bytes] : RealFiles()) {
        MemoryFile file(bytes);
        const auto message = MessageOn(file);
        TestRef<IMAPITable> table;
        ASSERT_EQ(S_OK, message->GetRecipientTable(0, table.Out()));
        const auto rows = RowsOf(table.Get(), {PR_DISPLAY_NAME_A});
        if (recipients.count(name)) {
            EXPECT_EQ(recipients.at(name), rows.size()) << name;
        }
        if (name == "msgInMsg.msg") {
            TestRef<IAttach> attach;
            ASSERT_EQ(S_OK, message->OpenAttach(0, nullptr, 0, attach.Out()));
            TestRef<IUnknown> embedded;
            EXPECT_EQ(S_OK, attach->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, embedded.Out()));
        }
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
