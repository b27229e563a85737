#include <MapiWrapper/HexText.h>
#include <Tarn/Engine/MessageCache.h>
#include <Tarn/Engine/SyncIdentity.h>

#include <utility>
#include <vector>

namespace {
enum FillCell : ULONG {
    CELL_ENTRYID,
    CELL_DISPLAY_NAME,
    CELL_SUBJECT,
    CELL_BODY,
    CELL_SYNC_ID,
    CELL_CLASS,
    CELL_BCC,
    CELL_CC,
    CELL_TO,
    CELL_HASATTACH,
    CELL_IMPORTANCE,
    CELL_SENDER_NAME,
    CELL_SENDER_ADDRTYPE,
    CELL_SENDER_ADDRESS,
};

std::vector<ULONG> FillTags(ULONG syncIdTag) {
    return {PR_ENTRYID,
            PR_DISPLAY_NAME_A,
            PR_SUBJECT_A,
            PR_BODY_A,
            syncIdTag,
            PR_MESSAGE_CLASS_A,
            PR_DISPLAY_BCC_A,
            PR_DISPLAY_CC_A,
            PR_DISPLAY_TO_A,
            PR_HASATTACH,
            PR_IMPORTANCE,
            PR_SENDER_NAME_A,
            PR_SENDER_ADDRTYPE_A,
            PR_SENDER_EMAIL_ADDRESS_A};
}

ULONG SyncIdTagOf(const CGenMapiPropPtr& object) {
    return object.GetIDFromName(PS_PUBLIC_STRINGS, SyncIdName().c_str(), PT_STRING8, MAPI_CREATE);
}

bool TakeText(const CMapiPropValues& values, ULONG cell, ULONG tag, std::string& out) {
    const CMapiPropValue value = values[cell];
    if (value.Tag() != tag) return false;
    out = value.Str();
    return true;
}

bool EqualCachedValues(const SPropValue& a, const SPropValue& b) {
    if (PROP_TYPE(a.ulPropTag) != PROP_TYPE(b.ulPropTag)) return false;
    switch (PROP_TYPE(a.ulPropTag)) {
        case PT_LONG:
        case PT_BOOLEAN:
        case PT_STRING8:
        case PT_SYSTIME:
            return EqualPropValues(a, b);
        default:
            return true;
    }
}
}  // namespace

void CMessageCacheEntry::Fill() {
    if (m_syncIdTag == 0) m_syncIdTag = SyncIdTagOf(m_message);
    CMapiPropValues values;
    if (m_message.GetPropsHr(0, values, FillTags(m_syncIdTag)) < 0) return;

    // Candidates count as unlinked: matches over the cache are decided by contents, and the cell held
    // against the sync ID's tag is that of the class, which never has it.
    TakeText(values, CELL_CLASS, m_syncIdTag, m_syncId);
    TakeText(values, CELL_CLASS, PR_MESSAGE_CLASS_A, m_class);
    TakeText(values, CELL_BCC, PR_DISPLAY_BCC_A, m_bcc);
    TakeText(values, CELL_CC, PR_DISPLAY_CC_A, m_cc);
    TakeText(values, CELL_TO, PR_DISPLAY_TO_A, m_to);
    TakeText(values, CELL_SENDER_NAME, PR_SENDER_NAME_A, m_senderName);
    TakeText(values, CELL_SENDER_ADDRTYPE, PR_SENDER_ADDRTYPE_A, m_senderAddrType);
    TakeText(values, CELL_SENDER_ADDRESS, PR_SENDER_EMAIL_ADDRESS_A, m_senderAddress);
    m_hasAttach = values[CELL_HASATTACH].Long();
    m_importance = values[CELL_IMPORTANCE].Long();

    if (!TakeText(values, CELL_DISPLAY_NAME, PR_DISPLAY_NAME_A, m_name) &&
        !TakeText(values, CELL_SUBJECT, PR_SUBJECT_A, m_name))
        m_name = m_message.GetTitle();
    if (!TakeText(values, CELL_BODY, PR_BODY_A, m_body)) m_body = m_message.GetBody();
    m_key = HexFromBinary(values[CELL_ENTRYID].Binary());
}

