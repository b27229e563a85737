#include <Platform/Clock.h>
#include <Platform/Machine.h>
#include <Tarn/Dispatch/PairPlan.h>
#include <Tarn/Engine/FolderKey.h>
#include <support/Letters.h>
#include <support/TroubledRuns.h>
#include <support/TwoFolders.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <utility>

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

std::string Reversed(const std::string& bytes) {
    return {bytes.rbegin(), bytes.rend()};
}

std::string Sorted(const std::string& items) {
    return Joined(Names(items));
}

std::string EntryIdOf(IMAPIFolder* folder, const std::string& item) {
    const TestRows rows = ContentsOf(folder, {PR_ENTRYID, PR_SUBJECT_A});
    for (ULONG row = 0; row < rows.Count(); ++row)
        if (rows.Text(row, 1) == Spelled(item)) return rows.Bytes(row, 0);
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

// Subjects of all items in the folder and below it.
void CollectBelow(IMsgStore* store, IMAPIFolder* folder, std::vector<std::string>& names) {
    const TestRows items = ContentsOf(folder, {PR_SUBJECT_A});
    for (ULONG row = 0; row < items.Count(); ++row)
        names.push_back(Unspelled(items.Text(row, 0)));
    const TestRows children = HierarchyOf(folder, {PR_ENTRYID});
    for (ULONG row = 0; row < children.Count(); ++row)
        CollectBelow(store, OpenTestFolder(store, children.Bytes(row, 0)).Get(), names);
}

std::string ItemsBelow(IMsgStore* store, IMAPIFolder* top, const std::string& child) {
    std::vector<std::string> names;
    const TestRows children = HierarchyOf(top, {PR_ENTRYID, PR_DISPLAY_NAME_A});
    for (ULONG row = 0; row < children.Count(); ++row)
        if (children.Text(row, 1) == child)
            CollectBelow(store, OpenTestFolder(store, children.Bytes(row, 0)).Get(), names);
    return Joined(names);
}
}  // namespace

// --- time ------------------------------------------------------------------------------------------

namespace {
CClockOverride* g_heldClock = nullptr;
}

void NextMoment() {
    constexpr std::uint64_t second = 10'000'000;
    if (g_heldClock) g_heldClock->Advance(second);
}

void TwoFolders::HoldClock(ULONG habits) {
    g_heldClock = nullptr;
    m_clock.reset();
    if (!(habits & (HABIT_CLOCK_SECONDS | HABIT_CLOCK_MILLISECONDS))) return;
    m_clock = std::make_unique<CClockOverride>(UtcNow());
    g_heldClock = m_clock.get();
}

// --- StorySide -------------------------------------------------------------------------------------

namespace {
Step Acts(Step step) {
    return [step] {
        NextMoment();
        step();
        NextMoment();
    };
}
}  // namespace

void StorySide::Bind(TestRef<IMsgStore> store, TestRef<IMAPIFolder> folder) {
    m_store = std::move(store);
    m_folder = std::move(folder);
}

TestRef<IMessage> StorySide::Open(const std::string& item) const {
    return OpenTestMessage(m_store.Get(), EntryIdOf(m_folder.Get(), item));
}

TestRef<IMAPIFolder> StorySide::Beside() {
    return MakeFolder(OpenStoreFolder(m_store.Get(), PR_IPM_SUBTREE_ENTRYID).Get(), "Beside");
}

Step StorySide::Creates(std::string items) {
    return Acts([this, items] {
        for (const std::string& item : Names(items))
            SavedMessage(m_folder.Get(), Spelled(item), Spelled("text of " + item));
    });
}

Step StorySide::Changes(std::string item, std::string body) {
    return Acts([this, item, body] {
        const TestRef<IMessage> message = Open(item);
        EXPECT_EQ(SetText(message.Get(), PR_BODY_A, Spelled(body)), S_OK);
        EXPECT_EQ(message->SaveChanges(0), S_OK);
    });
}

Step StorySide::ChangesAt(std::string item, std::string body, FILETIME time) {
    return Acts([this, item, body, time] {
        const TestRef<IMessage> message = Open(item);
        EXPECT_EQ(SetText(message.Get(), PR_BODY_A, Spelled(body)), S_OK);
        EXPECT_EQ(SetTime(message.Get(), PR_LAST_MODIFICATION_TIME, time), S_OK);
        EXPECT_EQ(message->SaveChanges(0), S_OK);
    });
}

