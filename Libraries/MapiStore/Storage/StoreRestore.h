// The file of a store that is to go or to be replaced, and a backup in its place.
#pragma once
#include "EntryId.h"

#include <memory>
#include <string>

struct sqlite3;

struct CloseDatabase {
    void operator()(sqlite3* database) const;
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;

// A store's file that nobody else has open, and that nobody opens until the object goes.
class CStoreAlone {
public:
    // MAPI_E_BUSY if anybody has it open for a second from now, this process included; MAPI_E_NO_ACCESS,
    // MAPI_E_DISK_ERROR.
    explicit CStoreAlone(const std::string& file);
    // Null where there is no file or none that the database takes for its own. It is not held then, so that
    // it can be renamed on every system.
    sqlite3* Raw() const { return m_database.get(); }

private:
    bool TryToTake(const std::string& file, bool mayBeBusy);

    Database m_database;
};

// A copy of a backup, checked, in a private file beside a store; removed when it goes.
class CCheckedBackup {
public:
    // MAPI_E_NOT_FOUND, MAPI_E_UNABLE_TO_COMPLETE, MAPI_E_CORRUPT_STORE, MAPI_E_VERSION: IStoreRestore of
    // StoreExtensions.h. `path`: where the copy is made.
    CCheckedBackup(const std::string& file, const std::string& path, bool mayBeDamaged);
    ~CCheckedBackup();
    CCheckedBackup(const CCheckedBackup&) = delete;
    CCheckedBackup& operator=(const CCheckedBackup&) = delete;
    const StoreUid& Uid() const { return m_uid; }

    // Puts the contents in the place of the store's. What it held is in the file `kept` afterwards.
    // MAPI_E_BUSY if anybody has the store open; then, and after every failure, the store is as it was.
    void Replace(const std::string& store, const std::string& kept) const;

private:
    std::string m_path;
    StoreUid m_uid{};
};
