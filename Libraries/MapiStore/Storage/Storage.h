// What a database must do for a message store: the one narrow interface between the objects and the
// place where they lie. SqliteStorage.h is the first implementation.
//
// An IObjectStorage belongs to one store core and is used under its lock only. Failures are CStoreError:
// MAPI_E_NOT_ENOUGH_DISK, MAPI_E_NO_ACCESS (read-only), MAPI_E_BUSY (another process held the file too
// long), MAPI_E_CORRUPT_STORE, MAPI_E_DISK_ERROR, MAPI_E_NOT_ENOUGH_MEMORY.
#pragma once
#include <Platform/StoreExtensions.h>

#include <MapiStore/Values/LookupKey.h>
#include <MapiStore/Values/StoreError.h>
#include <MapiStore/Values/ValueBlock.h>
#include "GivenTimes.h"

#include <functional>
#include <memory>
#include <optional>

// Number of an object in its store, never given twice. Messages carry their folder in it, so that the
// messages of a folder lie side by side and a scan needs no second index:
//
//   0 | folder number (23 bits) | associated (1 bit) | serial number (39 bits)
//
// Folders are plain small numbers; parts of a message (attachments, embedded messages) have folder
// number 0 and the associated bit set. A message that moves gets a new number.
using ObjectId = std::uint64_t;

inline constexpr ObjectId kSerialMask = (ObjectId(1) << 39) - 1;
inline constexpr ObjectId kAssociatedBit = ObjectId(1) << 39;
inline constexpr ObjectId kMaxFolder = (ObjectId(1) << 23) - 1;

inline ObjectId MakeMessageId(ObjectId folder, bool associated, std::uint64_t serial) {
    return (folder << 40) | (associated ? kAssociatedBit : 0) | serial;
}
inline ObjectId MakePartId(std::uint64_t serial) {
    return kAssociatedBit | serial;
}
inline ObjectId FolderOf(ObjectId message) {
    return message >> 40;
}
inline bool IsAssociated(ObjectId message) {
    return (message & kAssociatedBit) != 0;
}
inline bool IsFolderId(ObjectId id) {
    return id >= 1 && id <= kMaxFolder;
}
inline bool IsMessageId(ObjectId id) {
    return FolderOf(id) >= 1 && FolderOf(id) <= kMaxFolder;
}

// The hot columns of a message.
struct MessageHead {
    ObjectId id = 0;
    std::uint64_t created = 0;   // FILETIME ticks
    std::uint64_t modified = 0;  // FILETIME ticks
    std::uint64_t change = 0;    // change number of the last save of its contents
    std::uint32_t flags = 0;     // PR_MESSAGE_FLAGS without the computed bits
    std::uint32_t status = 0;    // PR_MSG_STATUS
    std::uint32_t size = 0;      // PR_MESSAGE_SIZE
    std::uint32_t recipients = 0;
    std::uint32_t attachments = 0;
    bool hasLarge = false;  // a block of large values exists
};

struct FolderHead {
    ObjectId id = 0;
    ObjectId parent = 0;  // its own number at the top of the hierarchy
    std::uint64_t created = 0;
    std::uint64_t modified = 0;
    std::uint64_t change = 0;
};

// An attachment, or the message embedded in one (number kEmbeddedNumber).
struct PartHead {
    ObjectId id = 0;
    ObjectId owner = 0;  // message, embedded message, or for an embedded message its attachment
    std::uint32_t number = 0;
    bool hasLarge = false;
};
inline constexpr std::uint32_t kEmbeddedNumber = 0xFFFFFFFF;

// What a write transaction takes its numbers from. Read when one begins, written when it ends.
struct StoreCounters {
    std::uint64_t serial = 1;  // next serial number of a message or part
    std::uint64_t folder = 1;  // next folder number
    std::uint64_t change = 1;  // next change number
    CGivenTimes times;         // times given out
};

// A named property. `name` is UTF-8, used when kind is MNID_STRING.
struct PropertyName {
    GUID guid{};
    ULONG kind = MNID_ID;
    LONG id = 0;
    std::string name;
    bool operator==(const PropertyName& other) const {
        return kind == other.kind && guid == other.guid &&
               (kind == MNID_ID ? id == other.id : name == other.name);
    }
};

// A fault that a check has found. `kind` as in StoreExtensions.h; `text` goes behind the name of the object,
// which is 0 where it is none in particular.
struct StoreDamage {
    const char* kind;
    ObjectId object;
    std::string text;
};

class IObjectStorage {
public:
    virtual ~IObjectStorage() = default;

    virtual bool IsReadOnly() const = 0;

    // One write transaction at a time. BeginWrite reads the counters, Commit writes them back. Inside,
    // a savepoint marks one save, so that a save that fails takes back only itself.
    virtual void BeginWrite(StoreCounters& counters) = 0;
    virtual void Commit(const StoreCounters& counters) = 0;
    virtual void Rollback() noexcept = 0;
    // What is committed, through any connection, survives a loss of power afterwards. Outside transactions.
    virtual void SyncToDisk() {}
    virtual bool InWrite() const = 0;  // false also after the database took the transaction back by itself
    virtual void SetSavepoint() = 0;
    virtual void ReleaseSavepoint() = 0;
    virtual void RollbackToSavepoint() noexcept = 0;

    // From now on until ReleaseVersion everything that is read outside a write transaction is of one version
    // of the file, that of the first read or of the last commit of this storage; without it each of the reads
    // below is of one version by itself. A call that reads a row and then what belongs to it needs it.
    virtual void HoldVersion() noexcept {}
    virtual void ReleaseVersion() noexcept {}

