#include "ObjectWatch.h"

#include <MapiStore/Values/PropertyCodec.h>
#include "RowSource.h"

namespace {

std::uint64_t StampOf(const MessageHead& head) {
    return head.change * 31 + (std::uint64_t{head.flags} << 32 | head.status);
}

ULONG TypeOf(ObjectId id) {
    return IsFolderId(id) ? MAPI_FOLDER : (IsMessageId(id) ? MAPI_MESSAGE : MAPI_STORE);
}

}  // namespace

CObjectWatch::CObjectWatch(const std::shared_ptr<CStoreCore>& core, ObjectId id, ULONG mask,
                           IMAPIAdviseSink* sink)
    : CConnection(core, sink), m_id(id), m_mask(mask), m_objects(Look(*core)) {}

bool CObjectWatch::Concerns(const StoreEvent& event) const {
    if ((event.kind & m_mask) == 0) return false;
    return m_id == 0 || m_id == event.id || m_id == event.parent || m_id == event.oldId ||
           m_id == event.oldParent;
}

// --- what is there ----------------------------------------------------------------------------------

bool CObjectWatch::LookAt(CStoreCore& core, ObjectId id, Seen& seen) {
    std::string block;
    if (IsFolderId(id)) {
        FolderHead head;
        if (!core.Storage().ReadFolder(id, head, block)) return false;
        seen = {head.parent, head.change};
        return true;
    }
    MessageHead head;
    if (!core.Storage().ReadMessageHead(id, head)) return false;
    seen = {FolderOf(id), StampOf(head)};
    return true;
}

void CObjectWatch::LookAtFolder(CStoreCore& core, ObjectId folder, bool below, Objects& objects) const {
    for (const bool associated : {false, true}) {
        core.Storage().ScanMessageHeads(folder, associated, [&](const MessageHead& head) {
            objects[head.id] = {folder, StampOf(head)};
            return true;
        });
    }
    std::vector<FolderHead> children;
    core.Storage().ScanFolders(folder,
                               [&](const FolderHead& head, std::string_view) { children.push_back(head); });
    for (const FolderHead& child : children) {
        const bool isNew = objects.emplace(child.id, Seen{child.parent, child.change}).second;
        if (below && isNew) LookAtFolder(core, child.id, true, objects);
    }
}

CObjectWatch::Objects CObjectWatch::Look(CStoreCore& core) const {
    Objects objects;
    Seen seen;
    const ObjectId start = m_id == 0 ? 1 : m_id;
    if (LookAt(core, start, seen)) objects[start] = seen;
    if (IsFolderId(start)) LookAtFolder(core, start, m_id == 0, objects);
    return objects;
}

// Takes note of a change that was told by its event, so that it does not show up as a difference later.
void CObjectWatch::Follow(CStoreCore& core, const StoreEvent& event) {
    if (event.kind == fnevObjectMoved && event.oldId) m_objects.erase(event.oldId);
    Seen seen;
    if (event.kind != fnevObjectDeleted && LookAt(core, event.id, seen))
        m_objects[event.id] = seen;
    else
        m_objects.erase(event.id);
}

std::vector<StoreEvent> CObjectWatch::Differences(const Objects& now) const {
    std::vector<StoreEvent> events;
    const auto add = [&](ULONG kind, ObjectId id, ObjectId parent) {
        StoreEvent event;
        event.kind = kind;
        event.objectType = TypeOf(id);
        event.id = id;
        event.parent = parent;
        events.push_back(event);
    };
    for (const auto& [id, seen] : m_objects)
        if (!now.count(id)) add(fnevObjectDeleted, id, seen.parent);
    for (const auto& [id, seen] : now) {
        const auto before = m_objects.find(id);
        if (before == m_objects.end())
            add(fnevObjectCreated, id, seen.parent);
        else if (!(before->second == seen))
            add(fnevObjectModified, id, seen.parent);
    }
    return events;
}

// --- notifications ----------------------------------------------------------------------------------

ENTRYID* CObjectWatch::EntryOf(CStoreCore& core, ObjectId id, ULONG& cb) {
    cb = 0;
    if (id == 0) return nullptr;
    m_entries.push_back(MakeEntryId(core.Uid(), core.Habits().Shown(id)));
    cb = sizeof(StoreEntryId);
    return reinterpret_cast<ENTRYID*>(&m_entries.back());
}

void CObjectWatch::TellNewMail(CStoreCore& core, const StoreEvent& event, NEWMAIL_NOTIFICATION& mail) {
    mail.lpEntryID = EntryOf(core, event.id, mail.cbEntryID);
    mail.lpParentID = EntryOf(core, event.parent, mail.cbParentID);
    MessageHead head;
    std::string block;
    std::string messageClass;
    if (core.Storage().ReadMessage(event.id, head, block)) {
        CStoredValue value;
        if (CMessageRow(core, head, block).Find(PROP_ID(PR_MESSAGE_CLASS), value))
            messageClass = NarrowFromUtf8(value.Bytes());
        mail.ulMessageFlags = head.flags;
    }
    m_texts.push_back(messageClass);
    mail.lpszMessageClass = m_texts.back().data();
}

void CObjectWatch::Tell(CStoreCore& core, const StoreEvent& event, std::vector<NOTIFICATION>& notifications) {
    NOTIFICATION notification{};
    notification.ulEventType = event.kind;
    if (event.kind == fnevNewMail) {
        TellNewMail(core, event, notification.info.newmail);
    } else {
        OBJECT_NOTIFICATION& object = notification.info.obj;
        object.ulObjType = event.objectType;
        object.lpEntryID = EntryOf(core, event.id, object.cbEntryID);
        object.lpParentID = EntryOf(core, event.parent, object.cbParentID);
        object.lpOldID = EntryOf(core, event.oldId, object.cbOldID);
        object.lpOldParentID = EntryOf(core, event.oldParent, object.cbOldParentID);
    }
    notifications.push_back(notification);
}

void CObjectWatch::Collect(CStoreCore& core, const std::vector<StoreEvent>& events, bool outside,
                           std::vector<NOTIFICATION>& notifications) {
    m_entries.clear();
    m_texts.clear();
    for (const StoreEvent& event : events) {
        StoreEvent any = event;
        any.kind = m_mask;
        if (Concerns(any)) Follow(core, event);
        if (Concerns(event)) Tell(core, event, notifications);
    }
    if (!outside) return;
    Objects now = Look(core);
    for (const StoreEvent& event : Differences(now))
        if (Concerns(event)) Tell(core, event, notifications);
    m_objects = std::move(now);
}
