#include <Platform/Clock.h>
#include <Platform/Machine.h>
#include <Tarn/Engine/FolderKey.h>
#include <support/TwoFolders.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace {
std::vector<std::string> Names(const std::string& items) {
    std::istringstream stream(items);
    std::vector<std::string> names;
    for (std::string name; stream >> name;)
        names.push_back(name);
    return names;
}

std::string Joined(std::vector<std::string> names) {
    std::sort(names.begin(), names.end());
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : " ") + name;
    return text;
}

std::string Sorted(const std::string& items) {
    return Joined(Names(items));
}

std::string EntryIdOf(IMAPIFolder* folder, const std::string& item) {
    const TestRows rows = ContentsOf(folder, {PR_ENTRYID, PR_SUBJECT_A});
    for (ULONG row = 0; row < rows.Count(); ++row)
        if (rows.Text(row, 1) == item) return rows.Bytes(row, 0);
    ADD_FAILURE() << "no item " << item;
    return {};
}

void CopyItem(IMAPIFolder* from, const std::string& item, IMAPIFolder* to, ULONG flags) {
    const std::vector<std::string> ids = {EntryIdOf(from, item)};
    TestEntryList list(ids);
    EXPECT_EQ(from->CopyMessages(list.Get(), nullptr, to, 0, nullptr, flags), S_OK) << item;
}

SBinary BinaryOf(const std::string& bytes) {
    return {static_cast<ULONG>(bytes.size()), reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()))};
}

TestRef<IMAPIFolder> OpenFolder(IMsgStore* store, const std::string& entryId) {
    ULONG type = 0;
    IUnknown* object = nullptr;
    const SBinary id = BinaryOf(entryId);
    EXPECT_EQ(store->OpenEntry(id.cb, reinterpret_cast<LPENTRYID>(id.lpb), nullptr, MAPI_BEST_ACCESS, &type,
                               &object),
              S_OK);
    return TestRef<IMAPIFolder>(static_cast<IMAPIFolder*>(object));
}

// Subjects of all items in the folder and below it.
void CollectBelow(IMsgStore* store, IMAPIFolder* folder, std::vector<std::string>& names) {
    const TestRows items = ContentsOf(folder, {PR_SUBJECT_A});
    for (ULONG row = 0; row < items.Count(); ++row)
        names.push_back(items.Text(row, 0));
    const TestRows children = HierarchyOf(folder, {PR_ENTRYID});
    for (ULONG row = 0; row < children.Count(); ++row)
        CollectBelow(store, OpenFolder(store, children.Bytes(row, 0)).Get(), names);
}

std::string ItemsBelow(IMsgStore* store, IMAPIFolder* top, const std::string& child) {
    std::vector<std::string> names;
    const TestRows children = HierarchyOf(top, {PR_ENTRYID, PR_DISPLAY_NAME_A});
    for (ULONG row = 0; row < children.Count(); ++row)
        if (children.Text(row, 1) == child)
            CollectBelow(store, OpenFolder(store, children.Bytes(row, 0)).Get(), names);
    return Joined(names);
}
}  // namespace

// --- StorySide -------------------------------------------------------------------------------------

StorySide::StorySide(std::string name, TestRef<IMsgStore> store, TestRef<IMAPIFolder> folder)
    : m_name(std::move(name)), m_store(std::move(store)), m_folder(std::move(folder)) {}

TestRef<IMessage> StorySide::Open(const std::string& item) const {
    return OpenTestMessage(m_store.Get(), EntryIdOf(m_folder.Get(), item));
}

TestRef<IMAPIFolder> StorySide::Beside() {
    return MakeFolder(OpenStoreFolder(m_store.Get(), PR_IPM_SUBTREE_ENTRYID).Get(), "Beside");
}

Step StorySide::Creates(std::string items) {
    return [this, items] {
        for (const std::string& item : Names(items))
            SavedMessage(m_folder.Get(), item, "text of " + item);
    };
}

Step StorySide::Changes(std::string item, std::string body) {
    return [this, item, body] {
        const TestRef<IMessage> message = Open(item);
        EXPECT_EQ(SetText(message.Get(), PR_BODY_A, body), S_OK);
        EXPECT_EQ(message->SaveChanges(0), S_OK);
    };
}

Step StorySide::ChangesAt(std::string item, std::string body, FILETIME time) {
    return [this, item, body, time] {
        const TestRef<IMessage> message = Open(item);
        EXPECT_EQ(SetText(message.Get(), PR_BODY_A, body), S_OK);
        EXPECT_EQ(SetTime(message.Get(), PR_LAST_MODIFICATION_TIME, time), S_OK);
        EXPECT_EQ(message->SaveChanges(0), S_OK);
    };
}

