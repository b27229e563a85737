#include "RowSource.h"

#include <algorithm>

#include <MapiStore/Storage/WellKnown.h>
#include <MapiStore/Values/RecipientList.h>
#include <MapiStore/Values/Subject.h>

namespace {

void OwnEntryId(CStoreCore& core, ObjectId number, bool shortTerm, PropId id, CStoredValue& value) {
    const StoreEntryId entry = MakeEntryId(core.Uid(), core.Habits().Shown(number), shortTerm);
    value.Own(id, PT_BINARY, &entry, sizeof entry);
}

void OwnRecordKey(CStoreCore& core, ObjectId number, PropId id, CStoredValue& value) {
    char key[16 + sizeof number];
    std::memcpy(key, core.Uid().bytes.data(), 16);
    std::memcpy(key + 16, &number, sizeof number);
    value.Own(id, PT_BINARY, key, sizeof key);
}

// What every object of a store answers in the same way.
bool ComputedOfStore(CStoreCore& core, ObjectId number, bool inTable, PropId id, CStoredValue& value) {
    switch (id) {
        case PROP_ID(PR_ENTRYID):
            OwnEntryId(core, number, inTable && core.Habits().Has(HABIT_SHORT_TERM_TABLES), id, value);
            return true;
        case PROP_ID(PR_LONGTERM_ENTRYID_FROM_TABLE):
            if (!inTable || !core.Habits().Has(HABIT_SHORT_TERM_TABLES)) return false;
            OwnEntryId(core, number, false, id, value);
            return true;
        case PROP_ID(PR_INSTANCE_KEY):
            value.Own(id, PT_BINARY, &number, sizeof number);
            return true;
        case PROP_ID(PR_RECORD_KEY):
            OwnRecordKey(core, number, id, value);
            return true;
        case PROP_ID(PR_STORE_ENTRYID):
            OwnEntryId(core, 0, false, id, value);
            return true;
        case PROP_ID(PR_STORE_RECORD_KEY):
        case PROP_ID(PR_MAPPING_SIGNATURE):
            value.Own(id, PT_BINARY, core.Uid().bytes.data(), 16);
            return true;
        case PROP_ID(PR_STORE_SUPPORT_MASK):
            value.OwnLong(id, kStoreSupportMask);
            return true;
        case PROP_ID(PR_MDB_PROVIDER):
            value.Own(id, PT_BINARY, &kStoreProvider, sizeof kStoreProvider);
            return true;
        case PROP_ID(PR_ROW_TYPE):
            if (inTable) value.OwnLong(id, TBL_LEAF_ROW);
            return inTable;
        default:
            return false;
    }
}

constexpr PropId kStoreIds[] = {PROP_ID(PR_ENTRYID),
                                PROP_ID(PR_INSTANCE_KEY),
                                PROP_ID(PR_RECORD_KEY),
                                PROP_ID(PR_STORE_ENTRYID),
                                PROP_ID(PR_STORE_RECORD_KEY),
                                PROP_ID(PR_MAPPING_SIGNATURE),
                                PROP_ID(PR_STORE_SUPPORT_MASK),
                                PROP_ID(PR_MDB_PROVIDER),
                                PROP_ID(PR_LONGTERM_ENTRYID_FROM_TABLE),
                                PROP_ID(PR_OBJECT_TYPE),
                                PROP_ID(PR_PARENT_ENTRYID),
                                PROP_ID(PR_CREATION_TIME),
                                PROP_ID(PR_LAST_MODIFICATION_TIME),
                                PROP_ID(PR_ACCESS),
                                PROP_ID(PR_ACCESS_LEVEL)};

constexpr PropId kMessageIds[] = {
    PROP_ID(PR_HASATTACH),   PROP_ID(PR_MESSAGE_SIZE),       PROP_ID(PR_MESSAGE_FLAGS),
    PROP_ID(PR_MSG_STATUS),  PROP_ID(PR_DISPLAY_TO),         PROP_ID(PR_DISPLAY_CC),
    PROP_ID(PR_DISPLAY_BCC), PROP_ID(PR_NORMALIZED_SUBJECT), PROP_ID(PR_SUBJECT_PREFIX)};

constexpr PropId kFolderIds[] = {PROP_ID(PR_FOLDER_TYPE),         PROP_ID(PR_CONTENT_COUNT),
                                 PROP_ID(PR_CONTENT_UNREAD),      PROP_ID(PR_SUBFOLDERS),
                                 PROP_ID(PR_ASSOC_CONTENT_COUNT), PROP_ID(PR_STATUS)};

constexpr ULONG kMessageAccess = MAPI_ACCESS_MODIFY | MAPI_ACCESS_READ | MAPI_ACCESS_DELETE;
constexpr ULONG kFolderAccess = kMessageAccess | MAPI_ACCESS_CREATE_HIERARCHY | MAPI_ACCESS_CREATE_CONTENTS |
                                MAPI_ACCESS_CREATE_ASSOCIATED;

void ListBlockIds(const CValueBlock& block, std::vector<PropId>& ids) {
    for (std::size_t i = 0; i < block.Count(); ++i)
        ids.push_back(block.IdAt(i));
}

template <std::size_t N>
void AddComputedIds(const IRow& row, const PropId (&candidates)[N], std::vector<PropId>& ids) {
    CStoredValue value;
    for (const PropId id : candidates)
        if (row.Find(id, value)) ids.push_back(id);
}

void SortUnique(std::vector<PropId>& ids) {
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
}

}  // namespace

