#include "StoreCore.h"

#include <Platform/Clock.h>
#include <Platform/Files.h>
#include <Platform/Machine.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <utility>

#include <MapiStore/Storage/SqliteStorage.h>
#include <MapiStore/Storage/WellKnown.h>
#include <MapiStore/Values/PropertyBag.h>
#include <MapiStore/Values/StoreError.h>

namespace {

using namespace std::chrono_literals;

constexpr unsigned kSavesPerCommit = 100;
constexpr auto kGatheringTime = 50ms;
constexpr std::size_t kMostMappings = 16;
constexpr std::uint64_t kTellWatchers = ~std::uint64_t{0};  // as what they were told last: everything anew

// The cores of this process by path: two sessions on one file share one.
struct Registry {
    std::mutex mutex;
    std::map<std::string, std::weak_ptr<CStoreCore>> cores;
};
Registry& TheRegistry() {
    static Registry registry;
    return registry;
}

struct StandardFolder {
    ObjectId id, parent;
    const char* name;
    const char* containerClass;
};
constexpr StandardFolder kStandardFolders[] = {
    {kRootFolder, kRootFolder, "", ""},
    {kIpmFolder, kRootFolder, "Top of Folders", "IPF.Note"},
    {kInboxFolder, kIpmFolder, "Inbox", "IPF.Note"},
    {kOutboxFolder, kIpmFolder, "Outbox", "IPF.Note"},
    {kSentFolder, kIpmFolder, "Sent Items", "IPF.Note"},
    {kDeletedFolder, kIpmFolder, "Deleted Items", "IPF.Note"},
    {kCalendarFolder, kIpmFolder, "Calendar", "IPF.Appointment"},
    {kContactsFolder, kIpmFolder, "Contacts", "IPF.Contact"},
    {kTasksFolder, kIpmFolder, "Tasks", "IPF.Task"},
    {kNotesFolder, kIpmFolder, "Notes", "IPF.StickyNote"},
    {kJournalFolder, kIpmFolder, "Journal", "IPF.Journal"},
};

void WriteStandardFolders(CStoreCore& core) {
    for (const auto& standard : kStandardFolders) {
        CPropertyBag bag;
        const GUID key = NewGuid();
        bag.SetText(PROP_ID(PR_DISPLAY_NAME), standard.name);
        bag.Set(PROP_ID(PR_SEARCH_KEY), PT_BINARY, {reinterpret_cast<const char*>(&key), sizeof key});
        if (*standard.containerClass) bag.SetText(PROP_ID(PR_CONTAINER_CLASS), standard.containerClass);
        FolderHead head;
        head.id = core.NextFolder();
        Require(head.id == standard.id, MAPI_E_CORRUPT_STORE);
        head.parent = standard.parent;
        head.created = head.modified = core.NextTime();
        head.change = core.NextChange();
        core.Storage().WriteFolder(head, bag.Build({}).small);
    }
}

}  // namespace

struct CStoreCore::WatchState {
    std::mutex mutex;
    std::condition_variable wake;
    bool stop = false;
    bool hurry = false;  // a batch has begun: look more often
};

// --- opening ---------------------------------------------------------------------------------------

std::shared_ptr<CStoreCore> CStoreCore::Open(const std::string& path) {
    const std::string key = std::filesystem::weakly_canonical(path).string();
    Registry& registry = TheRegistry();
    const std::lock_guard lock(registry.mutex);
    auto& slot = registry.cores[key];
    if (auto core = slot.lock()) return core;
    const std::shared_ptr<CStoreCore> core(new CStoreCore(path));
    slot = core;
    return core;
}

CStoreCore::CStoreCore(const std::string& path) : m_path(path) {
    m_storage = std::make_unique<CSqliteStorage>(path);
    m_fileIdentity = FileIdentity(path);
    m_readOnly = m_storage->IsReadOnly();
    const auto uid = m_storage->ReadFact("uid");
    Require(uid && uid->size() == m_uid.bytes.size(), MAPI_E_CORRUPT_STORE);
    std::memcpy(m_uid.bytes.data(), uid->data(), uid->size());
    m_habits = CStoreHabits::Read(*m_storage);
    m_namesSeen = m_watchersTold = m_storage->OutsideChanges();
}

bool CStoreCore::IsInPlace() const {
    return FileIdentity(m_path) == m_fileIdentity;
}

CStoreCore::CStoreCore(std::unique_ptr<IObjectStorage> storage, const StoreUid& uid)
    : m_uid(uid), m_storage(std::move(storage)) {}

std::shared_ptr<CStoreCore> CStoreCore::OpenDetached(std::unique_ptr<IObjectStorage> storage) {
    const GUID guid = NewGuid();
    StoreUid uid;
    std::memcpy(uid.bytes.data(), &guid, uid.bytes.size());
    return std::shared_ptr<CStoreCore>(new CStoreCore(std::move(storage), uid));
}

