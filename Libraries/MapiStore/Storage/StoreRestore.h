// A backup in the place of a store's file.
#pragma once
#include "EntryId.h"

#include <string>

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
