#include "SqliteBaseline.h"

#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

namespace {

struct CloseDatabase {
    void operator()(sqlite3* db) const { sqlite3_close(db); }
};
struct FinalizeStatement {
    void operator()(sqlite3_stmt* st) const { sqlite3_finalize(st); }
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;
using Statement = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;
using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void Check(sqlite3* db, int rc) {
    if (rc != SQLITE_OK && rc != SQLITE_DONE && rc != SQLITE_ROW)
        throw std::runtime_error(sqlite3_errmsg(db));
}

void Execute(sqlite3* db, const char* sql) {
    Check(db, sqlite3_exec(db, sql, nullptr, nullptr, nullptr));
}

Statement Prepared(sqlite3* db, const char* sql) {
    sqlite3_stmt* st = nullptr;
    Check(db, sqlite3_prepare_v2(db, sql, -1, &st, nullptr));
    return Statement(st);
}

Database Open(const std::string& path) {
    sqlite3* raw = nullptr;
    const int rc = sqlite3_open(path.c_str(), &raw);
    Database db(raw);
    Check(raw, rc);
    Execute(raw, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;");
    Execute(
        raw,
        "CREATE TABLE IF NOT EXISTS item(id INTEGER PRIMARY KEY, key BLOB, time INTEGER, subject TEXT, body "
        "TEXT);"
        "CREATE TABLE IF NOT EXISTS property(item INTEGER, tag INTEGER, value BLOB, PRIMARY KEY(item, tag)) "
        "WITHOUT ROWID;");
    return db;
}

void Remove(const std::string& path) {
    for (const char* tail : {"", "-wal", "-shm"})
        std::remove((path + tail).c_str());
}

void InsertProperties(sqlite3* db, sqlite3_stmt* st, sqlite3_int64 item) {
    for (int i = 0; i < kBaselineProperties; ++i) {
        const std::string value = "value " + std::to_string(i) + " of " + std::to_string(item);
        sqlite3_bind_int64(st, 1, item);
        sqlite3_bind_int(st, 2, 0x30000000 + i);
        sqlite3_bind_text(st, 3, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
        Check(db, sqlite3_step(st));
        sqlite3_reset(st);
    }
}

void CopyProperties(sqlite3* from, sqlite3_stmt* read, sqlite3* to, sqlite3_stmt* write, sqlite3_int64 item) {
    sqlite3_bind_int64(read, 1, item);
    while (sqlite3_step(read) == SQLITE_ROW) {
        sqlite3_bind_int64(write, 1, item);
        sqlite3_bind_value(write, 2, sqlite3_column_value(read, 0));
        sqlite3_bind_value(write, 3, sqlite3_column_value(read, 1));
        Check(to, sqlite3_step(write));
        sqlite3_reset(write);
    }
    Check(from, sqlite3_reset(read));
}

struct KeyAndTime {
    std::string key;
    sqlite3_int64 time;
    bool operator==(const KeyAndTime&) const = default;
};

std::vector<KeyAndTime> ReadKeys(sqlite3* db) {
    std::vector<KeyAndTime> rows;
    const Statement st = Prepared(db, "SELECT key, time FROM item ORDER BY id");
    while (sqlite3_step(st.get()) == SQLITE_ROW) {
        const auto* key = static_cast<const char*>(sqlite3_column_blob(st.get(), 0));
        rows.push_back({std::string(key, static_cast<size_t>(sqlite3_column_bytes(st.get(), 0))),
                        sqlite3_column_int64(st.get(), 1)});
    }
    return rows;
}

}  // namespace

CSqliteBaseline::CSqliteBaseline(const std::string& directory)
    : m_source(directory + "/baseline-source.db"), m_target(directory + "/baseline-target.db") {}

void CSqliteBaseline::Prepare(int count) {
    Remove(m_source);
    const Database db = Open(m_source);
    Execute(db.get(), "BEGIN");
    const Statement item = Prepared(db.get(), "INSERT INTO item VALUES(?,?,?,?,?)");
    const Statement property = Prepared(db.get(), "INSERT INTO property VALUES(?,?,?)");
    std::mt19937_64 random(1);
    for (int i = 1; i <= count; ++i) {
        const std::string key = std::to_string(random()).substr(0, 16);
        const std::string subject = "Item number " + std::to_string(i);
        std::string body(1000, ' ');
        for (auto& c : body)
            c = static_cast<char>('a' + random() % 26);
        sqlite3_bind_int(item.get(), 1, i);
        sqlite3_bind_blob(item.get(), 2, key.data(), static_cast<int>(key.size()), SQLITE_TRANSIENT);
        sqlite3_bind_int64(item.get(), 3, static_cast<sqlite3_int64>(random() >> 2));
        sqlite3_bind_text(item.get(), 4, subject.data(), static_cast<int>(subject.size()), SQLITE_TRANSIENT);
        sqlite3_bind_text(item.get(), 5, body.data(), static_cast<int>(body.size()), SQLITE_TRANSIENT);
        Check(db.get(), sqlite3_step(item.get()));
        sqlite3_reset(item.get());
        InsertProperties(db.get(), property.get(), i);
    }
    Execute(db.get(), "COMMIT");
}

double CSqliteBaseline::Copy() {
    Remove(m_target);
    const auto start = Clock::now();
    {
        const Database from = Open(m_source);
        const Database to = Open(m_target);
        Execute(to.get(), "BEGIN");
        const Statement items = Prepared(from.get(), "SELECT id, key, time, subject, body FROM item");
        const Statement properties = Prepared(from.get(), "SELECT tag, value FROM property WHERE item=?");
        const Statement item = Prepared(to.get(), "INSERT INTO item VALUES(?,?,?,?,?)");
        const Statement property = Prepared(to.get(), "INSERT INTO property VALUES(?,?,?)");
        while (sqlite3_step(items.get()) == SQLITE_ROW) {
            for (int column = 0; column < 5; ++column)
                sqlite3_bind_value(item.get(), column + 1, sqlite3_column_value(items.get(), column));
            Check(to.get(), sqlite3_step(item.get()));
            sqlite3_reset(item.get());
            CopyProperties(from.get(), properties.get(), to.get(), property.get(),
                           sqlite3_column_int64(items.get(), 0));
        }
        Execute(to.get(), "COMMIT");
    }
    return SecondsSince(start);
}

double CSqliteBaseline::Scan() {
    const auto start = Clock::now();
    const Database from = Open(m_source);
    const Database to = Open(m_target);
    if (ReadKeys(from.get()) != ReadKeys(to.get())) throw std::runtime_error("the two files differ");
    return SecondsSince(start);
}

double CSqliteBaseline::ScanFolder() {
    const auto start = Clock::now();
    const Database from = Open(m_source);
    const Statement st = Prepared(from.get(), "SELECT key, time, subject FROM item ORDER BY id");
    std::vector<BaselineItem> items;
    while (sqlite3_step(st.get()) == SQLITE_ROW) {
        const auto text = [&](int column) {
            return std::string(static_cast<const char*>(sqlite3_column_blob(st.get(), column)),
                               static_cast<size_t>(sqlite3_column_bytes(st.get(), column)));
        };
        items.push_back(
            {text(0), text(2), {}, static_cast<std::uint64_t>(sqlite3_column_int64(st.get(), 1))});
    }
    if (items.empty()) throw std::runtime_error("nothing was scanned");
    return SecondsSince(start);
}
