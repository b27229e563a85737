#include <MapiWrapper/TagArray.h>
#include <Tarn/Engine/SameContents.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {
constexpr int kDeepest = 20;
constexpr ULONG cbPortion = 65536;

// What differs between two stores, or between two saves.
constexpr ULONG kOfThePlace[] = {PR_ENTRYID,
                                 PR_RECORD_KEY,
                                 PR_INSTANCE_KEY,
                                 PR_PARENT_ENTRYID,
                                 PR_STORE_ENTRYID,
                                 PR_STORE_RECORD_KEY,
                                 PR_MAPPING_SIGNATURE,
                                 PR_MDB_PROVIDER,
                                 PR_STORE_SUPPORT_MASK,
                                 PR_SEARCH_KEY,
                                 PR_CREATION_TIME,
                                 PR_LAST_MODIFICATION_TIME,
                                 PR_MESSAGE_SIZE,
                                 PR_ATTACH_SIZE,
                                 PR_ATTACH_NUM,
                                 PR_ACCESS,
                                 PR_ACCESS_LEVEL,
                                 PR_MSG_STATUS,
                                 PR_OBJECT_TYPE,
                                 PROP_TAG(PT_BINARY, 0x65E2),   // change key
                                 PROP_TAG(PT_BINARY, 0x65E3)};  // list of change keys

template <size_t n>
bool Lists(const ULONG (&tags)[n], ULONG tag) {
    return std::any_of(std::begin(tags), std::end(tags),
                       [tag](ULONG listed) { return PROP_ID(listed) == PROP_ID(tag); });
}

// What MAPIAllocateBuffer has given.
struct CFreeBuffer {
    void operator()(void* buffer) const { MAPIFreeBuffer(buffer); }
};
template <class T>
using BufferOf = std::unique_ptr<T, CFreeBuffer>;

// ---- which properties there are -------------------------------------------------------------------

// Tags by what they mean in any store.
using Tags = std::map<std::string, ULONG>;

std::string TextOf(const MAPINAMEID& name) {
    std::string text(reinterpret_cast<const char*>(name.lpguid), name.lpguid ? sizeof *name.lpguid : 0);
    if (name.ulKind == MNID_ID) return text + "#" + std::to_string(name.Kind.lID);
    for (const WCHAR* letter = name.Kind.lpwstrName; letter && *letter; ++letter)
        text += " " + std::to_string(static_cast<unsigned>(*letter));
    return text;
}

bool IsLeftOut(const MAPINAMEID& name) {
    if (name.ulKind == MNID_ID || !name.Kind.lpwstrName) return false;
    return std::wstring_view(name.Kind.lpwstrName).substr(0, 5) == L"Larch";
}

// False where a name is not to be had.
bool AddNamed(IMAPIProp* object, const std::vector<ULONG>& named, Tags& found) {
    if (named.empty()) return true;
    CTagArray ids(named);
    SPropTagArray* asked = ids.Get();
    ULONG count = 0;
    MAPINAMEID** names = nullptr;
    THROW_ON_FAILURE_FOR(object->GetNamesFromIDs(&asked, nullptr, 0, &count, &names), object);
    const BufferOf<MAPINAMEID*> owner(names);
    for (ULONG i = 0; i < count; ++i) {
        if (!names[i]) return false;
        if (!IsLeftOut(*names[i])) found.emplace(TextOf(*names[i]), named[i]);
    }
    return count == named.size();
}

bool CollectTags(IMAPIProp* object, Tags& found) {
    constexpr ULONG firstNamed = 0x8000;
    SPropTagArray* tags = nullptr;
    THROW_ON_FAILURE_FOR(object->GetPropList(MAPI_UNICODE, &tags), object);
    const BufferOf<SPropTagArray> owner(tags);
    std::vector<ULONG> named;
    for (ULONG i = 0; i < tags->cValues; ++i) {
        const ULONG tag = tags->aulPropTag[i];
        if (PROP_TYPE(tag) == PT_OBJECT || Lists(kOfThePlace, tag)) continue;
        if (PROP_ID(tag) >= firstNamed)
            named.push_back(tag);
        else
            found.emplace(std::to_string(PROP_ID(tag)), tag);
    }
    return AddNamed(object, named, found);
}

// ---- values ---------------------------------------------------------------------------------------

CComPtr<IStream> StreamOf(const CGenMapiPropPtr& object, ULONG tag) {
    CComPtr<IStream> stream;
    THROW_ON_FAILURE_FOR(object.OpenStream(tag, 0, 0, stream), object.RawProp());
    return stream;
}

