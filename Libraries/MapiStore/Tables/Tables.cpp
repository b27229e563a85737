#include "Tables.h"

#include <MapiStore/Storage/WellKnown.h>
#include <MapiStore/Values/StoreError.h>
#include "ObjectWatch.h"
#include "Table.h"

#include <algorithm>

namespace {

constexpr ULONG kDeepestLevel = 1000;

const std::vector<ULONG>& ContentsColumns() {
    static const std::vector<ULONG> columns = {PR_ENTRYID,
                                               PR_INSTANCE_KEY,
                                               PR_RECORD_KEY,
                                               PR_OBJECT_TYPE,
                                               PR_MESSAGE_CLASS_A,
                                               PR_SUBJECT_A,
                                               PR_SENDER_NAME_A,
                                               PR_DISPLAY_TO_A,
                                               PR_MESSAGE_DELIVERY_TIME,
                                               PR_MESSAGE_FLAGS,
                                               PR_MESSAGE_SIZE,
                                               PR_IMPORTANCE,
                                               PR_SENSITIVITY,
                                               PR_HASATTACH,
                                               PR_MSG_STATUS,
                                               PR_CREATION_TIME,
                                               PR_LAST_MODIFICATION_TIME,
                                               PR_SEARCH_KEY,
                                               PR_PARENT_ENTRYID,
                                               PR_STORE_ENTRYID,
                                               PR_STORE_RECORD_KEY,
                                               PR_MAPPING_SIGNATURE,
                                               PR_ROW_TYPE};
    return columns;
}

const std::vector<ULONG>& HierarchyColumns() {
    static const std::vector<ULONG> columns = {PR_ENTRYID,           PR_INSTANCE_KEY,
                                               PR_RECORD_KEY,        PR_OBJECT_TYPE,
                                               PR_DISPLAY_NAME_A,    PR_DEPTH,
                                               PR_FOLDER_TYPE,       PR_SUBFOLDERS,
                                               PR_CONTENT_COUNT,     PR_CONTENT_UNREAD,
                                               PR_CONTAINER_CLASS_A, PR_COMMENT_A,
                                               PR_CREATION_TIME,     PR_LAST_MODIFICATION_TIME,
                                               PR_PARENT_ENTRYID,    PR_STORE_ENTRYID,
                                               PR_STORE_RECORD_KEY,  PR_STATUS,
                                               PR_ROW_TYPE};
    return columns;
}

// Every save of this process and every commit of another one counts as a change.
std::uint64_t VersionOf(CStoreCore& core) {
    return core.Storage().OutsideChanges() << 32 | core.SaveCount();
}

// --- contents ---------------------------------------------------------------------------------------

bool IsInHead(PropId id) {
    switch (id) {
        case PROP_ID(PR_CREATION_TIME):
        case PROP_ID(PR_LAST_MODIFICATION_TIME):
        case PROP_ID(PR_MESSAGE_FLAGS):
        case PROP_ID(PR_MSG_STATUS):
        case PROP_ID(PR_MESSAGE_SIZE):
        case PROP_ID(PR_HASATTACH):
        case PROP_ID(PR_ENTRYID):
        case PROP_ID(PR_INSTANCE_KEY):
        case PROP_ID(PR_RECORD_KEY):
        case PROP_ID(PR_OBJECT_TYPE):
            return true;
        default:
            return false;
    }
}

// What only the whole head answers.
bool NeedsWholeHead(PropId id) {
    switch (id) {
        case PROP_ID(PR_MESSAGE_FLAGS):
        case PROP_ID(PR_MSG_STATUS):
        case PROP_ID(PR_MESSAGE_SIZE):
        case PROP_ID(PR_HASATTACH):
            return true;
        default:
            return false;
    }
}

// Whether the storage may be asked for messages by it.
bool IsLookedUp(const LookupRange& range) {
    return IsOfBlock(range.property) || range.property == PROP_ID(PR_CREATION_TIME) ||
           range.property == PROP_ID(PR_LAST_MODIFICATION_TIME);
}

class CContentsSource final : public ITableSource {
public:
    CContentsSource(const std::shared_ptr<CStoreCore>& core, ObjectId folder, bool associated)
        : m_core(core), m_folder(folder), m_associated(associated) {}

