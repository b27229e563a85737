#include <MapiWrapper/MapiWrapper_std.h>
#include <Programs/vellum/Items/PropertyReport.h>

#include <Platform/Clock.h>
#include <Programs/vellum/Console/Utf8.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>

namespace {

constexpr ULONG cbReadPortion = 64 * 1024;
constexpr std::size_t cbBinaryLimit = 64 * 1024;
constexpr std::size_t cbTextLimit = 32 * 1024 * 1024;
constexpr ULONG firstNamedId = 0x8000;

struct CKnownSet {
    GUID guid;
    const char* name;
};
const CKnownSet knownSets[] = {
    {{0x00020329, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}, "PS_PUBLIC_STRINGS"},
    {{0x00020386, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}, "PS_INTERNET_HEADERS"},
    {{0x00062002, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}, "PSETID_Appointment"},
    {{0x00062003, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}, "PSETID_Task"},
    {{0x00062004, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}, "PSETID_Address"},
    {{0x00062008, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}, "PSETID_Common"},
    {{0x0006200A, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}, "PSETID_Log"},
    {{0x0006200E, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}, "PSETID_Note"},
    {{0x6ED8DA90, 0x450B, 0x101B, {0x98, 0xDA, 0, 0xAA, 0, 0x3F, 0x13, 0x05}}, "PSETID_Meeting"},
};

std::string HexNumber(ULONG value, int digits) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%0*X", digits, static_cast<unsigned>(value));
    return text;
}

Json TimeToJson(const FILETIME& time) {
    SYSTEMTIME parts;
    if (!SplitFileTime(time, parts))
        return HexNumber(time.dwHighDateTime, 8) + HexNumber(time.dwLowDateTime, 8);
    char text[64];
    std::snprintf(text, sizeof(text), "%04u-%02u-%02uT%02u:%02u:%02u.%07uZ", parts.wYear, parts.wMonth,
                  parts.wDay, parts.wHour, parts.wMinute, parts.wSecond,
                  static_cast<unsigned>(TicksOf(time) % 10000000));
    return text;
}

Json CurrencyToJson(LONGLONG value) {
    char text[48];
    const bool negative = value < 0;
    const auto magnitude = negative ? 0 - static_cast<ULONGLONG>(value) : static_cast<ULONGLONG>(value);
    std::snprintf(text, sizeof(text), "%s%llu.%04llu", negative ? "-" : "",
                  static_cast<unsigned long long>(magnitude / 10000),
                  static_cast<unsigned long long>(magnitude % 10000));
    return text;
}

Json GuidToJson(const GUID& guid) {
    return "{" + GuidToText(guid) + "}";
}

template <class T, class F>
Json ArrayOf(ULONG count, const T* values, F convert) {
    Json array = Json::array();
    for (ULONG i = 0; values && i < count; ++i)
        array.push_back(convert(values[i]));
    return array;
}

Json WideToJson(const WCHAR* text) {
    return text ? Json(Utf8FromWide(text)) : Json("");
}

Json NarrowToJson(const char* text) {
    return text ? Json(Utf8FromNarrow(text)) : Json("");
}

Json MultiValueToJson(const SPropValue& value) {
    const auto& v = value.Value;
    switch (PROP_TYPE(value.ulPropTag)) {
        case PT_MV_I2:
            return ArrayOf(v.MVi.cValues, v.MVi.lpi, [](short x) { return Json(x); });
        case PT_MV_LONG:
            return ArrayOf(v.MVl.cValues, v.MVl.lpl, [](LONG x) { return Json(x); });
        case PT_MV_R4:
            return ArrayOf(v.MVflt.cValues, v.MVflt.lpflt, [](float x) { return Json(x); });
        case PT_MV_DOUBLE:
            return ArrayOf(v.MVdbl.cValues, v.MVdbl.lpdbl, [](double x) { return Json(x); });
        case PT_MV_APPTIME:
            return ArrayOf(v.MVat.cValues, v.MVat.lpat, [](double x) { return Json(x); });
        case PT_MV_CURRENCY:
            return ArrayOf(v.MVcur.cValues, v.MVcur.lpcur,
                           [](const CURRENCY& x) { return CurrencyToJson(x.int64); });
        case PT_MV_I8:
            return ArrayOf(v.MVli.cValues, v.MVli.lpli,
                           [](const LARGE_INTEGER& x) { return Json(x.QuadPart); });
        case PT_MV_SYSTIME:
            return ArrayOf(v.MVft.cValues, v.MVft.lpft, TimeToJson);
        case PT_MV_STRING8:
            return ArrayOf(v.MVszA.cValues, v.MVszA.lppszA, NarrowToJson);
        case PT_MV_UNICODE:
            return ArrayOf(v.MVszW.cValues, v.MVszW.lppszW, WideToJson);
        case PT_MV_BINARY:
            return ArrayOf(v.MVbin.cValues, v.MVbin.lpbin, HexFromBinary);
        case PT_MV_CLSID:
            return ArrayOf(v.MVguid.cValues, v.MVguid.lpguid, GuidToJson);
        default:
            return nullptr;
    }
}