const SPropValue* CMessageCacheEntry::GetNamedValues(const PropCompareEntry* list) {
    if (m_tagList == list) return m_values.Get();
    m_tagList = list;
    m_values.Free();

    CNamedTags names;
    for (const PropCompareEntry* entry = list; entry->tag != PropCompareEnd; ++entry)
        if (entry->tag == 0) names.Add(entry->id, entry->type, *entry->set);
    if (names.Count() != 0) names.Resolve(m_message, 0);

    std::vector<ULONG> tags;
    size_t named = 0;
    for (const PropCompareEntry* entry = list; entry->tag != PropCompareEnd; ++entry) {
        const ULONG tag = entry->tag != 0 ? entry->tag : names.Tag(named++);
        // A name that the store does not know still takes its place in the row of values.
        tags.push_back(tag != 0 ? tag : PR_NULL);
    }
    if (m_message.GetPropsHr(0, m_values, tags) < 0) m_values.Free();
    return m_values.Get();
}

void CMessageCache::Bind(const IMAPIFolderPtr& folder) {
    m_folder = folder;
    m_syncIdTag = SyncIdTagOf(m_folder);
}

CMessageCacheEntry* CMessageCache::Lookup(const SBinary& entryId) {
    if (CMessageCacheEntry* found = Find(HexFromBinary(entryId))) return found;

    auto entry = std::make_unique<CMessageCacheEntry>();
    try {
        entry->m_message = m_folder.OpenEntryv(entryId, MAPI_BEST_ACCESS).As<IMessagePtr>();
    } catch (const CMAPIException&) {
        return nullptr;
    }
    if (!entry->m_message) return nullptr;
    entry->m_syncIdTag = m_syncIdTag;
    entry->Fill();
    CMessageCacheEntry* added = entry.get();
    Add(std::move(entry));
    return added;
}

CMessageCacheEntry* CMessageCache::Find(const std::string& key) const {
    for (int i = 0; i < m_used; ++i)
        if (m_slots[i] && m_slots[i]->m_key == key) return m_slots[i].get();
    return nullptr;
}

void CMessageCache::Add(std::unique_ptr<CMessageCacheEntry> entry) {
    m_slots[m_next] = std::move(entry);
    m_next = (m_next + 1) % Capacity;
    // Compared after the wrap: m_used stops at 19 and the last slot stays out of sight.
    if (m_used < m_next) m_used = m_next;
}

void CMessageCache::Remove(const std::string& key) noexcept {
    for (int i = 0; i < m_used; ++i)
        if (m_slots[i] && m_slots[i]->m_key == key) {
            m_slots[i].reset();
            return;
        }
}

void CMessageCache::Clear() {
    for (auto& slot : m_slots)
        slot.reset();
    m_next = 0;
}

int CompareScalarFields(const CMessageCacheEntry& a, const CMessageCacheEntry& b) {
    return a.m_class == b.m_class && a.m_bcc == b.m_bcc && a.m_cc == b.m_cc && a.m_to == b.m_to &&
           a.m_hasAttach == b.m_hasAttach && a.m_importance == b.m_importance &&
           a.m_senderName == b.m_senderName && a.m_senderAddrType == b.m_senderAddrType &&
           a.m_senderAddress == b.m_senderAddress;
}

int CompareCachedNamed(CMessageCacheEntry& a, const PropCompareEntry* list, CMessageCacheEntry& b) {
    const SPropValue* first = a.GetNamedValues(list);
    const SPropValue* second = b.GetNamedValues(list);
    if (!first || !second || a.ValueCount() != b.ValueCount()) return 0;
    for (ULONG i = 0; i < a.ValueCount(); ++i)
        if (!EqualCachedValues(first[i], second[i])) return 0;
    return 0;
}