bool ComputedOfMessage(CStoreCore& core, const MessageHead& head, bool inTable, PropId id,
                       CStoredValue& value) {
    switch (id) {
        case PROP_ID(PR_CREATION_TIME):
            value.OwnTime(id, head.created);
            return true;
        case PROP_ID(PR_LAST_MODIFICATION_TIME):
            value.OwnTime(id, head.modified);
            return true;
        case PROP_ID(PR_MESSAGE_FLAGS):
            value.OwnLong(id, head.flags | (head.attachments ? MSGFLAG_HASATTACH : 0) |
                                  (IsAssociated(head.id) ? MSGFLAG_ASSOCIATED : 0));
            return true;
        case PROP_ID(PR_MSG_STATUS):
            value.OwnLong(id, head.status);
            return true;
        case PROP_ID(PR_MESSAGE_SIZE):
            value.OwnLong(id, head.size);
            return true;
        case PROP_ID(PR_HASATTACH):
            value.OwnBool(id, head.attachments != 0);
            return true;
        case PROP_ID(PR_OBJECT_TYPE):
            value.OwnLong(id, MAPI_MESSAGE);
            return true;
        case PROP_ID(PR_PARENT_ENTRYID):
            OwnEntryId(core, FolderOf(head.id), false, id, value);
            return true;
        case PROP_ID(PR_ACCESS):
            value.OwnLong(id, core.IsReadOnly() ? MAPI_ACCESS_READ : kMessageAccess);
            return true;
        case PROP_ID(PR_ACCESS_LEVEL):
            value.OwnLong(id, core.IsReadOnly() ? 0 : MAPI_MODIFY);
            return true;
        default:
            return ComputedOfStore(core, head.id, inTable, id, value);
    }
}

