// Removing items: they go into holding folders below the wastebasket, together as far as possible.
#include <MapiWrapper/TextConvert.h>
#include <Platform/Registry.h>
#include <Tarn/Engine/MessageCache.h>
#include <Tarn/Engine/syncfolder.h>

#include <atomic>

namespace {
constexpr char HoldingRoot[] = "Vellumware\\";
constexpr char ProductKey[] = "Software\\Ostrand\\Vellumware";

// -1: not read yet.
std::atomic<int> g_hardDelete{-1};

// The value counts only where the first spelling of the key does not open and the second does.
bool ReadHardDelete() {
    CRegistryKey key;
    if (key.Open(RegistryRoot::CurrentUser, std::string("\\") + ProductKey) == ERROR_SUCCESS) return false;
    if (key.Open(RegistryRoot::CurrentUser, ProductKey) != ERROR_SUCCESS) return false;
    return key.ReadDword("HardDelete").value_or(0) != 0;
}

HRESULT MoveOne(const IMAPIFolderPtr& folder, const SBinary& entryId, const IMAPIFolderPtr& target) {
    SBinary id = entryId;
    ENTRYLIST one{1, &id};
    return folder->CopyMessages(&one, nullptr, target.Get(), 0, nullptr, MESSAGE_MOVE);
}

HRESULT DeleteOne(const IMAPIFolderPtr& folder, const SBinary& entryId) {
    SBinary id = entryId;
    ENTRYLIST one{1, &id};
    return folder->DeleteMessages(&one, 0, nullptr, 0);
}

enum class Place { InFolder, Elsewhere, Gone };

bool IsSameEntry(const IMsgStorePtr& store, const SBinary& a, const SBinary& b) {
    if (EqualBinary(a, b)) return true;
    ULONG same = FALSE;
    return store &&
           store->CompareEntryIDs(a.cb, reinterpret_cast<LPENTRYID>(a.lpb), b.cb,
                                  reinterpret_cast<LPENTRYID>(b.lpb), 0, &same) >= 0 &&
           same;
}

// Where an item is that could not be removed. Some stores let an item keep its entry ID when it is moved, and
// then it opens from everywhere: what somebody has put into another folder meanwhile is theirs. An item of
// which it cannot be told counts as being in the folder.
Place PlaceOf(const IMsgStorePtr& store, const IMAPIFolderPtr& folder, const SBinary& entryId) {
    try {
        const IMAPIPropPtr item = folder.OpenEntryv(entryId);
        const CMapiPropValues parent = item.GetProps({PR_PARENT_ENTRYID});
        const CMapiPropValues own = folder.GetProps({PR_ENTRYID});
        if (parent[0].Type() != PT_BINARY || own[0].Type() != PT_BINARY) return Place::InFolder;
        return IsSameEntry(store, parent[0].Binary(), own[0].Binary()) ? Place::InFolder : Place::Elsewhere;
    } catch (const CMAPIException& e) {
        return e.Hr() == MAPI_E_NOT_FOUND || e.Hr() == MAPI_E_OBJECT_DELETED ? Place::Gone : Place::InFolder;
    }
}

// An item that can be neither moved nor deleted is marked for the person to see.
HRESULT MarkDeleted(const IMAPIFolderPtr& holding, const SBinary& entryId) {
    try {
        IMessagePtr message = holding.OpenEntryv(entryId, MAPI_MODIFY).As<IMessagePtr>();
        if (!message) return MAPI_E_NOT_FOUND;
        message.SetStrProp(PR_DISPLAY_NAME_A, "Deleted");
        message.SetStrProp(PR_SUBJECT_A, "Deleted");
        message.SaveChanges(FORCE_SAVE);
        return S_OK;
    } catch (const CMAPIException& e) {
        return e.Hr();
    }
}

// Empty where the store refuses. Without a holding folder items are destroyed, so callers ask twice.
IMAPIFolderPtr OpenOrCreate(const IMAPIFolderPtr& parent, const std::string& name) {
    try {
        return parent.CreateFolder(FOLDER_GENERIC, name, "", OPEN_IF_EXISTS);
    } catch (const CMAPIException&) {
        return {};
    }
}

// True once the item is out of the folder. A move is tried twice before the item is destroyed: most refusals
// pass, and what is destroyed cannot be taken back by anybody.
bool RemoveToHolding(const IMsgStorePtr& store, const IMAPIFolderPtr& folder, const SBinary& entryId,
                     const IMAPIFolderPtr& holding) {
    for (int attempt = 0; attempt < 2; ++attempt)
        if (MoveOne(folder, entryId, holding) == S_OK) return true;
    return PlaceOf(store, folder, entryId) != Place::InFolder || DeleteOne(folder, entryId) == S_OK;
}
}  // namespace

// --- batches ---------------------------------------------------------------------------------------

void CEntryIdBatch::Clear() {
    m_ids.clear();
}

void CEntryIdBatch::Add(const CItemKeyView& item) {
    m_ids.emplace_back(item.Bytes());
}

bool CEntryIdBatch::Remove(const CItemKeyView& item) {
    return std::erase(m_ids, item.Bytes()) > 0;
}