    void Scan(const RowNeeds& needs, const Each& each) override {
        if (needs.bounds && ScanFound(*needs.bounds, each)) return;
        if (needs.keysOnly || (needs.ids && std::all_of(needs.ids->begin(), needs.ids->end(), IsInHead))) {
            m_core->Storage().ScanMessageHeads(m_folder, m_associated, [&](const MessageHead& head) {
                return each(head.id, CMessageRow(*m_core, head, {}));
            });
            return;
        }
        const auto show = [&](const MessageHead& head, std::string_view block) {
            return each(head.id, CMessageRow(*m_core, head, block));
        };
        if (needs.ids && std::none_of(needs.ids->begin(), needs.ids->end(), NeedsWholeHead))
            m_core->Storage().ScanMessageBlocks(m_folder, m_associated, show);
        else
            m_core->Storage().ScanMessages(m_folder, m_associated, show);
    }

    bool Read(RowKey key, const std::function<void(const IRow&)>& body) override {
        if (FolderOf(key) != m_folder || IsAssociated(key) != m_associated) return false;
        MessageHead head;
        if (!m_core->Storage().ReadMessage(key, head, m_block)) return false;
        body(CMessageRow(*m_core, head, m_block));
        return true;
    }

    std::uint64_t Version() override { return VersionOf(*m_core); }
    const std::vector<ULONG>& DefaultColumns() const override { return ContentsColumns(); }
    CStoreCore* Core() const override { return m_core.get(); }

    void ListTouched(const StoreEvent& event, std::vector<RowKey>& keys) const override {
        for (ObjectId id : {event.id, event.oldId})
            if (IsMessageId(id) && FolderOf(id) == m_folder && IsAssociated(id) == m_associated)
                keys.push_back(id);
    }
    std::uint64_t StampOf(const IRow& row) const override {
        const MessageHead& head = static_cast<const CMessageRow&>(row).Head();
        return head.change * 31 + (std::uint64_t{head.flags} << 32 | head.status);
    }

private:
    // The rows that the storage finds by the first bound that it can look up; false if there is none.
    bool ScanFound(const RestrictionBounds& bounds, const Each& each) {
        IObjectStorage& storage = m_core->Storage();
        std::vector<ObjectId> ids;
        for (const RestrictionBound& bound : bounds) {
            if (!std::all_of(bound.ranges.begin(), bound.ranges.end(), IsLookedUp)) continue;
            if (!storage.FindMessages(m_folder, m_associated, bound.ranges, ids)) continue;
            MessageHead head;
            std::string block;
            for (const ObjectId id : ids)
                if (storage.ReadMessage(id, head, block) && !each(id, CMessageRow(*m_core, head, block)))
                    break;
            return true;
        }
        return false;
    }

    const std::shared_ptr<CStoreCore> m_core;
    const ObjectId m_folder;
    const bool m_associated;
    std::string m_block;
};

// --- hierarchy --------------------------------------------------------------------------------------

class CHierarchySource final : public ITableSource {
public:
    CHierarchySource(const std::shared_ptr<CStoreCore>& core, ObjectId folder, bool deep)
        : m_core(core), m_folder(folder), m_deep(deep) {}

    void Scan(const RowNeeds&, const Each& each) override { ScanBelow(m_folder, 1, each); }

    bool Read(RowKey key, const std::function<void(const IRow&)>& body) override {
        FolderHead head;
        std::string block;
        if (key == m_folder || !m_core->Storage().ReadFolder(key, head, block)) return false;
        const ULONG depth = DepthOf(head);
        if (depth == 0 || (depth > 1 && !m_deep)) return false;
        body(CFolderRow(*m_core, head, block, depth));
        return true;
    }

    std::uint64_t Version() override { return VersionOf(*m_core); }
    const std::vector<ULONG>& DefaultColumns() const override { return HierarchyColumns(); }
    CStoreCore* Core() const override { return m_core.get(); }

