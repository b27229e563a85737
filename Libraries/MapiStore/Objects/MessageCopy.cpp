// Copying between messages: inside this room in stored form, without decoding a value.
#include <algorithm>

#include <MapiStore/Values/RecipientList.h>
#include "Attach.h"
#include "Message.h"

namespace {

// Which properties a copy takes along.
class CCopyChoice {
public:
    CCopyChoice(const SPropTagArray* exclude, const SPropTagArray* include)
        : m_exclude(exclude), m_include(include) {}
    bool Wants(PropId id) const { return m_include ? NamesId(m_include, id) : !NamesId(m_exclude, id); }

private:
    const SPropTagArray* m_exclude;
    const SPropTagArray* m_include;
};

bool HasNamed(std::string_view block) {
    const CValueBlock view(block);
    return view.Count() > 0 && view.IdAt(view.Count() - 1) >= kFirstNamedId;
}

// A block of another store with its named properties under this one's IDs. Properties without a name
// are dropped: their IDs would mean something else here.
std::string MapBlock(CStoreCore& from, CStoreCore& to, const std::string& block) {
    if (!HasNamed(block)) return block;
    struct Mapped {
        PropId id;
        std::size_t at;
    };
    const CValueBlock view(block);
    std::vector<Mapped> order;
    for (std::size_t i = 0; i < view.Count(); ++i)
        if (const PropId id = MapNamedId(from, to, view.IdAt(i))) order.push_back({id, i});
    std::sort(order.begin(), order.end(), [](const Mapped& a, const Mapped& b) { return a.id < b.id; });
    CValueBlockWriter writer;
    CStoredValue value;
    for (const Mapped& one : order) {
        view.At(one.at, value);
        if (value.IsLarge())
            writer.AddLarge(one.id, value.Type(), value.Size());
        else
            writer.Add(one.id, value.Type(), value.Bytes());
    }
    return writer.Finish();
}

std::string MapRecipients(CStoreCore& from, CStoreCore& to, const std::string& list) {
    std::vector<std::string> blocks;
    for (const auto& block : SplitRecipients(list))
        blocks.push_back(MapBlock(from, to, std::string(block)));
    return JoinRecipients(blocks);
}

// The same attachment under another number.
std::shared_ptr<const AttachmentSnapshot> Renumbered(std::shared_ptr<const AttachmentSnapshot> attachment,
                                                     std::uint32_t number) {
    if (attachment->number == number) return attachment;
    auto copy = std::make_shared<AttachmentSnapshot>(*attachment);
    const std::string_view key(reinterpret_cast<const char*>(&number), sizeof number);
    CPropertyBag bag;
    bag.Load(copy->small);
    bag.SetLong(PROP_ID(PR_ATTACH_NUM), number);
    bag.Set(PROP_ID(PR_RECORD_KEY), PT_BINARY, key);
    bag.Set(PROP_ID(PR_INSTANCE_KEY), PT_BINARY, key);
    copy->small = bag.Build({}).small;
    copy->number = number;
    return copy;
}

}  // namespace

std::shared_ptr<const MessageSnapshot> MapSnapshot(CStoreCore& from, CStoreCore& to,
                                                   std::shared_ptr<const MessageSnapshot> message) {
    if (&from == &to || !message) return message;
    auto mapped = std::make_shared<MessageSnapshot>();
    mapped->small = MapBlock(from, to, message->small);
    mapped->large = MapBlock(from, to, message->large);
    mapped->recipients = MapRecipients(from, to, message->recipients);
    for (const auto& one : message->attachments)
        mapped->attachments.push_back(MapSnapshot(from, to, one));
    return mapped;
}

std::shared_ptr<const AttachmentSnapshot> MapSnapshot(CStoreCore& from, CStoreCore& to,
                                                      std::shared_ptr<const AttachmentSnapshot> attachment) {
    if (&from == &to) return attachment;
    auto mapped = std::make_shared<AttachmentSnapshot>();
    mapped->number = attachment->number;
    mapped->small = MapBlock(from, to, attachment->small);
    mapped->large = MapBlock(from, to, attachment->large);
    mapped->embedded = MapSnapshot(from, to, attachment->embedded);
    return mapped;
}

