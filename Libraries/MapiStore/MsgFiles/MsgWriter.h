// A message into a compound file.
#pragma once
#include <MapiStore/Objects/MessageState.h>

// Replaces the message that the storage holds; elements that are no part of a message stay. Text is
// written in wide form. Does not commit the storage. Throws CStoreError; the storage then holds a part,
// and a transacted one can be reverted.
void WriteMsg(IStorage& storage, CStoreCore& core, const MessageSnapshot& message);
