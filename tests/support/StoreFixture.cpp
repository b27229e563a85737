#include "StoreFixture.h"

#include <MapiWrapper/StoreText.h>
#include <MapiWrapper/TagArray.h>

#include <cstdlib>
#include <sstream>

namespace {

char* Mutable(const std::string& text) {
    return const_cast<char*>(text.c_str());
}

std::string BinaryText(const SBinary& bin) {
    return std::string(reinterpret_cast<const char*>(bin.lpb), bin.cb);
}

template <class Take>
void WithProp(IMAPIProp* object, ULONG tag, Take&& take) {
    LPSPropValue value = nullptr;
    if (GetOneText(object, tag, TextFormOf(object), &value) != S_OK) return;
    take(*value);
    MAPIFreeBuffer(value);
}

template <class T, class Open>
TestRef<T> OpenedAs(Open&& open) {
    ULONG type = 0;
    IUnknown* unknown = nullptr;
    const HRESULT hr = open(&type, &unknown);
    EXPECT_EQ(static_cast<unsigned>(hr), 0u);
    return TestRef<T>(static_cast<T*>(unknown));
}

}  // namespace

StoreOptions StoreOptions::OfEnvironment() {
    StoreOptions options;
    const char* names = std::getenv("VELLUM_HABITS");
    std::istringstream stream(names ? names : "");
    for (std::string name; std::getline(stream, name, ',');) {
        ULONG known = 0;
        for (const CStoreHabitName& habit : kStoreHabits)
            if (name == habit.name) known = habit.habit;
        EXPECT_NE(known, 0u) << "no habit " << name;
        options.habits |= known;
    }
    return options;
}

// --- profiles --------------------------------------------------------------------------------------

TestProfile::TestProfile(std::string name, unsigned stores, StoreOptions options) : m_name(std::move(name)) {
    MAPIINIT_0 init{MAPI_INIT_VERSION, MAPI_MULTITHREAD_NOTIFICATIONS};
    EXPECT_EQ(MAPIInitialize(&init), S_OK);
    TestRef<IProfAdmin> admin;
    EXPECT_EQ(MAPIAdminProfiles(0, admin.Out()), S_OK);
    admin->DeleteProfile(Mutable(m_name), 0);  // left behind by a test that crashed
    EXPECT_EQ(admin->CreateProfile(Mutable(m_name), nullptr, 0, 0), S_OK);
    for (unsigned i = 1; i <= stores; ++i)
        AddStore("Store " + std::to_string(i), options);
}

TestProfile::~TestProfile() {
    TestRef<IProfAdmin> admin;
    if (MAPIAdminProfiles(0, admin.Out()) == S_OK) admin->DeleteProfile(Mutable(m_name), 0);
    admin.Reset();
    MAPIUninitialize();
}

TestRef<IMsgServiceAdmin> TestProfile::Services() const {
    TestRef<IProfAdmin> admin;
    TestRef<IMsgServiceAdmin> services;
    EXPECT_EQ(MAPIAdminProfiles(0, admin.Out()), S_OK);
    EXPECT_EQ(admin->AdminServices(Mutable(m_name), nullptr, 0, 0, services.Out()), S_OK);
    return services;
}

void TestProfile::AddStore(const std::string& displayName, StoreOptions options) {
    const auto services = Services();
    ASSERT_EQ(services->CreateMsgService(const_cast<char*>(kStoreServiceName), Mutable(displayName), 0, 0),
              S_OK);
    TestRef<IMAPITable> table;
    ASSERT_EQ(services->GetMsgServiceTable(0, table.Out()), S_OK);
    const TestRows rows(table.Get(), {PR_SERVICE_UID});
    ASSERT_GT(rows.Count(), 0u);
    const std::string uid = rows.Bytes(rows.Count() - 1, 0);  // the newest is the last
    ASSERT_EQ(uid.size(), sizeof(MAPIUID));
    SPropValue values[2] = {};
    values[0].ulPropTag = PR_DISPLAY_NAME_A;
    values[0].Value.lpszA = Mutable(displayName);
    values[1].ulPropTag = PR_STORE_HABITS;
    values[1].Value.l = static_cast<LONG>(options.habits);
    auto* id = reinterpret_cast<MAPIUID*>(Mutable(uid));
    ASSERT_EQ(services->ConfigureMsgService(id, 0, 0, 2, values), S_OK);
}

