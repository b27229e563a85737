#include "Message.h"

#include <Platform/Clock.h>
#include <Platform/Machine.h>

#include <algorithm>

#include <MapiStore/Storage/WellKnown.h>
#include <MapiStore/Tables/RowSource.h>
#include <MapiStore/Values/Subject.h>
#include "Attach.h"

namespace {

constexpr ULONG kFlagsBeforeFirstSave = MSGFLAG_READ | MSGFLAG_UNMODIFIED | MSGFLAG_UNSENT | MSGFLAG_FROMME |
                                        MSGFLAG_RESEND | MSGFLAG_RN_PENDING | MSGFLAG_NRN_PENDING;

constexpr PropId kComputed[] = {PROP_ID(PR_ENTRYID),
                                PROP_ID(PR_RECORD_KEY),
                                PROP_ID(PR_INSTANCE_KEY),
                                PROP_ID(PR_PARENT_ENTRYID),
                                PROP_ID(PR_STORE_ENTRYID),
                                PROP_ID(PR_STORE_RECORD_KEY),
                                PROP_ID(PR_MAPPING_SIGNATURE),
                                PROP_ID(PR_OBJECT_TYPE),
                                PROP_ID(PR_HASATTACH),
                                PROP_ID(PR_MESSAGE_SIZE),
                                PROP_ID(PR_MSG_STATUS),
                                PROP_ID(PR_DISPLAY_TO),
                                PROP_ID(PR_DISPLAY_CC),
                                PROP_ID(PR_DISPLAY_BCC),
                                PROP_ID(PR_ACCESS),
                                PROP_ID(PR_ACCESS_LEVEL),
                                PROP_ID(PR_STORE_SUPPORT_MASK),
                                PROP_ID(PR_MDB_PROVIDER),
                                PROP_ID(PR_ROW_TYPE),
                                PROP_ID(PR_NORMALIZED_SUBJECT),
                                PROP_ID(PR_LONGTERM_ENTRYID_FROM_TABLE),
                                PROP_ID(PR_MESSAGE_RECIPIENTS),
                                PROP_ID(PR_MESSAGE_ATTACHMENTS)};

// Shown beside what the bag holds, where they exist.
constexpr PropId kShown[] = {PROP_ID(PR_ENTRYID),
                             PROP_ID(PR_RECORD_KEY),
                             PROP_ID(PR_INSTANCE_KEY),
                             PROP_ID(PR_PARENT_ENTRYID),
                             PROP_ID(PR_STORE_ENTRYID),
                             PROP_ID(PR_STORE_RECORD_KEY),
                             PROP_ID(PR_MAPPING_SIGNATURE),
                             PROP_ID(PR_OBJECT_TYPE),
                             PROP_ID(PR_HASATTACH),
                             PROP_ID(PR_MESSAGE_SIZE),
                             PROP_ID(PR_MSG_STATUS),
                             PROP_ID(PR_MESSAGE_FLAGS),
                             PROP_ID(PR_DISPLAY_TO),
                             PROP_ID(PR_DISPLAY_CC),
                             PROP_ID(PR_DISPLAY_BCC),
                             PROP_ID(PR_ACCESS),
                             PROP_ID(PR_ACCESS_LEVEL),
                             PROP_ID(PR_STORE_SUPPORT_MASK),
                             PROP_ID(PR_MDB_PROVIDER),
                             PROP_ID(PR_NORMALIZED_SUBJECT),
                             PROP_ID(PR_SUBJECT_PREFIX),
                             PROP_ID(PR_CREATION_TIME),
                             PROP_ID(PR_LAST_MODIFICATION_TIME)};

void SetNewSearchKey(CPropertyBag& bag) {
    const GUID key = NewGuid();
    bag.Set(PROP_ID(PR_SEARCH_KEY), PT_BINARY, {reinterpret_cast<const char*>(&key), sizeof key});
}

}  // namespace

bool IsComputedOfMessage(PropId id) {
    // Nothing between the identifiers and the transmittable range below is computed: most are decided here.
    if (id >= 0x6700 || (id >= 0x1000 && id < 0x3400)) return id == PROP_ID(PR_DEPTH);
    return std::find(std::begin(kComputed), std::end(kComputed), id) != std::end(kComputed);
}

// --- making and opening ----------------------------------------------------------------------------

CMessage::CMessage(const std::shared_ptr<CStoreCore>& core, bool writable)
    : CPropInterface(core, writable), m_state(*core) {}

CMessage::~CMessage() {
    if (m_released) m_released(this);
}

