#include <Tarn/Dispatch/PermanentSynchronization.h>
#include <Tarn/Dispatch/RecentChanges.h>
#include <Tarn/Dispatch/RunDispatch.h>
#include <Tarn/Engine/SyncIdentity.h>
#include <Tarn/Engine/syncfolder.h>

CPermanentSynchronizations& PermanentSynchronizations() {
    static CPermanentSynchronizations watchers;
    return watchers;
}

void CPermanentSynchronizations::Init(const CTarnSettings& settings, const CMapiSession& session) {
    std::vector<std::unique_ptr<CPermanentSynchronization>> watchers;
    for (size_t i = 0; i < settings.Count(); ++i) {
        const CTarnSetting setting = settings.At(i);
        if (setting.m_deleted != 0 || !setting.Has(SYNC_CONTINUOUS_FROM | SYNC_CONTINUOUS_TO)) continue;
        auto watcher = std::make_unique<CPermanentSynchronization>(setting);
        watcher->Start(session);
        watchers.push_back(std::move(watcher));
    }
    // Those that go wait for a notification under way, which may want a lock of its own.
    const std::lock_guard lock(m_mutex);
    m_watchers.swap(watchers);
}

void CPermanentSynchronizations::Clear() {
    std::vector<std::unique_ptr<CPermanentSynchronization>> watchers;
    const std::lock_guard lock(m_mutex);
    m_watchers.swap(watchers);
}

size_t CPermanentSynchronizations::Count() const {
    const std::lock_guard lock(m_mutex);
    return m_watchers.size();
}

IMAPIFolderPtr OpenFolderOfKey(const CMapiSession& session, const std::string& key) {
    const size_t colon = key.find(':');
    if (colon == std::string::npos) throw CMAPIException(MAPI_E_INVALID_ENTRYID, "OpenFolderOfKey", nullptr);
    const CMapiBinary folderId = BinaryFromHex(key.substr(0, colon));
    const CMapiBinary storeId = BinaryFromHex(key.substr(colon + 1));
    const IMAPIPropPtr opened = session.OpenStore(storeId).OpenEntry(folderId);
    CComPtr<IMAPIFolder> folder;
    THROW_ON_FAILURE_FOR(opened->QueryInterface(IID_IMAPIFolder, reinterpret_cast<void**>(folder.Out())),
                         opened.RawProp());
    return IMAPIFolderPtr(folder.Get());
}

std::string KeyOfFolder(const IMAPIFolderPtr& folder) {
    return HexFromBinary(folder.GetBinProp(PR_ENTRYID)) + ":" +
           HexFromBinary(folder.GetBinProp(PR_STORE_ENTRYID));
}

int CPermanentSynchronization::Start(CMapiSession) {
    return 0;
}

void CPermanentSynchronization::Watch(const CMapiSession& session, std::function<void()> onChange) {
    UnadviseAll();
    m_session = session;
    m_sourceFolder = OpenFolderOfKey(session, m_setting.m_sourceKey);
    m_targetFolder = OpenFolderOfKey(session, m_setting.m_targetKey);
    try {
        if (m_setting.Has(SYNC_TO_TARGET)) AdviseSide(0, m_sourceFolder, m_targetFolder, onChange);
        if (m_setting.Has(SYNC_FROM_TARGET)) AdviseSide(1, m_targetFolder, m_sourceFolder, onChange);
    } catch (...) {
        UnadviseAll();
        throw;
    }
}

void CPermanentSynchronization::AdviseSide(int side, const IMAPIFolderPtr& folder,
                                           const IMAPIFolderPtr& otherFolder,
                                           const std::function<void()>& onChange) {
    if (onChange && m_setting.Has(SYNC_SUBFOLDERS)) {
        AdviseTree(side, folder, onChange);
        return;
    }
    m_sinks[side].m_onChange = onChange;
    m_sinks[side].m_isOutdated = false;
    AdviseTable(m_sinks[side], m_connections[side], m_tables[side], folder, otherFolder);
}

