// Pairs that are synchronised as soon as an item changes, by notifications of their folders' tables.
//
// The machinery is complete up to one point that is closed on purpose: Start does not advise. Whoever wants
// a pair watched opens that point with Watch, as the command "watch" does.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Tarn/Engine/TarnSetting.h>
#include <Tarn/Settings/TarnSettings.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

// Receives the notifications of one folder's table. A member of its watcher: the reference count never
// deletes it. OnNotify comes on the thread that the store chooses and lets no exception out.
class IVellumAdviseSink : public IMAPIAdviseSink {
public:
    virtual ~IVellumAdviseSink() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, LPVOID* object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override { return --m_references; }
    ULONG STDMETHODCALLTYPE OnNotify(ULONG count, LPNOTIFICATION notifications) override;

    bool m_stripPrivate = false;
    bool m_skipPrivate = false;
    IMAPITablePtr m_table;          // the table advised on
    CTarnSetting m_setting;         // only its flags are filled
    IMAPIFolderPtr m_sourceFolder;  // the folder whose table this is
    IMAPIFolderPtr m_targetFolder;
    IMsgStorePtr m_store;
    CMapiBinary m_entryId;
    CMapiSession m_session;
    // Called instead of a run, and then for every change of the table, also for rows that went and while a
    // run is under way; the thread is the store's. For a caller that gathers changes and runs on a thread of
    // its own, and would miss what a person does during a run.
    std::function<void()> m_onChange;
    // What is advised on gives no notifications any more, or not all: advise anew.
    std::atomic<bool> m_isOutdated{false};

private:
    void OnOneNotification(const NOTIFICATION& notification);
    void RunOverPair(const SBinary& entryId);

    ULONG m_references = 0;
};

// Receives the notifications of a whole store and picks those of one folder and all below it.
class CTreeSink : public IVellumAdviseSink {
public:
    // Reads the tree below `folder`, once the sink is advised: what comes before that is taken for a change
    // of the tree. Folders that do not open are left out; m_isOutdated says so then. Throws CMAPIException
    // where the folder itself cannot be read.
    void ReadTree(const IMAPIFolderPtr& folder);
    // Before the sink is advised.
    void ForgetTree();
    // m_isOutdated is set as folders come, go or are renamed.
    ULONG STDMETHODCALLTYPE OnNotify(ULONG count, LPNOTIFICATION notifications) override;

private:
    void Collect(const IMAPIFolderPtr& folder, int depth, std::set<std::string>& folders);
    bool Concerns(const OBJECT_NOTIFICATION& object);
    bool Knows(const ENTRYID* entryId, ULONG cb);

    std::mutex m_mutex;  // guards the two below
    bool m_isRead = false;
    std::set<std::string> m_folders;  // entry IDs
};

inline constexpr ULONG kNotAdvised = 0xFFFFFFFF;

class CPermanentSynchronization {
public:
    explicit CPermanentSynchronization(const CTarnSetting& setting) : m_setting(setting) {}
    ~CPermanentSynchronization() { UnadviseAll(); }
    CPermanentSynchronization(const CPermanentSynchronization&) = delete;
    CPermanentSynchronization& operator=(const CPermanentSynchronization&) = delete;

    // Answers 0 and advises on nothing.
    int Start(CMapiSession session);

    // Opens both folders of the setting and advises on each side that has a direction away from it; with
    // SYNC_SUBFOLDERS on everything below it as well. `onChange` (may be empty) replaces the run over the
    // pair. May be called again. Throws CMAPIException; nothing is advised then.
    void Watch(const CMapiSession& session, std::function<void()> onChange);
    // Folders came or went since Watch, or a store has ended its notifications: call it again.
    bool IsOutdated() const;

    // Sets one direction up: reads the table of `folder` and has its changes sent to `sink`. Throws.
    void AdviseTable(IVellumAdviseSink& sink, ULONG& connection, IMAPITablePtr& table,
                     const IMAPIFolderPtr& folder, const IMAPIFolderPtr& otherFolder);
    void UnadviseAll();

    const CTarnSetting& Setting() const { return m_setting; }

private:
    void AdviseTree(int side, const IMAPIFolderPtr& folder, const std::function<void()>& onChange);
    void AdviseSide(int side, const IMAPIFolderPtr& folder, const IMAPIFolderPtr& otherFolder,
                    const std::function<void()>& onChange);

    IVellumAdviseSink m_sinks[2];
    CTreeSink m_trees[2];
    ULONG m_treeConnections[2] = {kNotAdvised, kNotAdvised};
    ULONG m_connections[2] = {kNotAdvised, kNotAdvised};
    IMAPITablePtr m_tables[2];
    IMAPIFolderPtr m_sourceFolder;
    IMAPIFolderPtr m_targetFolder;
    CMapiSession m_session;
    CTarnSetting m_setting;
};

// The watchers of all settings that ask for one; rebuilt after every run, cleared before the next. Any
// thread: a run by the timer may end while another one begins.
class CPermanentSynchronizations {
public:
    void Init(const CTarnSettings& settings, const CMapiSession& session);
    void Clear();
    size_t Count() const;

private:
    mutable std::mutex m_mutex;
    std::vector<std::unique_ptr<CPermanentSynchronization>> m_watchers;
};

// The list of the process.
CPermanentSynchronizations& PermanentSynchronizations();

// Opens the folder that a key names. Throws CMAPIException.
IMAPIFolderPtr OpenFolderOfKey(const CMapiSession& session, const std::string& key);
// The key of an open folder. Throws CMAPIException.
std::string KeyOfFolder(const IMAPIFolderPtr& folder);
