#include "SqliteStatement.h"

#include <MapiStore/Values/StoreError.h>

namespace {

HRESULT CodeOfSqlite(int code) {
    // The index of the log has no room. Nobody has refused the file, and nobody else is at work in it.
    if (code == SQLITE_IOERR_SHMSIZE) return MAPI_E_NOT_ENOUGH_DISK;
    switch (code & 0xFF) {
        case SQLITE_FULL:
            return MAPI_E_NOT_ENOUGH_DISK;
        case SQLITE_READONLY:
        case SQLITE_PERM:
        case SQLITE_AUTH:
            return MAPI_E_NO_ACCESS;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return MAPI_E_BUSY;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            return MAPI_E_CORRUPT_STORE;
        case SQLITE_NOMEM:
            return MAPI_E_NOT_ENOUGH_MEMORY;
        case SQLITE_IOERR:
        case SQLITE_CANTOPEN:
            return MAPI_E_DISK_ERROR;
        case SQLITE_TOOBIG:
            return MAPI_E_TOO_BIG;
        default:
            return MAPI_E_CALL_FAILED;
    }
}

}  // namespace

void ThrowSqlite(sqlite3* database, int code) {
    throw CStoreError(CodeOfSqlite(code), database ? sqlite3_errmsg(database) : sqlite3_errstr(code));
}

std::string WordsOfSqlite(HRESULT hr) {
    for (const int code : {SQLITE_FULL, SQLITE_IOERR})
        if (CodeOfSqlite(code) == hr) return sqlite3_errstr(code);
    return {};
}

void CSqliteSlot::Close() {
    for (sqlite3_stmt* statement : m_free)
        sqlite3_finalize(statement);
    m_free.clear();
}

sqlite3_stmt* CSqliteSlot::Take() {
    if (!m_free.empty()) {
        sqlite3_stmt* statement = m_free.back();
        m_free.pop_back();
        return statement;
    }
    m_free.reserve(4);
    sqlite3_stmt* statement = nullptr;
    const int code =
        sqlite3_prepare_v3(m_database, m_sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (code != SQLITE_OK) ThrowSqlite(m_database, code);
    return statement;
}

void CSqliteSlot::Give(sqlite3_stmt* statement) {
    sqlite3_reset(statement);
    if (m_free.size() < m_free.capacity())
        m_free.push_back(statement);
    else
        sqlite3_finalize(statement);
}

CSqliteUse& CSqliteUse::Number(std::uint64_t value) {
    sqlite3_bind_int64(m_statement, ++m_bound, static_cast<sqlite3_int64>(value));
    return *this;
}

CSqliteUse& CSqliteUse::Blob(std::string_view bytes) {
    const char* data = bytes.empty() ? "" : bytes.data();
    const int code = sqlite3_bind_blob64(m_statement, ++m_bound, data, bytes.size(), SQLITE_STATIC);
    if (code != SQLITE_OK) ThrowSqlite(nullptr, code);
    return *this;
}

CSqliteUse& CSqliteUse::Text(std::string_view text) {
    const char* data = text.empty() ? "" : text.data();
    const int code =
        sqlite3_bind_text64(m_statement, ++m_bound, data, text.size(), SQLITE_STATIC, SQLITE_UTF8);
    if (code != SQLITE_OK) ThrowSqlite(nullptr, code);
    return *this;
}

bool CSqliteUse::Step() {
    const int code = sqlite3_step(m_statement);
    if (m_slot.m_guard) m_slot.m_guard->CheckRead();
    if (code == SQLITE_ROW) return true;
    if (code == SQLITE_DONE) return false;
    ThrowSqlite(sqlite3_db_handle(m_statement), code);
}

std::uint64_t CSqliteUse::NumberAt(int column) const {
    return static_cast<std::uint64_t>(sqlite3_column_int64(m_statement, column));
}

std::string_view CSqliteUse::BytesAt(int column) const {
    const void* bytes = sqlite3_column_blob(m_statement, column);
    const int cb = sqlite3_column_bytes(m_statement, column);
    if (!bytes && cb > 0) throw std::bad_alloc();
    return {static_cast<const char*>(bytes), static_cast<std::size_t>(bytes ? cb : 0)};
}