bool SameStreams(const CGenMapiPropPtr& a, ULONG tagA, const CGenMapiPropPtr& b, ULONG tagB) {
    const CComPtr<IStream> first = StreamOf(a, tagA), second = StreamOf(b, tagB);
    std::vector<char> ours(cbPortion), theirs(cbPortion);
    for (;;) {
        ULONG cbOurs = 0, cbTheirs = 0;
        THROW_ON_FAILURE_FOR(first->Read(ours.data(), cbPortion, &cbOurs), a.RawProp());
        THROW_ON_FAILURE_FOR(second->Read(theirs.data(), cbPortion, &cbTheirs), b.RawProp());
        if (cbOurs != cbTheirs || std::memcmp(ours.data(), theirs.data(), cbOurs) != 0) return false;
        if (cbOurs == 0) return true;
    }
}

// Appends; texts and bytes with their lengths. False for a type whose values cannot be compared here.
bool AddBytes(std::string& bytes, const void* data, size_t cb) {
    bytes.append(std::to_string(cb)).append(":");
    bytes.append(static_cast<const char*>(data ? data : ""), data ? cb : 0);
    return true;
}
bool AddBytes(std::string& bytes, const char* text) {
    return AddBytes(bytes, text, text ? std::strlen(text) : 0);
}
bool AddBytes(std::string& bytes, const WCHAR* text) {
    return AddBytes(bytes, text, (text ? std::wcslen(text) : 0) * sizeof *text);
}
bool AddBytes(std::string& bytes, const SBinary& value) {
    return AddBytes(bytes, value.lpb, value.cb);
}
bool AddBytes(std::string& bytes, const FILETIME& value) {
    return AddBytes(bytes, &value, sizeof value);
}
bool AddBytes(std::string& bytes, LONG value) {
    return AddBytes(bytes, &value, sizeof value);
}
template <class T>
bool AddAll(std::string& bytes, const T* values, ULONG count) {
    for (ULONG i = 0; i < count; ++i)
        AddBytes(bytes, values[i]);
    return true;
}

bool AddValue(std::string& bytes, const SPropValue& value) {
    const auto& of = value.Value;
    switch (PROP_TYPE(value.ulPropTag)) {
        case PT_I2:
        case PT_BOOLEAN:
            return AddBytes(bytes, &of, 2);
        case PT_LONG:
        case PT_R4:
            return AddBytes(bytes, &of, 4);
        case PT_DOUBLE:
        case PT_APPTIME:
        case PT_CURRENCY:
        case PT_I8:
        case PT_SYSTIME:
            return AddBytes(bytes, &of, 8);
        case PT_STRING8:
            return AddBytes(bytes, of.lpszA);
        case PT_UNICODE:
            return AddBytes(bytes, of.lpszW);
        case PT_BINARY:
            return AddBytes(bytes, of.bin);
        case PT_CLSID:
            return AddBytes(bytes, of.lpguid, sizeof(GUID));
        case PT_MV_LONG:
            return AddAll(bytes, of.MVl.lpl, of.MVl.cValues);
        case PT_MV_STRING8:
            return AddAll(bytes, of.MVszA.lppszA, of.MVszA.cValues);
        case PT_MV_UNICODE:
            return AddAll(bytes, of.MVszW.lppszW, of.MVszW.cValues);
        case PT_MV_BINARY:
            return AddAll(bytes, of.MVbin.lpbin, of.MVbin.cValues);
        case PT_MV_SYSTIME:
            return AddAll(bytes, of.MVft.lpft, of.MVft.cValues);
        default:
            return false;
    }
}

bool SameValue(const CMapiPropValue& a, const CMapiPropValue& b) {
    if (a.IsNull() || b.IsNull() || a.Type() != b.Type()) return false;
    if (a.IsError()) return a.Get()->Value.err == MAPI_E_NOT_FOUND && b.Get()->Value.err == MAPI_E_NOT_FOUND;
    std::string ours, theirs;
    return AddValue(ours, *a.Get()) && AddValue(theirs, *b.Get()) && ours == theirs;
}

bool IsTooLong(const CMapiPropValue& value) {
    return value.IsError() && !value.IsNull() && value.Get()->Value.err == MAPI_E_NOT_ENOUGH_MEMORY;
}

bool SameValues(const CGenMapiPropPtr& a, const CGenMapiPropPtr& b, const std::vector<ULONG>& tagsA,
                const std::vector<ULONG>& tagsB) {
    CMapiPropValues ours, theirs;
    a.GetProps(ours, tagsA);
    b.GetProps(theirs, tagsB);
    for (ULONG i = 0; i < tagsA.size(); ++i) {
        const bool same = IsTooLong(ours[i]) && IsTooLong(theirs[i]) ? SameStreams(a, tagsA[i], b, tagsB[i])
                                                                     : SameValue(ours[i], theirs[i]);
        if (!same) return false;
    }
    return true;
}