ENTRYLIST* CEntryIdBatch::List() {
    m_binaries.clear();
    for (std::string& id : m_ids)
        m_binaries.push_back({static_cast<ULONG>(id.size()), reinterpret_cast<BYTE*>(id.data())});
    m_list = {static_cast<ULONG>(m_binaries.size()), m_binaries.data()};
    return &m_list;
}

void CSyncFolder::InitDelArrays(const IMsgStorePtr& store, const IMAPIFolderPtr& folder, LONG capacity) {
    m_deletionStore = store;
    m_deletionFolder = folder;
    m_batchCapacity = capacity;
    m_notRemoved.clear();
    for (CEntryIdBatch& batch : m_batches)
        batch.Clear();
    m_overwriteFolder = {};
    try {
        m_overwriteFolder =
            OpenHolding(store, folder, HoldingRoot + LoadText(TEXT_OVERWRITTEN_FOLDER) + "\\");
    } catch (...) {
        ServerTraceWrite(m_traceFile, "Crash in InitDelArrays %d", CurrentPosition().line);
    }
}

bool CSyncFolder::AddToDelArray(const CItemKeyView& item, const IMAPIFolderPtr& folder, int batch) {
    if (batch == BATCH_OVERWRITTEN) {
        MoveOverwritten(item, folder);
        return true;
    }
    // An item that left its folder and came back between two runs is deleted under its old name and new
    // under another, and both find the same counterpart. What the copy has just been given stays.
    if (batch == BATCH_DELETED && WasWritten(item)) return false;
    CEntryIdBatch& waiting = m_batches.at(static_cast<size_t>(batch));
    // The batch takes a copy of its own, so the entry at hand is none of those that the flush frees.
    if (waiting.Count() + 1 >= static_cast<size_t>(m_batchCapacity)) {
        FlushDelArrays(m_deletionStore, m_deletionFolder);
        m_batchCapacity = DeletionBatchCapacity;
    }
    waiting.Add(item);
    return true;
}

bool CSyncFolder::TakeFromDelArray(const CItemKeyView& item) {
    return WasWritten(item) && m_batches[BATCH_DELETED].Remove(item);
}

void CSyncFolder::FlushDelArrays(const IMsgStorePtr& store, const IMAPIFolderPtr& folder) {
    CEntryIdBatch& conflicts = m_batches[BATCH_CONFLICTS];
    CEntryIdBatch& deleted = m_batches[BATCH_DELETED];
    CEntryIdBatch& overwritten = m_batches[BATCH_OVERWRITTEN];
    if (!conflicts.IsEmpty()) MoveToConflictFolder(conflicts, store, folder);
    if (!deleted.IsEmpty()) NoteChanged(MoveToDeletedFolder(deleted, "Deleted", store, folder));
    if (!overwritten.IsEmpty()) MoveToDeletedFolder(overwritten, "Overwrite", store, folder);
    for (CEntryIdBatch& batch : m_batches)
        batch.Clear();
}

// --- holding folders -------------------------------------------------------------------------------

// Below the IPM root, without the store's name: folders of one name in different places get holding
// folders of their own.
std::string CSyncFolder::HoldingPathOf(const IMAPIFolderPtr& folder) {
    return GetFolderPath(m_session, folder, '\\');
}

IMAPIFolderPtr CSyncFolder::OpenHoldingBelow(const IMAPIFolderPtr& parent, const std::string& path,
                                             const IMAPIFolderPtr& folder) {
    MARK_POSITION();
    IMAPIFolderPtr holding = CreateHoldingPath(parent, path);
    MARK_POSITION();
    if (holding) TakeContainerClass(folder, holding);
    return holding;
}

namespace {
// Where no holding folder can be had, items that should go stay for good: the state written at the end of
// the run counts them as present. So a failure that passes gets a second try.
template <class Open>
IMAPIFolderPtr TryTwice(Open open) {
    try {
        return open();
    } catch (const CMAPIException&) {
        return open();
    }
}
}  // namespace

IMAPIFolderPtr CSyncFolder::OpenHolding(const IMsgStorePtr& store, const IMAPIFolderPtr& folder,
                                        const std::string& prefix) {
    return TryTwice([&] {
        MARK_POSITION();
        return OpenHoldingBelow(store.GetWastebasket(), prefix + HoldingPathOf(folder), folder);
    });
}

IMAPIFolderPtr CSyncFolder::OpenConflicts(const IMsgStorePtr& store, const IMAPIFolderPtr& folder) {
    return TryTwice([&] {
        MARK_POSITION();
        return OpenHoldingBelow(store._getIPMRoot(),
                                "Conflicts\\" + HoldingPathOf(folder) + LoadText(TEXT_CONFLICT_SUFFIX),
                                folder);
    });
}

void CSyncFolder::TakeContainerClass(const IMAPIFolderPtr& folder, IMAPIFolderPtr& holding) {
    const std::string wanted = folder.GetStrPropOrEmpty(PR_CONTAINER_CLASS_A);
    if (wanted == holding.GetStrPropOrEmpty(PR_CONTAINER_CLASS_A)) return;
    holding.SetStrProp(PR_CONTAINER_CLASS_A, wanted);
    holding.SaveChanges(FORCE_SAVE);
}

