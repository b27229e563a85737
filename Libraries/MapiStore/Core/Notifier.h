// Carries notifications from the stores to the advise sinks, on one thread of this room: a sink is never
// called on the thread whose call made the change, nor under a store's lock.
#pragma once
#include <MapiStore/Values/UnknownImpl.h>
#include "StoreCore.h"

#include <memory>
#include <mutex>
#include <vector>

// One advise connection: watches a store and turns what happens into calls of its sink. Derived classes
// know what interests them. Kept alive by the registry of connections until RemoveConnection.
class CConnection : public IStoreWatcher, public std::enable_shared_from_this<CConnection> {
public:
    CConnection(const std::shared_ptr<CStoreCore>& core, IMAPIAdviseSink* sink)
        : m_core(core), m_sink(CRef<IMAPIAdviseSink>::Share(sink)) {}

    void OnStoreEvents(const std::vector<StoreEvent>& events) override;
    void OnOutsideChange() override;

    // On the notifier's thread: takes what has gathered and calls the sink. Never throws.
    void Run() noexcept;
    // No call of the sink begins after this; waits for one under way unless called from within it. Must
    // not be called under a store's lock, which the sink may be waiting for.
    void Close();

protected:
    // Fills `notifications`; what they point to must stay until the next call of the same method. Called
    // under the store's lock. `outside`: somebody else has changed the file in ways unknown.
    virtual void Collect(CStoreCore& core, const std::vector<StoreEvent>& events, bool outside,
                         std::vector<NOTIFICATION>& notifications) = 0;

private:
    void Post();

    const std::weak_ptr<CStoreCore> m_core;
    std::mutex m_pendingMutex;  // guards the three below
    std::vector<StoreEvent> m_pending;
    bool m_outside = false;
    bool m_posted = false;
    std::recursive_mutex m_callMutex;  // held while the sink is called; guards the sink
    CRef<IMAPIAdviseSink> m_sink;
};

// Puts the connection into the registry and lets it watch the store. Numbers are unique in the process.
ULONG AddConnection(const std::shared_ptr<CStoreCore>& core, const std::shared_ptr<CConnection>& connection);
// False for an unknown number.
bool RemoveConnection(ULONG number);

// Carries what has waited for this thread, where notifications come on no thread of their own.
void DispatchNotifications();
