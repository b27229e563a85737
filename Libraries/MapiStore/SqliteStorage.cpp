#include "SqliteStorage.h"

#include <Platform/Files.h>

#include "MessageRange.h"
#include "SqliteSchema.h"
#include "StoreError.h"

namespace {

constexpr int kApplicationId = 0x56534D31;
constexpr unsigned kSchemaVersion = 3;
constexpr unsigned kDeepestParts = 256;  // a chain longer than that can only be a damaged one

// folder_name(block): the display name that lies in a folder's block, NULL where the block is damaged. The
// index over it needs the function on every connection.
void FolderName(sqlite3_context* context, int, sqlite3_value** arguments) {
    try {
        const auto* bytes = static_cast<const char*>(sqlite3_value_blob(arguments[0]));
        const std::string_view block(bytes, static_cast<std::size_t>(sqlite3_value_bytes(arguments[0])));
        CStoredValue name;
        const bool isThere = CValueBlock(block).Find(PROP_ID(PR_DISPLAY_NAME), name);
        const std::string_view text = isThere ? name.Bytes() : std::string_view();
        sqlite3_result_blob64(context, text.empty() ? "" : text.data(), text.size(), SQLITE_TRANSIENT);
    } catch (...) {
        sqlite3_result_null(context);
    }
}

int AddFunctions(sqlite3* database) {
    return sqlite3_create_function_v2(database, "folder_name", 1,
                                      SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS, nullptr,
                                      FolderName, nullptr, nullptr, nullptr);
}

bool IsEmptyFile(const std::string& path) {
    std::string bytes;
    return !FileExists(path) || (ReadFileBytes(path, bytes) && bytes.empty());
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

CSqliteStorage::CSqliteStorage(const std::string& path) {
    static_assert(sizeof kStatements / sizeof *kStatements == StatementCount);
    Require(FileExists(path), MAPI_E_NOT_FOUND);
    for (const char* sql : kStatements)
        m_slots.push_back(std::make_unique<CSqliteSlot>(m_database, sql));
    try {
        Open(path.c_str(), SQLITE_OPEN_READWRITE);
    } catch (const CStoreError& error) {
        // The log cannot be made beside a file in a directory that is not ours to write.
        const bool refused = error.Code() == MAPI_E_DISK_ERROR || error.Code() == MAPI_E_NO_ACCESS;
        if (!refused || !IsEmptyFile(path + "-wal")) throw;
        Open(ImmutableUri(path).c_str(), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
    }
}

void CSqliteStorage::Open(const char* name, int flags) {
    const int code = sqlite3_open_v2(name, &m_database, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    try {
        if (code != SQLITE_OK) ThrowSqlite(m_database, code);
        sqlite3_extended_result_codes(m_database, 1);
        sqlite3_busy_timeout(m_database, kBusyTimeoutMs);
        if (const int added = AddFunctions(m_database); added != SQLITE_OK) ThrowSqlite(m_database, added);
        CheckIdentity();
        if (!IsReadOnly()) Execute("PRAGMA journal_mode=WAL");
        Execute(
            "PRAGMA synchronous=NORMAL; PRAGMA wal_autocheckpoint=4000; PRAGMA cache_size=-2048;"
            "PRAGMA temp_store=MEMORY; PRAGMA trusted_schema=OFF");
        // A store of which no page can be read shows it now, not at the first message.
        CSqliteUse(Slot(ReadCounters)).Step();
    } catch (...) {
        for (const auto& slot : m_slots)
            slot->Close();
        sqlite3_close(m_database);
        m_database = nullptr;
        throw;
    }
}

CSqliteStorage::~CSqliteStorage() {
    m_slots.clear();
    sqlite3_close(m_database);
}

void CSqliteStorage::Create(const std::string& path) {
    Require(!FileExists(path), MAPI_E_COLLISION);
    sqlite3* database = nullptr;
    int code = sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    const std::string sql =
        "PRAGMA page_size=8192; BEGIN; PRAGMA application_id=" + std::to_string(kApplicationId) +
        "; PRAGMA user_version=" + std::to_string(kSchemaVersion) + ";" + kSchema + kLookupSchema + "COMMIT";
    if (code == SQLITE_OK) code = AddFunctions(database);
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
    // A file that cannot be written is read as it is: what the step adds only makes it faster.
    if (version < kSchemaVersion && !IsReadOnly()) BringUp();
    m_hasLookups = Version() >= kSchemaVersion;
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
        if (Version() < kSchemaVersion) {
            Execute(kLookupSchema);
            Execute(("PRAGMA user_version=" + std::to_string(kSchemaVersion)).c_str());
        }
        Execute("COMMIT");
    } catch (...) {
        Rollback();
        throw;
    }
}

void CSqliteStorage::Execute(const char* sql) {
    const int code = sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) ThrowSqlite(m_database, code);
}

CSqliteSlot& CSqliteStorage::Slot(StatementId id) {
    return *m_slots[id];
}

void CSqliteStorage::LimitPages(unsigned pages) {
    Execute(("PRAGMA max_page_count=" + std::to_string(pages)).c_str());
}

bool CSqliteStorage::IsReadOnly() const {
    return sqlite3_db_readonly(m_database, "main") == 1;
}

// --- transactions ----------------------------------------------------------------------------------

void CSqliteStorage::BeginWrite(StoreCounters& counters) {
    Require(!IsReadOnly(), MAPI_E_NO_ACCESS);
    CSqliteUse(Slot(Begin)).Run();
    try {
        CSqliteUse row(Slot(ReadCounters));
        Require(row.Step(), MAPI_E_CORRUPT_STORE);
        counters = {row.NumberAt(0), row.NumberAt(1), row.NumberAt(2), row.NumberAt(3)};
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
        .Number(counters.time)
        .Run();
    CSqliteUse(Slot(CommitIt)).Run();
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
    return sqlite3_get_autocommit(m_database) == 0;
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
    CSqliteUse row(Slot(DataVersion));
    return row.Step() ? row.NumberAt(0) : 0;
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
    CSqliteUse(Slot(FolderWrite))
        .Number(head.id)
        .Number(head.parent)
        .Number(head.created)
        .Number(head.modified)
        .Number(head.change)
        .Blob(block)
        .Run();
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
    CSqliteUse row(Slot(FolderFind));
    return row.Number(parent).Blob(name).Step() ? row.NumberAt(0) : 0;
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