CRef<CMessage> CMessage::Create(const std::shared_ptr<CStoreCore>& core, ObjectId folder, bool associated) {
    auto message = CRef<CMessage>::Take(new CMessage(core, true));
    message->m_folder = folder;
    message->m_associated = associated;
    message->m_head.flags = MSGFLAG_READ | MSGFLAG_UNSENT;
    message->FillIn();
    return message;
}

CRef<CMessage> CMessage::Open(const std::shared_ptr<CStoreCore>& core, ObjectId id, bool writable) {
    auto message = CRef<CMessage>::Take(new CMessage(core, writable));
    std::string block;
    Require(core->Storage().ReadMessage(id, message->m_head, block), MAPI_E_NOT_FOUND);
    message->m_folder = FolderOf(id);
    message->m_associated = IsAssociated(id);
    message->m_state.LoadStored(id, std::move(block), message->m_head.recipients != 0,
                                message->m_head.attachments != 0, message->m_head.change);
    return message;
}

CRef<CMessage> CMessage::OpenEmbedded(CAttach& owner, bool create, bool writable) {
    const unsigned depth = owner.Parent().Depth() + 1;
    Require(depth <= kDeepestEmbedding, MAPI_E_TOO_COMPLEX);
    auto message = CRef<CMessage>::Take(new CMessage(owner.SharedCore(), writable));
    message->m_owner = CRef<CAttach>::Share(&owner);
    message->m_depth = depth;
    message->m_head.flags = MSGFLAG_READ | MSGFLAG_UNSENT;
    if (create) {
        message->FillIn();
        return message;
    }
    const auto embedded = owner.Embedded();
    Require(embedded != nullptr, MAPI_E_NOT_FOUND);
    message->m_state.LoadSnapshot(*embedded);
    return message;
}

CRef<CMessage> CMessage::OpenDetached(const std::shared_ptr<CStoreCore>& core,
                                      const MessageSnapshot& snapshot, bool writable, SaveSnapshot save,
                                      std::function<void(IMessage*)> released) {
    auto message = CRef<CMessage>::Take(new CMessage(core, writable));
    message->m_save = std::move(save);
    message->m_released = std::move(released);
    message->m_head.flags = MSGFLAG_READ | MSGFLAG_UNSENT;
    message->m_state.LoadSnapshot(snapshot);
    return message;
}

// What every message has. A caller who removes them gets new ones at the next save.
void CMessage::FillIn() {
    CPropertyBag& bag = m_state.bag;
    if (!bag.Has(PROP_ID(PR_MESSAGE_CLASS))) bag.SetText(PROP_ID(PR_MESSAGE_CLASS), "IPM.Note");
    if (!bag.Has(PROP_ID(PR_SEARCH_KEY))) SetNewSearchKey(bag);
}

void* CMessage::FindInterface(REFIID riid) {
    if (riid == IID_IUnknown || riid == IID_IMAPIProp || riid == IID_IMessage)
        return static_cast<IMessage*>(this);
    if (riid == IID_OwnMessage) return this;
    return nullptr;
}

// --- properties ------------------------------------------------------------------------------------

bool CMessage::FindTime(PropId id, CStoredValue& value) const {
    const bool creation = id == PROP_ID(PR_CREATION_TIME);
    const auto& set = creation ? m_setCreated : m_setModified;
    if (!set && !IsSaved()) return false;
    value.OwnTime(id, set ? *set : creation ? m_head.created : m_head.modified);
    return true;
}

bool CMessage::FindProp(PropId id, CStoredValue& value) {
    switch (id) {
        case PROP_ID(PR_CREATION_TIME):
        case PROP_ID(PR_LAST_MODIFICATION_TIME):
            if (IsEmbedded()) break;
            return FindTime(id, value);
        case PROP_ID(PR_ENTRYID):
        case PROP_ID(PR_RECORD_KEY):
        case PROP_ID(PR_INSTANCE_KEY):
            if (!IsSaved()) return false;
            break;
        case PROP_ID(PR_STORE_ENTRYID):
        case PROP_ID(PR_STORE_RECORD_KEY):
        case PROP_ID(PR_MDB_PROVIDER):
            if (m_save) return false;
            break;
        case PROP_ID(PR_PARENT_ENTRYID): {
            if (IsEmbedded()) return false;
            const StoreEntryId parent = MakeEntryId(Core().Uid(), m_folder);
            value.Own(id, PT_BINARY, &parent, sizeof parent);
            return true;
        }
        case PROP_ID(PR_HASATTACH):
            value.OwnBool(id, m_state.HasAttachments());
            return true;
        case PROP_ID(PR_MESSAGE_FLAGS):
            if (IsEmbedded() && m_state.bag.Find(id, value)) return true;
            value.OwnLong(id, m_head.flags | (m_state.HasAttachments() ? MSGFLAG_HASATTACH : 0) |
                                  (m_associated ? MSGFLAG_ASSOCIATED : 0));
            return true;
        case PROP_ID(PR_ACCESS_LEVEL):
            value.OwnLong(id, IsWritable() ? MAPI_MODIFY : 0);
            return true;
        default:
            break;
    }
    const bool time = id == PROP_ID(PR_CREATION_TIME) || id == PROP_ID(PR_LAST_MODIFICATION_TIME);
    if (!time && IsComputedOfMessage(id) && ComputedOfMessage(Core(), m_head, false, id, value)) return true;
    CPropertyBag& bag = m_state.bag;
    return bag.Find(id, value) ||
           DerivedOfMessage([&bag](PropId wanted, CStoredValue& found) { return bag.Find(wanted, found); },
                            id, value);
}

