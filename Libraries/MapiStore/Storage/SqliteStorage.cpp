#include "SqliteStorage.h"

#include <Platform/Clock.h>
#include <Platform/Files.h>

#include <algorithm>

#include <MapiStore/Values/StoreError.h>
#include "MessageRange.h"
#include "SqliteSchema.h"

namespace {

constexpr int kApplicationId = 0x56534D31;
constexpr unsigned kSchemaVersion = 4;
constexpr unsigned kDeepestParts = 256;  // a chain longer than that can only be a damaged one

// The display name that lies in a folder's block; none where the block is damaged.
std::optional<std::string_view> NameIn(std::string_view block) {
    try {
        CStoredValue name;
        return CValueBlock(block).Find(PROP_ID(PR_DISPLAY_NAME), name) ? name.Bytes() : std::string_view();
    } catch (const CStoreError&) {
        return std::nullopt;
    }
}

// The name under which SQLite takes a file for one that nobody changes.
std::string ImmutableUri(const std::string& path) {
    std::string uri = "file:";
    for (const char c : path) {
        if (c == '%' || c == '?' || c == '#')
            (uri += '%') += c == '%' ? "25" : c == '?' ? "3F" : "23";
        else
            uri += c == '\\' ? '/' : c;
    }
    return uri + "?immutable=1";
}

MessageHead MessageHeadOf(const CSqliteUse& row) {
    MessageHead head;
    head.id = row.NumberAt(0);
    head.created = row.NumberAt(1);
    head.modified = row.NumberAt(2);
    head.change = row.NumberAt(3);
    head.flags = static_cast<std::uint32_t>(row.NumberAt(4));
    head.status = static_cast<std::uint32_t>(row.NumberAt(5));
    head.size = static_cast<std::uint32_t>(row.NumberAt(6));
    head.recipients = static_cast<std::uint32_t>(row.NumberAt(7));
    head.attachments = static_cast<std::uint32_t>(row.NumberAt(8));
    head.hasLarge = row.NumberAt(9) != 0;
    return head;
}

FolderHead FolderHeadOf(const CSqliteUse& row) {
    return {row.NumberAt(0), row.NumberAt(1), row.NumberAt(2), row.NumberAt(3), row.NumberAt(4)};
}

PartHead PartHeadOf(const CSqliteUse& row) {
    return {row.NumberAt(0), row.NumberAt(1), static_cast<std::uint32_t>(row.NumberAt(2)),
            row.NumberAt(3) != 0};
}

}  // namespace

// --- opening ---------------------------------------------------------------------------------------

CSqliteStorage::CSqliteStorage(const std::string& path) : m_path(path) {
    static_assert(sizeof kStatements / sizeof *kStatements == StatementCount);
    Require(FileExists(path), MAPI_E_NOT_FOUND);
    OpenAny();
}

void CSqliteStorage::OpenAny() {
    m_isUnguarded = false;
    try {
        Open(m_path.c_str(), SQLITE_OPEN_READWRITE);
    } catch (const CStoreError& error) {
        // The log cannot be made beside a file in a directory that is not ours to write.
        const bool refused = error.Code() == MAPI_E_DISK_ERROR || error.Code() == MAPI_E_NO_ACCESS;
        if (!refused) throw;
        OpenUnguarded();
    }
}

