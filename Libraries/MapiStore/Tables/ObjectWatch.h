// The advise connection of a store or of one of its objects.
#pragma once
#include <MapiStore/Core/Notifier.h>

#include <deque>
#include <map>

class CObjectWatch final : public CConnection {
public:
    // `id` 0 watches the whole store; a folder's number also stands for the messages in it. Under the
    // store's lock: remembers what is there, to find out what another process changes.
    CObjectWatch(const std::shared_ptr<CStoreCore>& core, ObjectId id, ULONG mask, IMAPIAdviseSink* sink);

protected:
    void Collect(CStoreCore& core, const std::vector<StoreEvent>& events, bool outside,
                 std::vector<NOTIFICATION>& notifications) override;

private:
    struct Seen {
        ObjectId parent = 0;
        std::uint64_t stamp = 0;
        bool operator==(const Seen& other) const { return parent == other.parent && stamp == other.stamp; }
    };
    using Objects = std::map<ObjectId, Seen>;

    bool Concerns(const StoreEvent& event) const;
    Objects Look(CStoreCore& core) const;
    void LookAtFolder(CStoreCore& core, ObjectId folder, bool below, Objects& objects) const;
    static bool LookAt(CStoreCore& core, ObjectId id, Seen& seen);
    void Follow(CStoreCore& core, const StoreEvent& event);
    std::vector<StoreEvent> Differences(const Objects& now) const;
    void Tell(CStoreCore& core, const StoreEvent& event, std::vector<NOTIFICATION>& notifications);
    ENTRYID* EntryOf(CStoreCore& core, ObjectId id, ULONG& cb);
    void TellNewMail(CStoreCore& core, const StoreEvent& event, NEWMAIL_NOTIFICATION& mail);

    const ObjectId m_id;
    const ULONG m_mask;
    Objects m_objects;

    // What the notifications of one call point to.
    std::deque<StoreEntryId> m_entries;
    std::deque<std::string> m_texts;
};