bool SameProperties(const CGenMapiPropPtr& a, const CGenMapiPropPtr& b) {
    Tags ours, theirs;
    if (!CollectTags(a.RawProp(), ours) || !CollectTags(b.RawProp(), theirs)) return false;
    if (ours.size() != theirs.size()) return false;
    std::vector<ULONG> tagsA, tagsB;
    for (auto own = ours.begin(), other = theirs.begin(); own != ours.end(); ++own, ++other) {
        if (own->first != other->first) return false;
        tagsA.push_back(own->second);
        tagsB.push_back(other->second);
    }
    return tagsA.empty() || SameValues(a, b, tagsA, tagsB);
}

// ---- what hangs on an item ------------------------------------------------------------------------

bool SameItems(const IMessagePtr& a, const IMessagePtr& b, int depth);

CMapiRowSet RowsOf(HRESULT hr, const IMAPITablePtr& table, const std::vector<ULONG>& columns,
                   const IMessagePtr& message) {
    THROW_ON_FAILURE_FOR(hr, message.RawProp());
    return table.QueryRows(columns);
}

bool SameRecipients(const IMessagePtr& a, const IMessagePtr& b) {
    const std::vector<ULONG> columns = {PR_RECIPIENT_TYPE, PR_DISPLAY_NAME, PR_ADDRTYPE, PR_EMAIL_ADDRESS};
    const auto rowsOf = [&](const IMessagePtr& message) {
        IMAPITablePtr table;
        const HRESULT hr = message->GetRecipientTable(MAPI_UNICODE, table.Out());
        return RowsOf(hr, table, columns, message);
    };
    const CMapiRowSet ours = rowsOf(a), theirs = rowsOf(b);
    if (ours.Count() != theirs.Count()) return false;
    for (ULONG row = 0; row < ours.Count(); ++row)
        for (ULONG column = 0; column < columns.size(); ++column)
            if (!SameValue(ours.Cell(row, column), theirs.Cell(row, column))) return false;
    return true;
}

bool SameAttachment(const IMessagePtr& a, LONG numberA, const IMessagePtr& b, LONG numberB, int depth) {
    IAttachPtr ours, theirs;
    THROW_ON_FAILURE_FOR(a->OpenAttach(static_cast<ULONG>(numberA), nullptr, 0, ours.Out()), a.RawProp());
    THROW_ON_FAILURE_FOR(b->OpenAttach(static_cast<ULONG>(numberB), nullptr, 0, theirs.Out()), b.RawProp());
    if (!SameProperties(ours, theirs)) return false;
    if (ours.GetLongPropOr0(PR_ATTACH_METHOD) != ATTACH_EMBEDDED_MSG)
        return ours.GetLongPropOr0(PR_ATTACH_METHOD) != ATTACH_OLE;
    const auto inner = [](const IAttachPtr& attachment) {
        IMessagePtr message;
        THROW_ON_FAILURE_FOR(attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0,
                                                      reinterpret_cast<IUnknown**>(message.Out())),
                             attachment.RawProp());
        return message;
    };
    return SameItems(inner(ours), inner(theirs), depth + 1);
}

bool SameAttachments(const IMessagePtr& a, const IMessagePtr& b, int depth) {
    const auto rowsOf = [](const IMessagePtr& message) {
        IMAPITablePtr table;
        const HRESULT hr = message->GetAttachmentTable(0, table.Out());
        return RowsOf(hr, table, {PR_ATTACH_NUM}, message);
    };
    const CMapiRowSet ours = rowsOf(a), theirs = rowsOf(b);
    if (ours.Count() != theirs.Count()) return false;
    for (ULONG row = 0; row < ours.Count(); ++row)
        if (!SameAttachment(a, ours.Cell(row, 0).Long(), b, theirs.Cell(row, 0).Long(), depth)) return false;
    return true;
}

bool SameItems(const IMessagePtr& a, const IMessagePtr& b, int depth) {
    return depth < kDeepest && SameProperties(a, b) && SameRecipients(a, b) && SameAttachments(a, b, depth);
}
}  // namespace

bool HaveSameContents(const IMessagePtr& a, const IMessagePtr& b) {
    return SameItems(a, b, 0);
}

bool HaveSameValues(const IMessagePtr& a, const std::vector<ULONG>& tagsOfA, const IMessagePtr& b,
                    const std::vector<ULONG>& tagsOfB) {
    return tagsOfA.empty() || SameValues(a, b, tagsOfA, tagsOfB);
}
