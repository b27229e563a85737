#include "Folder.h"

#include <algorithm>

#include <MapiStore/Storage/WellKnown.h>
#include <MapiStore/Tables/RowSource.h>
#include <MapiStore/Tables/Tables.h>
#include "FolderTree.h"

namespace {

constexpr PropId kComputedOfFolders[] = {PROP_ID(PR_ENTRYID),
                                         PROP_ID(PR_RECORD_KEY),
                                         PROP_ID(PR_INSTANCE_KEY),
                                         PROP_ID(PR_PARENT_ENTRYID),
                                         PROP_ID(PR_STORE_ENTRYID),
                                         PROP_ID(PR_STORE_RECORD_KEY),
                                         PROP_ID(PR_MAPPING_SIGNATURE),
                                         PROP_ID(PR_OBJECT_TYPE),
                                         PROP_ID(PR_FOLDER_TYPE),
                                         PROP_ID(PR_CONTENT_COUNT),
                                         PROP_ID(PR_CONTENT_UNREAD),
                                         PROP_ID(PR_ASSOC_CONTENT_COUNT),
                                         PROP_ID(PR_SUBFOLDERS),
                                         PROP_ID(PR_STATUS),
                                         PROP_ID(PR_ACCESS),
                                         PROP_ID(PR_ACCESS_LEVEL),
                                         PROP_ID(PR_STORE_SUPPORT_MASK),
                                         PROP_ID(PR_MDB_PROVIDER)};

constexpr PropId kShownTimes[] = {PROP_ID(PR_CREATION_TIME), PROP_ID(PR_LAST_MODIFICATION_TIME)};

bool IsTime(PropId id) {
    return id == PROP_ID(PR_CREATION_TIME) || id == PROP_ID(PR_LAST_MODIFICATION_TIME);
}

const ULONG kObjectTags[] = {PR_CONTAINER_CONTENTS, PR_CONTAINER_HIERARCHY, PR_FOLDER_ASSOCIATED_CONTENTS};

}  // namespace

CRef<CFolder> CFolder::Open(const std::shared_ptr<CStoreCore>& core, ObjectId id, bool writable) {
    auto folder = CRef<CFolder>::Take(new CFolder(core, writable));
    folder->m_head.id = id;
    std::string block;
    Require(core->Storage().ReadFolder(id, folder->m_head, block), MAPI_E_NOT_FOUND);
    folder->m_bag.Load(std::move(block));
    return folder;
}

// Another object of the same folder may have written since.
void CFolder::Reload() {
    std::string block;
    Require(Core().Storage().ReadFolder(m_head.id, m_head, block), MAPI_E_OBJECT_DELETED);
    m_bag.Load(std::move(block));
}

void* CFolder::FindInterface(REFIID riid) {
    if (riid == IID_IUnknown || riid == IID_IMAPIProp || riid == IID_IMAPIContainer ||
        riid == IID_IMAPIFolder)
        return static_cast<IMAPIFolder*>(this);
    if (riid == IID_OwnFolder) return this;
    return nullptr;
}

// --- properties ------------------------------------------------------------------------------------

bool CFolder::FindProp(PropId id, CStoredValue& value) {
    if (id == PROP_ID(PR_ACCESS_LEVEL)) {
        value.OwnLong(id, IsWritable() ? MAPI_MODIFY : 0);
        return true;
    }
    return ComputedOfFolder(Core(), m_head, false, id, value) || m_bag.Find(id, value);
}

bool CFolder::LoadLarge(PropId id, std::string& bytes) {
    std::string block;
    CStoredValue value;
    if (!Core().Storage().ReadLarge(m_head.id, block) || !CValueBlock(block).Find(id, value)) return false;
    bytes.assign(value.Bytes());
    return true;
}

void CFolder::ListIds(std::vector<PropId>& ids) {
    m_bag.ForEach([&ids](const CStoredValue& value) { ids.push_back(value.Id()); });
    ids.insert(ids.end(), std::begin(kComputedOfFolders), std::end(kComputedOfFolders));
    ids.insert(ids.end(), std::begin(kShownTimes), std::end(kShownTimes));
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
}

