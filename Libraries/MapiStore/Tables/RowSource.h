// What tables, sorts and restrictions see of a row: the property of an ID out of hot columns and
// block, the computed ones included, without opening an object.
#pragma once
#include <MapiStore/Core/StoreCore.h>

#include <functional>

class IRow {
public:
    virtual ~IRow() = default;

    // False if the row does not have the property. A large value comes back with IsLarge(); LoadLarge
    // gets its bytes. The value views the row and holds as long as the row's bytes do.
    virtual bool Find(PropId id, CStoredValue& value) const = 0;
    // The bytes of a value that Find gave as large. False if it has gone.
    virtual bool LoadLarge(PropId /*id*/, std::string& /*bytes*/) const { return false; }
    // The rows behind PR_MESSAGE_RECIPIENTS or PR_MESSAGE_ATTACHMENTS (a whole tag); `each` answers
    // false to stop. Nothing for rows without such.
    virtual void ForEachSubRow(ULONG /*tag*/, const std::function<bool(const IRow&)>& /*each*/) const {}
    // All property IDs of the row in ascending order, for a column set that asks for all.
    virtual void ListIds(std::vector<PropId>& ids) const = 0;
};

// A message as a scan of its folder shows it. `head` and `block` must outlive the row. Damage of the block
// shows (MAPI_E_CORRUPT_DATA) when something in it is looked for.
class CMessageRow : public IRow {
public:
    CMessageRow(CStoreCore& core, const MessageHead& head, std::string_view block)
        : m_core(core), m_head(head), m_bytes(block) {}
    bool Find(PropId id, CStoredValue& value) const override;
    bool LoadLarge(PropId id, std::string& bytes) const override;
    void ForEachSubRow(ULONG tag, const std::function<bool(const IRow&)>& each) const override;
    void ListIds(std::vector<PropId>& ids) const override;
    const MessageHead& Head() const { return m_head; }

private:
    const CValueBlock& Block() const;

    CStoreCore& m_core;
    const MessageHead& m_head;
    std::string_view m_bytes;
    mutable CValueBlock m_block;  // made when it is first asked
    mutable bool m_hasBlock = false;
};

// Whether CMessageRow gives the property as it lies in the block, and only if it lies there.
bool IsOfBlock(PropId id);

// A folder as its parent's hierarchy table shows it. `depth` is PR_DEPTH.
class CFolderRow : public IRow {
public:
    CFolderRow(CStoreCore& core, const FolderHead& head, std::string_view block, ULONG depth = 1)
        : m_core(core), m_head(head), m_depth(depth), m_block(block) {}
    bool Find(PropId id, CStoredValue& value) const override;
    void ListIds(std::vector<PropId>& ids) const override;
    const FolderHead& Head() const { return m_head; }

private:
    CStoreCore& m_core;
    FolderHead m_head;
    ULONG m_depth;
    CValueBlock m_block;
};

// Any block as a row: recipients, attachments, stores, profiles, receive folders.
class CBlockRow : public IRow {
public:
    explicit CBlockRow(std::string_view block) : m_block(block) {}
    bool Find(PropId id, CStoredValue& value) const override { return m_block.Find(id, value); }
    void ListIds(std::vector<PropId>& ids) const override;

private:
    CValueBlock m_block;
};

// The computed properties of messages and folders, for rows and open objects alike. False if the ID
// is not computed from the head. `inTable`: tables of stores with long-term IDs give short-term ones.
bool ComputedOfMessage(CStoreCore& core, const MessageHead& head, bool inTable, PropId id,
                       CStoredValue& value);
bool ComputedOfFolder(CStoreCore& core, const FolderHead& head, bool inTable, PropId id, CStoredValue& value);