void CMessage::ListIds(std::vector<PropId>& ids) {
    m_state.bag.ForEach([&ids](const CStoredValue& value) { ids.push_back(value.Id()); });
    CStoredValue value;
    for (const PropId id : kShown)
        if (FindProp(id, value)) ids.push_back(id);
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
}

void CMessage::ListObjects(std::vector<ULONG>& tags) {
    tags.push_back(PR_MESSAGE_RECIPIENTS);
    tags.push_back(PR_MESSAGE_ATTACHMENTS);
}

SCODE CMessage::MaySet(PropId id) const {
    if (id == PROP_ID(PR_MESSAGE_FLAGS)) return IsSaved() ? MAPI_E_COMPUTED : S_OK;
    if (!IsEmbedded() && Core().Habits().IsComputed(id)) return MAPI_E_COMPUTED;
    return IsComputedOfMessage(id) ? MAPI_E_COMPUTED : S_OK;
}

void CMessage::SetStored(PropId id, PropType type, std::string_view bytes) {
    const bool time = id == PROP_ID(PR_CREATION_TIME) || id == PROP_ID(PR_LAST_MODIFICATION_TIME);
    if (!IsEmbedded() && (time || id == PROP_ID(PR_MESSAGE_FLAGS))) {
        CStoredValue value;
        value.View(id, type, bytes);
        if (time && type == PT_SYSTIME)
            (id == PROP_ID(PR_CREATION_TIME) ? m_setCreated : m_setModified) = value.As<std::uint64_t>();
        if (!time && type == PT_LONG) m_head.flags = value.As<std::uint32_t>() & kFlagsBeforeFirstSave;
        m_headChanged = true;
        return;
    }
    if (IsEmbedded() && id == PROP_ID(PR_LAST_MODIFICATION_TIME)) m_setModified = 0;
    m_state.bag.Set(id, type, bytes);
}

void CMessage::RemoveStored(PropId id) {
    if (!IsEmbedded() && id == PROP_ID(PR_CREATION_TIME)) m_setCreated.reset();
    if (!IsEmbedded() && id == PROP_ID(PR_LAST_MODIFICATION_TIME)) m_setModified.reset();
    m_state.bag.Remove(id);
}

void CMessage::OpenObject(ULONG tag, REFIID iid, ULONG, ULONG flags, IUnknown** object) {
    Require(iid == IID_IMAPITable, MAPI_E_INTERFACE_NOT_SUPPORTED);
    IMAPITable* table = nullptr;
    if (PROP_ID(tag) == PROP_ID(PR_MESSAGE_RECIPIENTS))
        OpenRecipientTable(flags & MAPI_UNICODE, &table);
    else if (PROP_ID(tag) == PROP_ID(PR_MESSAGE_ATTACHMENTS))
        OpenAttachmentTable(flags & MAPI_UNICODE, &table);
    else
        throw CStoreError(MAPI_E_NO_SUPPORT);
    *object = table;
}

// --- saving ----------------------------------------------------------------------------------------

void CMessage::Save(ULONG flags) {
    constexpr ULONG known = KEEP_OPEN_READONLY | KEEP_OPEN_READWRITE | FORCE_SAVE | MAPI_DEFERRED_ERRORS;
    Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
    RequireWritable();
    if (IsEmbedded())
        SaveEmbedded();
    else if (!IsSaved() || m_headChanged || m_state.IsChanged())
        SaveTop(flags);
    CloseAfterSave(flags);
}

