#include "Attach.h"

#include <algorithm>

namespace {

constexpr PropId kComputedOfAttachment[] = {PROP_ID(PR_ATTACH_NUM),        PROP_ID(PR_ATTACH_SIZE),
                                            PROP_ID(PR_OBJECT_TYPE),       PROP_ID(PR_RECORD_KEY),
                                            PROP_ID(PR_INSTANCE_KEY),      PROP_ID(PR_ACCESS_LEVEL),
                                            PROP_ID(PR_STORE_ENTRYID),     PROP_ID(PR_STORE_RECORD_KEY),
                                            PROP_ID(PR_MAPPING_SIGNATURE), PROP_ID(PR_STORE_SUPPORT_MASK)};

constexpr PropId kShownOfAttachment[] = {PROP_ID(PR_ATTACH_NUM), PROP_ID(PR_OBJECT_TYPE),
                                         PROP_ID(PR_ACCESS_LEVEL), PROP_ID(PR_STORE_RECORD_KEY),
                                         PROP_ID(PR_MAPPING_SIGNATURE)};

bool IsComputed(PropId id) {
    return std::find(std::begin(kComputedOfAttachment), std::end(kComputedOfAttachment), id) !=
           std::end(kComputedOfAttachment);
}

constexpr PropId kDataId = PROP_ID(PR_ATTACH_DATA_BIN);  // the embedded message has the same ID

}  // namespace

CRef<CAttach> CAttach::Create(CMessage& parent, std::uint32_t number) {
    auto attach = CRef<CAttach>::Take(new CAttach(parent, true));
    attach->m_number = number;
    attach->m_new = true;
    attach->m_embedded.emplace(nullptr);
    attach->m_large.emplace();
    return attach;
}

CRef<CAttach> CAttach::Open(CMessage& parent, const AttachmentSlot& slot, bool writable) {
    auto attach = CRef<CAttach>::Take(new CAttach(parent, writable));
    attach->m_number = slot.number;
    attach->m_bag.Load(slot.small);
    if (slot.saved) {
        attach->m_saved = slot.saved;
        attach->m_embedded = slot.saved->embedded;
    } else {
        attach->m_storedId = slot.storedId;
    }
    return attach;
}

void* CAttach::FindInterface(REFIID riid) {
    if (riid == IID_IUnknown || riid == IID_IMAPIProp || riid == IID_IAttachment)
        return static_cast<IAttach*>(this);
    if (riid == IID_OwnAttach) return this;
    return nullptr;
}

const std::string& CAttach::OldLarge() {
    if (m_saved) return m_saved->large;
    if (!m_large) {
        RequireStored();
        std::string large;
        Core().Storage().ReadLarge(m_storedId, large);
        m_large = std::move(large);
    }
    return *m_large;
}

std::shared_ptr<const MessageSnapshot> CAttach::Embedded() {
    if (!m_embedded) {
        RequireStored();
        m_embedded = CMessageState::LoadEmbedded(Core(), m_storedId, m_parent->Depth());
    }
    return *m_embedded;
}

// What is stored of an attachment never changes; a save of it makes another part.
void CAttach::RequireStored() {
    PartHead head;
    std::string block;
    Require(Core().Storage().ReadPart(m_storedId, head, block), MAPI_E_OBJECT_CHANGED);
}

void CAttach::PutEmbedded(std::shared_ptr<const MessageSnapshot> message) {
    RequireWritable();
    m_embedded = std::move(message);
    m_embeddedChanged = true;
    m_bag.Remove(kDataId);
}

// --- properties ------------------------------------------------------------------------------------

bool CAttach::FindProp(PropId id, CStoredValue& value) {
    switch (id) {
        case PROP_ID(PR_ATTACH_NUM):
            value.OwnLong(id, m_number);
            return true;
        case PROP_ID(PR_OBJECT_TYPE):
            value.OwnLong(id, MAPI_ATTACH);
            return true;
        case PROP_ID(PR_ACCESS_LEVEL):
            value.OwnLong(id, IsWritable() ? MAPI_MODIFY : 0);
            return true;
        case PROP_ID(PR_STORE_RECORD_KEY):
        case PROP_ID(PR_MAPPING_SIGNATURE):
            value.Own(id, PT_BINARY, Core().Uid().bytes.data(), 16);
            return true;
        default:
            return m_bag.Find(id, value);
    }
}