void TestProfile::SetHabits(unsigned store, ULONG habits) {
    const auto services = Services();
    TestRef<IMAPITable> table;
    ASSERT_EQ(services->GetMsgServiceTable(0, table.Out()), S_OK);
    const TestRows rows(table.Get(), {PR_SERVICE_UID});
    ASSERT_GE(rows.Count(), store);
    std::string uid = rows.Bytes(store - 1, 0);
    SPropValue value{};
    value.ulPropTag = PR_STORE_HABITS;
    value.Value.l = static_cast<LONG>(habits);
    ASSERT_EQ(services->ConfigureMsgService(reinterpret_cast<MAPIUID*>(uid.data()), 0, 0, 1, &value), S_OK);
}

TestRef<IMAPISession> TestProfile::LogOn() const {
    TestRef<IMAPISession> session;
    EXPECT_EQ(MAPILogonEx(0, Mutable(m_name), nullptr, MAPI_EXTENDED | MAPI_NEW_SESSION, session.Out()),
              S_OK);
    return session;
}

// --- stores, folders, messages ---------------------------------------------------------------------

TestRef<IMsgStore> OpenTestStore(IMAPISession* session, const std::string& name) {
    TestRef<IMAPITable> table;
    EXPECT_EQ(session->GetMsgStoresTable(0, table.Out()), S_OK);
    const TestRows rows(table.Get(), {PR_ENTRYID, PR_DISPLAY_NAME_A});
    for (ULONG i = 0; i < rows.Count(); ++i) {
        if (rows.Text(i, 1) != name) continue;
        const SBinary& id = rows.Cell(i, 0).Value.bin;
        TestRef<IMsgStore> store;
        EXPECT_EQ(session->OpenMsgStore(0, id.cb, reinterpret_cast<LPENTRYID>(id.lpb), nullptr,
                                        MAPI_BEST_ACCESS | MDB_NO_DIALOG, store.Out()),
                  S_OK);
        return store;
    }
    return {};
}

TestRef<IMAPIFolder> OpenStoreFolder(IMsgStore* store, ULONG entryIdTag) {
    std::string id = BytesOf(store, entryIdTag);
    return OpenedAs<IMAPIFolder>([&](ULONG* type, IUnknown** object) {
        return store->OpenEntry(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()),
                                nullptr, MAPI_BEST_ACCESS, type, object);
    });
}

TestRef<IMAPIFolder> OpenReceiveFolder(IMsgStore* store) {
    ULONG cb = 0;
    LPENTRYID id = nullptr;
    EXPECT_EQ(store->GetReceiveFolder(nullptr, 0, &cb, &id, nullptr), S_OK);
    auto folder = OpenedAs<IMAPIFolder>([&](ULONG* type, IUnknown** object) {
        return store->OpenEntry(cb, id, nullptr, MAPI_BEST_ACCESS, type, object);
    });
    MAPIFreeBuffer(id);
    return folder;
}

TestRef<IMAPIFolder> MakeFolder(IMAPIFolder* parent, const std::string& name) {
    TestRef<IMAPIFolder> folder;
    CStoreText text(TextFormOf(parent));
    EXPECT_EQ(parent->CreateFolder(FOLDER_GENERIC, text.Argument(name), nullptr, nullptr,
                                   OPEN_IF_EXISTS | text.Flag(), folder.Out()),
              S_OK);
    return folder;
}

TestRef<IMessage> NewMessage(IMAPIFolder* folder, const std::string& subject, const std::string& body) {
    TestRef<IMessage> message;
    EXPECT_EQ(folder->CreateMessage(nullptr, 0, message.Out()), S_OK);
    if (!message) return message;
    EXPECT_EQ(SetText(message.Get(), PR_MESSAGE_CLASS_A, "IPM.Note"), S_OK);
    EXPECT_EQ(SetText(message.Get(), PR_SUBJECT_A, subject), S_OK);
    if (!body.empty()) {
        EXPECT_EQ(SetText(message.Get(), PR_BODY_A, body), S_OK);
    }
    return message;
}

TestRef<IMessage> SavedMessage(IMAPIFolder* folder, const std::string& subject, const std::string& body) {
    auto message = NewMessage(folder, subject, body);
    if (message) {
        EXPECT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    }
    return message;
}

TestRef<IMessage> OpenTestMessage(IMsgStore* store, const std::string& entryId) {
    return OpenedAs<IMessage>([&](ULONG* type, IUnknown** object) {
        return store->OpenEntry(static_cast<ULONG>(entryId.size()),
                                reinterpret_cast<LPENTRYID>(Mutable(entryId)), nullptr, MAPI_BEST_ACCESS,
                                type, object);
    });
}

