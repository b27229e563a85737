#include "MessageState.h"

#include <algorithm>

#include <MapiStore/Values/RecipientList.h>
#include <MapiStore/Values/StoreError.h>

namespace {

std::size_t SizeOf(const MessageSnapshot& message);

std::size_t SizeOf(const AttachmentSnapshot& attachment) {
    return attachment.small.size() + attachment.large.size() +
           (attachment.embedded ? SizeOf(*attachment.embedded) : 0);
}

std::size_t SizeOf(const MessageSnapshot& message) {
    std::size_t cb = message.small.size() + message.large.size() + message.recipients.size();
    for (const auto& attachment : message.attachments)
        cb += SizeOf(*attachment);
    return cb;
}

std::size_t SizeOf(const AttachmentSlot& slot) {
    if (slot.saved) return SizeOf(*slot.saved);
    CStoredValue value;
    return CValueBlock(slot.small).Find(PROP_ID(PR_ATTACH_SIZE), value) ? value.As<std::uint32_t>()
                                                                        : slot.small.size();
}

void WriteAttachment(CStoreCore& core, ObjectId owner, const AttachmentSnapshot& attachment);

void WriteEmbedded(CStoreCore& core, ObjectId attachment, const MessageSnapshot& message) {
    IObjectStorage& storage = core.Storage();
    const ObjectId id = MakePartId(core.NextSerial());
    storage.WritePart({id, attachment, kEmbeddedNumber, !message.large.empty()}, message.small);
    if (!message.large.empty()) storage.WriteLarge(id, message.large);
    if (!message.recipients.empty()) storage.WriteRecipients(id, message.recipients);
    for (const auto& one : message.attachments)
        WriteAttachment(core, id, *one);
}

void WriteAttachment(CStoreCore& core, ObjectId owner, const AttachmentSnapshot& attachment) {
    const ObjectId id = MakePartId(core.NextSerial());
    core.Storage().WritePart({id, owner, attachment.number, !attachment.large.empty()}, attachment.small);
    if (!attachment.large.empty()) core.Storage().WriteLarge(id, attachment.large);
    if (attachment.embedded) WriteEmbedded(core, id, *attachment.embedded);
}

}  // namespace

// --- loading ---------------------------------------------------------------------------------------

void CMessageState::LoadStored(ObjectId owner, std::string block, bool mayHaveRecipients,
                               bool mayHaveAttachments, std::uint64_t change) {
    bag.Load(std::move(block));
    m_owner = owner;
    m_change = change;
    m_mayHaveRecipients = mayHaveRecipients;
    m_mayHaveAttachments = mayHaveAttachments;
    m_large.reset();
    m_recipients.reset();
    m_attachments.reset();
    m_removedParts.clear();
    m_recipientsChanged = m_attachmentsChanged = false;
}

void CMessageState::LoadBelow(const MessageHead& head, std::string block) {
    Require(!m_attachmentsChanged, MAPI_E_OBJECT_CHANGED);
    bag.LoadBelow(std::move(block));
    m_change = head.change;
    m_large.reset();
    m_attachments.reset();
    m_mayHaveAttachments = head.attachments != 0;
    if (m_recipientsChanged) return;
    m_recipients.reset();
    m_mayHaveRecipients = head.recipients != 0;
}

void CMessageState::RequireSameVersion() {
    if (m_owner == 0 || m_change == 0) return;
    MessageHead head;
    Require(m_core.Storage().ReadMessageHead(m_owner, head), MAPI_E_OBJECT_DELETED);
    Require(head.change == m_change, MAPI_E_OBJECT_CHANGED);
}

void CMessageState::LoadSnapshot(const MessageSnapshot& snapshot) {
    LoadStored(0, snapshot.small, false, !snapshot.attachments.empty());
    m_large = snapshot.large;
    m_recipients.emplace();
    for (const auto& block : SplitRecipients(snapshot.recipients))
        m_recipients->emplace_back(block);
    m_mayHaveRecipients = !m_recipients->empty();
    m_attachments.emplace();
    for (const auto& one : snapshot.attachments) {
        m_attachments->push_back({one->number, 0, one->small, one});
        m_nextNumber = std::max(m_nextNumber, one->number + 1);
    }
}

const std::string& CMessageState::OldLarge() {
    if (!m_large) {
        RequireSameVersion();
        std::string large;
        if (m_owner) m_core.Storage().ReadLarge(m_owner, large);
        m_large = std::move(large);
    }
    return *m_large;
}