Step StorySide::Renames(std::string item, std::string subject) {
    return Acts([this, item, subject] {
        const TestRef<IMessage> message = Open(item);
        EXPECT_EQ(SetText(message.Get(), PR_SUBJECT_A, Spelled(subject)), S_OK);
        EXPECT_EQ(message->SaveChanges(0), S_OK);
    });
}

Step StorySide::RenamesNewest(std::string item, std::string subject) {
    return Acts([this, item, subject] {
        std::string newest;  // entry IDs of a store are given in ascending order, the last byte first
        const TestRows rows = ContentsOf(m_folder.Get(), {PR_ENTRYID, PR_SUBJECT_A});
        for (ULONG row = 0; row < rows.Count(); ++row)
            if (rows.Text(row, 1) == Spelled(item)) newest = std::max(newest, Reversed(rows.Bytes(row, 0)));
        const TestRef<IMessage> message = OpenTestMessage(m_store.Get(), Reversed(newest));
        EXPECT_EQ(SetText(message.Get(), PR_SUBJECT_A, Spelled(subject)), S_OK);
        EXPECT_EQ(message->SaveChanges(0), S_OK);
    });
}

Step StorySide::Deletes(std::string items) {
    return Acts([this, items] {
        for (const std::string& item : Names(items))
            EXPECT_EQ(DeleteBySubject(m_folder.Get(), Spelled(item)), S_OK) << item;
    });
}

Step StorySide::CopiesWithin(std::string item) {
    return Acts([this, item] { CopyItem(m_folder.Get(), item, m_folder.Get(), 0); });
}

Step StorySide::MovesOut(std::string item) {
    return Acts([this, item] { CopyItem(m_folder.Get(), item, Beside().Get(), MESSAGE_MOVE); });
}

Step StorySide::MovesIn(std::string item) {
    return Acts([this, item] { CopyItem(Beside().Get(), item, m_folder.Get(), MESSAGE_MOVE); });
}

Step StorySide::CopiesTo(StorySide& other, std::string item) {
    return Acts([this, &other, item] { CopyItem(m_folder.Get(), item, other.m_folder.Get(), 0); });
}

std::string StorySide::Items() const {
    std::vector<std::string> names;
    const TestRows rows = ContentsOf(m_folder.Get(), {PR_SUBJECT_A});
    for (ULONG row = 0; row < rows.Count(); ++row)
        names.push_back(Unspelled(rows.Text(row, 0)));
    return Joined(names);
}

bool StorySide::Holds(const std::string& item) const {
    const TestRows rows = ContentsOf(m_folder.Get(), {PR_SUBJECT_A});
    for (ULONG row = 0; row < rows.Count(); ++row)
        if (rows.Text(row, 0) == Spelled(item)) return true;
    return false;
}

