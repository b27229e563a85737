// The recipients of a message.
#include <MapiWrapper/ExchangeTags.h>
#include <MapiWrapper/MapiTable.h>
#include <MapiWrapper/Message.h>

#include <cstring>

namespace {

enum { kName, kAddrType, kAddress, kType, kEntryId, kRich, kEncoding, kValueCount };

std::unique_ptr<CRecipient> RecipientOfRow(const CMapiRowSet& rows, ULONG row) {
    auto recipient = std::make_unique<CRecipient>();
    recipient->displayName = rows.Cell(row, 0).Text();
    recipient->addressType = rows.Cell(row, 1).Text();
    recipient->emailAddress = rows.Cell(row, 2).Text();
    recipient->entryId.Assign(rows.Cell(row, 3).Binary());
    recipient->recipientType = rows.Cell(row, 4).Long();
    return recipient;
}

// An address list of one entry, freed with the values that stand in it at the end.
class CSingleAddress {
public:
    explicit CSingleAddress(TextForm form) : m_form(form), m_text(form) {}
    ~CSingleAddress() {
        if (m_list) FreePadrlist(m_list);
        if (m_entryId) MAPIFreeBuffer(m_entryId);
    }
    HRESULT Allocate() {
        void* block = nullptr;
        HRESULT hr = MAPIAllocateBuffer(CbNewADRLIST(1), &block);
        if (hr < 0) return hr;
        m_list = static_cast<ADRLIST*>(block);
        std::memset(m_list, 0, CbNewADRLIST(1));
        hr = MAPIAllocateBuffer(kValueCount * sizeof(SPropValue), &block);
        if (hr < 0) return hr;
        std::memset(block, 0, kValueCount * sizeof(SPropValue));
        m_list->cEntries = 1;
        m_list->aEntries[0].cValues = kValueCount;
        m_list->aEntries[0].rgPropVals = static_cast<SPropValue*>(block);
        return S_OK;
    }
    ADRLIST* List() { return m_list; }
    SPropValue& Value(int index) { return m_list->aEntries[0].rgPropVals[index]; }
    void SetText(int index, ULONG tag, const std::string& text) {
        Value(index).ulPropTag = TagForStore(tag, m_form);
        Value(index).Value.lpszA = reinterpret_cast<char*>(m_text.Argument(text));
    }
    HRESULT CreateOneOff(IAddrBook* book, bool sendRich) {
        SPropValue& value = Value(kEntryId);
        value.ulPropTag = PR_ENTRYID;
        const auto text = [this](int i) { return reinterpret_cast<LPTSTR>(Value(i).Value.lpszA); };
        const HRESULT hr = book->CreateOneOff(text(kName), text(kAddrType), text(kAddress),
                                              m_text.Flag() | (sendRich ? 0 : MAPI_SEND_NO_RICH_INFO),
                                              &value.Value.bin.cb, &m_entryId);
        value.Value.bin.lpb = reinterpret_cast<BYTE*>(m_entryId);
        if (!m_entryId) value.Value.bin.cb = 0;
        return hr;
    }
    // Resolving may have put other values in place of ours; only those two are written.
    void ClearSendOptions() {
        const ADRENTRY& entry = m_list->aEntries[0];
        if (!entry.rgPropVals || entry.cValues < kValueCount) return;
        if (Value(kRich).ulPropTag == PR_SEND_RICH_INFO) Value(kRich).Value.b = FALSE;
        if (Value(kEncoding).ulPropTag == PR_SEND_INTERNET_ENCODING) Value(kEncoding).Value.l = 0;
    }

    HRESULT Resolve(IAddrBook* book) { return book->ResolveName(0, m_text.Flag(), nullptr, m_list); }

private:
    TextForm m_form;
    CStoreText m_text;
    ADRLIST* m_list = nullptr;
    ENTRYID* m_entryId = nullptr;
};

}  // namespace

CRecipients IMessagePtr::rawGetRecipients() const {
    CRecipients recipients;
    try {
        IMAPITablePtr table;
        IMessage* raw = NotNull(m_object.Get(), "IMessagePtr::rawGetRecipients");
        THROW_ON_FAILURE_FOR(raw->GetRecipientTable(0, table.Out()), raw);
        table.SetText(Text());
        const CMapiRowSet rows = table.QueryRows(
            {PR_DISPLAY_NAME_A, PR_ADDRTYPE_A, PR_EMAIL_ADDRESS_A, PR_ENTRYID, PR_RECIPIENT_TYPE});
        for (ULONG row = 0; row < rows.Count(); ++row)
            recipients.push_back(RecipientOfRow(rows, row));
    } catch (const CMAPIException& e) {
        throw CMAPIException(e.Hr(), "IMessagePtr::rawGetRecipients", nullptr);
    }
    return recipients;
}

HRESULT IMessagePtr::AddRecipient(IMAPISession* session, const std::string& displayName,
                                  const std::string& address, const std::string& addressType, bool sendRich,
                                  LONG recipientType) {
    if (!session) return static_cast<HRESULT>(MAPI_E_NO_SUPPORT);
    IMessage* raw = NotNull(m_object.Get(), "IMessagePtr::AddRecipient");
    CComPtr<IAddrBook> book;
    HRESULT hr = session->OpenAddressBook(0, nullptr, AB_NO_DIALOG, book.Out());
    if (hr < 0) return hr;
    NotNull(book.Get(), "IMAPISession::OpenAddressBook");
    CSingleAddress entry(Text());
    hr = entry.Allocate();
    if (hr < 0) return hr;
    entry.SetText(kName, PR_DISPLAY_NAME_A, displayName);
    entry.SetText(kAddrType, PR_ADDRTYPE_A, addressType);
    entry.SetText(kAddress, PR_EMAIL_ADDRESS_A, address);
    entry.Value(kType).ulPropTag = PR_RECIPIENT_TYPE;
    entry.Value(kType).Value.l = recipientType;
    entry.Value(kRich).ulPropTag = PR_SEND_RICH_INFO;
    entry.Value(kEncoding).ulPropTag = PR_SEND_INTERNET_ENCODING;
    hr = entry.CreateOneOff(book.Get(), sendRich);
    if (hr < 0) return hr;
    hr = entry.Resolve(book.Get());
    if (hr < 0) return hr;
    entry.ClearSendOptions();
    return raw->ModifyRecipients(MODRECIP_ADD, entry.List());
}