IMAPIFolderPtr CSyncFolder::CreateHoldingPath(const IMAPIFolderPtr& parent, const std::string& path) {
    IMAPIFolderPtr current = parent;
    std::vector<std::string> parts;
    SplitToArray(path, "\\", parts);
    for (const std::string& part : parts) {
        IMAPIFolderPtr next = OpenOrCreate(current, part);
        if (!next) next = OpenOrCreate(current, part);
        if (!next) return {};
        current = next;
    }
    return current;
}

void CSyncFolder::TraceDeletionFailure() {
    const CSourcePosition at = CurrentPosition();
    ServerTraceWrite(m_traceFile, "Error position %s(%d)", at.file, at.line);
    TraceText(m_traceFile, " Exception in Delete/Free Memory\n");
    NoteUnsure();
    ++m_outcome.phasesFailed;
}

void CSyncFolder::NoteNotRemoved(const CItemKeyView& item) {
    if (m_notRemoved.emplace(item.Bytes()).second) NoteRowFailed();
}

unsigned CSyncFolder::MoveToDeletedFolder(CEntryIdBatch& entries, const char* name, const IMsgStorePtr& store,
                                          const IMAPIFolderPtr& folder) {
    try {
        const IMAPIFolderPtr holding = OpenHolding(store, folder, std::string(HoldingRoot) + name + "\\");
        if (entries.IsEmpty()) return 0;
        MARK_POSITION();
        return IsHardDelete() || !holding ? DestroyEntries(entries, store, folder)
                                          : MoveEntries(entries, store, folder, holding);
    } catch (...) {
        TraceDeletionFailure();
    }
    unsigned removed = 0;
    for (size_t i = 0; i < entries.Count(); ++i) {
        if (PlaceOf(store, folder, entries.At(i)) == Place::InFolder)
            NoteNotRemoved(entries.At(i));
        else
            ++removed;
    }
    return removed;
}

// A store that could not delete all of a list says so with a warning, and not which it left.
unsigned CSyncFolder::DestroyEntries(CEntryIdBatch& entries, const IMsgStorePtr& store,
                                     const IMAPIFolderPtr& folder) {
    NoteUnsure();
    const bool all = folder->DeleteMessages(entries.List(), 0, nullptr, 0) == S_OK;
    unsigned removed = 0;
    for (size_t i = 0; i < entries.Count(); ++i) {
        const CItemKeyView item = entries.At(i);
        if (all || PlaceOf(store, folder, item) != Place::InFolder || DeleteOne(folder, item) == S_OK) {
            NoteRemoved(item);
            ++removed;
        } else {
            NoteNotRemoved(item);
        }
    }
    return removed;
}

unsigned CSyncFolder::MoveEntries(const CEntryIdBatch& entries, const IMsgStorePtr& store,
                                  const IMAPIFolderPtr& folder, const IMAPIFolderPtr& holding) {
    unsigned removed = 0;
    for (size_t i = 0; i < entries.Count(); ++i) {
        MARK_POSITION();
        const CItemKeyView item = entries.At(i);
        if (RemoveToHolding(store, folder, item, holding) ||
            (MarkDeleted(holding, item) != S_OK && DeleteOne(folder, item) == S_OK)) {
            NoteRemoved(item);
            ++removed;
        } else {
            NoteNotRemoved(item);
        }
    }
    return removed;
}

// --- single items ----------------------------------------------------------------------------------

void CSyncFolder::MoveOverwritten(const CItemKeyView& item, const IMAPIFolderPtr& folder) {
    for (int attempt = 0; m_overwriteFolder && attempt < 2; ++attempt)
        if (MoveOne(folder, item, m_overwriteFolder) >= 0) return NoteUnsure();
    DeleteEntry(item, folder);
}

void CSyncFolder::DeleteEntry(const CItemKeyView& item, const IMAPIFolderPtr& folder) {
    const std::string hex = HexFromBinary(item);
    NoteUnsure();
    if (m_cache) m_cache->Remove(hex);
    if (DeleteOne(folder, item) != MAPI_W_PARTIAL_COMPLETION) return;
    ServerTraceWrite(m_traceFile, "MAPI_W_PARTIAL_COMPLETION in deleting entry ID %s", hex.c_str());
    IMessagePtr message = folder.OpenEntryv(item, MAPI_MODIFY).As<IMessagePtr>();
    NotNull(message.Get(), "CSyncFolder::DeleteEntry");
    message.SetStrProp(PR_SUBJECT_A, "Deleted " + message.GetStrPropOrEmpty(PR_SUBJECT_A));
    message.SaveChanges(KEEP_OPEN_READWRITE);
}

bool CSyncFolder::IsHardDelete() {
    if (g_hardDelete < 0) g_hardDelete = ReadHardDelete() ? 1 : 0;
    return g_hardDelete == 1;
}

void CSyncFolder::ForgetHardDelete() {
    g_hardDelete = -1;
}
