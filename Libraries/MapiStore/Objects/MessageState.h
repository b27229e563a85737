// The contents of an open message: properties, recipients, attachments. Loaded piece by piece from a
// row, from a part (embedded message) or from a snapshot, changed in memory, and written in one go.
#pragma once
#include <MapiStore/Core/StoreCore.h>
#include <MapiStore/Values/PropertyBag.h>

#include <memory>
#include <optional>

struct AttachmentSnapshot;

// A message embedded in an attachment as its SaveChanges left it, not yet in the store.
struct MessageSnapshot {
    std::string small, large;
    std::string recipients;  // RecipientList.h
    std::vector<std::shared_ptr<const AttachmentSnapshot>> attachments;
};

// An attachment as its SaveChanges left it.
struct AttachmentSnapshot {
    std::uint32_t number = 0;
    std::string small, large;
    std::shared_ptr<const MessageSnapshot> embedded;  // null if there is none
};

// Embedded messages nest to this depth; deeper ones are left out when copied and refused when made.
inline constexpr unsigned kDeepestEmbedding = 32;

// An attachment of an open message: the one in the store (storedId), unless `saved` takes its place.
struct AttachmentSlot {
    std::uint32_t number = 0;
    ObjectId storedId = 0;
    std::string small;  // its block, for the attachment table
    std::shared_ptr<const AttachmentSnapshot> saved;
};

class CMessageState {
public:
    explicit CMessageState(CStoreCore& core) : m_core(core) {}

    // The contents of a stored message or part; large values, recipients and attachments are read when asked
    // for. `change`: the message's change number, 0 for a part. Where somebody has saved since, what belongs
    // to the block is not there any more: every later read then throws MAPI_E_OBJECT_CHANGED or
    // MAPI_E_OBJECT_DELETED.
    void LoadStored(ObjectId owner, std::string block, bool mayHaveRecipients, bool mayHaveAttachments,
                    std::uint64_t change = 0);
    // The same with what was changed here laid over it. Throws MAPI_E_OBJECT_CHANGED where the attachments
    // were changed.
    void LoadBelow(const MessageHead& head, std::string block);
    void LoadSnapshot(const MessageSnapshot& snapshot);

    CPropertyBag bag;
    bool LoadLarge(PropId id, std::string& bytes);
    // The same as a view, until the next change.
    bool FindLarge(PropId id, CStoredValue& value);

    // One block a recipient, in order.
    const std::vector<std::string>& Recipients();
    void SetRecipients(std::vector<std::string> blocks);
    const std::vector<AttachmentSlot>& Attachments();
    std::uint32_t NextAttachmentNumber();
    // Puts a saved attachment in the place of its number, or behind the last.
    void PutAttachment(std::shared_ptr<const AttachmentSnapshot> saved);
    bool RemoveAttachment(std::uint32_t number);
    bool HasAttachments() { return m_mayHaveAttachments && !Attachments().empty(); }

    bool IsChanged() const { return bag.IsChanged() || m_recipientsChanged || m_attachmentsChanged; }

    struct Written {
        std::string small;
        bool hasLarge = false;
        std::uint32_t size = 0;
        std::uint32_t recipients = 0;
        std::uint32_t attachments = 0;
    };
    // Everything but the block itself, which the caller puts into the row that it owns: fills in the
    // display lists, writes large values, recipients and attachments of `owner`. Inside a save.
    Written WriteParts(ObjectId owner);
    // After the save that wrote them has held: starts again from what is stored now.
    void AfterWrite(const MessageHead& head, Written written);
    // The whole, read from the store where it is not in memory.
    std::shared_ptr<const MessageSnapshot> Snapshot(unsigned depth = 0);

    // A stored attachment as a snapshot, with what is embedded in it.
    static std::shared_ptr<const AttachmentSnapshot> LoadAttachment(CStoreCore& core, ObjectId part,
                                                                    unsigned depth = 0);
    static std::shared_ptr<const MessageSnapshot> LoadEmbedded(CStoreCore& core, ObjectId attachment,
                                                               unsigned depth = 0);

private:
    const std::string& OldLarge();
    void RequireSameVersion();
    void UpdateDisplayLists();
    void RewriteBody();
    void WriteAttachments(ObjectId owner);

    CStoreCore& m_core;
    ObjectId m_owner = 0;        // where it is stored; 0 if it is not
    std::uint64_t m_change = 0;  // of the message when the block was read; 0 for a part
    bool m_mayHaveRecipients = false;
    bool m_mayHaveAttachments = false;
    std::optional<std::string> m_large;
    std::optional<std::vector<std::string>> m_recipients;
    std::optional<std::vector<AttachmentSlot>> m_attachments;
    std::vector<ObjectId> m_removedParts;
    std::uint32_t m_nextNumber = 0;
    bool m_recipientsChanged = false;
    bool m_attachmentsChanged = false;
};
