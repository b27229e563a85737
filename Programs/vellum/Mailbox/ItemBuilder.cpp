#include <Programs/vellum/Mailbox/ItemBuilder.h>

#include <MapiWrapper/MapiWrapper_std.h>
#include <Programs/vellum/Console/Utf8.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t cbInline = 16 * 1024;
constexpr std::size_t cbGathered = 512 * 1024;
constexpr ULONG firstInternalId = 0x67F0;  // rows of the file's own tables
constexpr ULONG lastInternalId = 0x67FF;

// What the store computes or gives itself, and numbers that mean nothing outside the file.
constexpr ULONG ownedByStore[] = {PROP_ID(PR_ENTRYID),
                                  PROP_ID(PR_PARENT_ENTRYID),
                                  PROP_ID(PR_STORE_ENTRYID),
                                  PROP_ID(PR_RECORD_KEY),
                                  PROP_ID(PR_STORE_RECORD_KEY),
                                  PROP_ID(PR_MAPPING_SIGNATURE),
                                  PROP_ID(PR_OBJECT_TYPE),
                                  PROP_ID(PR_ACCESS),
                                  PROP_ID(PR_ACCESS_LEVEL),
                                  PROP_ID(PR_MESSAGE_SIZE),
                                  PROP_ID(PR_HASATTACH),
                                  PROP_ID(PR_DISPLAY_TO),
                                  PROP_ID(PR_DISPLAY_CC),
                                  PROP_ID(PR_DISPLAY_BCC),
                                  PROP_ID(PR_MESSAGE_RECIPIENTS),
                                  PROP_ID(PR_MESSAGE_ATTACHMENTS),
                                  PROP_ID(PR_NORMALIZED_SUBJECT),
                                  PROP_ID(PR_INSTANCE_KEY),
                                  PROP_ID(PR_ATTACH_NUM),
                                  PROP_ID(PR_ATTACH_SIZE),
                                  PROP_ID(PR_RTF_IN_SYNC),
                                  PROP_ID(PR_SUBMIT_FLAGS),
                                  PROP_ID(PR_STORE_SUPPORT_MASK),
                                  PROP_ID(PR_MDB_PROVIDER)};
// Of a recipient, only the row's own bookkeeping stays behind.
constexpr ULONG ownedByTable[] = {PROP_ID(PR_ROWID), PROP_ID(PR_INSTANCE_KEY), PROP_ID(PR_RECORD_KEY)};

bool IsInternal(ULONG id) {
    return id >= firstInternalId && id <= lastInternalId;
}

template <std::size_t N>
bool Contains(const ULONG (&ids)[N], ULONG id) {
    return std::find(std::begin(ids), std::end(ids), id) != std::end(ids);
}

// Mailbox files put two control characters before a subject, which tell the length of its prefix.
void DropSubjectMark(CMailboxEvent& event) {
    const std::size_t width = PROP_TYPE(event.tag) == PT_UNICODE ? 2 : 1;
    if (event.bytes.size() < 2 * width || event.bytes[0] != 1) return;
    event.bytes.erase(0, 2 * width);
}

}  // namespace

ULONG CNameCache::IdOf(IMAPIProp* object, const CMailboxName& name) {
    const auto known = m_ids.find(name);
    if (known != m_ids.end()) return known->second;
    GUID set;
    std::memcpy(&set, name.set.data(), sizeof(set));
    std::wstring text = WideFromUtf8(name.text);
    MAPINAMEID id{};
    id.lpguid = &set;
    id.ulKind = name.byText ? MNID_STRING : MNID_ID;
    if (name.byText)
        id.Kind.lpwstrName = text.data();
    else
        id.Kind.lID = static_cast<LONG>(name.number);
    MAPINAMEID* asked = &id;
    SPropTagArray* tags = nullptr;
    const HRESULT hr = object->GetIDsFromNames(1, &asked, MAPI_CREATE, &tags);
    const bool found = hr >= 0 && tags && tags->cValues == 1 && PROP_TYPE(tags->aulPropTag[0]) != PT_ERROR;
    const ULONG result = found ? PROP_ID(tags->aulPropTag[0]) << 16 : 0;
    MAPIFreeBuffer(tags);
    m_ids[name] = result;
    return result;
}

CItemBuilder::CItemBuilder(const IMAPIFolderPtr& folder, CNameCache& names) : m_names(names) {
    m_levels.push_back(std::make_unique<Level>());
    m_levels.back()->message = folder.CreateMessage(nullptr, 0);
}

IMAPIProp* CItemBuilder::Object() const {
    const Level& level = *m_levels.back();
    return level.message ? level.message.RawProp() : level.attachment.RawProp();
}

CPropertyBatch& CItemBuilder::Batch() {
    Level& level = *m_levels.back();
    return m_inRecipient && !level.recipients.empty() ? *level.recipients.back() : level.properties;
}

void CItemBuilder::Take(const CMailboxEvent& event) {
    switch (event.kind) {
        case MailboxEventKind::Property:
            return TakeProperty(event);
        case MailboxEventKind::PropertyData:
            return WriteStream(event);
        case MailboxEventKind::RecipientBegin:
            m_levels.back()->recipients.push_back(std::make_unique<CPropertyBatch>());
            m_inRecipient = true;
            return;
        case MailboxEventKind::RecipientEnd:
            m_inRecipient = false;
            return;
        case MailboxEventKind::AttachmentBegin:
            return BeginAttachment();
        case MailboxEventKind::AttachmentEnd:
            return EndAttachment();
        case MailboxEventKind::EmbeddedBegin:
            return BeginEmbedded();
        case MailboxEventKind::EmbeddedEnd:
            return EndEmbedded();
        default:
            return;
    }
}

