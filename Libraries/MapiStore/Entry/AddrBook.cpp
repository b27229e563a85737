#include "AddrBook.h"

#include <MapiStore/Objects/MsgStore.h>
#include <MapiStore/Values/MapiMemory.h>

namespace {

const std::uint8_t kOneOffUid[16] = MAPI_ONE_OFF_UID;
constexpr std::size_t kHeader = 4 + 16 + 2 + 2;  // flags, UID, version, kind

// Takes a text up to its terminator off the bytes. False if there is none.
bool TakeText(std::string_view& bytes, bool wide, std::string& text) {
    if (!wide) {
        const std::size_t end = bytes.find('\0');
        if (end == std::string_view::npos) return false;
        text = Utf8FromNarrow(bytes.substr(0, end));
        bytes.remove_prefix(end + 1);
        return true;
    }
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        if (bytes[i] || bytes[i + 1]) continue;
        text = Utf8FromUtf16Bytes(bytes.substr(0, i));
        bytes.remove_prefix(i + 2);
        return true;
    }
    return false;
}

class COneOffUser : public CPlainObject<IMailUser> {
protected:
    void* FindInterface(REFIID riid) override {
        const bool known = riid == IID_IUnknown || riid == IID_IMAPIProp || riid == IID_IMailUser;
        return known ? static_cast<IMailUser*>(this) : nullptr;
    }
};

std::string TextIn(const ADRENTRY& entry, ULONG id) {
    for (ULONG i = 0; i < entry.cValues; ++i) {
        const SPropValue& value = entry.rgPropVals[i];
        if (PROP_ID(value.ulPropTag) != id) continue;
        if (PROP_TYPE(value.ulPropTag) == PT_STRING8 && value.Value.lpszA)
            return Utf8FromNarrow(value.Value.lpszA);
        if (PROP_TYPE(value.ulPropTag) == PT_UNICODE && value.Value.lpszW)
            return Utf8FromWide(value.Value.lpszW);
    }
    return {};
}

bool IsResolved(const ADRENTRY& entry) {
    for (ULONG i = 0; i < entry.cValues; ++i)
        if (entry.rgPropVals[i].ulPropTag == PR_ENTRYID && entry.rgPropVals[i].Value.bin.cb) return true;
    return false;
}

// What a row can be addressed by: its address, or a display name that is one ("SMTP:a@b", "a@b").
bool AddressOf(const ADRENTRY& entry, OneOff& one) {
    one.name = TextIn(entry, PROP_ID(PR_DISPLAY_NAME));
    one.address = TextIn(entry, PROP_ID(PR_EMAIL_ADDRESS));
    one.type = TextIn(entry, PROP_ID(PR_ADDRTYPE));
    if (one.address.empty()) {
        const std::size_t colon = one.name.find(':');
        if (colon != std::string::npos && colon > 0 && colon + 1 < one.name.size()) {
            one.type = one.name.substr(0, colon);
            one.address = one.name.substr(colon + 1);
        } else if (one.name.find('@') != std::string::npos) {
            one.address = one.name;
        }
    }
    if (one.type.empty()) one.type = "SMTP";
    if (one.name.empty()) one.name = one.address;
    return !one.address.empty();
}

// The row again with what it lacked, in one new block: what an address list's rows must be.
void ReplaceProps(ADRENTRY& entry, const OneOff& one) {
    const std::string id = MakeOneOff(one);
    std::vector<SPropValue> values;
    for (ULONG i = 0; i < entry.cValues; ++i) {
        const ULONG prop = PROP_ID(entry.rgPropVals[i].ulPropTag);
        const bool replaced = prop == PROP_ID(PR_ENTRYID) || prop == PROP_ID(PR_EMAIL_ADDRESS) ||
                              prop == PROP_ID(PR_ADDRTYPE) || prop == PROP_ID(PR_OBJECT_TYPE);
        if (!replaced && PROP_TYPE(entry.rgPropVals[i].ulPropTag) != PT_ERROR)
            values.push_back(entry.rgPropVals[i]);
    }
    SPropValue value{};
    value.ulPropTag = PR_ENTRYID;
    value.Value.bin = {static_cast<ULONG>(id.size()), reinterpret_cast<LPBYTE>(const_cast<char*>(id.data()))};
    values.push_back(value);
    const std::string type = NarrowFromUtf8(one.type), address = NarrowFromUtf8(one.address);
    value.ulPropTag = PR_ADDRTYPE_A;
    value.Value.lpszA = const_cast<char*>(type.c_str());
    values.push_back(value);
    value.ulPropTag = PR_EMAIL_ADDRESS_A;
    value.Value.lpszA = const_cast<char*>(address.c_str());
    values.push_back(value);
    value.ulPropTag = PR_OBJECT_TYPE;
    value.Value.l = MAPI_MAILUSER;
    values.push_back(value);
    SPropValue* copy = nullptr;
    const SCODE code =
        ScDupPropset(static_cast<int>(values.size()), values.data(), MAPIAllocateBuffer, &copy);
    if (code != S_OK) throw CStoreError(code);
    MAPIFreeBuffer(entry.rgPropVals);
    entry.rgPropVals = copy;
    entry.cValues = static_cast<ULONG>(values.size());
}

}  // namespace

