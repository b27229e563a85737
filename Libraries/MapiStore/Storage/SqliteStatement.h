// Statements of SQLite: prepared once, kept, and bound by position.
#pragma once
#include <Platform/MapiHeaders.h>
#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Throws the CStoreError for a result code of SQLite, with the database's message.
[[noreturn]] void ThrowSqlite(sqlite3* database, int code);
// The database's words for a disk that is full or fails; empty for any other code.
std::string WordsOfSqlite(HRESULT hr);

// Asked after every step whether what was read may be used; throws if not.
class ISqliteReadGuard {
public:
    virtual ~ISqliteReadGuard() = default;
    virtual void CheckRead() = 0;
};

// All statements of one text. A statement in use is not given out twice: a nested use prepares one more.
class CSqliteSlot {
public:
    CSqliteSlot(sqlite3*& database, const char* sql, ISqliteReadGuard* guard = nullptr)
        : m_database(database), m_sql(sql), m_guard(guard) {}
    ~CSqliteSlot() { Close(); }
    CSqliteSlot(const CSqliteSlot&) = delete;
    CSqliteSlot& operator=(const CSqliteSlot&) = delete;
    void Close();

private:
    friend class CSqliteUse;
    sqlite3_stmt* Take();
    void Give(sqlite3_stmt* statement);

    sqlite3*& m_database;
    const char* m_sql;
    ISqliteReadGuard* m_guard;
    std::vector<sqlite3_stmt*> m_free;
};

// One use of a statement, reset at its end. Parameters are bound in order; text and bytes must live
// until the end of the use.
class CSqliteUse {
public:
    explicit CSqliteUse(CSqliteSlot& slot) : m_slot(slot), m_statement(slot.Take()) {}
    ~CSqliteUse() { m_slot.Give(m_statement); }
    CSqliteUse(const CSqliteUse&) = delete;
    CSqliteUse& operator=(const CSqliteUse&) = delete;

    CSqliteUse& Number(std::uint64_t value);
    CSqliteUse& Blob(std::string_view bytes);
    CSqliteUse& Text(std::string_view text);
    bool Step();  // true while there is a row
    void Run() {
        while (Step()) {
        }
    }

    std::uint64_t NumberAt(int column) const;
    std::string_view BytesAt(int column) const;  // until the next Step

private:
    CSqliteSlot& m_slot;
    sqlite3_stmt* m_statement;
    int m_bound = 0;
};