void CItemBuilder::TakeProperty(const CMailboxEvent& given) {
    CMailboxEvent event = given;
    m_stream.Free();
    m_dropStream = true;
    ULONG tag = event.tag;
    const ULONG type = PROP_TYPE(tag);
    if (event.isNamed) {
        const ULONG id = m_names.IdOf(m_levels.front()->message.RawProp(), event.name);
        if (id == 0) return;
        tag = id | type;
    } else {
        const ULONG id = PROP_ID(tag);
        if (IsInternal(id) || (m_inRecipient ? Contains(ownedByTable, id) : Contains(ownedByStore, id)))
            return;
        if (id == PROP_ID(PR_SUBJECT)) DropSubjectMark(event);
    }
    const bool isLong = event.more || event.bytes.size() > cbInline;
    if (isLong && !m_inRecipient && (type == PT_BINARY || type == PT_UNICODE || type == PT_STRING8)) {
        FlushProperties();
        BeginStream(tag);
        return WriteStream(event);
    }
    if (event.more) return;
    CPropertyBatch& batch = Batch();
    batch.Add(tag, event);
    if (tag == PR_ATTACH_DATA_BIN) m_levels.back()->hasData = true;
    if (m_levels.size() == 1 && !m_inRecipient && PROP_ID(tag) == PROP_ID(PR_SUBJECT))
        m_subject = batch.TextOrEmpty(PROP_ID(PR_SUBJECT));
    if (!m_inRecipient && batch.CbMemory() > cbGathered) FlushProperties();
}

void CItemBuilder::BeginStream(ULONG tag) {
    THROW_ON_FAILURE_FOR(Object()->OpenProperty(tag, &IID_IStream, STGM_READWRITE, MAPI_CREATE | MAPI_MODIFY,
                                                m_stream.OutUnknown()),
                         Object());
    if (tag == PR_ATTACH_DATA_BIN) m_levels.back()->hasData = true;
    m_dropStream = false;
}

void CItemBuilder::WriteStream(const CMailboxEvent& event) {
    if (m_dropStream || !m_stream) return;
    if (!event.bytes.empty())
        THROW_ON_FAILURE(
            WriteAll(m_stream.Get(), event.bytes.data(), static_cast<ULONG>(event.bytes.size())));
    if (event.more) return;
    THROW_ON_FAILURE(m_stream->Commit(STGC_DEFAULT));
    m_stream.Free();
}

void CItemBuilder::FlushProperties() {
    CPropertyBatch& batch = m_levels.back()->properties;
    if (batch.Count() == 0) return;
    // Single values that the store computes itself come back as problems, not as a failure.
    CStoreText given(m_levels.front()->message.Text());
    THROW_ON_FAILURE_FOR(
        Object()->SetProps(batch.Count(), given.Values(batch.Values(), batch.Count()), nullptr), Object());
    batch.Clear();
}

void CItemBuilder::FlushRecipients() {
    Level& level = *m_levels.back();
    if (level.recipients.empty()) return;
    std::vector<ULONGLONG> memory((CbNewADRLIST(level.recipients.size()) + sizeof(ULONGLONG)) /
                                  sizeof(ULONGLONG));
    auto* list = reinterpret_cast<ADRLIST*>(memory.data());
    for (const auto& recipient : level.recipients) {
        if (!recipient->Has(PROP_ID(PR_RECIPIENT_TYPE))) recipient->AddLong(PR_RECIPIENT_TYPE, MAPI_TO);
        ADRENTRY& entry = list->aEntries[list->cEntries++];
        entry.cValues = recipient->Count();
        entry.rgPropVals = recipient->Values();
    }
    CStoreText given(level.message.Text());
    THROW_ON_FAILURE_FOR(level.message->ModifyRecipients(MODRECIP_ADD, given.Addresses(list)),
                         level.message.RawProp());
    level.recipients.clear();
}

void CItemBuilder::BeginAttachment() {
    Level& parent = *m_levels.back();
    if (!parent.message) return;
    auto level = std::make_unique<Level>();
    ULONG number = 0;
    THROW_ON_FAILURE_FOR(parent.message->CreateAttach(nullptr, 0, &number, level->attachment.Out()),
                         parent.message.RawProp());
    m_levels.push_back(std::move(level));
}

void CItemBuilder::EndAttachment() {
    Level& level = *m_levels.back();
    if (level.message) return;
    if (level.hasData && !level.properties.Has(PROP_ID(PR_ATTACH_METHOD)) &&
        level.attachment.GetLongPropOr0(PR_ATTACH_METHOD) == 0)
        level.properties.AddLong(PR_ATTACH_METHOD, ATTACH_BY_VALUE);
    FlushProperties();
    level.attachment.SaveChanges(0);
    m_levels.pop_back();
}

void CItemBuilder::BeginEmbedded() {
    if (m_levels.back()->message) return;
    m_levels.back()->properties.AddLong(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG);
    FlushProperties();
    LPUNKNOWN object = nullptr;
    THROW_ON_FAILURE_FOR(
        Object()->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY, &object),
        Object());
    auto level = std::make_unique<Level>();
    level->message.Attach(static_cast<IMessage*>(object));
    m_levels.push_back(std::move(level));
}

void CItemBuilder::EndEmbedded() {
    if (m_levels.size() < 2 || !m_levels.back()->message) return;
    FlushProperties();
    FlushRecipients();
    m_levels.back()->message.SaveChanges(0);
    m_levels.pop_back();
}

void CItemBuilder::Save() {
    FlushProperties();
    FlushRecipients();
    m_levels.front()->message.SaveChanges(0);
}