// What is too large for a report is told by its size and a number that changes with its contents.
void AddDigest(Json& entry, const std::string& bytes) {
    std::uint64_t hash = 0xcbf29ce484222325ull;
    for (const char byte : bytes)
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3ull;
    char text[32];
    std::snprintf(text, sizeof(text), "fnv1a:%016llx", static_cast<unsigned long long>(hash));
    entry["size"] = bytes.size();
    entry["digest"] = text;
}

// A value that does not come with GetProps because of its size.
bool ReadAsStream(const IMAPIPropPtr& object, ULONG tag, Json& entry) {
    std::string bytes;
    if (PROP_TYPE(tag) == PT_STRING8) {
        if (object.ReadTextStream(tag, 0, 0, bytes) < 0) return false;
        if (bytes.size() <= cbTextLimit) {
            entry["value"] = Utf8FromNarrow(bytes);
            return true;
        }
    } else {
        CComPtr<IStream> stream;
        if (object.OpenStream(tag, 0, 0, stream) < 0 || ReadToEnd(stream.Get(), bytes, cbReadPortion) < 0)
            return false;
        if (PROP_TYPE(tag) == PT_BINARY && bytes.size() <= cbBinaryLimit) {
            entry["value"] =
                HexFromBinary({static_cast<ULONG>(bytes.size()), reinterpret_cast<BYTE*>(bytes.data())});
            return true;
        }
    }
    AddDigest(entry, bytes);
    return true;
}

class CNames {
public:
    CNames(IMAPIProp* object, const std::vector<ULONG>& tags);
    void Describe(ULONG tag, Json& entry) const;

private:
    void Add(ULONG tag, const MAPINAMEID& name);
    std::map<ULONG, Json> m_named;  // by property identifier
};

CNames::CNames(IMAPIProp* object, const std::vector<ULONG>& tags) {
    std::vector<ULONG> named;
    for (const ULONG tag : tags)
        if (PROP_ID(tag) >= firstNamedId) named.push_back(tag);
    if (named.empty() || !object) return;
    CTagArray array(named);
    SPropTagArray* asked = array.Get();
    ULONG count = 0;
    MAPINAMEID** names = nullptr;
    if (object->GetNamesFromIDs(&asked, nullptr, 0, &count, &names) < 0) return;
    for (ULONG i = 0; i < count && i < named.size(); ++i)
        if (names[i]) Add(named[i], *names[i]);
    MAPIFreeBuffer(names);
}

void CNames::Add(ULONG tag, const MAPINAMEID& name) {
    Json entry = Json::object();
    if (name.ulKind == MNID_STRING)
        entry["name"] = WideToJson(name.Kind.lpwstrName);
    else
        entry["id"] = HexNumber(static_cast<ULONG>(name.Kind.lID), 4);
    if (name.lpguid) entry["set"] = PropertySetName(*name.lpguid);
    m_named[PROP_ID(tag)] = std::move(entry);
}

void CNames::Describe(ULONG tag, Json& entry) const {
    const auto found = m_named.find(PROP_ID(tag));
    if (found != m_named.end()) {
        entry = found->second;
        return;
    }
    std::string name = NameFromTag(tag);
    for (const char* suffix : {"_A", "_W"})
        if (name.size() > 2 && name.ends_with(suffix)) name.resize(name.size() - 2);
    if (name.starts_with("PR_")) entry["name"] = name;
    entry["tag"] = HexNumber(PROP_ID(tag), 4);
}

// Unnamed properties first, by number; then by set and name, which two stores have in common.
std::string SortKey(const Json& entry) {
    if (!entry.contains("set")) return "0" + entry.value("tag", "");
    return "1" + entry.value("set", "") + " " + entry.value("id", "") + " " + entry.value("name", "");
}

Json Sorted(std::vector<Json>& entries) {
    std::stable_sort(entries.begin(), entries.end(),
                     [](const Json& a, const Json& b) { return SortKey(a) < SortKey(b); });
    Json array = Json::array();
    for (Json& entry : entries)
        array.push_back(std::move(entry));
    return array;
}

void PutValue(const SPropValue& value, ULONG tag, const IMAPIPropPtr& object, Json& entry) {
    entry["type"] = TypeName(tag);
    const bool isError = PROP_TYPE(value.ulPropTag) == PT_ERROR;
    if (isError && value.Value.err == MAPI_E_NOT_ENOUGH_MEMORY && object && ReadAsStream(object, tag, entry))
        return;
    if (isError)
        entry["error"] = ErrorName(value.Value.err);
    else if (PROP_TYPE(tag) == PT_BINARY && value.Value.bin.cb > cbBinaryLimit)
        AddDigest(entry, std::string(reinterpret_cast<char*>(value.Value.bin.lpb), value.Value.bin.cb));
    else
        entry["value"] = ValueToJson(value);
}

}  // namespace

