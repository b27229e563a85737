#include "MapiThreads.h"

#include <Platform/MapiHeaders.h>

#include <mutex>
#include <thread>

namespace {

thread_local unsigned t_entered = 0;

struct Entered {
    std::mutex mutex;
    unsigned count = 0;
    bool notifiesApart = true;
    std::thread::id first;
};
// The notifier's thread may outlast the statics.
Entered& TheEntered() {
    static auto* entered = new Entered;
    return *entered;
}

}  // namespace

void EnterMapi(ULONG flags) {
    ++t_entered;
    Entered& entered = TheEntered();
    const std::lock_guard lock(entered.mutex);
    if (entered.count++ > 0) return;
    entered.notifiesApart = (flags & MAPI_MULTITHREAD_NOTIFICATIONS) != 0;
    entered.first = std::this_thread::get_id();
}

void LeaveMapi() {
    if (t_entered == 0) return;
    --t_entered;
    Entered& entered = TheEntered();
    const std::lock_guard lock(entered.mutex);
    if (--entered.count == 0) entered.notifiesApart = true;
}

void AdoptMapiThread() {
    ++t_entered;
}

bool IsMapiThread() {
    return t_entered > 0;
}

bool HasNotificationThread() {
    Entered& entered = TheEntered();
    const std::lock_guard lock(entered.mutex);
    return entered.notifiesApart;
}

bool IsFirstMapiThread() {
    Entered& entered = TheEntered();
    const std::lock_guard lock(entered.mutex);
    return entered.first == std::this_thread::get_id();
}
