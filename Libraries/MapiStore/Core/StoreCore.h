// One open store file: what all objects of it share in this process, whatever session they belong to.
#pragma once
#include <MapiStore/Storage/EntryId.h>
#include <MapiStore/Storage/NameMap.h>
#include <MapiStore/Storage/Storage.h>
#include <MapiStore/Storage/StoreHabits.h>
#include <MapiStore/Values/StoreError.h>
#include "StoreEvents.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

// IDs of one store's named properties in another; 0 where not yet looked up.
struct NameMapping {
    std::uint64_t fromGeneration = 0, toGeneration = 0;
    std::vector<PropId> ids;
};

// What a store knows of one object that gathers saves.
struct CBatchHolder {
    unsigned begun = 0;  // batches begun and not ended
    ULONG told = 0;      // losses of the store that it knows of
};

class CStoreCall;
class CQuietCall;
class CTwoStoreCall;
class CStoreLock;

class CStoreCore : public std::enable_shared_from_this<CStoreCore> {
public:
    // Opens the file, or gives the core that this process already has for it. MAPI_E_VERSION for a
    // file of a later program, MAPI_E_CORRUPT_STORE for one that is no store, MAPI_E_NOT_FOUND if there
    // is none; each as CStoreError.
    static std::shared_ptr<CStoreCore> Open(const std::string& path);
    // A core of no store: the ground that a message on a compound file stands on.
    static std::shared_ptr<CStoreCore> OpenDetached(std::unique_ptr<IObjectStorage> storage);
    // Creates the file with its standard folders. MAPI_E_COLLISION if something lies there.
    static void Create(const std::string& path, const std::string& displayName);
    ~CStoreCore();

    const StoreUid& Uid() const { return m_uid; }
    const CStoreHabits& Habits() const { return m_habits; }
    const std::string& Path() const { return m_path; }
    // False once the file was moved away, removed or replaced under the name that it was opened by.
    bool IsInPlace() const;
    bool IsReadOnly() const { return m_readOnly; }

    // Everything below needs the lock: call it inside a CStoreCall.

    IObjectStorage& Storage() { return *m_storage; }
    CNameMap& Names() { return m_names; }
    std::string DisplayName();
    void SetDisplayName(const std::string& name);
    void SetHabits(const CStoreHabits& habits);

    // One save: body() inside a transaction. Outside a batch it is on disk afterwards, inside one it
    // is gathered. If body throws, nothing of it stays. Counts as a save for the kill on request.
    template <class Body>
    void Save(Body&& body) {
        BeginSave();
        try {
            body();
        } catch (...) {
            AbandonSave();
            throw;
        }
        EndSave();
    }
    // Throws MAPI_E_NO_ACCESS where nothing can be written.
    void RequireWritable() const { Require(!m_readOnly, MAPI_E_NO_ACCESS); }
    // Asks the file whether another process has added names; for a name that is not known.
    void RefreshNames();

    // The mapping from another store's IDs to this one's, emptied when either has read its names again.
    NameMapping& MappingFrom(CStoreCore& source);

    // Inside Save only.
    std::uint64_t NextSerial() { return m_counters.serial++; }
    ObjectId NextFolder();
    std::uint64_t NextChange() { return m_counters.change++; }
    // The clock's time, or the next one that was not given yet: no two are the same (GivenTimes.h), unless
    // the store's clock is coarse.
    std::uint64_t NextTime();

    // See IStoreBatch. A loss that the holder has not been told of is thrown, once for each holder.
    void BeginBatch(CBatchHolder& holder);
    void FlushBatch(CBatchHolder& holder);
    void FlushToDisk(CBatchHolder& holder);
    void EndBatch(CBatchHolder& holder);
    HRESULT BatchState(const CBatchHolder& holder) const;
    // Commits what others have gathered.
    void CommitGathered();

    // The event reaches the watchers when the outermost call is over. Dropped if the save fails.
    void Publish(const StoreEvent& event) { m_events.push_back(event); }

