// The tables of a store file and the statements on them. For SqliteStorage.cpp and SqliteLookup.cpp alone.
// A change of the tables takes a new schema version, and a step that brings older files up.
#pragma once
#include "SqliteStorage.h"

enum CSqliteStorage::StatementId : unsigned {
    Begin,
    CommitIt,
    RollbackIt,
    Savepoint,
    Release,
    RollbackTo,
    HoldAVersion,
    ReadCounters,
    WriteCounters,
    DataVersion,
    FactRead,
    FactWrite,
    FactRemove,
    FactScan,
    NameScan,
    NameAdd,
    FolderRead,
    FolderWrite,
    FolderDelete,
    FolderScan,
    FolderCount,
    FolderFind,
    MessageRead,
    MessageReadHead,
    MessageInsert,
    MessageUpdate,
    MessageUpdateIf,
    MessageState,
    MessageMove,
    MessageDelete,
    MessageDeleteRange,
    MessageScan,
    MessageScanBlocks,
    MessageScanHeads,
    MessageCount,
    MessageUnread,
    LargeRead,
    LargeWrite,
    LargeDelete,
    LargeDeleteRange,
    LargeMove,
    RecipientsRead,
    RecipientsWrite,
    RecipientsDelete,
    RecipientsDeleteRange,
    RecipientsMove,
    PartScan,
    PartRead,
    PartWrite,
    PartDelete,
    PartMove,
    PartOwners,
    LookupPlaces,
    LookupOf,
    LookupsIn,
    LookupAdd,
    LookupSetRows,
    LookupTouched,
    LookupDrop,
    LookupIsWorn,
    LookupHasRows,
    LookupScan,
    KeyAdd,
    KeyFind,
    KeyDrop,
    LookupScanTimes,
    PageAdd,
    PageBefore,
    PagesFrom,
    PageDrop,
    TouchedAdd,
    TouchedScan,
    TouchedDrop,
    StatementCount
};

inline const char* const kSchema = R"(
CREATE TABLE fact(name TEXT PRIMARY KEY, value BLOB) WITHOUT ROWID;
CREATE TABLE counter(id INTEGER PRIMARY KEY CHECK(id = 1), serial INTEGER, folder INTEGER, change INTEGER, time INTEGER,
  times BLOB);
INSERT INTO counter VALUES(1, 1, 1, 1, 0, x'');
CREATE TABLE name(id INTEGER PRIMARY KEY, guid BLOB, kind INTEGER, number INTEGER, text TEXT);
CREATE UNIQUE INDEX name_value ON name(guid, kind, number, text);
CREATE TABLE folder(id INTEGER PRIMARY KEY, parent INTEGER, created INTEGER, modified INTEGER, change INTEGER, block BLOB,
  name BLOB);
CREATE INDEX folder_parent ON folder(parent);
CREATE TABLE message(id INTEGER PRIMARY KEY, created INTEGER, modified INTEGER, change INTEGER, flags INTEGER,
  status INTEGER, size INTEGER, recipients INTEGER, attachments INTEGER, large INTEGER, block BLOB);
CREATE TABLE large(owner INTEGER PRIMARY KEY, block BLOB);
CREATE TABLE recipients(owner INTEGER PRIMARY KEY, list BLOB);
CREATE TABLE part(id INTEGER PRIMARY KEY, owner INTEGER, number INTEGER, large INTEGER, block BLOB);
CREATE UNIQUE INDEX part_owner ON part(owner, number);
)";

// What SqliteLookup.cpp keeps: later than version 1, pages of keys with version 3. The key 0, in a page the
// empty one, stands for a value that has no key at hand.
inline const char* const kLookupSchema = R"(
CREATE TABLE IF NOT EXISTS lookup(number INTEGER PRIMARY KEY, place INTEGER, property INTEGER, rows INTEGER,
  touched INTEGER, UNIQUE(place, property));
CREATE TABLE IF NOT EXISTS lookup_key(lookup INTEGER, key, id INTEGER, PRIMARY KEY(lookup, key, id)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS lookup_page(id INTEGER PRIMARY KEY, lookup INTEGER, first BLOB, page BLOB);
CREATE INDEX IF NOT EXISTS lookup_page_first ON lookup_page(lookup, first);
CREATE TABLE IF NOT EXISTS lookup_touched(place INTEGER, id INTEGER, PRIMARY KEY(place, id)) WITHOUT ROWID;
)";

// Version 4. The name of a folder lies beside its block, so that any program that opens the file can keep the
// index over it; NULL where the block is damaged. Before it the index called a function of ours.
inline const char* const kNameIndex = "CREATE INDEX folder_name ON folder(parent, name);";
inline const char* const kColumnsOfVersion4 = R"(
DROP INDEX IF EXISTS folder_name;
ALTER TABLE folder ADD COLUMN name BLOB;
ALTER TABLE counter ADD COLUMN times BLOB;
)";

#define MESSAGE_HEAD "id, created, modified, change, flags, status, size, recipients, attachments, large"