void CMessage::CopyAll(const SPropTagArray* exclude, const SPropTagArray* include, IUnknown* target,
                       ULONG flags, std::vector<CopyProblem>& problems) {
    Require((flags & MAPI_MOVE) == 0, MAPI_E_NO_SUPPORT);
    CMessage* own = nullptr;
    if (SUCCEEDED(target->QueryInterface(IID_OwnMessage, reinterpret_cast<void**>(&own)))) {
        const auto held = CRef<CMessage>::Take(own);
        const CTwoStoreCall call(Core(), own->Core());
        CopyToOwn(*own, exclude, include, flags, problems);
        return;
    }
    { const CStoreCall counted(Core()); }
    CRef<IMessage> other;
    if (FAILED(target->QueryInterface(IID_IMessage, reinterpret_cast<void**>(other.Out()))))
        throw CStoreError(MAPI_E_INTERFACE_NOT_SUPPORTED);
    CopyAnyMessage(this, other.Get(), exclude, include, flags, problems);
}

void CMessage::CopyToOwn(CMessage& target, const SPropTagArray* exclude, const SPropTagArray* include,
                         ULONG flags, std::vector<CopyProblem>& problems) {
    Require(&target != this && target.IsWritable(), MAPI_E_NO_ACCESS);
    CopyPropsTo(target, exclude, include, flags, problems);
    const CCopyChoice choice(exclude, include);
    CStoreCore& to = target.Core();
    const bool keep = (flags & MAPI_NOREPLACE) != 0;
    if (choice.Wants(PROP_ID(PR_MESSAGE_RECIPIENTS)) && !(keep && !target.m_state.Recipients().empty())) {
        std::vector<std::string> blocks;
        for (const auto& block : m_state.Recipients())
            blocks.push_back(MapBlock(Core(), to, block));
        target.m_state.SetRecipients(std::move(blocks));
    }
    if (choice.Wants(PROP_ID(PR_MESSAGE_ATTACHMENTS)) && m_state.HasAttachments()) {
        for (const AttachmentSlot& slot : m_state.Attachments()) {
            const auto attachment =
                slot.saved ? slot.saved : CMessageState::LoadAttachment(Core(), slot.storedId, m_depth);
            target.PutAttachment(
                Renumbered(MapSnapshot(Core(), to, attachment), target.m_state.NextAttachmentNumber()));
        }
    }
}

void CMessage::CopyPropsTo(CMessage& target, const SPropTagArray* exclude, const SPropTagArray* include,
                           ULONG flags, std::vector<CopyProblem>& problems) {
    const CCopyChoice choice(exclude, include);
    const bool keep = (flags & MAPI_NOREPLACE) != 0;
    for (ULONG i = 0; include && i < include->cValues; ++i) {
        const auto id = static_cast<PropId>(PROP_ID(include->aulPropTag[i]));
        const bool isContained =
            id == PROP_ID(PR_MESSAGE_RECIPIENTS) || id == PROP_ID(PR_MESSAGE_ATTACHMENTS);
        if (!isContained && IsComputedOfMessage(id))
            problems.push_back({include->aulPropTag[i], MAPI_E_COMPUTED});
    }
    m_state.bag.ForEach([&](const CStoredValue& value) {
        const PropId id = value.Id();
        if (!choice.Wants(id) || IsComputedOfMessage(id)) return;
        // The store gives the times; only a caller who names them has them carried.
        const bool time = id == PROP_ID(PR_CREATION_TIME) || id == PROP_ID(PR_LAST_MODIFICATION_TIME);
        if (time && !include) return;
        const PropId mapped = MapNamedId(Core(), target.Core(), id);
        if (mapped == 0) {
            problems.push_back({PROP_TAG(value.Type(), id), MAPI_E_NOT_FOUND});
            return;
        }
        if (keep && target.m_state.bag.Has(mapped)) return;
        CStoredValue large;
        if (!value.IsLarge())
            target.SetStored(mapped, value.Type(), value.Bytes());
        else if (m_state.FindLarge(id, large))
            target.SetStored(mapped, value.Type(), large.Bytes());
        else
            problems.push_back({PROP_TAG(value.Type(), id), MAPI_E_NOT_FOUND});
    });
    if (!IsEmbedded() && include) {
        for (const PropId id : {PROP_ID(PR_CREATION_TIME), PROP_ID(PR_LAST_MODIFICATION_TIME)}) {
            CStoredValue value;
            if (!choice.Wants(id) || !FindTime(id, value)) continue;
            if (const SCODE code = target.MaySet(id); code != S_OK)
                problems.push_back({PROP_TAG(PT_SYSTIME, id), code});
            else
                target.SetStored(id, PT_SYSTIME, value.Bytes());
        }
    }
    if (!target.IsSaved() && choice.Wants(PROP_ID(PR_MESSAGE_FLAGS)) && !keep) {
        CStoredValue value;
        if (FindProp(PROP_ID(PR_MESSAGE_FLAGS), value)) target.SetStored(value.Id(), PT_LONG, value.Bytes());
    }
}