bool ComputedOfFolder(CStoreCore& core, const FolderHead& head, bool inTable, PropId id,
                      CStoredValue& value) {
    IObjectStorage& storage = core.Storage();
    switch (id) {
        case PROP_ID(PR_CREATION_TIME):
            value.OwnTime(id, head.created);
            return true;
        case PROP_ID(PR_LAST_MODIFICATION_TIME):
            value.OwnTime(id, head.modified);
            return true;
        case PROP_ID(PR_OBJECT_TYPE):
            value.OwnLong(id, MAPI_FOLDER);
            return true;
        case PROP_ID(PR_PARENT_ENTRYID):
            OwnEntryId(core, head.parent, false, id, value);
            return true;
        case PROP_ID(PR_FOLDER_TYPE):
            value.OwnLong(id, head.id == kRootFolder ? FOLDER_ROOT : FOLDER_GENERIC);
            return true;
        case PROP_ID(PR_CONTENT_COUNT):
            value.OwnLong(id, static_cast<std::uint32_t>(storage.CountMessages(head.id, false)));
            return true;
        case PROP_ID(PR_CONTENT_UNREAD):
            value.OwnLong(id, static_cast<std::uint32_t>(storage.CountUnread(head.id)));
            return true;
        case PROP_ID(PR_ASSOC_CONTENT_COUNT):
            value.OwnLong(id, static_cast<std::uint32_t>(storage.CountMessages(head.id, true)));
            return true;
        case PROP_ID(PR_SUBFOLDERS):
            value.OwnBool(id, storage.CountFolders(head.id) != 0);
            return true;
        case PROP_ID(PR_STATUS):
            value.OwnLong(id, 0);
            return true;
        case PROP_ID(PR_ACCESS):
            value.OwnLong(id, core.IsReadOnly() ? MAPI_ACCESS_READ : kFolderAccess);
            return true;
        case PROP_ID(PR_ACCESS_LEVEL):
            value.OwnLong(id, core.IsReadOnly() ? 0 : MAPI_MODIFY);
            return true;
        default:
            return ComputedOfStore(core, head.id, inTable, id, value);
    }
}

bool IsOfBlock(PropId id) {
    const auto isAmong = [id](const auto& ids) {
        return std::find(std::begin(ids), std::end(ids), id) != std::end(ids);
    };
    return id != PROP_ID(PR_ROW_TYPE) && !isAmong(kStoreIds) && !isAmong(kMessageIds);
}

// --- messages --------------------------------------------------------------------------------------

const CValueBlock& CMessageRow::Block() const {
    if (!m_hasBlock) m_block = CValueBlock(m_bytes);
    m_hasBlock = true;
    return m_block;
}

bool CMessageRow::Find(PropId id, CStoredValue& value) const {
    if (ComputedOfMessage(m_core, m_head, true, id, value)) return true;
    if (Block().Find(id, value)) return true;
    return DerivedOfMessage(
        [this](PropId wanted, CStoredValue& found) { return Block().Find(wanted, found); }, id, value);
}

bool CMessageRow::LoadLarge(PropId id, std::string& bytes) const {
    std::string block;
    CStoredValue value;
    if (!m_core.Storage().ReadLarge(m_head.id, block) || !CValueBlock(block).Find(id, value)) return false;
    bytes.assign(value.Bytes());
    return true;
}

void CMessageRow::ForEachSubRow(ULONG tag, const std::function<bool(const IRow&)>& each) const {
    if (PROP_ID(tag) == PROP_ID(PR_MESSAGE_RECIPIENTS) && m_head.recipients) {
        std::string list;
        m_core.Storage().ReadRecipients(m_head.id, list);
        for (const auto& block : SplitRecipients(list))
            if (!each(CBlockRow(block))) return;
    }
    if (PROP_ID(tag) == PROP_ID(PR_MESSAGE_ATTACHMENTS) && m_head.attachments) {
        bool more = true;
        m_core.Storage().ScanParts(m_head.id, [&](const PartHead&, std::string_view block) {
            more = more && each(CBlockRow(block));
        });
    }
}

void CMessageRow::ListIds(std::vector<PropId>& ids) const {
    ListBlockIds(Block(), ids);
    AddComputedIds(*this, kStoreIds, ids);
    AddComputedIds(*this, kMessageIds, ids);
    SortUnique(ids);
}

// --- folders and others ----------------------------------------------------------------------------

bool CFolderRow::Find(PropId id, CStoredValue& value) const {
    if (id == PROP_ID(PR_DEPTH)) {
        value.OwnLong(id, m_depth);
        return true;
    }
    return ComputedOfFolder(m_core, m_head, true, id, value) || m_block.Find(id, value);
}

void CFolderRow::ListIds(std::vector<PropId>& ids) const {
    ListBlockIds(m_block, ids);
    ids.push_back(PROP_ID(PR_DEPTH));
    AddComputedIds(*this, kStoreIds, ids);
    AddComputedIds(*this, kFolderIds, ids);
    SortUnique(ids);
}

void CBlockRow::ListIds(std::vector<PropId>& ids) const {
    ListBlockIds(m_block, ids);
}