std::string MakeOneOff(const OneOff& one) {
    std::string id(4, '\0');
    id.append(reinterpret_cast<const char*>(kOneOffUid), sizeof kOneOffUid);
    const std::uint16_t kind = MAPI_ONE_OFF_UNICODE | (one.rich ? 0 : MAPI_ONE_OFF_NO_RICH_INFO);
    id.append(2, '\0');
    id.append(reinterpret_cast<const char*>(&kind), sizeof kind);
    for (const auto* text : {&one.name, &one.type, &one.address})
        id += Utf16BytesFromUtf8(*text) + std::string(2, '\0');
    return id;
}

bool ParseOneOff(ULONG cb, const ENTRYID* bytes, OneOff& one) {
    const auto* raw = reinterpret_cast<const char*>(bytes);
    if (!bytes || cb < kHeader || std::memcmp(raw + 4, kOneOffUid, sizeof kOneOffUid) != 0) return false;
    std::uint16_t kind = 0;
    std::memcpy(&kind, raw + kHeader - sizeof kind, sizeof kind);
    std::string_view rest(raw + kHeader, cb - kHeader);
    const bool wide = (kind & MAPI_ONE_OFF_UNICODE) != 0;
    one.rich = (kind & MAPI_ONE_OFF_NO_RICH_INFO) == 0;
    return TakeText(rest, wide, one.name) && TakeText(rest, wide, one.type) &&
           TakeText(rest, wide, one.address);
}

IUnknown* OpenOneOff(ULONG cb, const ENTRYID* bytes, const IID* iid) {
    OneOff one;
    Require(ParseOneOff(cb, bytes, one), MAPI_E_UNKNOWN_ENTRYID);
    auto user = CRef<COneOffUser>::Take(new COneOffUser);
    CPropertyBag& bag = user->Bag();
    const std::uint16_t rich = one.rich;
    bag.SetText(PROP_ID(PR_DISPLAY_NAME), one.name);
    bag.SetText(PROP_ID(PR_ADDRTYPE), one.type);
    bag.SetText(PROP_ID(PR_EMAIL_ADDRESS), one.address);
    bag.SetLong(PROP_ID(PR_OBJECT_TYPE), MAPI_MAILUSER);
    bag.SetLong(PROP_ID(PR_DISPLAY_TYPE), DT_MAILUSER);
    bag.Set(PROP_ID(PR_SEND_RICH_INFO), PT_BOOLEAN, {reinterpret_cast<const char*>(&rich), sizeof rich});
    bag.Set(PROP_ID(PR_ENTRYID), PT_BINARY, {reinterpret_cast<const char*>(bytes), cb});
    void* object = nullptr;
    const HRESULT hr = user->QueryInterface(iid ? *iid : IID_IMailUser, &object);
    if (FAILED(hr)) throw CStoreError(hr);
    return static_cast<IUnknown*>(object);
}

void* CAddrBook::FindInterface(REFIID riid) {
    const bool known = riid == IID_IUnknown || riid == IID_IMAPIProp || riid == IID_IAddrBook;
    return known ? static_cast<IAddrBook*>(this) : nullptr;
}

HRESULT CAddrBook::OpenEntry(ULONG cb, LPENTRYID id, LPCIID iid, ULONG, ULONG* type, LPUNKNOWN* object) {
    return GuardedCall([&] {
        Require(object, MAPI_E_INVALID_PARAMETER);
        *object = nullptr;
        *object = OpenOneOff(cb, id, iid);
        if (type) *type = MAPI_MAILUSER;
        return S_OK;
    });
}

HRESULT CAddrBook::CompareEntryIDs(ULONG cb1, LPENTRYID id1, ULONG cb2, LPENTRYID id2, ULONG, ULONG* result) {
    return GuardedCall([&] {
        Require(result, MAPI_E_INVALID_PARAMETER);
        *result = SameEntry(cb1, id1, cb2, id2);
        return S_OK;
    });
}

HRESULT CAddrBook::CreateOneOff(LPTSTR name, LPTSTR type, LPTSTR address, ULONG flags, ULONG* cb,
                                LPENTRYID* id) {
    return GuardedCall([&] {
        Require(cb && id && type && address, MAPI_E_INVALID_PARAMETER);
        *cb = 0;
        *id = nullptr;
        Require((flags & ~static_cast<ULONG>(MAPI_UNICODE | MAPI_SEND_NO_RICH_INFO)) == 0,
                MAPI_E_UNKNOWN_FLAGS);
        OneOff one{Utf8FromArgument(name, flags), Utf8FromArgument(type, flags),
                   Utf8FromArgument(address, flags), (flags & MAPI_SEND_NO_RICH_INFO) == 0};
        if (one.name.empty()) one.name = one.address;
        const std::string made = MakeOneOff(one);
        void* block = nullptr;
        Require(AllocateRoot(made.size(), &block) == S_OK, MAPI_E_NOT_ENOUGH_MEMORY);
        std::memcpy(block, made.data(), made.size());
        *cb = static_cast<ULONG>(made.size());
        *id = static_cast<LPENTRYID>(block);
        return S_OK;
    });
}

HRESULT CAddrBook::ResolveName(ULONG_PTR, ULONG, LPTSTR, LPADRLIST list) {
    return GuardedCall([&] {
        Require(list, MAPI_E_INVALID_PARAMETER);
        bool unresolved = false;
        for (ULONG i = 0; i < list->cEntries; ++i) {
            ADRENTRY& entry = list->aEntries[i];
            OneOff one;
            if (IsResolved(entry)) continue;
            if (AddressOf(entry, one))
                ReplaceProps(entry, one);
            else
                unresolved = true;
        }
        return unresolved ? MAPI_E_NOT_FOUND : S_OK;
    });
}