std::string StorySide::BodyOf(const std::string& item) const {
    return Unspelled(TextOf(Open(item).Get(), PR_BODY_A));
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

std::map<std::string, StorySide::CItemNow> StorySide::ItemsNow(bool below) const {
    std::map<std::string, CItemNow> items;
    std::vector<TestRef<IMAPIFolder>> folders = {m_folder};
    while (!folders.empty()) {
        const TestRef<IMAPIFolder> folder = folders.back();
        folders.pop_back();
        const TestRows rows =
            ContentsOf(folder.Get(), {PR_ENTRYID, PR_LAST_MODIFICATION_TIME, PR_SUBJECT_A, PR_BODY_A,
                                      NamedTag(folder.Get(), L"LarchID", PT_STRING8)});
        for (ULONG row = 0; row < rows.Count(); ++row)
            items[rows.Bytes(row, 0)] = {rows.Text(row, 2) + '\n' + rows.Text(row, 3), rows.Text(row, 4),
                                         TicksOf(rows.Cell(row, 1).Value.ft)};
        const TestRows children = HierarchyOf(folder.Get(), {PR_ENTRYID});
        for (ULONG row = 0; below && row < children.Count(); ++row)
            folders.push_back(OpenTestFolder(m_store.Get(), children.Bytes(row, 0)));
    }
    return items;
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

void TwoFolders::UseMemoryDisk() {
    m_disk = std::make_unique<CMemoryDisk>();
}

void TwoFolders::SetUp() {
    if (TroubleOfRuns() != RunTrouble::None && !m_disk) UseMemoryDisk();
    HoldClock(Options().habits);
    TwoStores::SetUp();
    if (HasFatalFailure()) return;
    BindSides();
    setting.m_flags = SYNC_TO_TARGET | SYNC_FROM_TARGET | SYNC_DELETE_IN_TARGET | SYNC_ACTIVE;
}

void TwoFolders::TearDown() {
    Close();
    TwoStores::TearDown();
    HoldClock(0);
    m_disk.reset();
}

void TwoFolders::BindSides() {
    m_left.Bind(leftStore, left);
    m_right.Bind(rightStore, right);
}

void TwoFolders::Close() {
    m_left.Bind({}, {});
    m_right.Bind({}, {});
    CloseStores();
}

void TwoFolders::Reopen() {
    OpenStores();
    if (HasFatalFailure()) throw std::runtime_error("the stores do not open");
    BindSides();
}

void TwoFolders::Look() {
    m_sourceBefore = Source().ItemsNow(setting.Has(SYNC_SUBFOLDERS));
    m_targetBefore = Target().ItemsNow(setting.Has(SYNC_SUBFOLDERS));
}

namespace {
using CItemsNow = std::map<std::string, StorySide::CItemNow>;

// How many items of a folder a run may have changed at least and at most. A save without a change of what is
// told here may be a mere stamp; an item that went and one that came with its link are one that was renewed.
struct CReallyChanged {
    unsigned least = 0, most = 0;
    std::string items;

    CReallyChanged(const CItemsNow& before, const CItemsNow& after, bool renews) {
        unsigned made = 0;
        std::map<std::string, const StorySide::CItemNow*> gone;
        for (const auto& [id, item] : before)
            if (!after.count(id)) gone[item.syncId.empty() ? id : item.syncId] = &item;
        for (const auto& [id, item] : after) {
            const auto former = before.find(id);
            const auto renewed = gone.find(item.syncId);
            if (former != before.end()) {
                const bool isOther = former->second.content != item.content;
                Add("changed", item, isOther, isOther || former->second.time != item.time);
            } else if (renewed != gone.end()) {
                Add("renewed", item, renewed->second->content != item.content, true);
                gone.erase(renewed);
            } else {
                Add("new", item, true, true);
                ++made;
            }
        }
        // One that was found without its link has a new one.
        if (renews) least -= std::min<unsigned>(made, static_cast<unsigned>(gone.size()));
        for (const auto& [id, item] : gone)
            Add("gone", *item, true, true);
    }

private:
    void Add(const char* what, const StorySide::CItemNow& item, bool surely, bool perhaps) {
        least += surely;
        most += perhaps;
        if (perhaps)
            items += std::string("\n  ") + what + (surely ? ": " : "?: ") + item.content.substr(0, 60);
    }
};

bool IsOneOf(const std::string& done, std::initializer_list<unsigned> texts) {
    return std::any_of(texts.begin(), texts.end(), [&](unsigned text) { return done == LoadText(text); });
}
}  // namespace

void TwoFolders::ExpectTheTruthWasTold() {
    if (!m_sourceBefore) return;
    const bool below = setting.Has(SYNC_SUBFOLDERS);
    // A counterpart that does not open is replaced.
    const bool renews = setting.Has(SYNC_ALWAYS_RENEW) || m_inTrouble;
    const CReallyChanged source(*std::exchange(m_sourceBefore, {}), Source().ItemsNow(below), renews);
    const CReallyChanged target(*std::exchange(m_targetBefore, {}), Target().ItemsNow(below), renews);
    unsigned claimed[2] = {}, failed = 0;
    for (const CSyncProtocolEntry& entry : protocol) {
        claimed[entry.m_toSource] +=
            IsOneOf(entry.m_done, {TEXT_COPIED_TO_COUNTERPART, TEXT_DELETED, TEXT_TARGET_REWRITTEN,
                                   TEXT_COPIED_AS_NEW, TEXT_NOT_LINKED_STAYS, TEXT_COPIED_NOT_WHOLE});
        failed += IsOneOf(entry.m_done,
                          {TEXT_NOT_COPIED, TEXT_NOT_DELETED, TEXT_NOT_LINKED_STAYS, TEXT_COPIED_NOT_WHOLE});
    }
    const auto expect = [&](const char* side, unsigned told, unsigned entries, const CReallyChanged& really) {
        EXPECT_GE(told, really.least) << "changes in the " << side << really.items;
        EXPECT_LE(told, really.most) << "changes in the " << side << really.items;
        EXPECT_EQ(entries, told) << "entries of the protocol for the " << side;
    };
    expect("source", outcome.sourceChanged, claimed[1], source);
    expect("target", outcome.targetChanged, claimed[0], target);
    // Copies of a run before that could not be linked have failed without an entry of this one. Where a phase
    // did not come to its end, that was told instead of what became of each of its items.
    EXPECT_TRUE(failed <= outcome.rowsFailed || outcome.phasesFailed > 0)
        << "entries of the protocol that tell of a failure";
}

namespace {
std::string RowText(int state, const std::string& name, bool toSource) {
    return std::to_string(state) + (toSource ? " <- " : " -> ") + name;
}

// An item that leaves its folder and comes back between two runs is both deleted and new.
bool WouldCarry(const CSyncMessage& change, const CMapiRowSet& otherRows) {
    if (change.m_settled != 0) return false;
    if (change.m_state != STATE_DELETED) return true;
    return !change.m_syncId.empty() && otherRows.FindRow(COL_SYNC_ID, change.m_syncId) >= 0;
}
}  // namespace

TwoFolders::CForetold TwoFolders::Foretell() {
    CForetold foretold;
    CRecordingUserInterface person;
    CTarnSetting pair = setting;
    pair.m_sourceKey = Source().Key();
    pair.m_targetKey = Target().Key();
    CPairPlan plan(CMapiSession(session.Get()), pair, nullptr);
    const auto take = [&](CPlannedFolders::Side& from, const CPlannedFolders::Side& to, bool toSource) {
        for (size_t i = 0; i < from.changes.Count(); ++i) {
            const CSyncMessage& change = from.changes.At(i);
            foretold.rows.insert(RowText(static_cast<int>(change.m_state), change.m_name, toSource));
            foretold.conflicts += change.IsLostVersion();
            (toSource ? foretold.toSource : foretold.toTarget) += WouldCarry(change, to.rows);
        }
    };
    plan.Walk(
        [&](CPlannedFolders& folders) {
            take(folders.source, folders.target, false);
            take(folders.target, folders.source, true);
            ++foretold.pairs;
        },
        [&](const std::string&) { ++foretold.missing; });
    foretold.namesakes = static_cast<unsigned>(plan.Namesakes().size());
    return foretold;
}

void TwoFolders::ExpectForetold(const CForetold& foretold) {
    if (outcome.cancelled || outcome.rowsFailed + outcome.phasesFailed > 0) return;
    std::multiset<std::string> rows;
    for (const CSyncProtocolEntry& entry : protocol)
        rows.insert(RowText(entry.m_state, entry.m_subject, entry.m_toSource));
    EXPECT_EQ(foretold.rows, rows);
    EXPECT_EQ(foretold.pairs, outcome.pairsRun);
    EXPECT_EQ(foretold.namesakes, outcome.pairsNotOpened);
    EXPECT_EQ(foretold.conflicts, outcome.conflicts);
    if (!setting.Has(SYNC_CREATE_SUBFOLDERS)) {
        EXPECT_EQ(foretold.missing, missingFolders.size());
    }
    // What is older than an incremental look counts as deleted, and its other side was not looked at yet.
    if (setting.Has(SYNC_NEW_ONLY)) return;
    // Two of one time are linked without a copy, and what has just been written is not deleted.
    EXPECT_GE(foretold.toSource, outcome.sourceChanged);
    EXPECT_GE(foretold.toTarget, outcome.targetChanged);
    unsigned nothingDone = 0;
    for (const CSyncProtocolEntry& entry : protocol)
        nothingDone += entry.m_done.empty() || IsOneOf(entry.m_done, {TEXT_TIMES_IDENTICAL, TEXT_SOURCE_GONE,
                                                                      TEXT_DELETION_OUTDATED});
    EXPECT_LE(foretold.toSource + foretold.toTarget,
              outcome.sourceChanged + outcome.targetChanged + nothingDone);
}

void TwoFolders::Run() {
    if (TroubleOfRuns() != RunTrouble::None && !m_inTrouble && !progress && !othersWrite) MeetEachTrouble();
    RunAlone();
}

void TwoFolders::RunAlone() {
    NextMoment();
    const bool looks = !m_sourceBefore && !othersWrite;
    std::optional<CForetold> foretold;
    if (looks && foretells && !m_inTrouble && !progress) foretold = Foretell();
    if (looks) Look();
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
    NextMoment();
    outcome = engine.m_outcome;
    notReadAgain = engine.m_notReadAgain;
    missingFolders = engine.m_missingFolders;
    messages = person.messages;
    if (looks) ExpectTheTruthWasTold();
    if (foretold) ExpectForetold(*foretold);
    if (expectMessages) return;
    for (const auto& message : messages)
        ADD_FAILURE() << "message box \"" << message.caption << "\": " << message.text;
}

std::string TwoFolders::SaidOf(const std::string& item) {
    std::string told;
    for (const CSyncProtocolEntry& entry : protocol)
        if (entry.m_subject == Spelled(item)) told += (told.empty() ? "" : "; ") + entry.m_done;
    return told;
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
