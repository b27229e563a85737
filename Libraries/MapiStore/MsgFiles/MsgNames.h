// The map of named properties of a message on a compound file.
#pragma once
#include <MapiStore/Core/StoreCore.h>

#include <unordered_map>

// From the IDs that the file uses to those of the store core behind the open message. Properties whose
// name is damaged are not in it.
using MsgNameMap = std::unordered_map<PropId, PropId>;

// Reads the names and gives each one its ID in `core`, which must be able to take names.
MsgNameMap ReadMsgNames(IStorage& message, CStoreCore& core);

// Writes all names of `core`; the IDs in the file are then those of the core. Throws CStoreError.
void WriteMsgNames(IStorage& message, CStoreCore& core);