void CMessage::SaveTop(ULONG flags) {
    FillIn();
    MessageHead head = m_head;
    CMessageState::Written written;
    Core().Save([&] {
        const bool isNew = !IsSaved();
        if (!isNew && (flags & FORCE_SAVE)) TakeOverChanges(head);
        if (isNew) head.id = MakeMessageId(m_folder, m_associated, Core().NextSerial());
        const std::uint64_t now = Core().NextTime();
        if (m_setCreated || isNew) head.created = m_setCreated.value_or(now);
        head.modified = m_setModified.value_or(now);
        head.change = Core().NextChange();
        written = m_state.WriteParts(head.id);
        head.size = written.size;
        head.recipients = written.recipients;
        head.attachments = written.attachments;
        head.hasLarge = written.hasLarge;
        WriteRow(head, written, flags);
        StoreEvent event;
        event.kind = isNew ? fnevObjectCreated : fnevObjectModified;
        event.objectType = MAPI_MESSAGE;
        event.id = head.id;
        event.parent = m_folder;
        Core().Publish(event);
    });
    m_head = head;
    m_state.AfterWrite(head, std::move(written));
    m_headChanged = false;
    m_setCreated.reset();
    m_setModified.reset();
}

// Somebody has saved since this object was opened: what was changed here goes over what lies there now, whole
// property by whole property.
void CMessage::TakeOverChanges(MessageHead& head) {
    std::string block;
    MessageHead present;
    Require(Core().Storage().ReadMessage(head.id, present, block), MAPI_E_OBJECT_DELETED);
    if (present.change == m_head.change) return;
    m_state.LoadBelow(present, std::move(block));
    head = m_head = present;
    FillIn();
}

void CMessage::WriteRow(MessageHead& head, CMessageState::Written& written, ULONG flags) {
    IObjectStorage& storage = Core().Storage();
    if (!IsSaved()) {
        FolderHead folder;
        std::string block;
        Require(storage.ReadFolder(m_folder, folder, block), MAPI_E_OBJECT_DELETED);
        storage.InsertMessage(head, written.small);
        return;
    }
    const bool force = (flags & FORCE_SAVE) != 0;
    const auto expected = force ? std::nullopt : std::optional<std::uint64_t>(m_head.change);
    if (storage.UpdateMessage(head, written.small, expected)) return;
    MessageHead present;
    throw CStoreError(storage.ReadMessageHead(head.id, present) ? MAPI_E_OBJECT_CHANGED
                                                                : MAPI_E_OBJECT_DELETED);
}

// Into the attachment that holds it, whose own SaveChanges and the outer message's follow; a detached
// one to where it came from.
void CMessage::SaveEmbedded() {
    FillIn();
    CPropertyBag& bag = m_state.bag;
    const std::uint64_t now = TicksOf(UtcNow());
    const std::string_view stamp(reinterpret_cast<const char*>(&now), sizeof now);
    if (!bag.Has(PROP_ID(PR_CREATION_TIME))) bag.Set(PROP_ID(PR_CREATION_TIME), PT_SYSTIME, stamp);
    if (!m_setModified) bag.Set(PROP_ID(PR_LAST_MODIFICATION_TIME), PT_SYSTIME, stamp);
    const auto snapshot = m_state.Snapshot(m_depth);
    if (m_owner)
        m_owner->PutEmbedded(snapshot);
    else
        m_save(*snapshot);
    m_state.LoadSnapshot(*snapshot);
    m_setModified.reset();
}

HRESULT CMessage::SubmitMessage(ULONG) {
    return GuardedCall(Core(), [] { return MAPI_E_NO_SUPPORT; });
}

HRESULT CMessage::SetReadFlag(ULONG flags) {
    return GuardedCall(Core(), [&] {
        constexpr ULONG known = SUPPRESS_RECEIPT | CLEAR_READ_FLAG | MAPI_DEFERRED_ERRORS |
                                GENERATE_RECEIPT_ONLY | CLEAR_RN_PENDING | CLEAR_NRN_PENDING;
        Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
        ULONG wanted = m_head.flags | MSGFLAG_READ;
        if (flags & CLEAR_READ_FLAG) wanted &= ~static_cast<ULONG>(MSGFLAG_READ);
        if (IsSaved()) {
            Core().Save([&] {
                Require(Core().Storage().UpdateMessageState(m_head.id, wanted, m_head.status),
                        MAPI_E_OBJECT_DELETED);
                Core().Publish({fnevObjectModified, MAPI_MESSAGE, m_head.id, m_folder, 0, 0});
            });
        }
        m_head.flags = wanted;
        return S_OK;
    });
}
