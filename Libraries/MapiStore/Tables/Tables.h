// What the objects of this room ask of its tables (Tables.cpp, ContentsTable.cpp, Advise.cpp ...).
// All throw CStoreError. The table keeps what it needs of the store; `*table` gets one reference.
#pragma once
#include "RowSource.h"

#include <memory>

// `flags` as given to GetContentsTable: MAPI_ASSOCIATED, MAPI_UNICODE, MAPI_DEFERRED_ERRORS.
void OpenContentsTable(const std::shared_ptr<CStoreCore>& core, ObjectId folder, ULONG flags,
                       IMAPITable** table);

// `flags` as given to GetHierarchyTable: CONVENIENT_DEPTH, MAPI_UNICODE, MAPI_DEFERRED_ERRORS.
void OpenHierarchyTable(const std::shared_ptr<CStoreCore>& core, ObjectId folder, ULONG flags,
                        IMAPITable** table);

// A table over rows that stand still: one block (ValueBlock.h) a row, `columns` the default column set
// (MAPI_UNICODE in `flags` gives its text columns in wide form). `core` is for locking and counting
// the calls; null for tables that belong to no store.
void OpenRowsTable(const std::shared_ptr<CStoreCore>& core, std::vector<std::string> rows,
                   const std::vector<ULONG>& columns, ULONG flags, IMAPITable** table);

// IMsgStore::Advise and the like: `id` is the object watched, 0 the whole store. The connection lasts
// until Unadvise or until nobody holds the core any more. Connection numbers are unique in the process.
ULONG AdviseObject(const std::shared_ptr<CStoreCore>& core, ObjectId id, ULONG eventMask,
                   IMAPIAdviseSink* sink);
// MAPI_E_NOT_FOUND as CStoreError for an unknown number.
void UnadviseObject(ULONG connection);