TestRef<IMAPIFolder> OpenTestFolder(IMsgStore* store, const std::string& entryId) {
    return OpenedAs<IMAPIFolder>([&](ULONG* type, IUnknown** object) {
        return store->OpenEntry(static_cast<ULONG>(entryId.size()),
                                reinterpret_cast<LPENTRYID>(Mutable(entryId)), nullptr, MAPI_BEST_ACCESS,
                                type, object);
    });
}

// --- properties ------------------------------------------------------------------------------------

std::string TextOf(IMAPIProp* object, ULONG tag) {
    std::string text;
    WithProp(object, CHANGE_PROP_TYPE(tag, PT_STRING8),
             [&](const SPropValue& value) { text = value.Value.lpszA; });
    return text;
}

std::string BytesOf(IMAPIProp* object, ULONG tag) {
    std::string bytes;
    WithProp(object, tag, [&](const SPropValue& value) { bytes = BinaryText(value.Value.bin); });
    return bytes;
}

LONG LongOf(IMAPIProp* object, ULONG tag) {
    LONG number = 0;
    WithProp(object, tag, [&](const SPropValue& value) {
        number = PROP_TYPE(tag) == PT_BOOLEAN ? value.Value.b : value.Value.l;
    });
    return number;
}

FILETIME TimeOf(IMAPIProp* object, ULONG tag) {
    FILETIME time{};
    WithProp(object, tag, [&](const SPropValue& value) { time = value.Value.ft; });
    return time;
}

bool HasProp(IMAPIProp* object, ULONG tag) {
    bool has = false;
    WithProp(object, tag, [&](const SPropValue&) { has = true; });
    return has;
}

std::string StreamOf(IMAPIProp* object, ULONG tag) {
    TestRef<IStream> stream;
    std::string bytes;
    if (object->OpenProperty(tag, &IID_IStream, 0, 0, reinterpret_cast<IUnknown**>(stream.Out())) != S_OK)
        return bytes;
    char buffer[4096];
    ULONG read = 0;
    while (stream->Read(buffer, sizeof buffer, &read) == S_OK && read)
        bytes.append(buffer, read);
    return bytes;
}

HRESULT SetText(IMAPIProp* object, ULONG tag, const std::string& text) {
    SPropValue value{};
    value.ulPropTag = CHANGE_PROP_TYPE(tag, PT_STRING8);
    value.Value.lpszA = Mutable(text);
    CStoreText given(TextFormOf(object));
    return HrSetOneProp(object, given.Values(&value, 1));
}

HRESULT SetLong(IMAPIProp* object, ULONG tag, LONG number) {
    SPropValue value{};
    value.ulPropTag = tag;
    if (PROP_TYPE(tag) == PT_BOOLEAN)
        value.Value.b = static_cast<unsigned short>(number);
    else
        value.Value.l = number;
    return HrSetOneProp(object, &value);
}

HRESULT SetBytes(IMAPIProp* object, ULONG tag, const std::string& bytes) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.bin.cb = static_cast<ULONG>(bytes.size());
    value.Value.bin.lpb = reinterpret_cast<LPBYTE>(Mutable(bytes));
    return HrSetOneProp(object, &value);
}

HRESULT SetTime(IMAPIProp* object, ULONG tag, FILETIME time) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.ft = time;
    return HrSetOneProp(object, &value);
}

HRESULT SetStream(IMAPIProp* object, ULONG tag, const std::string& bytes) {
    TestRef<IStream> stream;
    const HRESULT hr = object->OpenProperty(tag, &IID_IStream, STGM_READWRITE, MAPI_CREATE | MAPI_MODIFY,
                                            reinterpret_cast<IUnknown**>(stream.Out()));
    if (FAILED(hr)) return hr;
    ULONG written = 0;
    const HRESULT put = stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written);
    return FAILED(put) ? put : stream->Commit(0);
}

namespace {
ULONG TagOf(IMAPIProp* object, MAPINAMEID& name, ULONG type) {
    LPMAPINAMEID names[] = {&name};
    LPSPropTagArray tags = nullptr;
    EXPECT_EQ(object->GetIDsFromNames(1, names, MAPI_CREATE, &tags), S_OK);
    if (!tags) return PR_NULL;
    const ULONG tag = CHANGE_PROP_TYPE(tags->aulPropTag[0], type);
    MAPIFreeBuffer(tags);
    return tag;
}
}  // namespace

ULONG NamedTag(IMAPIProp* object, const std::wstring& text, ULONG type) {
    MAPINAMEID name{};
    name.lpguid = const_cast<GUID*>(&PS_PUBLIC_STRINGS);
    name.ulKind = MNID_STRING;
    name.Kind.lpwstrName = const_cast<wchar_t*>(text.c_str());
    return TagOf(object, name, type);
}