// One connection for a whole store: a table of each folder would cost a thousand of them for a large tree.
void CPermanentSynchronization::AdviseTree(int side, const IMAPIFolderPtr& folder,
                                           const std::function<void()>& onChange) {
    constexpr ULONG events = fnevObjectCreated | fnevObjectDeleted | fnevObjectModified | fnevObjectMoved |
                             fnevObjectCopied | fnevNewMail;
    CTreeSink& sink = m_trees[side];
    sink.m_onChange = onChange;
    sink.m_store = m_session.OpenStore(folder.GetBinProp(PR_STORE_ENTRYID));
    sink.ForgetTree();
    ULONG advised = 0;
    THROW_ON_FAILURE_FOR(sink.m_store->Advise(0, nullptr, events, &sink, &advised), sink.m_store.RawProp());
    m_treeConnections[side] = advised;
    // A folder that comes between the reading and the advising would never be heard of.
    sink.ReadTree(folder);
}

bool CPermanentSynchronization::IsOutdated() const {
    return m_trees[0].m_isOutdated || m_trees[1].m_isOutdated || m_sinks[0].m_isOutdated ||
           m_sinks[1].m_isOutdated;
}

void CPermanentSynchronization::AdviseTable(IVellumAdviseSink& sink, ULONG& connection, IMAPITablePtr& table,
                                            const IMAPIFolderPtr& folder, const IMAPIFolderPtr& otherFolder) {
    sink.m_store = m_session.OpenStore(folder.GetBinProp(PR_STORE_ENTRYID));
    table = folder._rawContentsTable();
    const ULONG syncIdTag = NamedTag(folder.RawProp(), SyncIdName().c_str(), PT_STRING8, true);
    THROW_ON_FAILURE(table.SetColumns({PR_ENTRYID, syncIdTag}));

    // Complete before the first notification can come.
    sink.m_stripPrivate = m_setting.Has(SYNC_STRIP_PRIVATE);
    sink.m_skipPrivate = m_setting.Has(SYNC_SKIP_PRIVATE);
    sink.m_setting = CTarnSetting();
    sink.m_setting.m_flags = m_setting.m_flags;
    sink.m_sourceFolder = folder;
    sink.m_targetFolder = otherFolder;
    sink.m_table = table;
    sink.m_session = m_session;

    ULONG advised = 0;
    THROW_ON_FAILURE_FOR(table->Advise(fnevTableModified, &sink, &advised), table.Get());
    connection = advised;
    ULONG rows = 0;
    table->GetRowCount(0, &rows);  // some providers send nothing before the table was used
}

void CPermanentSynchronization::UnadviseAll() {
    for (int side = 0; side < 2; ++side) {
        if (m_connections[side] != kNotAdvised && m_tables[side].IsValid())
            m_tables[side]->Unadvise(m_connections[side]);
        m_connections[side] = kNotAdvised;
        CTreeSink& tree = m_trees[side];
        if (m_treeConnections[side] != kNotAdvised && tree.m_store.IsValid())
            tree.m_store->Unadvise(m_treeConnections[side]);
        m_treeConnections[side] = kNotAdvised;
        tree.m_store = IMsgStorePtr();
        m_tables[side].Free();
        m_sinks[side].m_table.Free();
    }
}

HRESULT STDMETHODCALLTYPE IVellumAdviseSink::QueryInterface(REFIID iid, LPVOID* object) {
    *object = nullptr;
    if (iid != IID_IUnknown && iid != IID_IMAPIAdviseSink) return E_NOINTERFACE;
    *object = static_cast<IMAPIAdviseSink*>(this);
    AddRef();
    return S_OK;
}

ULONG STDMETHODCALLTYPE IVellumAdviseSink::OnNotify(ULONG count, LPNOTIFICATION notifications) {
    PurgeRecentChanges(RecentChanges());
    if (g_syncBusy != 0 && !m_onChange) return 0;
    for (ULONG i = 0; i < count; ++i) {
        try {
            OnOneNotification(notifications[i]);
        } catch (const CMAPIException& e) {
            ReportException(e);
        } catch (...) {
            // Nothing may leave a callback of the store.
        }
    }
    return 0;
}

void IVellumAdviseSink::OnOneNotification(const NOTIFICATION& notification) {
    if (notification.ulEventType != fnevTableModified) return;
    const TABLE_NOTIFICATION& table = notification.info.tab;
    if (m_onChange) {
        if (table.ulTableEvent == TABLE_ERROR) m_isOutdated = true;
        m_onChange();
        return;
    }
    if (table.ulTableEvent != TABLE_ROW_ADDED && table.ulTableEvent != TABLE_ROW_MODIFIED) return;
    for (ULONG i = 0; i < table.row.cValues; ++i) {
        if (table.row.lpProps[i].ulPropTag != PR_ENTRYID) continue;
        RunOverPair(table.row.lpProps[i].Value.bin);
        return;
    }
}