void CStoreCore::Create(const std::string& path, const std::string& displayName) {
    CSqliteStorage::Create(path);
    {
        // A core of a file that was removed under the same name may still be held by somebody.
        const std::lock_guard lock(TheRegistry().mutex);
        TheRegistry().cores.erase(std::filesystem::weakly_canonical(path).string());
    }
    try {
        const GUID uid = NewGuid();
        {
            CSqliteStorage storage(path);
            StoreCounters counters;
            storage.BeginWrite(counters);
            storage.WriteFact("uid", {reinterpret_cast<const char*>(&uid), sizeof uid});
            storage.WriteFact("name", displayName);
            storage.Commit(counters);
        }
        const auto core = Open(path);
        const std::lock_guard lock(core->m_mutex);
        core->Save([&] { WriteStandardFolders(*core); });
    } catch (...) {
        for (const char* tail : {"", "-wal", "-shm"})
            RemoveFile(path + tail);
        throw;
    }
}

CStoreCore::~CStoreCore() {
    if (m_watch) {
        {
            const std::lock_guard lock(m_watch->mutex);
            m_watch->stop = true;
            m_watch->wake.notify_all();
        }
        if (m_watchThread.get_id() == std::this_thread::get_id())
            m_watchThread.detach();
        else
            m_watchThread.join();
    }
    try {
        CommitGathered();
    } catch (...) {
        // Nobody is left to tell.
    }
}

std::string CStoreCore::DisplayName() {
    return m_storage->ReadFact("name").value_or("");
}

void CStoreCore::SetDisplayName(const std::string& name) {
    Save([&] { m_storage->WriteFact("name", name); });
}

void CStoreCore::SetHabits(const CStoreHabits& habits) {
    if (habits.Bits() == m_habits.Bits()) return;
    Save([&] { habits.Write(*m_storage); });
    m_habits = habits;
}

// --- lock, faults, events --------------------------------------------------------------------------

void CStoreCore::Lock() {
    m_mutex.lock();
    if (++m_depth == 1) m_storage->HoldVersion();
}

void CStoreCore::CountCall() {
    if (m_depth > 1) return;  // a call that this room makes on itself
    const ULONG call = ++m_calls;
    if (call == m_interruptAt) m_interruption(m_interruptionContext);
    if (m_faultAt != 0 && (call == m_faultAt || (m_faultForGood && call > m_faultAt)))
        throw CStoreError(m_faultCode);
}

void CStoreCore::LockAndCount() {
    Lock();
    try {
        CountCall();
    } catch (...) {
        Unlock();
        throw;
    }
}

std::vector<StoreEvent> CStoreCore::Unlock() {
    std::vector<StoreEvent> events;
    if (--m_depth == 0) {
        events.swap(m_events);
        m_storage->ReleaseVersion();
    }
    m_mutex.unlock();
    return events;
}

// Watchers are called without the store's lock, so that they may call the store, but one after the
// other, so that each sees the changes in order.
void CStoreCore::Deliver(std::vector<StoreEvent> events, bool outside) {
    std::vector<std::shared_ptr<IStoreWatcher>> watchers;
    {
        const std::lock_guard lock(m_watchersMutex);
        if (m_watchers.empty()) return;
        for (const auto& weak : m_watchers)
            if (auto watcher = weak.lock()) watchers.push_back(std::move(watcher));
    }
    const std::lock_guard delivery(m_deliveryMutex);
    for (const auto& watcher : watchers) {
        if (outside) watcher->OnOutsideChange();
        if (!events.empty()) watcher->OnStoreEvents(events);
    }
}

void CStoreCore::AddWatcher(const std::shared_ptr<IStoreWatcher>& watcher) {
    {
        const std::lock_guard lock(m_watchersMutex);
        m_watchers.push_back(watcher);
    }
    const std::lock_guard lock(m_mutex);
    StartWatching();
}

void CStoreCore::RemoveWatcher(IStoreWatcher* watcher) {
    const std::lock_guard lock(m_watchersMutex);
    std::erase_if(m_watchers, [watcher](const std::weak_ptr<IStoreWatcher>& weak) {
        const auto strong = weak.lock();
        return !strong || strong.get() == watcher;
    });
}

void CStoreCore::SetFault(ULONG n, HRESULT hr, bool forGood) {
    const std::lock_guard lock(m_mutex);
    m_calls = 0;
    m_faultAt = n;
    m_faultCode = hr;
    m_faultForGood = forGood;
}