ULONG NamedTag(IMAPIProp* object, const GUID& set, LONG id, ULONG type) {
    MAPINAMEID name{};
    name.lpguid = const_cast<GUID*>(&set);
    name.ulKind = MNID_ID;
    name.Kind.lID = id;
    return TagOf(object, name, type);
}

// --- tables ----------------------------------------------------------------------------------------

TestRows::TestRows(IMAPITable* table, const std::vector<ULONG>& tags, LPSRestriction restriction,
                   LPSSortOrderSet sort) {
    const TextForm form = TextFormOfSystem();
    CTagArray asked(tags, form);
    CStoreText given(form);
    EXPECT_EQ(
        HrQueryAllRows(table, asked.Get(), given.Restriction(restriction), given.Order(sort), 0, &m_rows),
        S_OK);
    for (ULONG i = 0; i < Count(); ++i) {
        const SRow& row = m_rows->aRow[i];
        EXPECT_EQ(TakeTexts(row.lpProps, row.cValues, tags, form, row.lpProps), S_OK);
    }
}

TestRows::~TestRows() {
    if (m_rows) FreeProws(m_rows);
}

std::string TestRows::Text(ULONG row, ULONG column) const {
    const SPropValue& cell = Cell(row, column);
    return PROP_TYPE(cell.ulPropTag) == PT_STRING8 ? cell.Value.lpszA : "";
}

std::string TestRows::Bytes(ULONG row, ULONG column) const {
    const SPropValue& cell = Cell(row, column);
    return PROP_TYPE(cell.ulPropTag) == PT_BINARY ? BinaryText(cell.Value.bin) : "";
}

TestRows ContentsOf(IMAPIFolder* folder, const std::vector<ULONG>& tags, ULONG flags) {
    TestRef<IMAPITable> table;
    EXPECT_EQ(folder->GetContentsTable(flags, table.Out()), S_OK);
    return table ? TestRows(table.Get(), tags) : TestRows();
}

TestRows HierarchyOf(IMAPIFolder* folder, const std::vector<ULONG>& tags, ULONG flags) {
    TestRef<IMAPITable> table;
    EXPECT_EQ(folder->GetHierarchyTable(flags, table.Out()), S_OK);
    return table ? TestRows(table.Get(), tags) : TestRows();
}

std::string SubjectsIn(IMAPIFolder* folder, ULONG flags) {
    const TestRows rows = ContentsOf(folder, {PR_SUBJECT_A}, flags);
    std::string all;
    for (ULONG i = 0; i < rows.Count(); ++i)
        all += (i ? " " : "") + rows.Text(i, 0);
    return all;
}

HRESULT DeleteBySubject(IMAPIFolder* folder, const std::string& subject) {
    const TestRows rows = ContentsOf(folder, {PR_ENTRYID, PR_SUBJECT_A});
    std::vector<std::string> ids;
    for (ULONG i = 0; i < rows.Count(); ++i)
        if (rows.Text(i, 1) == subject) ids.push_back(rows.Bytes(i, 0));
    TestEntryList list(ids);
    return folder->DeleteMessages(list.Get(), 0, nullptr, 0);
}

TestEntryList::TestEntryList(const std::vector<std::string>& entryIds) {
    for (const auto& id : entryIds)
        m_binaries.push_back({static_cast<ULONG>(id.size()), reinterpret_cast<LPBYTE>(Mutable(id))});
    m_list = {static_cast<ULONG>(m_binaries.size()), m_binaries.data()};
}

// --- fixture ---------------------------------------------------------------------------------------

TwoStores::TwoStores(StoreOptions options) : m_options(options) {}

void TwoStores::SetUp() {
    m_profile = std::make_unique<TestProfile>("Test", 2, m_options);
    OpenStores();
}

void TwoStores::OpenStores() {
    session = m_profile->LogOn();
    ASSERT_TRUE(session);
    leftStore = OpenTestStore(session.Get(), "Store 1");
    rightStore = OpenTestStore(session.Get(), "Store 2");
    ASSERT_TRUE(leftStore && rightStore);
    left = MakeFolder(OpenStoreFolder(leftStore.Get(), PR_IPM_SUBTREE_ENTRYID).Get(), "Left");
    right = MakeFolder(OpenStoreFolder(rightStore.Get(), PR_IPM_SUBTREE_ENTRYID).Get(), "Right");
    ASSERT_TRUE(left && right);
}

void TwoStores::TearDown() {
    CloseStores();
    m_profile.reset();
}

void TwoStores::CloseStores() {
    left.Reset();
    right.Reset();
    leftStore.Reset();
    rightStore.Reset();
    if (session) session->Logoff(0, 0, 0);
    session.Reset();
}