void CFolder::ListObjects(std::vector<ULONG>& tags) {
    tags.insert(tags.end(), std::begin(kObjectTags), std::end(kObjectTags));
}

SCODE CFolder::MaySet(PropId id) const {
    const bool computed = std::find(std::begin(kComputedOfFolders), std::end(kComputedOfFolders), id) !=
                          std::end(kComputedOfFolders);
    if (computed) return MAPI_E_COMPUTED;
    return id == PROP_ID(PR_DISPLAY_NAME) && m_head.id == kRootFolder ? MAPI_E_NO_ACCESS : S_OK;
}

void CFolder::SetStored(PropId id, PropType type, std::string_view bytes) {
    if (IsTime(id)) {
        Require(type == PT_SYSTIME, MAPI_E_INVALID_TYPE);
        CStoredValue value;
        value.View(id, type, bytes);
        (id == PROP_ID(PR_CREATION_TIME) ? m_head.created : m_head.modified) = value.As<std::uint64_t>();
        m_modifiedGiven = m_modifiedGiven || id == PROP_ID(PR_LAST_MODIFICATION_TIME);
        return;
    }
    if (id == PROP_ID(PR_DISPLAY_NAME)) {
        Require(type == PT_STRING8 && !bytes.empty(), MAPI_E_INVALID_PARAMETER);
        const ObjectId taken = FindChild(Core(), m_head.parent, bytes);
        Require(taken == 0 || taken == m_head.id, MAPI_E_COLLISION);
    }
    m_bag.Set(id, type, bytes);
}

void CFolder::RemoveStored(PropId id) {
    Require(id != PROP_ID(PR_DISPLAY_NAME), MAPI_E_NO_ACCESS);
    if (!IsTime(id)) m_bag.Remove(id);
}

// Changes of a folder are written as they come.
void CFolder::ChangeNow(const std::function<void()>& body) {
    Core().Save([&] {
        Reload();
        m_modifiedGiven = false;
        body();
        WriteBack(m_modifiedGiven);
    });
}

void CFolder::WriteBack(bool timeGiven) {
    const std::uint64_t now = Core().NextTime();
    if (!timeGiven) m_head.modified = now;
    m_head.change = Core().NextChange();
    std::string old;
    const bool largeChanged = m_bag.LargeChanged();
    if (largeChanged && m_bag.KeepsLargeOfBlock()) Core().Storage().ReadLarge(m_head.id, old);
    auto blocks = m_bag.Build(old);
    Core().Storage().WriteFolder(m_head, blocks.small);
    if (largeChanged) Core().Storage().WriteLarge(m_head.id, blocks.large);
    m_bag.Load(std::move(blocks.small));
    Core().Publish({fnevObjectModified, MAPI_FOLDER, m_head.id, m_head.parent, 0, 0});
}

void CFolder::OpenObject(ULONG tag, REFIID iid, ULONG, ULONG flags, IUnknown** object) {
    Require(iid == IID_IMAPITable, MAPI_E_INTERFACE_NOT_SUPPORTED);
    IMAPITable* table = nullptr;
    const ULONG unicode = flags & MAPI_UNICODE;
    if (PROP_ID(tag) == PROP_ID(PR_CONTAINER_CONTENTS))
        OpenContentsTable(SharedCore(), m_head.id, unicode, &table);
    else if (PROP_ID(tag) == PROP_ID(PR_FOLDER_ASSOCIATED_CONTENTS))
        OpenContentsTable(SharedCore(), m_head.id, unicode | MAPI_ASSOCIATED, &table);
    else if (PROP_ID(tag) == PROP_ID(PR_CONTAINER_HIERARCHY))
        OpenHierarchyTable(SharedCore(), m_head.id, unicode, &table);
    else
        throw CStoreError(MAPI_E_NO_SUPPORT);
    *object = table;
}

// --- container -------------------------------------------------------------------------------------