void CStoreCore::SetInterruption(ULONG n, void (*body)(void*), void* context) {
    const std::lock_guard lock(m_mutex);
    m_calls = 0;
    m_interruptAt = n;
    m_interruption = body;
    m_interruptionContext = context;
}

void CStoreCore::SetKillAtSave(ULONG n) {
    const std::lock_guard lock(m_mutex);
    m_saves = 0;
    m_killAt = n;
}

// --- saves -----------------------------------------------------------------------------------------

ObjectId CStoreCore::NextFolder() {
    Require(m_counters.folder <= kMaxFolder, MAPI_E_NOT_ENOUGH_RESOURCES);
    return m_counters.folder++;
}

std::uint64_t CStoreCore::NextTime() {
    const std::uint64_t now = TicksOf(UtcNow());
    const std::uint64_t tick = m_habits.Tick();
    return tick == 1 ? m_counters.times.Next(now) : now - now % tick;
}

void CStoreCore::BeginSave() {
    if (m_saveDepth > 0) {
        ++m_saveDepth;
        return;
    }
    RequireWritable();
    NoticeLoss();
    if (m_untold > 0) throw m_loss;
    if (!m_storage->InWrite()) {
        m_gathered = 0;
        m_gatheredSince = std::chrono::steady_clock::now();
        m_storage->BeginWrite(m_counters);
        ForgetNamesIfOutdated();
    }
    if (m_batchDepth > 0) m_storage->SetSavepoint();
    m_countersBeforeSave = m_counters;
    m_eventsBeforeSave = m_events.size();
    m_saveDepth = 1;
}

void CStoreCore::EndSave() {
    if (--m_saveDepth > 0) return;
    const ULONG save = ++m_saves;
    if (m_killAt != 0 && save == m_killAt) std::abort();
    if (m_batchDepth > 0) {
        try {
            m_storage->ReleaseSavepoint();
        } catch (...) {
            LoseGathered();  // whether this save is in it or not, nobody could tell
            throw;
        }
        ++m_gathered;
        const ULONG most = m_savesPerCommit ? m_savesPerCommit : kSavesPerCommit;
        if (m_gathered < most && !IsLate()) return;
    }
    CommitGathered();
}

bool CStoreCore::IsLate() const {
    return m_savesPerCommit == 0 && std::chrono::steady_clock::now() - m_gatheredSince >= kGatheringTime;
}

void CStoreCore::AbandonSave() noexcept {
    if (--m_saveDepth > 0) return;
    if (m_batchDepth > 0 && m_storage->InWrite())
        m_storage->RollbackToSavepoint();
    else
        m_storage->Rollback();
    // The database may have taken back more than this save.
    if (m_gathered > 0 && !m_storage->InWrite()) LoseGathered();
    m_counters = m_countersBeforeSave;
    m_events.resize(std::min(m_events.size(), m_eventsBeforeSave));
    m_names.Forget();
}

// A commit that fails takes back all that was gathered.
void CStoreCore::CommitGathered() {
    NoticeLoss();
    if (!m_storage->InWrite()) return;
    try {
        FailCommitOnRequest();
        m_storage->Commit(m_counters);
    } catch (...) {
        LoseGathered();
        throw;
    }
    m_gathered = 0;
}

// Inside a catch block. Others may have built on saves that are gone now, and what was told of them to the
// watchers is no longer true.
void CStoreCore::LoseGathered() noexcept {
    m_storage->Rollback();
    m_gathered = 0;
    m_names.Forget();
    m_events.clear();
    m_watchersTold = kTellWatchers;
    if (m_holders == 0) return;  // the one who saves learns it from the code
    m_loss = CurrentError();
    ++m_losses;
    m_untold = m_holders;
}

// A database may take the transaction back whatever call it fails in, also one that only reads.
void CStoreCore::NoticeLoss() noexcept {
    if (m_gathered == 0 || m_storage->InWrite()) return;
    try {
        throw CStoreError(MAPI_E_DISK_ERROR);
    } catch (...) {
        LoseGathered();
    }
}

void CStoreCore::TellLoss(CBatchHolder& holder) {
    if (BatchState(holder) == S_OK) return;
    holder.told = m_losses;
    --m_untold;
    throw m_loss;
}

HRESULT CStoreCore::BatchState(const CBatchHolder& holder) const {
    return holder.begun > 0 && holder.told != m_losses ? m_loss.Code() : S_OK;
}

void CStoreCore::BeginBatch(CBatchHolder& holder) {
    RequireWritable();
    StartWatching();
    ++m_batchDepth;
    if (holder.begun++ > 0) return;
    ++m_holders;
    holder.told = m_losses;
}

void CStoreCore::FlushBatch(CBatchHolder& holder) {
    try {
        CommitGathered();
    } catch (const CStoreError&) {
        if (BatchState(holder) == S_OK) throw;
    }
    TellLoss(holder);
}