// Taken for a file that nobody changes, without locks. That is wrong as soon as somebody opens it for
// writing, who makes the log and its index before anything else: while they are there the file is not opened
// like this, and every row that was read is used only if they still are not.
void CSqliteStorage::OpenUnguarded() {
    m_seen = Look();
    Require(m_seen.log.cbSize == 0 && !m_seen.index.exists, MAPI_E_BUSY);
    m_isUnguarded = true;
    Open(ImmutableUri(m_path).c_str(), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
}

CSqliteStorage::Surroundings CSqliteStorage::Look() const {
    return {StampOfFile(m_path), StampOfFile(m_path + "-wal"), StampOfFile(m_path + "-shm")};
}

void CSqliteStorage::CheckRead() {
    if (m_isUnguarded) Require(Look() == m_seen, MAPI_E_BUSY);
}

// Call while no statement is in use.
void CSqliteStorage::ReopenIfChanged() {
    if (m_database && (!m_isUnguarded || Look() == m_seen)) return;
    Close();
    OpenAny();
}

void CSqliteStorage::Open(const char* name, int flags) {
    ISqliteReadGuard* const guard = m_isUnguarded ? this : nullptr;
    for (const char* sql : kStatements)
        m_slots.push_back(std::make_unique<CSqliteSlot>(m_database, sql, guard));
    try {
        const int code = sqlite3_open_v2(name, &m_database, flags | SQLITE_OPEN_NOMUTEX, nullptr);
        if (code != SQLITE_OK) ThrowSqlite(m_database, code);
        sqlite3_extended_result_codes(m_database, 1);
        sqlite3_busy_timeout(m_database, kBusyTimeoutMs);
        CheckIdentity();
        if (!IsReadOnly()) Execute("PRAGMA journal_mode=WAL");
        Execute(
            "PRAGMA synchronous=NORMAL; PRAGMA wal_autocheckpoint=4000; PRAGMA cache_size=-2048;"
            "PRAGMA temp_store=MEMORY; PRAGMA trusted_schema=OFF");
        // A store of which no page can be read shows it now, not at the first message.
        CSqliteUse(Slot(HoldAVersion)).Step();
        ++m_openings;
    } catch (...) {
        Close();
        throw;
    }
}

void CSqliteStorage::Close() noexcept {
    m_held.reset();
    m_slots.clear();
    sqlite3_close(m_database);
    m_database = nullptr;
}

CSqliteStorage::~CSqliteStorage() {
    Close();
}

void CSqliteStorage::Create(const std::string& path) {
    Require(!FileExists(path), MAPI_E_COLLISION);
    // Made here and not by the database, which would let others read it; log and index take its rights.
    Require(CreatePrivateFile(path), MAPI_E_DISK_ERROR);
    sqlite3* database = nullptr;
    int code = sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr);
    const std::string sql =
        "PRAGMA page_size=8192; BEGIN; PRAGMA application_id=" + std::to_string(kApplicationId) +
        "; PRAGMA user_version=" + std::to_string(kSchemaVersion) + ";" + kSchema + kNameIndex +
        kLookupSchema + "COMMIT";
    if (code == SQLITE_OK) code = sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr);
    if (code == SQLITE_OK)
        code = sqlite3_exec(database, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr);
    try {
        if (code != SQLITE_OK) ThrowSqlite(database, code);
    } catch (...) {
        sqlite3_close(database);
        RemoveFile(path);
        throw;
    }
    sqlite3_close(database);
}

void CSqliteStorage::CheckIdentity() {
    CSqliteSlot identity(m_database, "SELECT application_id FROM pragma_application_id");
    {
        CSqliteUse row(identity);
        Require(row.Step() && row.NumberAt(0) == kApplicationId, MAPI_E_CORRUPT_STORE);
    }
    const unsigned version = Version();
    Require(version <= kSchemaVersion, MAPI_E_VERSION);
    Require(version >= 1, MAPI_E_CORRUPT_STORE);
    // A file that cannot be written is read as it is: what the steps add only makes it faster.
    if (version < kSchemaVersion && !IsReadOnly()) BringUp();
    m_hasLookups = Version() >= 3;
    m_hasNames = Version() >= 4;
}

unsigned CSqliteStorage::Version() {
    CSqliteSlot version(m_database, "SELECT user_version FROM pragma_user_version");
    CSqliteUse row(version);
    Require(row.Step(), MAPI_E_CORRUPT_STORE);
    return static_cast<unsigned>(row.NumberAt(0));
}

