// The file of a store as a whole: made smaller, and written out beside the work on it.
#include "SqliteSchema.h"
#include "SqliteStorage.h"

#include <Platform/Machine.h>

void CSqliteStorage::Compact() {
    Require(!IsReadOnly(), MAPI_E_NO_ACCESS);
    Require(!InWrite(), MAPI_E_BUSY);
    m_held.reset();
    // A copy of the whole file does not belong into memory.
    Execute("PRAGMA temp_store=FILE");
    try {
        Execute("VACUUM");
        Execute("PRAGMA wal_checkpoint(TRUNCATE)");
    } catch (...) {
        Execute("PRAGMA temp_store=MEMORY");
        throw;
    }
    Execute("PRAGMA temp_store=MEMORY");
}

void CSqliteStorage::BackUp(const std::string& file) {
    Require(!InWrite(), MAPI_E_BUSY);
    m_held.reset();
    const std::string part = file + "." + std::to_string(ProcessId()) + ".part";
    RemoveFile(part);
    Require(CreatePrivateFile(part), MAPI_E_DISK_ERROR);
    try {
        CSqliteSlot copy(m_database, "VACUUM INTO ?");
        CSqliteUse(copy).Text(part).Run();
        Require(PublishFile(part, file), MAPI_E_DISK_ERROR);
    } catch (...) {
        RemoveFile(part);
        throw;
    }
}
