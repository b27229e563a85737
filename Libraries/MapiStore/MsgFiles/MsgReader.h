// A message out of a compound file.
#pragma once
#include <MapiStore/Objects/MessageState.h>

// Reads what can be read: a damaged property, recipient or attachment is left out, a storage without
// anything is an empty message. The named properties get their IDs in `core`. Throws CStoreError with
// MAPI_E_TOO_BIG when the whole would pass a gigabyte, as a file can claim that holds much less.
std::shared_ptr<const MessageSnapshot> ReadMsg(IStorage& storage, CStoreCore& core);
