// Recipients and attachments of a message.
#include <algorithm>

#include <MapiStore/Tables/Tables.h>
#include "Attach.h"
#include "Message.h"

namespace {

const std::vector<ULONG> kRecipientColumns = {
    PR_ROWID,      PR_DISPLAY_NAME, PR_ENTRYID,      PR_RECIPIENT_TYPE, PR_ADDRTYPE,      PR_EMAIL_ADDRESS,
    PR_SEARCH_KEY, PR_OBJECT_TYPE,  PR_DISPLAY_TYPE, PR_INSTANCE_KEY,   PR_SEND_RICH_INFO};

const std::vector<ULONG> kAttachmentColumns = {
    PR_ATTACH_NUM,           PR_INSTANCE_KEY, PR_RECORD_KEY,         PR_ATTACH_METHOD, PR_ATTACH_FILENAME,
    PR_ATTACH_LONG_FILENAME, PR_ATTACH_SIZE,  PR_RENDERING_POSITION, PR_DISPLAY_NAME};

std::uint32_t RowIdOf(const std::string& block) {
    CStoredValue value;
    return CValueBlock(block).Find(PROP_ID(PR_ROWID), value) ? value.As<std::uint32_t>() : 0;
}

const SPropValue* FindIn(const ADRENTRY& entry, ULONG id) {
    for (ULONG i = 0; i < entry.cValues; ++i)
        if (PROP_ID(entry.rgPropVals[i].ulPropTag) == id) return &entry.rgPropVals[i];
    return nullptr;
}

// "SMTP:SOMEBODY@EXAMPLE.ORG", as address books form the search keys of recipients.
std::string SearchKeyOf(const CPropertyBag& bag) {
    CStoredValue type, address;
    if (!bag.Find(PROP_ID(PR_ADDRTYPE), type) || !bag.Find(PROP_ID(PR_EMAIL_ADDRESS), address)) return {};
    std::string key = std::string(type.Bytes()) + ":" + std::string(address.Bytes());
    for (char& c : key)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    key += '\0';
    return key;
}

std::string RecipientBlock(const ADRENTRY& entry, std::uint32_t rowId) {
    Require(entry.cValues == 0 || entry.rgPropVals, MAPI_E_INVALID_PARAMETER);
    CPropertyBag bag;
    for (ULONG i = 0; i < entry.cValues; ++i) {
        std::string bytes;
        PropType type = 0;
        if (AppendStored(entry.rgPropVals[i], bytes, type))
            bag.Set(static_cast<PropId>(PROP_ID(entry.rgPropVals[i].ulPropTag)), type, bytes);
    }
    bag.SetLong(PROP_ID(PR_ROWID), rowId);
    bag.Set(PROP_ID(PR_INSTANCE_KEY), PT_BINARY, {reinterpret_cast<const char*>(&rowId), sizeof rowId});
    if (!bag.Has(PROP_ID(PR_RECIPIENT_TYPE))) bag.SetLong(PROP_ID(PR_RECIPIENT_TYPE), MAPI_TO);
    if (!bag.Has(PROP_ID(PR_OBJECT_TYPE))) bag.SetLong(PROP_ID(PR_OBJECT_TYPE), MAPI_MAILUSER);
    if (!bag.Has(PROP_ID(PR_DISPLAY_TYPE))) bag.SetLong(PROP_ID(PR_DISPLAY_TYPE), DT_MAILUSER);
    if (!bag.Has(PROP_ID(PR_SEARCH_KEY))) {
        const std::string key = SearchKeyOf(bag);
        if (!key.empty()) bag.Set(PROP_ID(PR_SEARCH_KEY), PT_BINARY, key);
    }
    // Recipients lie together in one list: no value of theirs is kept elsewhere.
    CValueBlockWriter writer;
    bag.ForEach(
        [&writer](const CStoredValue& value) { writer.Add(value.Id(), value.Type(), value.Bytes()); });
    return writer.Finish();
}

class CRecipientChange {
public:
    explicit CRecipientChange(std::vector<std::string> blocks) : m_blocks(std::move(blocks)) {
        for (const auto& block : m_blocks)
            m_next = std::max(m_next, RowIdOf(block) + 1);
    }
    void Add(const ADRENTRY& entry) { m_blocks.push_back(RecipientBlock(entry, m_next++)); }
    void Modify(const ADRENTRY& entry) {
        std::string& block = *Find(entry);
        block = RecipientBlock(entry, RowIdOf(block));
    }
    void Remove(const ADRENTRY& entry) { m_blocks.erase(Find(entry)); }
    std::vector<std::string> Take() { return std::move(m_blocks); }

private:
    std::vector<std::string>::iterator Find(const ADRENTRY& entry) {
        const SPropValue* row = FindIn(entry, PROP_ID(PR_ROWID));
        Require(row && PROP_TYPE(row->ulPropTag) == PT_LONG, MAPI_E_INVALID_PARAMETER);
        const auto wanted = static_cast<std::uint32_t>(row->Value.l);
        const auto found = std::find_if(m_blocks.begin(), m_blocks.end(), [wanted](const std::string& block) {
            return RowIdOf(block) == wanted;
        });
        Require(found != m_blocks.end(), MAPI_E_NOT_FOUND);
        return found;
    }
    std::vector<std::string> m_blocks;
    std::uint32_t m_next = 0;
};

}  // namespace

