// Work on whole folders in a store: finding, making, moving, copying and deleting them.
#pragma once
#include <MapiStore/Core/StoreCore.h>

// The child of that name (compared byte for byte, unless the store's names have no case); 0 for none.
ObjectId FindChild(CStoreCore& core, ObjectId parent, std::string_view name);
std::string NameOfFolder(CStoreCore& core, ObjectId folder);
// True if `folder` is `ancestor` or lies below it. A hierarchy that does not end counts as below.
bool IsWithin(CStoreCore& core, ObjectId folder, ObjectId ancestor);

// All inside a save.
// Copies of the messages of one folder into another.
void CopyContents(CStoreCore& from, ObjectId source, CStoreCore& to, ObjectId target, bool associated);
// Copies of the folders below one folder, with all that is in and below them. MAPI_E_COLLISION if a name is
// taken.
void CopySubfolders(CStoreCore& from, ObjectId source, CStoreCore& to, ObjectId target);
// A new folder with the class of its parent. MAPI_E_COLLISION if the name is taken.
ObjectId MakeFolder(CStoreCore& core, ObjectId parent, const std::string& name, const std::string& comment);
// Gives the folder another parent and, unless empty, another name. MAPI_E_COLLISION.
void MoveFolder(CStoreCore& core, ObjectId folder, ObjectId parent, const std::string& name);
// Removes the folder with everything in and below it.
void DeleteTree(CStoreCore& core, ObjectId folder);
// Removes the messages of a folder and tells about each.
void DeleteContents(CStoreCore& core, ObjectId folder, bool associated);

// Copies a message, from its row on, into a folder of the same or another store: new number, same
// search key, times and flags. Throws MAPI_E_NOT_FOUND. Answers the new number.
ObjectId CopyMessageRow(CStoreCore& from, ObjectId message, CStoreCore& to, ObjectId folder, bool associated);
// A move inside a store: the row gets a new number, nothing is copied.
ObjectId MoveMessageRow(CStoreCore& core, ObjectId message, ObjectId folder);
// Copies a folder with its contents, and what lies below it if asked. The target must have no child of
// the name.
ObjectId CopyFolderTree(CStoreCore& from, ObjectId folder, CStoreCore& to, ObjectId parent,
                        const std::string& name, bool deep);