    // These five lock by themselves.
    void AddWatcher(const std::shared_ptr<IStoreWatcher>& watcher);
    void RemoveWatcher(IStoreWatcher* watcher);
    void SetFault(ULONG n, HRESULT hr, bool forGood);
    void SetInterruption(ULONG n, void (*body)(void*), void* context);
    ULONG CallCount() const { return m_calls; }
    void SetKillAtSave(ULONG n);
    ULONG SaveCount() const { return m_saves; }
    void SetCommitFault(ULONG n, HRESULT hr, bool forGood);
    ULONG CommitCount() const { return m_commits; }
    ULONG DurableCommitCount() const { return m_durableCommits; }
    void SetSavesPerCommit(ULONG saves);
    void CommitAsOwnThread();

private:
    friend class CStoreCall;
    friend class CQuietCall;
    friend class CTwoStoreCall;
    friend class CStoreLock;
    explicit CStoreCore(const std::string& path);
    CStoreCore(std::unique_ptr<IObjectStorage> storage, const StoreUid& uid);
    void Lock();
    void CountCall();
    void LockAndCount();
    std::vector<StoreEvent> Unlock();  // the events to deliver, if it was the outermost call
    void Deliver(std::vector<StoreEvent> events, bool outside);
    void BeginSave();
    void EndSave();
    void AbandonSave() noexcept;
    bool IsLate() const;
    void FailCommitOnRequest();
    void LoseGathered() noexcept;
    void NoticeLoss() noexcept;
    void TellLoss(CBatchHolder& holder);
    void LeaveBatch(CBatchHolder& holder);
    void ForgetNamesIfOutdated();
    void StartWatching();
    std::chrono::milliseconds OnWatchTick();  // on the watch thread; the time until the next
    struct WatchState;
    static void Watch(std::weak_ptr<CStoreCore> weak, std::shared_ptr<WatchState> state);

    const std::string m_path;
    std::string m_fileIdentity;
    StoreUid m_uid{};
    CStoreHabits m_habits;
    bool m_readOnly = false;

    std::recursive_mutex m_mutex;  // guards all below
    std::unique_ptr<IObjectStorage> m_storage;
    CNameMap m_names;
    std::map<StoreUid, NameMapping> m_mappings;
    StoreCounters m_counters;
    StoreCounters m_countersBeforeSave;
    int m_depth = 0;      // nested calls
    int m_saveDepth = 0;  // nested saves
    int m_batchDepth = 0;
    unsigned m_gathered = 0;  // saves in the open transaction
    unsigned m_holders = 0;   // of batches
    unsigned m_untold = 0;    // holders that do not know of the last loss yet: nothing is saved so long
    ULONG m_losses = 0;
    CStoreError m_loss{S_OK};  // why
    std::chrono::steady_clock::time_point m_gatheredSince{};
    std::uint64_t m_namesSeen = 0;     // OutsideChanges when the names were read
    std::uint64_t m_watchersTold = 0;  // OutsideChanges when the watchers were told last
    std::vector<StoreEvent> m_events;
    std::size_t m_eventsBeforeSave = 0;

    std::atomic<ULONG> m_calls{0};
    ULONG m_faultAt = 0;
    HRESULT m_faultCode = S_OK;
    bool m_faultForGood = false;
    ULONG m_interruptAt = 0;
    void (*m_interruption)(void*) = nullptr;
    void* m_interruptionContext = nullptr;
    std::atomic<ULONG> m_saves{0};
    ULONG m_killAt = 0;
    std::atomic<ULONG> m_commits{0};
    std::atomic<ULONG> m_durableCommits{0};
    ULONG m_commitFaultAt = 0;
    HRESULT m_commitFaultCode = S_OK;
    bool m_commitFaultForGood = false;
    ULONG m_savesPerCommit = 0;  // 0: by number and by the clock

    std::mutex m_watchersMutex;  // guards the list
    std::vector<std::weak_ptr<IStoreWatcher>> m_watchers;
    std::recursive_mutex m_deliveryMutex;  // held while watchers are called
    std::thread m_watchThread;
    std::shared_ptr<WatchState> m_watch;  // null until somebody watches or gathers
};