// A file of an older program gets what has been added since.
void CSqliteStorage::BringUp() {
    Execute("BEGIN IMMEDIATE");
    try {
        // Another process may have done it while this one waited.
        if (Version() < 3) Execute(kLookupSchema);
        if (Version() < 4) AddColumns();
        Execute(("PRAGMA user_version=" + std::to_string(kSchemaVersion)).c_str());
        Execute("COMMIT");
    } catch (...) {
        Rollback();
        throw;
    }
}

void CSqliteStorage::AddColumns() {
    Execute(kColumnsOfVersion4);
    WriteNames();
    Execute(kNameIndex);
    const std::string times = TimesOfOlderFile();
    CSqliteSlot write(m_database, "UPDATE counter SET times = ?");
    CSqliteUse(write).Blob(times).Run();
}

void CSqliteStorage::WriteNames() {
    CSqliteSlot read(m_database, "SELECT id, block FROM folder");
    CSqliteSlot write(m_database, "UPDATE folder SET name = ? WHERE id = ?");
    std::vector<std::pair<ObjectId, std::string>> names;
    {
        CSqliteUse row(read);
        while (row.Step())
            if (const auto name = NameIn(row.BytesAt(1))) names.emplace_back(row.NumberAt(0), *name);
    }
    for (const auto& [id, name] : names)
        CSqliteUse(write).Blob(name).Number(id).Run();
}

// Older programs kept the latest time alone. Where it is ahead of the clock, the items tell since when.
std::string CSqliteStorage::TimesOfOlderFile() {
    const std::uint64_t latest = OneNumber("SELECT time FROM counter");
    if (latest == 0) return {};
    const std::uint64_t made = std::min(OneNumber("SELECT coalesce(min(created), 0) FROM folder"), latest);
    const std::uint64_t now = TicksOf(UtcNow()) + CGivenTimes::kPause;
    std::vector<CGivenTimes::Span> spans = {{made, latest}};
    if (latest > now && made < now) {
        const std::string limit = std::to_string(now);
        const auto before = OneNumber(
            ("SELECT max((SELECT coalesce(max(modified), 0) FROM message WHERE modified <= " + limit +
             "),"
             " (SELECT coalesce(max(modified), 0) FROM folder WHERE modified <= " +
             limit + "))")
                .c_str());
        const auto ahead = OneNumber(
            ("SELECT min((SELECT coalesce(min(modified), time) FROM message WHERE modified > " + limit +
             "),"
             " (SELECT coalesce(min(modified), time) FROM folder WHERE modified > " +
             limit + "), time) FROM counter")
                .c_str());
        spans = {{made, std::max(made, before)}, {ahead, latest}};
    }
    return std::string(CGivenTimes(std::move(spans)).Bytes());
}

std::uint64_t CSqliteStorage::OneNumber(const char* sql) {
    CSqliteSlot slot(m_database, sql);
    CSqliteUse row(slot);
    Require(row.Step(), MAPI_E_CORRUPT_STORE);
    return row.NumberAt(0);
}

void CSqliteStorage::Execute(const char* sql) {
    const int code = sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) ThrowSqlite(m_database, code);
}

CSqliteSlot& CSqliteStorage::Slot(StatementId id) {
    if (id == Begin)
        m_held.reset();  // the write is to begin with the latest version
    else if (m_mayHold && !m_held && !InWrite()) {
        ReopenIfChanged();
        m_held.emplace(*m_slots[HoldAVersion]);
        m_held->Step();
    }
    return *m_slots[id];
}

void CSqliteStorage::ReleaseVersion() noexcept {
    m_mayHold = false;
    m_held.reset();
}

void CSqliteStorage::LimitPages(unsigned pages) {
    Execute(("PRAGMA max_page_count=" + std::to_string(pages)).c_str());
}

bool CSqliteStorage::IsReadOnly() const {
    return !m_database || sqlite3_db_readonly(m_database, "main") == 1;
}

// --- transactions ----------------------------------------------------------------------------------