bool CAttach::LoadLarge(PropId id, std::string& bytes) {
    CStoredValue value;
    if (!CValueBlock(OldLarge()).Find(id, value)) return false;
    bytes.assign(value.Bytes());
    return true;
}

void CAttach::ListIds(std::vector<PropId>& ids) {
    m_bag.ForEach([&ids](const CStoredValue& value) { ids.push_back(value.Id()); });
    ids.insert(ids.end(), std::begin(kShownOfAttachment), std::end(kShownOfAttachment));
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
}

void CAttach::ListObjects(std::vector<ULONG>& tags) {
    if (Embedded()) tags.push_back(PR_ATTACH_DATA_OBJ);
}

SCODE CAttach::MaySet(PropId id) const {
    return IsComputed(id) ? MAPI_E_COMPUTED : S_OK;
}

void CAttach::OpenObject(ULONG tag, REFIID iid, ULONG, ULONG flags, IUnknown** object) {
    Require(PROP_ID(tag) == kDataId && (iid == IID_IMessage || iid == IID_IMAPIProp || iid == IID_IUnknown),
            MAPI_E_INTERFACE_NOT_SUPPORTED);
    const bool create = (flags & MAPI_CREATE) != 0;
    const bool writable = IsWritable() && (flags & (MAPI_MODIFY | MAPI_CREATE));
    auto message = CMessage::OpenEmbedded(*this, create, writable);
    *object = message.Detach()->AsUnknown();
}

// --- saving and copying ----------------------------------------------------------------------------

std::shared_ptr<const AttachmentSnapshot> CAttach::Snapshot() {
    auto snapshot = std::make_shared<AttachmentSnapshot>();
    snapshot->number = m_number;
    snapshot->embedded = Embedded();
    m_bag.SetLong(PROP_ID(PR_ATTACH_NUM), m_number);
    m_bag.Set(PROP_ID(PR_RECORD_KEY), PT_BINARY, {reinterpret_cast<const char*>(&m_number), sizeof m_number});
    m_bag.Set(PROP_ID(PR_INSTANCE_KEY), PT_BINARY,
              {reinterpret_cast<const char*>(&m_number), sizeof m_number});
    std::size_t cb = 0;
    m_bag.ForEach([&cb](const CStoredValue& value) {
        if (!IsComputed(value.Id())) cb += value.Size();
    });
    if (snapshot->embedded) cb += snapshot->embedded->small.size() + snapshot->embedded->large.size();
    m_bag.SetLong(PROP_ID(PR_ATTACH_SIZE), static_cast<std::uint32_t>(std::min<std::size_t>(cb, 0x7FFFFFFF)));
    const bool largeChanged = m_bag.LargeChanged();
    auto blocks = m_bag.Build(largeChanged && m_bag.KeepsLargeOfBlock() ? std::string_view(OldLarge())
                                                                        : std::string_view());
    snapshot->small = std::move(blocks.small);
    if (blocks.hasLarge) snapshot->large = largeChanged ? std::move(blocks.large) : OldLarge();
    return snapshot;
}

void CAttach::Save(ULONG flags) {
    constexpr ULONG known = KEEP_OPEN_READONLY | KEEP_OPEN_READWRITE | FORCE_SAVE | MAPI_DEFERRED_ERRORS;
    Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
    RequireWritable();
    if (m_new || m_embeddedChanged || m_bag.IsChanged()) {
        const auto snapshot = Snapshot();
        m_parent->PutAttachment(snapshot);
        m_bag.Load(snapshot->small);
        m_saved = snapshot;
        m_storedId = 0;
        m_new = m_embeddedChanged = false;
    }
    CloseAfterSave(flags);
}

void CAttach::CopyAll(const SPropTagArray* exclude, const SPropTagArray* include, IUnknown* target,
                      ULONG flags, std::vector<CopyProblem>& problems) {
    { const CStoreCall counted(Core()); }
    CRef<IAttach> other;
    if (FAILED(target->QueryInterface(IID_IAttachment, reinterpret_cast<void**>(other.Out()))))
        throw CStoreError(MAPI_E_INTERFACE_NOT_SUPPORTED);
    CopyAnyAttachment(this, other.Get(), exclude, include, flags, problems);
}