// --- recipients ------------------------------------------------------------------------------------

void CMessage::OpenRecipientTable(ULONG flags, IMAPITable** table) {
    OpenRowsTable(SharedCore(), m_state.Recipients(), kRecipientColumns, flags, table);
}

HRESULT CMessage::GetRecipientTable(ULONG flags, LPMAPITABLE* table) {
    return GuardedCall(Core(), [&] {
        Require(table, MAPI_E_INVALID_PARAMETER);
        *table = nullptr;
        Require((flags & ~static_cast<ULONG>(MAPI_UNICODE | MAPI_DEFERRED_ERRORS)) == 0,
                MAPI_E_UNKNOWN_FLAGS);
        OpenRecipientTable(flags & MAPI_UNICODE, table);
        return S_OK;
    });
}

HRESULT CMessage::ModifyRecipients(ULONG flags, LPADRLIST mods) {
    return GuardedCall(Core(), [&] {
        Require(mods, MAPI_E_INVALID_PARAMETER);
        Require(flags == 0 || flags == MODRECIP_ADD || flags == MODRECIP_MODIFY || flags == MODRECIP_REMOVE,
                MAPI_E_UNKNOWN_FLAGS);
        RequireWritable();
        CRecipientChange change(flags == 0 ? std::vector<std::string>() : m_state.Recipients());
        for (ULONG i = 0; i < mods->cEntries; ++i) {
            if (flags == MODRECIP_MODIFY)
                change.Modify(mods->aEntries[i]);
            else if (flags == MODRECIP_REMOVE)
                change.Remove(mods->aEntries[i]);
            else
                change.Add(mods->aEntries[i]);
        }
        m_state.SetRecipients(change.Take());
        return S_OK;
    });
}

// --- attachments -----------------------------------------------------------------------------------

void CMessage::OpenAttachmentTable(ULONG flags, IMAPITable** table) {
    std::vector<std::string> rows;
    for (const AttachmentSlot& slot : m_state.Attachments())
        rows.push_back(slot.small);
    OpenRowsTable(SharedCore(), std::move(rows), kAttachmentColumns, flags, table);
}

HRESULT CMessage::GetAttachmentTable(ULONG flags, LPMAPITABLE* table) {
    return GuardedCall(Core(), [&] {
        Require(table, MAPI_E_INVALID_PARAMETER);
        *table = nullptr;
        Require((flags & ~static_cast<ULONG>(MAPI_UNICODE | MAPI_DEFERRED_ERRORS)) == 0,
                MAPI_E_UNKNOWN_FLAGS);
        OpenAttachmentTable(flags & MAPI_UNICODE, table);
        return S_OK;
    });
}

HRESULT CMessage::OpenAttach(ULONG number, LPCIID iid, ULONG flags, LPATTACH* attach) {
    return GuardedCall(Core(), [&] {
        Require(attach, MAPI_E_INVALID_PARAMETER);
        *attach = nullptr;
        Require(!iid || *iid == IID_IAttachment || *iid == IID_IMAPIProp || *iid == IID_IUnknown,
                MAPI_E_INTERFACE_NOT_SUPPORTED);
        constexpr ULONG known = MAPI_MODIFY | MAPI_BEST_ACCESS | MAPI_DEFERRED_ERRORS;
        Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
        if (flags & MAPI_MODIFY) RequireWritable();
        const bool writable = IsWritable() && (flags & (MAPI_MODIFY | MAPI_BEST_ACCESS));
        for (const AttachmentSlot& slot : m_state.Attachments()) {
            if (slot.number != number) continue;
            *attach = CAttach::Open(*this, slot, writable).Detach();
            return S_OK;
        }
        return MAPI_E_NOT_FOUND;
    });
}

HRESULT CMessage::CreateAttach(LPCIID iid, ULONG flags, ULONG* number, LPATTACH* attach) {
    return GuardedCall(Core(), [&] {
        Require(number && attach, MAPI_E_INVALID_PARAMETER);
        *attach = nullptr;
        Require(!iid || *iid == IID_IAttachment || *iid == IID_IMAPIProp || *iid == IID_IUnknown,
                MAPI_E_INTERFACE_NOT_SUPPORTED);
        Require((flags & ~static_cast<ULONG>(MAPI_DEFERRED_ERRORS)) == 0, MAPI_E_UNKNOWN_FLAGS);
        RequireWritable();
        *number = m_state.NextAttachmentNumber();
        *attach = CAttach::Create(*this, *number).Detach();
        return S_OK;
    });
}

HRESULT CMessage::DeleteAttach(ULONG number, ULONG, LPMAPIPROGRESS, ULONG) {
    return GuardedCall(Core(), [&] {
        RequireWritable();
        return m_state.RemoveAttachment(number) ? S_OK : MAPI_E_NOT_FOUND;
    });
}
