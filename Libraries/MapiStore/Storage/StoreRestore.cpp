#include "StoreRestore.h"

#include <Platform/Files.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "SqliteStorage.h"

namespace {

Database OpenDatabase(const std::string& path, int flags) {
    sqlite3* raw = nullptr;
    const int code = sqlite3_open_v2(path.c_str(), &raw, flags, nullptr);
    Database database(raw);
    if (code != SQLITE_OK) ThrowSqlite(raw, code);
    return database;
}

void Execute(sqlite3* database, const char* sql) {
    const int code = sqlite3_exec(database, sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) ThrowSqlite(database, code);
}

void RemoveDatabase(const std::string& path) {
    for (const char* tail : {"", "-wal", "-shm", "-journal"})
        RemoveFile(path + tail);
}

// Leaving the mode of the log needs the file alone, and the mode of locking keeps it.
void TakeAlone(sqlite3* database) {
    Execute(database, "PRAGMA locking_mode=EXCLUSIVE; PRAGMA journal_mode=DELETE; BEGIN EXCLUSIVE; COMMIT");
    sqlite3* raw = database;
    CSqliteSlot mode(raw, "PRAGMA journal_mode");
    CSqliteUse row(mode);
    Require(row.Step() && row.BytesAt(0) == "delete", MAPI_E_BUSY);
}

// In one transaction of the target, which a crash rolls back.
void CopyContents(sqlite3* from, sqlite3* to) {
    sqlite3_backup* copy = sqlite3_backup_init(to, "main", from, "main");
    if (!copy) ThrowSqlite(to, sqlite3_errcode(to));
    sqlite3_backup_step(copy, -1);
    const int code = sqlite3_backup_finish(copy);
    if (code != SQLITE_OK) ThrowSqlite(to, code);
}

// A file that the database does not take for one of its own is open to nobody.
void MoveAside(const std::string& store, const std::string& kept, const std::string& backup) {
    Require(RenameFile(store, kept), MAPI_E_DISK_ERROR);
    for (const char* tail : {"-wal", "-shm"})
        if (FileExists(store + tail)) RenameFile(store + tail, kept + tail);
    if (CopyPrivateFile(backup, store)) return;
    RenameFile(kept, store);
    throw CStoreError(MAPI_E_DISK_ERROR);
}

}  // namespace

void CloseDatabase::operator()(sqlite3* database) const {
    sqlite3_close(database);
}

// The thread that looks out for other processes may hold a store a moment longer than its last user.
CStoreAlone::CStoreAlone(const std::string& file) {
    using namespace std::chrono_literals;
    const auto end = std::chrono::steady_clock::now() + 1s;
    while (!TryToTake(file, std::chrono::steady_clock::now() < end))
        std::this_thread::sleep_for(5ms);
}

// False where somebody has the file, and `mayBeBusy`.
bool CStoreAlone::TryToTake(const std::string& file, bool mayBeBusy) {
    if (!FileExists(file)) return true;
    try {
        m_database = OpenDatabase(file, SQLITE_OPEN_READWRITE);
        TakeAlone(m_database.get());
    } catch (const CStoreError& error) {
        m_database.reset();
        if (error.Code() == MAPI_E_BUSY && mayBeBusy) return false;
        if (error.Code() != MAPI_E_CORRUPT_STORE) throw;
    }
    return true;
}

CCheckedBackup::CCheckedBackup(const std::string& file, const std::string& path, bool mayBeDamaged)
    : m_path(path) {
    Require(FileExists(file), MAPI_E_NOT_FOUND);
    Require(StampOfFile(file + "-wal").cbSize == 0, MAPI_E_UNABLE_TO_COMPLETE);
    RemoveDatabase(m_path);
    Require(CopyPrivateFile(file, m_path), MAPI_E_DISK_ERROR);
    try {
        CSqliteStorage storage(m_path);
        bool isDamaged = false;
        StoreCheckCounts counts;
        storage.Check([&isDamaged](const StoreDamage&) { isDamaged = true; }, counts);
        const auto uid = storage.ReadFact("uid");
        Require(uid && uid->size() == m_uid.bytes.size(), MAPI_E_CORRUPT_STORE);
        Require(!isDamaged || mayBeDamaged, MAPI_E_CORRUPT_STORE);
        std::memcpy(m_uid.bytes.data(), uid->data(), uid->size());
    } catch (...) {
        RemoveDatabase(m_path);
        throw;
    }
}

CCheckedBackup::~CCheckedBackup() {
    RemoveDatabase(m_path);
}

void CCheckedBackup::Replace(const std::string& store, const std::string& kept) const {
    if (!FileExists(store)) {
        Require(CopyPrivateFile(m_path, store), MAPI_E_DISK_ERROR);
        return;
    }
    const CStoreAlone target(store);
    if (!target.Raw()) return MoveAside(store, kept, m_path);
    Require(CopyPrivateFile(store, kept), MAPI_E_DISK_ERROR);
    try {
        const Database source = OpenDatabase(m_path, SQLITE_OPEN_READWRITE);
        CopyContents(source.get(), target.Raw());
    } catch (...) {
        RemoveFile(kept);
        throw;
    }
}