void CSqliteStorage::BeginWrite(StoreCounters& counters) {
    Require(!IsReadOnly(), MAPI_E_NO_ACCESS);
    CSqliteUse(Slot(Begin)).Run();
    try {
        CSqliteUse row(Slot(ReadCounters));
        Require(row.Step(), MAPI_E_CORRUPT_STORE);
        counters = {row.NumberAt(0), row.NumberAt(1), row.NumberAt(2),
                    CGivenTimes::FromBytes(row.BytesAt(3))};
        ReadPlaces();
    } catch (...) {
        Rollback();
        throw;
    }
}

void CSqliteStorage::Commit(const StoreCounters& counters) {
    WriteTouched();
    CSqliteUse(Slot(WriteCounters))
        .Number(counters.serial)
        .Number(counters.folder)
        .Number(counters.change)
        .Number(counters.times.Latest())
        .Blob(counters.times.Bytes())
        .Run();
    CSqliteUse(Slot(CommitIt)).Run();
}

// The log alone: what has left it for the file was synchronised on its way, and one call on the log costs a
// fifth of a commit in the mode that synchronises each, which would besides need something to write.
void CSqliteStorage::SyncToDisk() {
    sqlite3_file* log = nullptr;
    const int found = sqlite3_file_control(m_database, "main", SQLITE_FCNTL_JOURNAL_POINTER, &log);
    if (found != SQLITE_OK) ThrowSqlite(m_database, found);
    if (!log || !log->pMethods) return;  // a file that is only read
    const int synced = log->pMethods->xSync(log, SQLITE_SYNC_NORMAL);
    if (synced != SQLITE_OK) ThrowSqlite(nullptr, synced);
}

void CSqliteStorage::Rollback() noexcept {
    if (!InWrite()) return;
    try {
        CSqliteUse(Slot(RollbackIt)).Run();
    } catch (...) {
        // The database has taken the transaction back by itself.
    }
}

bool CSqliteStorage::InWrite() const {
    return m_database && sqlite3_get_autocommit(m_database) == 0;
}

void CSqliteStorage::SetSavepoint() {
    CSqliteUse(Slot(Savepoint)).Run();
}
void CSqliteStorage::ReleaseSavepoint() {
    CSqliteUse(Slot(Release)).Run();
}

void CSqliteStorage::RollbackToSavepoint() noexcept {
    try {
        CSqliteUse(Slot(RollbackTo)).Run();
        CSqliteUse(Slot(Release)).Run();
    } catch (...) {
        Rollback();  // half a save must not stay
    }
}

std::uint64_t CSqliteStorage::OutsideChanges() {
    if (!m_held) ReopenIfChanged();
    CSqliteUse row(Slot(DataVersion));
    return row.Step() ? m_openings << 24 | row.NumberAt(0) : 0;
}

// --- facts and names -------------------------------------------------------------------------------

std::optional<std::string> CSqliteStorage::ReadFact(std::string_view name) {
    CSqliteUse row(Slot(FactRead));
    if (!row.Text(name).Step()) return std::nullopt;
    return std::string(row.BytesAt(0));
}

void CSqliteStorage::WriteFact(std::string_view name, std::string_view value) {
    CSqliteUse(Slot(FactWrite)).Text(name).Blob(value).Run();
}

void CSqliteStorage::RemoveFact(std::string_view name) {
    CSqliteUse(Slot(FactRemove)).Text(name).Run();
}

void CSqliteStorage::ScanFacts(std::string_view prefix,
                               const std::function<void(std::string_view, std::string_view)>& each) {
    CSqliteUse row(Slot(FactScan));
    row.Text(prefix);
    while (row.Step())
        each(row.BytesAt(0), row.BytesAt(1));
}