// One changed item costs a whole run over the pair: the notification only says when, the run finds what.
void IVellumAdviseSink::RunOverPair(const SBinary& entryId) {
    const IMAPIPropPtr item = m_sourceFolder.OpenEntryv(entryId);
    const std::string source = KeyOfFolder(m_sourceFolder);
    const std::string target = KeyOfFolder(m_targetFolder);
    CTarnSetting setting;
    setting.m_sourceKey = source;
    setting.m_targetKey = target;
    setting.m_flags = (m_setting.m_flags & ~static_cast<ULONG>(SYNC_BY_DIRECTORY)) | SYNC_ALWAYS_RENEW;
    CSyncFolder folder;
    folder.m_session = m_session;
    folder.m_setting = &setting;
    folder.m_stripPrivate = m_stripPrivate;
    folder.m_skipPrivate = m_skipPrivate;
    CSyncProgressInteraktiv progress;
    folder.m_progress = &progress;
    CPairLock lock;
    std::string holder;
    // Another run has the pair, and finds what has changed.
    if (lock.Take(m_session, setting, {}, nullptr, holder) != LockAnswer::Taken) return;
    folder.m_gate = &lock;
    progress.Begin();
    folder.SyncSubFolder(source, target, true, true, true, false, false);
    progress.Stop();
}

// --- a tree of folders -------------------------------------------------------------------------------

namespace {
constexpr int kMaxDepth = 500;

std::string BytesOf(const ENTRYID* entryId, ULONG cb) {
    return entryId == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(entryId), cb);
}
}  // namespace

void CTreeSink::ForgetTree() {
    const std::lock_guard lock(m_mutex);
    m_isRead = false;
    m_folders.clear();
    m_isOutdated = false;
}

void CTreeSink::ReadTree(const IMAPIFolderPtr& folder) {
    std::set<std::string> folders;
    Collect(folder, 0, folders);
    const std::lock_guard lock(m_mutex);
    m_folders = std::move(folders);
    m_isRead = true;
}

void CTreeSink::Collect(const IMAPIFolderPtr& folder, int depth, std::set<std::string>& folders) {
    // The identifiers of open folders, because those in a table may be short-term ones.
    const CMapiBinary own = folder.GetBinProp(PR_ENTRYID);
    folders.insert(BytesOf(reinterpret_cast<const ENTRYID*>(own.Bin().lpb), own.Count()));
    if (depth >= kMaxDepth) return;
    const CMapiRowSet rows = folder._rawHierrarchyTable().QueryRows({PR_ENTRYID});
    for (ULONG i = 0; i < rows.Count(); ++i) {
        // A folder that goes away while the tree is read must not make the others unheard.
        try {
            const IMAPIFolderPtr child = folder.OpenEntryv(rows.Cell(i, 0).Binary()).As<IMAPIFolderPtr>();
            if (child) Collect(child, depth + 1, folders);
        } catch (const CMAPIException&) {
            m_isOutdated = true;
        }
    }
}

bool CTreeSink::Knows(const ENTRYID* entryId, ULONG cb) {
    const std::lock_guard lock(m_mutex);
    return cb != 0 && (!m_isRead || m_folders.count(BytesOf(entryId, cb)) != 0);
}

bool CTreeSink::Concerns(const OBJECT_NOTIFICATION& object) {
    return Knows(object.lpParentID, object.cbParentID) || Knows(object.lpOldParentID, object.cbOldParentID) ||
           (object.ulObjType == MAPI_FOLDER && Knows(object.lpEntryID, object.cbEntryID));
}

ULONG STDMETHODCALLTYPE CTreeSink::OnNotify(ULONG count, LPNOTIFICATION notifications) {
    try {
        for (ULONG i = 0; i < count; ++i) {
            const NOTIFICATION& notification = notifications[i];
            if (notification.ulEventType == fnevNewMail) {
                const NEWMAIL_NOTIFICATION& mail = notification.info.newmail;
                if (Knows(mail.lpParentID, mail.cbParentID)) m_onChange();
                continue;
            }
            const OBJECT_NOTIFICATION& object = notification.info.obj;
            if (!Concerns(object)) continue;
            if (object.ulObjType == MAPI_FOLDER) m_isOutdated = true;
            m_onChange();
        }
    } catch (...) {
        // Nothing may leave a callback of the store.
    }
    return 0;
}
