#include <Tarn/Engine/SyncIdentity.h>
#include <Tarn/Engine/syncfolder.h>
#include <Tarn/Settings/PermanentSynchronization.h>
#include <Tarn/Settings/RecentChanges.h>
#include <Tarn/Settings/RunDispatch.h>

CPermanentSynchronizations& PermanentSynchronizations() {
    static CPermanentSynchronizations watchers;
    return watchers;
}

void CPermanentSynchronizations::Init(const CTarnSettings& settings, const CMapiSession& session) {
    Clear();
    for (size_t i = 0; i < settings.Count(); ++i) {
        const CTarnSetting setting = settings.At(i);
        if (setting.m_deleted != 0 || !setting.Has(SYNC_CONTINUOUS_FROM | SYNC_CONTINUOUS_TO)) continue;
        auto watcher = std::make_unique<CPermanentSynchronization>(setting);
        watcher->Start(session);
        m_watchers.push_back(std::move(watcher));
    }
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
    for (IVellumAdviseSink& sink : m_sinks)
        sink.m_onChange = onChange;
    if (m_setting.Has(SYNC_TO_TARGET))
        AdviseTable(m_sinks[0], m_connections[0], m_tables[0], m_sourceFolder, m_targetFolder);
    if (m_setting.Has(SYNC_FROM_TARGET))
        AdviseTable(m_sinks[1], m_connections[1], m_tables[1], m_targetFolder, m_sourceFolder);
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
    if (g_syncBusy != 0) return 0;
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
    if (table.ulTableEvent != TABLE_ROW_ADDED && table.ulTableEvent != TABLE_ROW_MODIFIED) return;
    if (m_onChange) {
        m_onChange();
        return;
    }
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
    progress.Begin();
    folder.SyncSubFolder(source, target, true, true, true, false, false);
    progress.Stop();
}