Step StorySide::Renames(std::string item, std::string subject) {
    return [this, item, subject] {
        const TestRef<IMessage> message = Open(item);
        EXPECT_EQ(SetText(message.Get(), PR_SUBJECT_A, subject), S_OK);
        EXPECT_EQ(message->SaveChanges(0), S_OK);
    };
}

Step StorySide::RenamesNewest(std::string item, std::string subject) {
    return [this, item, subject] {
        std::string newest;  // entry IDs of a store are given in ascending order
        const TestRows rows = ContentsOf(m_folder.Get(), {PR_ENTRYID, PR_SUBJECT_A});
        for (ULONG row = 0; row < rows.Count(); ++row)
            if (rows.Text(row, 1) == item) newest = std::max(newest, rows.Bytes(row, 0));
        const TestRef<IMessage> message = OpenTestMessage(m_store.Get(), newest);
        EXPECT_EQ(SetText(message.Get(), PR_SUBJECT_A, subject), S_OK);
        EXPECT_EQ(message->SaveChanges(0), S_OK);
    };
}

Step StorySide::Deletes(std::string items) {
    return [this, items] {
        for (const std::string& item : Names(items))
            EXPECT_EQ(DeleteBySubject(m_folder.Get(), item), S_OK) << item;
    };
}

Step StorySide::CopiesWithin(std::string item) {
    return [this, item] { CopyItem(m_folder.Get(), item, m_folder.Get(), 0); };
}

Step StorySide::MovesOut(std::string item) {
    return [this, item] { CopyItem(m_folder.Get(), item, Beside().Get(), MESSAGE_MOVE); };
}

Step StorySide::MovesIn(std::string item) {
    return [this, item] { CopyItem(Beside().Get(), item, m_folder.Get(), MESSAGE_MOVE); };
}

Step StorySide::CopiesTo(StorySide& other, std::string item) {
    return [this, &other, item] { CopyItem(m_folder.Get(), item, other.m_folder.Get(), 0); };
}

std::string StorySide::Items() const {
    std::vector<std::string> names;
    const TestRows rows = ContentsOf(m_folder.Get(), {PR_SUBJECT_A});
    for (ULONG row = 0; row < rows.Count(); ++row)
        names.push_back(rows.Text(row, 0));
    return Joined(names);
}

bool StorySide::Holds(const std::string& item) const {
    const TestRows rows = ContentsOf(m_folder.Get(), {PR_SUBJECT_A});
    for (ULONG row = 0; row < rows.Count(); ++row)
        if (rows.Text(row, 0) == item) return true;
    return false;
}

std::string StorySide::BodyOf(const std::string& item) const {
    return TextOf(Open(item).Get(), PR_BODY_A);
}

std::string StorySide::Fingerprint() const {
    std::vector<std::string> lines;
    const TestRows rows = ContentsOf(m_folder.Get(), {PR_ENTRYID, PR_LAST_MODIFICATION_TIME, PR_SUBJECT_A});
    for (ULONG row = 0; row < rows.Count(); ++row) {
        const std::string id = rows.Bytes(row, 0);
        lines.push_back(HexFromBinary(BinaryOf(id)) + "@" +
                        std::to_string(TicksOf(rows.Cell(row, 1).Value.ft)) + rows.Text(row, 2));
    }
    return Joined(lines);
}

std::string StorySide::ConflictCopies() const {
    return ItemsBelow(m_store.Get(), OpenStoreFolder(m_store.Get(), PR_IPM_SUBTREE_ENTRYID).Get(),
                      "Conflicts");
}

std::string StorySide::Discarded() const {
    return ItemsBelow(m_store.Get(), OpenStoreFolder(m_store.Get(), PR_IPM_WASTEBASKET_ENTRYID).Get(),
                      "Vellumware");
}

Step StorySide::Has(std::string items) {
    return [this, items] { EXPECT_EQ(Items(), Sorted(items)) << m_name; };
}

Step StorySide::Reads(std::string item, std::string body) {
    return [this, item, body] { EXPECT_EQ(BodyOf(item), body) << m_name << " " << item; };
}

Step StorySide::KeepsConflictCopies(std::string items) {
    return [this, items] { EXPECT_EQ(ConflictCopies(), Sorted(items)) << m_name; };
}

Step StorySide::Discards(std::string items) {
    return [this, items] { EXPECT_EQ(Discarded(), Sorted(items)) << m_name; };
}

std::string StorySide::Key() const {
    const std::string folder = BytesOf(m_folder.Get(), PR_ENTRYID);
    const std::string store = BytesOf(m_store.Get(), PR_ENTRYID);
    return CFolderKey::ToText(BinaryOf(folder), BinaryOf(store));
}