void CSqliteStorage::ScanNames(const std::function<void(PropId, const PropertyName&)>& each) {
    CSqliteUse row(Slot(NameScan));
    while (row.Step()) {
        PropertyName name;
        Require(row.BytesAt(1).size() == sizeof name.guid, MAPI_E_CORRUPT_STORE);
        std::memcpy(&name.guid, row.BytesAt(1).data(), sizeof name.guid);
        name.kind = static_cast<ULONG>(row.NumberAt(2));
        name.id = static_cast<LONG>(row.NumberAt(3));
        name.name = row.BytesAt(4);
        each(static_cast<PropId>(row.NumberAt(0)), name);
    }
}

void CSqliteStorage::AddName(PropId id, const PropertyName& name) {
    CSqliteUse(Slot(NameAdd))
        .Number(id)
        .Blob({reinterpret_cast<const char*>(&name.guid), sizeof name.guid})
        .Number(name.kind)
        .Number(static_cast<std::uint32_t>(name.id))
        .Text(name.name)
        .Run();
}

// --- folders ---------------------------------------------------------------------------------------

bool CSqliteStorage::ReadFolder(ObjectId id, FolderHead& head, std::string& block) {
    CSqliteUse row(Slot(FolderRead));
    if (!row.Number(id).Step()) return false;
    head = FolderHeadOf(row);
    block.assign(row.BytesAt(5));
    return true;
}

void CSqliteStorage::WriteFolder(const FolderHead& head, std::string_view block) {
    const auto name = NameIn(block);
    CSqliteUse write(Slot(FolderWrite));
    write.Number(head.id)
        .Number(head.parent)
        .Number(head.created)
        .Number(head.modified)
        .Number(head.change)
        .Blob(block);
    if (name) write.Blob(*name);
    write.Run();
}

void CSqliteStorage::DeleteFolder(ObjectId id) {
    CSqliteUse(Slot(FolderDelete)).Number(id).Run();
    CSqliteUse(Slot(LargeDelete)).Number(id).Run();
}

void CSqliteStorage::ScanFolders(ObjectId parent,
                                 const std::function<void(const FolderHead&, std::string_view)>& each) {
    CSqliteUse row(Slot(FolderScan));
    row.Number(parent);
    while (row.Step())
        each(FolderHeadOf(row), row.BytesAt(5));
}

std::uint64_t CSqliteStorage::CountFolders(ObjectId parent) {
    CSqliteUse row(Slot(FolderCount));
    return row.Number(parent).Step() ? row.NumberAt(0) : 0;
}

ObjectId CSqliteStorage::FindFolder(ObjectId parent, std::string_view name) {
    if (m_hasNames) {
        CSqliteUse row(Slot(FolderFind));
        return row.Number(parent).Blob(name).Step() ? row.NumberAt(0) : 0;
    }
    ObjectId found = 0;
    ScanFolders(parent, [&](const FolderHead& head, std::string_view block) {
        if (found == 0 && NameIn(block) == name) found = head.id;
    });
    return found;
}

// --- messages --------------------------------------------------------------------------------------

bool CSqliteStorage::ReadMessage(ObjectId id, MessageHead& head, std::string& block) {
    CSqliteUse row(Slot(MessageRead));
    if (!row.Number(id).Step()) return false;
    head = MessageHeadOf(row);
    block.assign(row.BytesAt(10));
    return true;
}

bool CSqliteStorage::ReadMessageHead(ObjectId id, MessageHead& head) {
    CSqliteUse row(Slot(MessageReadHead));
    if (!row.Number(id).Step()) return false;
    head = MessageHeadOf(row);
    return true;
}

void CSqliteStorage::InsertMessage(const MessageHead& head, std::string_view block) {
    CSqliteUse(Slot(MessageInsert))
        .Number(head.id)
        .Number(head.created)
        .Number(head.modified)
        .Number(head.change)
        .Number(head.flags)
        .Number(head.status)
        .Number(head.size)
        .Number(head.recipients)
        .Number(head.attachments)
        .Number(head.hasLarge)
        .Blob(block)
        .Run();
    Touch(head.id);
}