    // A number that changes when another connection has committed something. Costs a microsecond.
    virtual std::uint64_t OutsideChanges() = 0;

    // Small facts about the store by name (UID, display name, receive folders ...).
    virtual std::optional<std::string> ReadFact(std::string_view name) = 0;
    virtual void WriteFact(std::string_view name, std::string_view value) = 0;
    virtual void RemoveFact(std::string_view name) = 0;
    virtual void ScanFacts(
        std::string_view prefix,
        const std::function<void(std::string_view name, std::string_view value)>& each) = 0;

    // Named properties in order of their IDs.
    virtual void ScanNames(const std::function<void(PropId, const PropertyName&)>& each) = 0;
    virtual void AddName(PropId id, const PropertyName& name) = 0;

    // Folders. The block holds the display name and everything else that is not in the head.
    virtual bool ReadFolder(ObjectId id, FolderHead& head, std::string& block) = 0;
    virtual void WriteFolder(const FolderHead& head, std::string_view block) = 0;  // inserts or replaces
    virtual void DeleteFolder(ObjectId id) = 0;
    // Children in order of their numbers, without the folder itself. Views are valid during the call.
    virtual void ScanFolders(ObjectId parent,
                             const std::function<void(const FolderHead&, std::string_view block)>& each) = 0;
    virtual std::uint64_t CountFolders(ObjectId parent) = 0;
    // The first child of that display name, byte for byte; 0 if there is none.
    virtual ObjectId FindFolder(ObjectId parent, std::string_view name) = 0;

    // Messages.
    virtual bool ReadMessage(ObjectId id, MessageHead& head, std::string& block) = 0;
    virtual bool ReadMessageHead(ObjectId id, MessageHead& head) = 0;
    virtual void InsertMessage(const MessageHead& head, std::string_view block) = 0;
    // Replaces block and head but for flags and status. With `ifChange` only if the change number
    // still is that; false if no row was hit.
    virtual bool UpdateMessage(const MessageHead& head, std::string_view block,
                               std::optional<std::uint64_t> ifChange) = 0;
    virtual bool UpdateMessageState(ObjectId id, std::uint32_t flags, std::uint32_t status) = 0;
    // Renames a row: a move inside the store. Large values and recipients go along.
    virtual void MoveMessage(ObjectId from, const MessageHead& to) = 0;
    // With everything that belongs to it. False if there is none.
    virtual bool DeleteMessage(ObjectId id) = 0;
    virtual void DeleteMessages(ObjectId folder, bool associated) = 0;
    // In order of their numbers. Stops when `each` answers false. `each` may read from the storage, but
    // not scan messages again. Views are valid during the call.
    virtual void ScanMessages(
        ObjectId folder, bool associated,
        const std::function<bool(const MessageHead&, std::string_view block)>& each) = 0;
    // The same with the numbers and times of the heads alone, which is a third faster.
    virtual void ScanMessageBlocks(
        ObjectId folder, bool associated,
        const std::function<bool(const MessageHead&, std::string_view block)>& each) = 0;
    // The same without blocks, for keeping a table in step.
    virtual void ScanMessageHeads(ObjectId folder, bool associated,
                                  const std::function<bool(const MessageHead&)>& each) = 0;
    // The messages of a folder that have a value within one of the ranges, and perhaps others, in order of
    // their numbers, without looking at the whole folder. The properties must lie in the block, or be
    // PR_CREATION_TIME or PR_LAST_MODIFICATION_TIME, which are taken from the head. False where a scan is
    // as cheap, or the only way; `ids` is then undefined.
    virtual bool FindMessages(ObjectId /*folder*/, bool /*associated*/,
                              const std::vector<LookupRange>& /*ranges*/, std::vector<ObjectId>& /*ids*/) {
        return false;
    }
    virtual std::uint64_t CountMessages(ObjectId folder, bool associated) = 0;
    virtual std::uint64_t CountUnread(ObjectId folder) = 0;

    // Blocks of large values, lists of recipients (RecipientList.h), by message or part. An empty
    // block removes.
    virtual bool ReadLarge(ObjectId owner, std::string& block) = 0;
    virtual void WriteLarge(ObjectId owner, std::string_view block) = 0;
    virtual bool ReadRecipients(ObjectId owner, std::string& list) = 0;
    virtual void WriteRecipients(ObjectId owner, std::string_view list) = 0;

    // Attachments and embedded messages.
    virtual void ScanParts(ObjectId owner,
                           const std::function<void(const PartHead&, std::string_view block)>& each) = 0;
    virtual bool ReadPart(ObjectId id, PartHead& head, std::string& block) = 0;
    virtual void WritePart(const PartHead& head, std::string_view block) = 0;  // inserts or replaces
    virtual void DeletePart(ObjectId id) = 0;                                  // with everything below it

    // The file as a whole: IStoreCare of StoreExtensions.h. Not inside a transaction.
    virtual void Check(const std::function<void(const StoreDamage&)>& /*each*/,
                       StoreCheckCounts& /*counts*/) {
        throw CStoreError(MAPI_E_NO_SUPPORT);
    }
    virtual void Compact() { throw CStoreError(MAPI_E_NO_SUPPORT); }
    virtual void BackUp(const std::string& /*file*/) { throw CStoreError(MAPI_E_NO_SUPPORT); }
};
