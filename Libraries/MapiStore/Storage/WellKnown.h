// The folders that every store has from the beginning. Their numbers lie on disk.
#pragma once
#include "Storage.h"

enum WellKnownFolder : ObjectId {
    kRootFolder = 1,  // top of the hierarchy, its own parent, without a name
    kIpmFolder = 2,
    kInboxFolder = 3,
    kOutboxFolder = 4,
    kSentFolder = 5,
    kDeletedFolder = 6,
    kCalendarFolder = 7,
    kContactsFolder = 8,
    kTasksFolder = 9,
    kNotesFolder = 10,
    kJournalFolder = 11,
    kLastWellKnownFolder = kJournalFolder,
};

// Published, but not in every copy of the headers.
#ifndef PR_LONGTERM_ENTRYID_FROM_TABLE
#define PR_LONGTERM_ENTRYID_FROM_TABLE PROP_TAG(PT_BINARY, 0x6670)
#endif

// PR_MDB_PROVIDER of these stores: {4F7C1E52-8D0B-4B6E-9E6A-3C2D1A5B7F10}
inline constexpr GUID kStoreProvider = {
    0x4f7c1e52, 0x8d0b, 0x4b6e, {0x9e, 0x6a, 0x3c, 0x2d, 0x1a, 0x5b, 0x7f, 0x10}};

// Not among them, because a caller would rely on it: search folders (STORE_SEARCH_OK), objects of attachments
// as IStorage (STORE_OLE_OK), body and RTF that the store keeps in step by itself (STORE_RTF_OK; RTFSync does
// that), a row for each value of a multi-valued column (STORE_MV_PROPS_OK).
inline constexpr ULONG kStoreSupportMask = STORE_ENTRYID_UNIQUE | STORE_MODIFY_OK | STORE_CREATE_OK |
                                           STORE_ATTACH_OK | STORE_NOTIFY_OK | STORE_RESTRICTION_OK |
                                           STORE_SORT_OK | STORE_UNICODE_OK;