HRESULT CFolder::GetContentsTable(ULONG flags, LPMAPITABLE* table) {
    return GuardedCall(Core(), [&] {
        Require(table, MAPI_E_INVALID_PARAMETER);
        *table = nullptr;
        constexpr ULONG known = MAPI_ASSOCIATED | MAPI_UNICODE | MAPI_DEFERRED_ERRORS;
        Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
        OpenContentsTable(SharedCore(), m_head.id, flags, table);
        return S_OK;
    });
}

HRESULT CFolder::GetHierarchyTable(ULONG flags, LPMAPITABLE* table) {
    return GuardedCall(Core(), [&] {
        Require(table, MAPI_E_INVALID_PARAMETER);
        *table = nullptr;
        constexpr ULONG known = CONVENIENT_DEPTH | MAPI_UNICODE | MAPI_DEFERRED_ERRORS;
        Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
        OpenHierarchyTable(SharedCore(), m_head.id, flags, table);
        return S_OK;
    });
}

void OpenById(const std::shared_ptr<CStoreCore>& core, ObjectId id, const IID* iid, ULONG flags,
              bool storeWritable, ULONG* type, IUnknown** object) {
    Require((flags & MAPI_MODIFY) == 0 || storeWritable, MAPI_E_NO_ACCESS);
    const bool writable = storeWritable && (flags & (MAPI_MODIFY | MAPI_BEST_ACCESS));
    id = core->Habits().Resolve(core->Storage(), id, 0);
    CRef<IUnknown> opened;
    ULONG kind = 0;
    if (IsMessageId(id)) {
        kind = MAPI_MESSAGE;
        opened = CRef<IUnknown>::Take(CMessage::Open(core, id, writable).Detach()->AsUnknown());
    } else {
        Require(IsFolderId(id), MAPI_E_INVALID_ENTRYID);
        kind = MAPI_FOLDER;
        opened = CRef<IUnknown>::Take(CFolder::Open(core, id, writable).Detach()->AsUnknown());
    }
    void* asked = opened.Get();
    if (iid) {
        const HRESULT hr = opened->QueryInterface(*iid, &asked);
        if (FAILED(hr)) throw CStoreError(hr);
        opened.Reset();
    }
    opened.Detach();
    if (type) *type = kind;
    *object = static_cast<IUnknown*>(asked);
}

HRESULT CFolder::OpenEntry(ULONG cb, LPENTRYID id, LPCIID iid, ULONG flags, ULONG* type, LPUNKNOWN* object) {
    return GuardedCall(Core(), [&] {
        Require(object, MAPI_E_INVALID_PARAMETER);
        *object = nullptr;
        constexpr ULONG known = MAPI_MODIFY | MAPI_BEST_ACCESS | MAPI_DEFERRED_ERRORS;
        Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
        ObjectId number = kRootFolder;
        if (cb != 0) {
            StoreUid uid;
            Require(ParseEntryId(cb, id, uid, number), MAPI_E_INVALID_ENTRYID);
            Require(uid == Core().Uid(), MAPI_E_UNKNOWN_ENTRYID);
        }
        number = Core().Habits().Resolve(Core().Storage(), number, m_head.id);
        // A folder opened for writing gives access to the store's objects as the store itself does.
        OpenById(SharedCore(), number, iid, flags, !Core().IsReadOnly() && IsWritable(), type, object);
        return S_OK;
    });
}

HRESULT CFolder::SetSearchCriteria(LPSRestriction, LPENTRYLIST, ULONG) {
    return GuardedCall(Core(), [] { return MAPI_E_NO_SUPPORT; });
}

HRESULT CFolder::GetSearchCriteria(ULONG, LPSRestriction*, LPENTRYLIST*, ULONG*) {
    return GuardedCall(Core(), [] { return MAPI_E_NO_SUPPORT; });
}

HRESULT CFolder::SaveContentsSort(LPSSortOrderSet, ULONG) {
    return GuardedCall(Core(), [] { return MAPI_E_NO_SUPPORT; });
}
