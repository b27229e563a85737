// What has happened to the objects of a store, for those who watch it.
#pragma once
#include <MapiStore/Storage/Storage.h>

#include <vector>

struct StoreEvent {
    ULONG kind = 0;        // fnevObjectCreated, ...Modified, ...Deleted, ...Moved, ...Copied, fnevNewMail
    ULONG objectType = 0;  // MAPI_MESSAGE, MAPI_FOLDER
    ObjectId id = 0;
    ObjectId parent = 0;     // folder of a message, parent of a folder
    ObjectId oldId = 0;      // moved and copied only
    ObjectId oldParent = 0;  // moved and copied only
};

// A watcher, registered with CStoreCore::AddWatcher. Both are called without the store's lock, never
// two at a time for one watcher, on the thread whose call made the change or on the watch thread.
class IStoreWatcher {
public:
    virtual ~IStoreWatcher() = default;
    // Changes made through this process, in order, after the call that made them is over.
    virtual void OnStoreEvents(const std::vector<StoreEvent>& events) = 0;
    // Another process has changed something in the file: read again what matters. Within a second.
    virtual void OnOutsideChange() = 0;
};