    // A folder's row also tells how many messages and subfolders it has.
    void ListTouched(const StoreEvent& event, std::vector<RowKey>& keys) const override {
        for (ObjectId id : {event.id, event.parent, event.oldId, event.oldParent})
            if (IsFolderId(id)) keys.push_back(id);
    }
    std::uint64_t StampOf(const IRow& row) const override {
        const FolderHead& head = static_cast<const CFolderRow&>(row).Head();
        IObjectStorage& storage = m_core->Storage();
        std::uint64_t stamp = head.change;
        for (std::uint64_t part :
             {storage.CountMessages(head.id, false), storage.CountMessages(head.id, true),
              storage.CountUnread(head.id), storage.CountFolders(head.id)})
            stamp = stamp * 1000003 + part;
        return stamp;
    }

private:
    struct Child {
        FolderHead head;
        std::string block;
    };

    // The folders of a level are gathered before they are shown: showing one may scan the next level.
    bool ScanBelow(ObjectId parent, ULONG depth, const Each& each) {
        std::vector<Child> children;
        m_core->Storage().ScanFolders(parent, [&](const FolderHead& head, std::string_view block) {
            children.push_back({head, std::string(block)});
        });
        for (const Child& child : children) {
            if (!each(child.head.id, CFolderRow(*m_core, child.head, child.block, depth))) return false;
            if (m_deep && depth < kDeepestLevel && !ScanBelow(child.head.id, depth + 1, each)) return false;
        }
        return true;
    }

    // Levels below the table's folder, 0 if the folder does not lie below it.
    ULONG DepthOf(FolderHead head) {
        std::string block;
        for (ULONG depth = 1; depth < kDeepestLevel; ++depth) {
            if (head.parent == m_folder) return depth;
            const ObjectId here = head.id;
            if (head.parent == here || !m_core->Storage().ReadFolder(head.parent, head, block)) return 0;
        }
        return 0;
    }

    const std::shared_ptr<CStoreCore> m_core;
    const ObjectId m_folder;
    const bool m_deep;
};

// --- rows that stand still --------------------------------------------------------------------------

class CRowsSource final : public ITableSource {
public:
    CRowsSource(std::vector<std::string> rows, std::vector<ULONG> columns)
        : m_rows(std::move(rows)), m_columns(std::move(columns)) {}

    void Scan(const RowNeeds&, const Each& each) override {
        for (std::size_t i = 0; i < m_rows.size(); ++i)
            if (!each(i, CBlockRow(m_rows[i]))) return;
    }
    bool Read(RowKey key, const std::function<void(const IRow&)>& body) override {
        if (key >= m_rows.size()) return false;
        body(CBlockRow(m_rows[key]));
        return true;
    }
    const std::vector<ULONG>& DefaultColumns() const override { return m_columns; }

private:
    const std::vector<std::string> m_rows;
    const std::vector<ULONG> m_columns;
};

}  // namespace

void OpenContentsTable(const std::shared_ptr<CStoreCore>& core, ObjectId folder, ULONG flags,
                       IMAPITable** table) {
    constexpr ULONG known = MAPI_ASSOCIATED | MAPI_UNICODE | MAPI_DEFERRED_ERRORS;
    Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
    auto source = std::make_unique<CContentsSource>(core, folder, (flags & MAPI_ASSOCIATED) != 0);
    *table = new CTable(core, std::move(source), flags);
}

void OpenHierarchyTable(const std::shared_ptr<CStoreCore>& core, ObjectId folder, ULONG flags,
                        IMAPITable** table) {
    constexpr ULONG known = CONVENIENT_DEPTH | MAPI_UNICODE | MAPI_DEFERRED_ERRORS;
    Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
    auto source = std::make_unique<CHierarchySource>(core, folder, (flags & CONVENIENT_DEPTH) != 0);
    *table = new CTable(core, std::move(source), flags);
}

void OpenRowsTable(const std::shared_ptr<CStoreCore>& core, std::vector<std::string> rows,
                   const std::vector<ULONG>& columns, ULONG flags, IMAPITable** table) {
    *table = new CTable(core, std::make_unique<CRowsSource>(std::move(rows), columns), flags);
}

ULONG AdviseObject(const std::shared_ptr<CStoreCore>& core, ObjectId id, ULONG eventMask,
                   IMAPIAdviseSink* sink) {
    Require(sink && eventMask, MAPI_E_INVALID_PARAMETER);
    const CQuietCall call(*core);
    return AddConnection(core, std::make_shared<CObjectWatch>(core, id, eventMask, sink));
}

void UnadviseObject(ULONG connection) {
    Require(RemoveConnection(connection), MAPI_E_NOT_FOUND);
}