bool CMessageState::FindLarge(PropId id, CStoredValue& value) {
    return CValueBlock(OldLarge()).Find(id, value);
}

bool CMessageState::LoadLarge(PropId id, std::string& bytes) {
    CStoredValue value;
    if (!FindLarge(id, value)) return false;
    bytes.assign(value.Bytes());
    return true;
}

const std::vector<std::string>& CMessageState::Recipients() {
    if (m_recipients) return *m_recipients;
    std::vector<std::string> recipients;
    std::string list;
    if (m_mayHaveRecipients) RequireSameVersion();
    if (m_mayHaveRecipients && m_core.Storage().ReadRecipients(m_owner, list))
        for (const auto& block : SplitRecipients(list))
            recipients.emplace_back(block);
    return m_recipients.emplace(std::move(recipients));
}

void CMessageState::SetRecipients(std::vector<std::string> blocks) {
    if (blocks.empty() && Recipients().empty()) return;
    m_recipients = std::move(blocks);
    m_mayHaveRecipients = true;
    m_recipientsChanged = true;
}

const std::vector<AttachmentSlot>& CMessageState::Attachments() {
    if (m_attachments) return *m_attachments;
    std::vector<AttachmentSlot> attachments;
    if (m_mayHaveAttachments && m_owner) {
        RequireSameVersion();
        m_core.Storage().ScanParts(m_owner, [&](const PartHead& head, std::string_view block) {
            if (head.number == kEmbeddedNumber) return;
            attachments.push_back({head.number, head.id, std::string(block), nullptr});
            m_nextNumber = std::max(m_nextNumber, head.number + 1);
        });
    }
    return m_attachments.emplace(std::move(attachments));
}

std::uint32_t CMessageState::NextAttachmentNumber() {
    Attachments();
    Require(m_nextNumber < kEmbeddedNumber, MAPI_E_NOT_ENOUGH_RESOURCES);
    return m_nextNumber++;
}

void CMessageState::PutAttachment(std::shared_ptr<const AttachmentSnapshot> saved) {
    Attachments();
    m_mayHaveAttachments = m_attachmentsChanged = true;
    m_nextNumber = std::max(m_nextNumber, saved->number + 1);
    for (AttachmentSlot& slot : *m_attachments) {
        if (slot.number != saved->number) continue;
        slot.small = saved->small;
        slot.saved = std::move(saved);
        return;
    }
    m_attachments->push_back({saved->number, 0, saved->small, saved});
}

bool CMessageState::RemoveAttachment(std::uint32_t number) {
    Attachments();
    const auto at = std::find_if(m_attachments->begin(), m_attachments->end(),
                                 [number](const AttachmentSlot& slot) { return slot.number == number; });
    if (at == m_attachments->end()) return false;
    if (at->storedId) m_removedParts.push_back(at->storedId);
    m_attachments->erase(at);
    m_attachmentsChanged = true;
    return true;
}

// --- snapshots -------------------------------------------------------------------------------------

std::shared_ptr<const MessageSnapshot> CMessageState::Snapshot(unsigned depth) {
    auto snapshot = std::make_shared<MessageSnapshot>();
    if (m_recipientsChanged) UpdateDisplayLists();
    const bool largeChanged = bag.LargeChanged();
    auto blocks = bag.Build(largeChanged && bag.KeepsLargeOfBlock() ? std::string_view(OldLarge())
                                                                    : std::string_view());
    snapshot->small = std::move(blocks.small);
    if (blocks.hasLarge) snapshot->large = largeChanged ? std::move(blocks.large) : OldLarge();
    snapshot->recipients = JoinRecipients(Recipients());
    for (const AttachmentSlot& slot : Attachments())
        snapshot->attachments.push_back(slot.saved ? slot.saved
                                                   : LoadAttachment(m_core, slot.storedId, depth));
    return snapshot;
}

std::shared_ptr<const AttachmentSnapshot> CMessageState::LoadAttachment(CStoreCore& core, ObjectId part,
                                                                        unsigned depth) {
    auto snapshot = std::make_shared<AttachmentSnapshot>();
    PartHead head;
    Require(core.Storage().ReadPart(part, head, snapshot->small), MAPI_E_OBJECT_CHANGED);
    snapshot->number = head.number;
    if (head.hasLarge) core.Storage().ReadLarge(part, snapshot->large);
    snapshot->embedded = LoadEmbedded(core, part, depth);
    return snapshot;
}