void CStoreCore::FlushToDisk(CBatchHolder& holder) {
    FlushBatch(holder);
    m_storage->SyncToDisk();
    m_durableCommits = m_commits.load();
}

void CStoreCore::EndBatch(CBatchHolder& holder) {
    Require(holder.begun > 0, MAPI_E_CALL_FAILED);
    const bool commits = --m_batchDepth == 0;
    try {
        if (commits) CommitGathered();
        TellLoss(holder);
    } catch (...) {
        LeaveBatch(holder);
        throw;
    }
    LeaveBatch(holder);
}

void CStoreCore::LeaveBatch(CBatchHolder& holder) {
    if (BatchState(holder) != S_OK) {  // it has just been thrown
        holder.told = m_losses;
        --m_untold;
    }
    if (--holder.begun == 0) --m_holders;
}

void CStoreCore::SetCommitFault(ULONG n, HRESULT hr, bool forGood) {
    const std::lock_guard lock(m_mutex);
    m_commits = m_durableCommits = 0;
    m_commitFaultAt = n;
    m_commitFaultCode = hr;
    m_commitFaultForGood = forGood;
}

void CStoreCore::SetSavesPerCommit(ULONG saves) {
    const std::lock_guard lock(m_mutex);
    m_savesPerCommit = saves;
}

void CStoreCore::FailCommitOnRequest() {
    const ULONG commit = ++m_commits;
    if (m_commitFaultAt == 0 || commit < m_commitFaultAt) return;
    if (commit > m_commitFaultAt && !m_commitFaultForGood) return;
    throw CStoreError(m_commitFaultCode, WordsOfSqlite(m_commitFaultCode));
}

// --- other processes -------------------------------------------------------------------------------

void CStoreCore::ForgetNamesIfOutdated() {
    const std::uint64_t now = m_storage->OutsideChanges();
    if (now == m_namesSeen) return;
    m_namesSeen = now;
    m_names.Forget();
}

void CStoreCore::RefreshNames() {
    // Inside a transaction nobody else can have added any.
    if (!m_storage->InWrite()) ForgetNamesIfOutdated();
}

NameMapping& CStoreCore::MappingFrom(CStoreCore& source) {
    // Messages on compound files are sources of their own; thousands of them must not pile up here.
    if (m_mappings.size() >= kMostMappings && !m_mappings.count(source.Uid())) m_mappings.clear();
    NameMapping& mapping = m_mappings[source.Uid()];
    const std::uint64_t from = source.m_names.Generation(), to = m_names.Generation();
    if (mapping.ids.empty() || mapping.fromGeneration != from || mapping.toGeneration != to) {
        mapping.ids.assign(kLastNamedId - kFirstNamedId + 1, 0);
        mapping.fromGeneration = from;
        mapping.toGeneration = to;
    }
    return mapping;
}

void CStoreCore::StartWatching() {
    if (!m_watch) {
        m_watch = std::make_shared<WatchState>();
        m_watchThread = std::thread(&CStoreCore::Watch, weak_from_this(), m_watch);
        return;
    }
    const std::lock_guard lock(m_watch->mutex);
    m_watch->hurry = true;
    m_watch->wake.notify_all();
}

// The thread holds the core only for the length of a tick, so that it does not keep the file open.
void CStoreCore::Watch(std::weak_ptr<CStoreCore> weak, std::shared_ptr<WatchState> state) {
    std::chrono::milliseconds pause = kGatheringTime / 2;
    for (;;) {
        {
            std::unique_lock lock(state->mutex);
            state->wake.wait_for(lock, pause, [&] { return state->stop || state->hurry; });
            if (state->stop) return;
            state->hurry = false;
        }
        const auto core = weak.lock();
        if (!core) return;
        pause = core->OnWatchTick();
    }
}

// Nobody waits for this commit: what it loses is kept for those whose saves they were.
void CStoreCore::CommitAsOwnThread() {
    const std::lock_guard lock(m_mutex);
    try {
        CommitGathered();
    } catch (...) {
    }
}

std::chrono::milliseconds CStoreCore::OnWatchTick() {
    bool outside = false;
    std::chrono::milliseconds pause = 300ms;
    try {
        const std::lock_guard lock(m_mutex);
        if (m_batchDepth > 0) {
            if (IsLate()) CommitAsOwnThread();
            pause = kGatheringTime / 2;
        }
        if (!m_storage->InWrite()) {
            const std::uint64_t now = m_storage->OutsideChanges();
            outside = now != m_watchersTold;
            m_watchersTold = now;
        }
    } catch (...) {
        // The next tick looks again.
    }
    if (outside) Deliver({}, true);
    return pause;
}
