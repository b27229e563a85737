#include "Notifier.h"

#include "MapiThreads.h"
#include "StoreCall.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <thread>

namespace {

using namespace std::chrono_literals;

// One thread for all connections of the process. It ends when it was idle for a while, and is started
// again with the next notification, so that a program that once advised does not keep it for ever.
class CNotifierThread {
public:
    void Post(std::shared_ptr<CConnection> connection) {
        const bool apart = HasNotificationThread();
        const std::lock_guard lock(m_mutex);
        if (!apart) {
            m_waiting.push_back(std::move(connection));
            return;
        }
        m_queue.push_back(std::move(connection));
        if (!m_running) {
            std::thread(&CNotifierThread::Work, this).detach();
            m_running = true;
        }
        m_wake.notify_one();
    }

    // On the thread that they wait for.
    void Dispatch() {
        std::deque<std::shared_ptr<CConnection>> waiting;
        {
            const std::lock_guard lock(m_mutex);
            waiting.swap(m_waiting);
        }
        for (const auto& connection : waiting)
            connection->Run();
    }

private:
    void Work() {
        AdoptMapiThread();
        std::unique_lock lock(m_mutex);
        while (m_wake.wait_for(lock, 5s, [this] { return !m_queue.empty(); })) {
            auto connection = std::move(m_queue.front());
            m_queue.pop_front();
            lock.unlock();
            connection->Run();
            connection.reset();
            lock.lock();
        }
        m_running = false;
    }

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::shared_ptr<CConnection>> m_queue;
    std::deque<std::shared_ptr<CConnection>> m_waiting;
    bool m_running = false;
};

struct Registry {
    std::mutex mutex;
    std::map<ULONG, std::pair<std::weak_ptr<CStoreCore>, std::shared_ptr<CConnection>>> connections;
    ULONG next = 1;
};

// Both live until the process ends: the thread may outlast the statics of other files.
CNotifierThread& TheThread() {
    static auto* thread = new CNotifierThread;
    return *thread;
}
Registry& TheRegistry() {
    static auto* registry = new Registry;
    return *registry;
}

}  // namespace

void CConnection::Post() {
    if (m_posted) return;
    m_posted = true;
    TheThread().Post(shared_from_this());
}

void CConnection::OnStoreEvents(const std::vector<StoreEvent>& events) {
    const std::lock_guard lock(m_pendingMutex);
    m_pending.insert(m_pending.end(), events.begin(), events.end());
    Post();
}

void CConnection::OnOutsideChange() {
    const std::lock_guard lock(m_pendingMutex);
    m_outside = true;
    Post();
}

void CConnection::Run() noexcept {
    std::vector<StoreEvent> events;
    bool outside = false;
    {
        const std::lock_guard lock(m_pendingMutex);
        events.swap(m_pending);
        std::swap(outside, m_outside);
        m_posted = false;
    }
    std::vector<NOTIFICATION> notifications;
    const auto core = m_core.lock();
    if (!core) return;
    const HRESULT hr = GuardedCall([&] {
        const CQuietCall call(*core);
        Collect(*core, events, outside, notifications);
        return S_OK;
    });
    if (FAILED(hr) || notifications.empty()) return;
    const std::lock_guard lock(m_callMutex);
    const CRef<IMAPIAdviseSink> sink = m_sink;
    if (sink) sink->OnNotify(static_cast<ULONG>(notifications.size()), notifications.data());
}

void CConnection::Close() {
    CRef<IMAPIAdviseSink> dropped;
    const std::lock_guard lock(m_callMutex);
    std::swap(dropped, m_sink);
}

ULONG AddConnection(const std::shared_ptr<CStoreCore>& core, const std::shared_ptr<CConnection>& connection) {
    core->AddWatcher(connection);
    std::vector<std::shared_ptr<CConnection>> orphans;
    Registry& registry = TheRegistry();
    const std::lock_guard lock(registry.mutex);
    // Those whose store nobody holds any more can never be called again.
    std::erase_if(registry.connections, [&](const auto& entry) {
        if (!entry.second.first.expired()) return false;
        orphans.push_back(entry.second.second);
        return true;
    });
    const ULONG number = registry.next++;
    registry.connections[number] = {core, connection};
    return number;
}

bool RemoveConnection(ULONG number) {
    std::shared_ptr<CConnection> connection;
    std::shared_ptr<CStoreCore> core;
    {
        Registry& registry = TheRegistry();
        const std::lock_guard lock(registry.mutex);
        const auto found = registry.connections.find(number);
        if (found == registry.connections.end()) return false;
        core = found->second.first.lock();
        connection = std::move(found->second.second);
        registry.connections.erase(found);
    }
    if (core) core->RemoveWatcher(connection.get());
    connection->Close();
    return true;
}

void DispatchNotifications() {
    if (IsFirstMapiThread()) TheThread().Dispatch();
}