bool CSqliteStorage::UpdateMessage(const MessageHead& head, std::string_view block,
                                   std::optional<std::uint64_t> ifChange) {
    CSqliteUse update(Slot(ifChange ? MessageUpdateIf : MessageUpdate));
    update.Number(head.created)
        .Number(head.modified)
        .Number(head.change)
        .Number(head.size)
        .Number(head.recipients)
        .Number(head.attachments)
        .Number(head.hasLarge)
        .Blob(block)
        .Number(head.id);
    if (ifChange) update.Number(*ifChange);
    update.Run();
    Touch(head.id);
    return sqlite3_changes(m_database) > 0;
}

bool CSqliteStorage::UpdateMessageState(ObjectId id, std::uint32_t flags, std::uint32_t status) {
    CSqliteUse(Slot(MessageState)).Number(flags).Number(status).Number(id).Run();
    return sqlite3_changes(m_database) > 0;
}

void CSqliteStorage::MoveMessage(ObjectId from, const MessageHead& to) {
    CSqliteUse(Slot(MessageMove))
        .Number(to.id)
        .Number(to.created)
        .Number(to.modified)
        .Number(to.change)
        .Number(from)
        .Run();
    Require(sqlite3_changes(m_database) == 1, MAPI_E_NOT_FOUND);
    Touch(from, false);
    Touch(to.id);
    if (to.hasLarge) CSqliteUse(Slot(LargeMove)).Number(to.id).Number(from).Run();
    if (to.recipients) CSqliteUse(Slot(RecipientsMove)).Number(to.id).Number(from).Run();
    if (to.attachments) CSqliteUse(Slot(PartMove)).Number(to.id).Number(from).Run();
}

bool CSqliteStorage::DeleteMessage(ObjectId id) {
    MessageHead head;
    if (!ReadMessageHead(id, head)) return false;
    CSqliteUse(Slot(MessageDelete)).Number(id).Run();
    Touch(id, false);
    if (head.hasLarge) CSqliteUse(Slot(LargeDelete)).Number(id).Run();
    if (head.recipients) CSqliteUse(Slot(RecipientsDelete)).Number(id).Run();
    if (head.attachments) DeletePartsOf(id, 0);
    return true;
}

void CSqliteStorage::DeleteMessages(ObjectId folder, bool associated) {
    const IdRange range = RangeOf(folder, associated);
    CSqliteUse(Slot(MessageDeleteRange)).Number(range.first).Number(range.last).Run();
    DropLookups(PlaceOf(range.first));
    CSqliteUse(Slot(LargeDeleteRange)).Number(range.first).Number(range.last).Run();
    CSqliteUse(Slot(RecipientsDeleteRange)).Number(range.first).Number(range.last).Run();
    std::vector<ObjectId> owners;
    {
        CSqliteUse row(Slot(PartOwners));
        row.Number(range.first).Number(range.last);
        while (row.Step())
            owners.push_back(row.NumberAt(0));
    }
    for (const ObjectId owner : owners)
        DeletePartsOf(owner, 0);
}

void CSqliteStorage::ScanMessages(ObjectId folder, bool associated,
                                  const std::function<bool(const MessageHead&, std::string_view)>& each) {
    const IdRange range = RangeOf(folder, associated);
    CSqliteUse row(Slot(MessageScan));
    row.Number(range.first).Number(range.last);
    while (row.Step() && each(MessageHeadOf(row), row.BytesAt(10))) {
    }
}

void CSqliteStorage::ScanMessageBlocks(
    ObjectId folder, bool associated, const std::function<bool(const MessageHead&, std::string_view)>& each) {
    const IdRange range = RangeOf(folder, associated);
    CSqliteUse row(Slot(MessageScanBlocks));
    row.Number(range.first).Number(range.last);
    MessageHead head;
    while (row.Step()) {
        head.id = row.NumberAt(0);
        head.created = row.NumberAt(1);
        head.modified = row.NumberAt(2);
        if (!each(head, row.BytesAt(3))) return;
    }
}