// In the order of StatementId.
inline const char* const kStatements[] = {
    "BEGIN IMMEDIATE",
    "COMMIT",
    "ROLLBACK",
    "SAVEPOINT one_save",
    "RELEASE one_save",
    "ROLLBACK TO one_save",
    "SELECT 1 FROM counter",
    "SELECT serial, folder, change, times FROM counter",
    "UPDATE counter SET serial = ?, folder = ?, change = ?, time = ?, times = ?",
    "PRAGMA data_version",
    "SELECT value FROM fact WHERE name = ?",
    "REPLACE INTO fact VALUES(?, ?)",
    "DELETE FROM fact WHERE name = ?",
    "SELECT name, value FROM fact WHERE substr(name, 1, length(?1)) = ?1 ORDER BY name",
    "SELECT id, guid, kind, number, text FROM name ORDER BY id",
    "INSERT INTO name VALUES(?, ?, ?, ?, ?)",
    "SELECT id, parent, created, modified, change, block FROM folder WHERE id = ?",
    "REPLACE INTO folder(id, parent, created, modified, change, block, name) VALUES(?, ?, ?, ?, ?, ?, ?)",
    "DELETE FROM folder WHERE id = ?",
    "SELECT id, parent, created, modified, change, block FROM folder WHERE parent = ?1 AND id <> ?1 ORDER BY "
    "id",
    "SELECT count(*) FROM folder WHERE parent = ?1 AND id <> ?1",
    "SELECT id FROM folder WHERE parent = ?1 AND name = ?2 AND id <> ?1 ORDER BY id LIMIT 1",
    "SELECT " MESSAGE_HEAD ", block FROM message WHERE id = ?",
    "SELECT " MESSAGE_HEAD " FROM message WHERE id = ?",
    "INSERT INTO message(" MESSAGE_HEAD ", block) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
    "UPDATE message SET created = ?, modified = ?, change = ?, size = ?, recipients = ?, attachments = ?, "
    "large = ?,"
    " block = ? WHERE id = ?",
    "UPDATE message SET created = ?, modified = ?, change = ?, size = ?, recipients = ?, attachments = ?, "
    "large = ?,"
    " block = ? WHERE id = ? AND change = ?",
    "UPDATE message SET flags = ?, status = ? WHERE id = ?",
    "UPDATE message SET id = ?, created = ?, modified = ?, change = ? WHERE id = ?",
    "DELETE FROM message WHERE id = ?",
    "DELETE FROM message WHERE id BETWEEN ? AND ?",
    "SELECT " MESSAGE_HEAD ", block FROM message WHERE id BETWEEN ? AND ?",
    "SELECT id, created, modified, block FROM message WHERE id BETWEEN ? AND ?",
    "SELECT " MESSAGE_HEAD " FROM message WHERE id BETWEEN ? AND ?",
    "SELECT count(*) FROM message WHERE id BETWEEN ? AND ?",
    "SELECT count(*) FROM message WHERE id BETWEEN ? AND ? AND (flags & 1) = 0",
    "SELECT block FROM large WHERE owner = ?",
    "REPLACE INTO large VALUES(?, ?)",
    "DELETE FROM large WHERE owner = ?",
    "DELETE FROM large WHERE owner BETWEEN ? AND ?",
    "UPDATE large SET owner = ? WHERE owner = ?",
    "SELECT list FROM recipients WHERE owner = ?",
    "REPLACE INTO recipients VALUES(?, ?)",
    "DELETE FROM recipients WHERE owner = ?",
    "DELETE FROM recipients WHERE owner BETWEEN ? AND ?",
    "UPDATE recipients SET owner = ? WHERE owner = ?",
    "SELECT id, owner, number, large, block FROM part WHERE owner = ? ORDER BY number",
    "SELECT id, owner, number, large, block FROM part WHERE id = ?",
    "REPLACE INTO part VALUES(?, ?, ?, ?, ?)",
    "DELETE FROM part WHERE id = ?",
    "UPDATE part SET owner = ? WHERE owner = ?",
    "SELECT DISTINCT owner FROM part WHERE owner BETWEEN ? AND ?",
    "SELECT DISTINCT place FROM lookup",
    "SELECT number, rows FROM lookup WHERE place = ? AND property = ?",
    "SELECT number, property FROM lookup WHERE place = ?",
    "INSERT INTO lookup(place, property, rows, touched) VALUES(?, ?, 0, 0)",
    "UPDATE lookup SET rows = ? WHERE number = ?",
    "UPDATE lookup SET touched = touched + ? WHERE place = ?",
    "DELETE FROM lookup WHERE place = ?",
    "SELECT 1 FROM lookup WHERE place = ? AND touched > rows",
    "SELECT count(*) FROM (SELECT 1 FROM message WHERE id BETWEEN ? AND ? LIMIT ?)",
    "SELECT id, created, modified, block FROM message WHERE id BETWEEN ? AND ?",
    "INSERT OR IGNORE INTO lookup_key VALUES(?, ?, ?)",
    "SELECT id FROM lookup_key WHERE lookup = ?1 AND key = 0 UNION ALL "
    "SELECT id FROM lookup_key WHERE lookup = ?1 AND key >= ?2 AND key < ?3 LIMIT ?4",
    "DELETE FROM lookup_key WHERE lookup = ?",
    "SELECT id, created, modified, NULL FROM message WHERE id BETWEEN ? AND ?",
    "INSERT INTO lookup_page VALUES(?, ?, ?, ?)",
    "SELECT id FROM lookup_page WHERE lookup = ? AND first < ? ORDER BY first DESC, id DESC LIMIT 1",
    "SELECT page FROM lookup_page WHERE id BETWEEN ? AND ? ORDER BY id",
    "DELETE FROM lookup_page WHERE id BETWEEN ? AND ?",
    "INSERT OR IGNORE INTO lookup_touched VALUES(?, ?)",
    "SELECT id FROM lookup_touched WHERE place = ?",
    "DELETE FROM lookup_touched WHERE place = ?",
};

#undef MESSAGE_HEAD