// --- TwoFolders ------------------------------------------------------------------------------------

void TwoFolders::SetUp() {
    TwoStores::SetUp();
    if (HasFatalFailure()) return;
    MakeSides();
    setting.m_flags = SYNC_TO_TARGET | SYNC_FROM_TARGET | SYNC_DELETE_IN_TARGET | SYNC_ACTIVE;
}

void TwoFolders::TearDown() {
    m_left.reset();
    m_right.reset();
    TwoStores::TearDown();
}

void TwoFolders::MakeSides() {
    m_left = std::make_unique<StorySide>("left", leftStore, left);
    m_right = std::make_unique<StorySide>("right", rightStore, right);
}

void TwoFolders::Close() {
    m_left.reset();
    m_right.reset();
    CloseStores();
}

void TwoFolders::Reopen() {
    OpenStores();
    if (HasFatalFailure()) throw std::runtime_error("the stores do not open");
    MakeSides();
}

void TwoFolders::Run() {
    CRecordingUserInterface person;
    CSyncFolder engine;
    protocol.Clear();
    engine.m_session = CMapiSession(session.Get());
    engine.m_setting = &setting;
    engine.m_protocol = &protocol;
    engine.m_progress = progress;
    engine.m_stripPrivate = setting.Has(SYNC_STRIP_PRIVATE);
    engine.m_skipPrivate = setting.Has(SYNC_SKIP_PRIVATE);
    engine.SyncSubFolder(Source().Key(), Target().Key(), setting.Has(SYNC_TO_TARGET),
                         setting.Has(SYNC_FROM_TARGET), setting.Has(SYNC_DELETE_IN_TARGET),
                         setting.Has(SYNC_SUBFOLDERS), setting.Has(SYNC_CREATE_SUBFOLDERS));
    outcome = engine.m_outcome;
    notReadAgain = engine.m_notReadAgain;
    missingFolders = engine.m_missingFolders;
    messages = person.messages;
    if (expectMessages) return;
    for (const auto& message : messages)
        ADD_FAILURE() << "message box \"" << message.caption << "\": " << message.text;
}

TestRef<IMessage> TwoFolders::Hidden(const std::string& subject) {
    const TestRows rows =
        ContentsOf(Source().Folder(), {PR_ENTRYID, PR_SUBJECT_A, PR_MESSAGE_CLASS_A}, MAPI_ASSOCIATED);
    for (ULONG row = 0; row < rows.Count(); ++row)
        if (rows.Text(row, 1) == subject && rows.Text(row, 2) == "IPM.Vellum.IDs")
            return OpenTestMessage(Source().Store(), rows.Bytes(row, 0));
    return {};
}

std::string TwoFolders::SideFile(const std::string& side) {
    const TestRef<IMessage> message = Hidden(side + "." + ComputerName());
    if (!message) return {};
    TestRef<IAttach> attachment;
    if (message->OpenAttach(0, nullptr, 0, attachment.Out()) != S_OK) return {};
    EXPECT_EQ(TextOf(attachment.Get(), PR_ATTACH_FILENAME_A), "SYNCFILE");
    return StreamOf(attachment.Get(), PR_ATTACH_DATA_BIN);
}

void TwoFolders::ExpectMemoriesTellTheFolders() {
    if (notReadAgain != 2 || outcome.phasesFailed != 0 || setting.Has(SYNC_SUBFOLDERS)) return;
    CSyncFolder engine;
    engine.m_setting = &setting;
    const auto expect = [&](StorySide& side, const char* name) {
        const std::string read = engine.ReadImage(IMAPIFolderPtr(side.Folder()), nullptr).bytes;
        EXPECT_TRUE(SideFile(name) == read) << name << " does not tell of the folder";
    };
    expect(Source(), "SourceID");
    expect(Target(), "TargetID");
}

void TwoFolders::ExpectNothingMoves() {
    ExpectMemoriesTellTheFolders();
    const std::string before = Left().Fingerprint() + Right().Fingerprint();
    Run();
    EXPECT_EQ(before, Left().Fingerprint() + Right().Fingerprint())
        << "a run without changes moved something";
    EXPECT_EQ(outcome.sourceChanged, 0u);
    EXPECT_EQ(outcome.targetChanged, 0u);
    EXPECT_EQ(outcome.conflicts, 0u);
    EXPECT_TRUE(protocol.IsEmpty());
}

void TwoFolders::Prepare(const Both& both) {
    Left().Creates(both.items)();
}

void TwoFolders::Expect(const Both& both) {
    Left().Has(both.items)();
    Right().Has(both.items)();
}