std::string PropertySetName(const GUID& set) {
    for (const CKnownSet& known : knownSets)
        if (std::memcmp(&known.guid, &set, sizeof(GUID)) == 0) return known.name;
    return "{" + GuidToText(set) + "}";
}

std::string TypeName(ULONG tag) {
    std::string name;
    switch (PROP_TYPE(tag) & ~MV_FLAG) {
        case PT_I2:
            name = "short";
            break;
        case PT_LONG:
            name = "long";
            break;
        case PT_R4:
            name = "float";
            break;
        case PT_DOUBLE:
            name = "double";
            break;
        case PT_CURRENCY:
            name = "currency";
            break;
        case PT_APPTIME:
            name = "apptime";
            break;
        case PT_BOOLEAN:
            name = "boolean";
            break;
        case PT_OBJECT:
            name = "object";
            break;
        case PT_I8:
            name = "int64";
            break;
        case PT_STRING8:
        case PT_UNICODE:
            name = "text";
            break;
        case PT_SYSTIME:
            name = "time";
            break;
        case PT_CLSID:
            name = "guid";
            break;
        case PT_BINARY:
            name = "binary";
            break;
        default:
            name = HexNumber(PROP_TYPE(tag) & ~MV_FLAG, 4);
            break;
    }
    return (PROP_TYPE(tag) & MV_FLAG) != 0 ? name + "[]" : name;
}

Json ValueToJson(const SPropValue& value) {
    const auto& v = value.Value;
    switch (PROP_TYPE(value.ulPropTag)) {
        case PT_I2:
            return v.i;
        case PT_LONG:
            return v.l;
        case PT_R4:
            return v.flt;
        case PT_DOUBLE:
            return v.dbl;
        case PT_CURRENCY:
            return CurrencyToJson(v.cur.int64);
        case PT_APPTIME:
            return v.at;
        case PT_BOOLEAN:
            return v.b != 0;
        case PT_I8:
            return v.li.QuadPart;
        case PT_STRING8:
            return NarrowToJson(v.lpszA);
        case PT_UNICODE:
            return WideToJson(v.lpszW);
        case PT_SYSTIME:
            return TimeToJson(v.ft);
        case PT_CLSID:
            return v.lpguid ? GuidToJson(*v.lpguid) : Json(nullptr);
        case PT_BINARY:
            return HexFromBinary(v.bin);
        default:
            return MultiValueToJson(value);
    }
}

std::string ShownText(const CGenMapiPropPtr& object, ULONG tag) {
    CMapiPropValue value;
    const HRESULT hr = object.GetOneProp(tag, value);
    std::string text = hr >= 0 ? value.Str() : std::string();
    if (hr == MAPI_E_NOT_ENOUGH_MEMORY) object.ReadTextStream(tag, 0, 0, text);
    return Utf8FromNarrow(text);
}

Json PropertiesToJson(const IMAPIPropPtr& object) {
    SPropTagArray* list = nullptr;
    THROW_ON_FAILURE_FOR(object->GetPropList(0, &list), object.Get());
    std::vector<ULONG> tags(list->aulPropTag, list->aulPropTag + list->cValues);
    MAPIFreeBuffer(list);
    std::vector<Json> entries;
    if (tags.empty()) return Sorted(entries);

    const CNames names(object.Get(), tags);
    const CMapiPropValues values = object.GetProps(tags);
    for (ULONG i = 0; i < values.Count() && i < tags.size(); ++i) {
        Json entry = Json::object();
        names.Describe(tags[i], entry);
        PutValue(*values[i].Get(), tags[i], object, entry);
        entries.push_back(std::move(entry));
    }
    return Sorted(entries);
}

Json RowToJson(const SRow& row, IMAPIProp* object) {
    std::vector<ULONG> tags;
    for (ULONG i = 0; i < row.cValues; ++i)
        if (PROP_TYPE(row.lpProps[i].ulPropTag) != PT_ERROR) tags.push_back(row.lpProps[i].ulPropTag);
    const CNames names(object, tags);
    std::vector<Json> entries;
    for (ULONG i = 0; i < row.cValues; ++i) {
        const SPropValue& value = row.lpProps[i];
        if (PROP_TYPE(value.ulPropTag) == PT_ERROR) continue;
        Json entry = Json::object();
        names.Describe(value.ulPropTag, entry);
        PutValue(value, value.ulPropTag, {}, entry);
        entries.push_back(std::move(entry));
    }
    return Sorted(entries);
}