std::shared_ptr<const MessageSnapshot> CMessageState::LoadEmbedded(CStoreCore& core, ObjectId attachment,
                                                                   unsigned depth) {
    if (depth >= kDeepestEmbedding) return nullptr;
    std::optional<std::pair<PartHead, std::string>> found;
    core.Storage().ScanParts(attachment, [&](const PartHead& head, std::string_view block) {
        if (head.number == kEmbeddedNumber) found.emplace(head, std::string(block));
    });
    if (!found) return nullptr;
    CMessageState state(core);
    state.LoadStored(found->first.id, std::move(found->second), true, true);
    return state.Snapshot(depth + 1);
}

// --- writing ---------------------------------------------------------------------------------------

void CMessageState::UpdateDisplayLists() {
    std::string lists[3];
    for (const auto& block : Recipients()) {
        const CValueBlock recipient(block);
        CStoredValue type, name;
        const std::uint32_t kind =
            recipient.Find(PROP_ID(PR_RECIPIENT_TYPE), type) ? type.As<std::uint32_t>() & 0xF : MAPI_TO;
        if (kind < MAPI_TO || kind > MAPI_BCC || !recipient.Find(PROP_ID(PR_DISPLAY_NAME), name)) continue;
        std::string& list = lists[kind - MAPI_TO];
        if (!list.empty()) list += "; ";
        list += name.Bytes();
    }
    const PropId ids[] = {PROP_ID(PR_DISPLAY_TO), PROP_ID(PR_DISPLAY_CC), PROP_ID(PR_DISPLAY_BCC)};
    for (int i = 0; i < 3; ++i) {
        if (lists[i].empty())
            bag.Remove(ids[i]);
        else
            bag.SetText(ids[i], lists[i]);
    }
}

void CMessageState::WriteAttachments(ObjectId owner) {
    for (const ObjectId part : m_removedParts)
        m_core.Storage().DeletePart(part);
    for (const AttachmentSlot& slot : Attachments()) {
        if (!slot.saved) continue;
        if (slot.storedId) m_core.Storage().DeletePart(slot.storedId);
        WriteAttachment(m_core, owner, *slot.saved);
    }
}

void CMessageState::RewriteBody() {
    CStoredValue body;
    if (!m_core.Habits().Has(HABIT_BODIES_REWRITTEN) || !bag.Find(PROP_ID(PR_BODY), body)) return;
    std::string whole, rewritten;
    if (!body.IsLarge())
        whole = body.Bytes();
    else if (!LoadLarge(PROP_ID(PR_BODY), whole))
        return;
    if (m_core.Habits().RewriteBody(whole, rewritten)) bag.SetText(PROP_ID(PR_BODY), rewritten);
}

CMessageState::Written CMessageState::WriteParts(ObjectId owner) {
    Written written;
    RewriteBody();
    if (m_recipientsChanged) UpdateDisplayLists();
    const bool largeChanged = bag.LargeChanged();
    auto blocks = bag.Build(largeChanged && bag.KeepsLargeOfBlock() ? std::string_view(OldLarge())
                                                                    : std::string_view());
    written.small = std::move(blocks.small);
    written.hasLarge = blocks.hasLarge;
    std::size_t cb = blocks.cb;
    // A message that was read from a snapshot has its large block nowhere yet.
    if (largeChanged)
        m_core.Storage().WriteLarge(owner, blocks.large);
    else if (m_owner == 0 && blocks.hasLarge)
        m_core.Storage().WriteLarge(owner, OldLarge());
    if (m_mayHaveRecipients) {
        written.recipients = static_cast<std::uint32_t>(Recipients().size());
        for (const auto& block : Recipients())
            cb += block.size();
        if (m_recipientsChanged || m_owner == 0)
            m_core.Storage().WriteRecipients(owner, JoinRecipients(Recipients()));
    }
    if (m_mayHaveAttachments) {
        if (m_attachmentsChanged || m_owner == 0) WriteAttachments(owner);
        written.attachments = static_cast<std::uint32_t>(Attachments().size());
        for (const AttachmentSlot& slot : Attachments())
            cb += SizeOf(slot);
    }
    written.size = static_cast<std::uint32_t>(std::min<std::size_t>(cb, 0x7FFFFFFF));
    return written;
}

void CMessageState::AfterWrite(const MessageHead& head, Written written) {
    const std::uint32_t next = m_nextNumber;
    LoadStored(head.id, std::move(written.small), written.recipients != 0, written.attachments != 0,
               head.change);
    m_nextNumber = next;  // numbers of attachments are not given twice while the message is open
}