void CSqliteStorage::ScanMessageHeads(ObjectId folder, bool associated,
                                      const std::function<bool(const MessageHead&)>& each) {
    const IdRange range = RangeOf(folder, associated);
    CSqliteUse row(Slot(MessageScanHeads));
    row.Number(range.first).Number(range.last);
    while (row.Step() && each(MessageHeadOf(row))) {
    }
}

std::uint64_t CSqliteStorage::CountMessages(ObjectId folder, bool associated) {
    const IdRange range = RangeOf(folder, associated);
    CSqliteUse row(Slot(MessageCount));
    return row.Number(range.first).Number(range.last).Step() ? row.NumberAt(0) : 0;
}

std::uint64_t CSqliteStorage::CountUnread(ObjectId folder) {
    const IdRange range = RangeOf(folder, false);
    CSqliteUse row(Slot(MessageUnread));
    return row.Number(range.first).Number(range.last).Step() ? row.NumberAt(0) : 0;
}

// --- large values, recipients, parts ---------------------------------------------------------------

bool CSqliteStorage::ReadLarge(ObjectId owner, std::string& block) {
    CSqliteUse row(Slot(LargeRead));
    if (!row.Number(owner).Step()) return false;
    block.assign(row.BytesAt(0));
    return true;
}

void CSqliteStorage::WriteLarge(ObjectId owner, std::string_view block) {
    if (block.empty())
        CSqliteUse(Slot(LargeDelete)).Number(owner).Run();
    else
        CSqliteUse(Slot(LargeWrite)).Number(owner).Blob(block).Run();
}

bool CSqliteStorage::ReadRecipients(ObjectId owner, std::string& list) {
    CSqliteUse row(Slot(RecipientsRead));
    if (!row.Number(owner).Step()) return false;
    list.assign(row.BytesAt(0));
    return true;
}

void CSqliteStorage::WriteRecipients(ObjectId owner, std::string_view list) {
    if (list.empty())
        CSqliteUse(Slot(RecipientsDelete)).Number(owner).Run();
    else
        CSqliteUse(Slot(RecipientsWrite)).Number(owner).Blob(list).Run();
}

void CSqliteStorage::ScanParts(ObjectId owner,
                               const std::function<void(const PartHead&, std::string_view)>& each) {
    CSqliteUse row(Slot(PartScan));
    row.Number(owner);
    while (row.Step())
        each(PartHeadOf(row), row.BytesAt(4));
}

bool CSqliteStorage::ReadPart(ObjectId id, PartHead& head, std::string& block) {
    CSqliteUse row(Slot(PartRead));
    if (!row.Number(id).Step()) return false;
    head = PartHeadOf(row);
    block.assign(row.BytesAt(4));
    return true;
}

void CSqliteStorage::WritePart(const PartHead& head, std::string_view block) {
    CSqliteUse(Slot(PartWrite))
        .Number(head.id)
        .Number(head.owner)
        .Number(head.number)
        .Number(head.hasLarge)
        .Blob(block)
        .Run();
}

void CSqliteStorage::DeletePart(ObjectId id) {
    DeletePartAt(id, 0);
}

void CSqliteStorage::DeletePartAt(ObjectId id, unsigned depth) {
    DeletePartsOf(id, depth);
    CSqliteUse(Slot(PartDelete)).Number(id).Run();
    CSqliteUse(Slot(LargeDelete)).Number(id).Run();
    CSqliteUse(Slot(RecipientsDelete)).Number(id).Run();
}

void CSqliteStorage::DeletePartsOf(ObjectId owner, unsigned depth) {
    Require(depth < kDeepestParts, MAPI_E_CORRUPT_STORE);
    std::vector<ObjectId> parts;
    {
        CSqliteUse row(Slot(PartScan));
        row.Number(owner);
        while (row.Step())
            parts.push_back(row.NumberAt(0));
    }
    for (const ObjectId part : parts)
        DeletePartAt(part, depth + 1);
}
