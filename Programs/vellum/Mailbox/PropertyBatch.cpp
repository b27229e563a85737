#include <Programs/vellum/Mailbox/PropertyBatch.h>

#include <Platform/Machine.h>
#include <Platform/Utf8.h>
#include <Programs/vellum/Console/Utf8.h>

#include <cstring>
#include <optional>

namespace {

// Little-endian values of the file, for machines of that order, which all our targets are.
template <class T>
bool Read(const std::string& bytes, T& value) {
    if (bytes.size() < sizeof(T)) return false;
    std::memcpy(&value, bytes.data(), sizeof(T));
    return true;
}

// The values of a multi-valued property; empty where the lengths do not fit the bytes.
std::optional<std::vector<std::string>> SplitValues(const std::string& bytes) {
    std::vector<std::string> values;
    std::size_t at = 0;
    while (at < bytes.size()) {
        std::uint32_t cb = 0;
        if (bytes.size() - at < sizeof(cb)) return std::nullopt;
        std::memcpy(&cb, bytes.data() + at, sizeof(cb));
        at += sizeof(cb);
        if (cb > bytes.size() - at) return std::nullopt;
        values.push_back(bytes.substr(at, cb));
        at += cb;
    }
    return values;
}

}  // namespace

char* CPropertyBatch::Keep(std::string bytes) {
    m_cb += bytes.size();
    m_bytes.push_back(std::move(bytes));
    return m_bytes.back().data();
}

WCHAR* CPropertyBatch::KeepWide(std::wstring text) {
    m_cb += text.size() * sizeof(wchar_t);
    m_texts.push_back(std::move(text));
    return m_texts.back().data();
}

void CPropertyBatch::Clear() {
    m_values.clear();
    m_bytes.clear();
    m_texts.clear();
    m_cb = 0;
}

const SPropValue* CPropertyBatch::Find(ULONG id) const {
    for (const SPropValue& value : m_values)
        if (PROP_ID(value.ulPropTag) == id) return &value;
    return nullptr;
}

bool CPropertyBatch::Has(ULONG id) const {
    return Find(id) != nullptr;
}

LONG CPropertyBatch::LongOr(ULONG id, LONG otherwise) const {
    const SPropValue* value = Find(id);
    return value && PROP_TYPE(value->ulPropTag) == PT_LONG ? value->Value.l : otherwise;
}

std::string CPropertyBatch::TextOrEmpty(ULONG id) const {
    const SPropValue* value = Find(id);
    if (!value) return {};
    if (PROP_TYPE(value->ulPropTag) == PT_STRING8) return value->Value.lpszA;
    return PROP_TYPE(value->ulPropTag) == PT_UNICODE ? Utf8FromWide(std::wstring(value->Value.lpszW))
                                                     : std::string();
}

void CPropertyBatch::AddLong(ULONG tag, LONG number) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.l = number;
    m_values.push_back(value);
}

bool CPropertyBatch::FillFixed(SPropValue& value, const std::string& bytes) {
    auto& v = value.Value;
    switch (PROP_TYPE(value.ulPropTag)) {
        case PT_I2:
            return Read(bytes, v.i);
        case PT_LONG:
            return Read(bytes, v.l);
        case PT_R4:
            return Read(bytes, v.flt);
        case PT_DOUBLE:
            return Read(bytes, v.dbl);
        case PT_APPTIME:
            return Read(bytes, v.at);
        case PT_CURRENCY:
            return Read(bytes, v.cur.int64);
        case PT_I8:
            return Read(bytes, v.li.QuadPart);
        case PT_SYSTIME:
            return Read(bytes, v.ft);
        case PT_BOOLEAN:
            v.b = !bytes.empty() && bytes[0] != 0;
            return !bytes.empty();
        case PT_CLSID:
            if (bytes.size() < sizeof(GUID)) return false;
            v.lpguid = reinterpret_cast<GUID*>(Keep(bytes));
            return true;
        case PT_STRING8:
            v.lpszA = Keep(Utf8FromNarrow(bytes));
            return true;
        case PT_UNICODE:
            v.lpszW = KeepWide(WideFromUtf8(Utf8FromUtf16Bytes(bytes)));
            return true;
        case PT_BINARY:
            v.bin.cb = static_cast<ULONG>(bytes.size());
            v.bin.lpb = reinterpret_cast<BYTE*>(Keep(bytes));
            return true;
        default:
            return false;
    }
}

bool CPropertyBatch::FillMulti(SPropValue& value, const std::string& bytes) {
    const auto parts = SplitValues(bytes);
    if (!parts) return false;
    const auto count = static_cast<ULONG>(parts->size());
    auto& v = value.Value;
    // All multi-valued members are a count and a pointer; this one gives the pointer its type.
    const auto arrayOf = [&](auto*& pointer, auto fill) {
        using T = std::remove_reference_t<decltype(*pointer)>;
        pointer = reinterpret_cast<T*>(Keep(std::string(sizeof(T) * (count + 1), '\0')));
        for (ULONG i = 0; i < count; ++i)
            if (!fill(pointer[i], (*parts)[i])) return false;
        return true;
    };
    const auto plain = [](auto& out, const std::string& part) { return Read(part, out); };
    v.MVl.cValues = count;
    switch (PROP_TYPE(value.ulPropTag)) {
        case PT_MV_I2:
            return arrayOf(v.MVi.lpi, plain);
        case PT_MV_LONG:
            return arrayOf(v.MVl.lpl, plain);
        case PT_MV_R4:
            return arrayOf(v.MVflt.lpflt, plain);
        case PT_MV_DOUBLE:
            return arrayOf(v.MVdbl.lpdbl, plain);
        case PT_MV_APPTIME:
            return arrayOf(v.MVat.lpat, plain);
        case PT_MV_CURRENCY:
            return arrayOf(v.MVcur.lpcur, plain);
        case PT_MV_I8:
            return arrayOf(v.MVli.lpli, plain);
        case PT_MV_SYSTIME:
            return arrayOf(v.MVft.lpft, plain);
        case PT_MV_CLSID:
            return arrayOf(v.MVguid.lpguid, plain);
        case PT_MV_STRING8:
            return arrayOf(v.MVszA.lppszA, [&](char*& out, const std::string& part) {
                out = Keep(Utf8FromNarrow(part));
                return true;
            });
        case PT_MV_UNICODE:
            return arrayOf(v.MVszW.lppszW, [&](WCHAR*& out, const std::string& part) {
                out = KeepWide(WideFromUtf8(part));
                return true;
            });
        case PT_MV_BINARY:
            return arrayOf(v.MVbin.lpbin, [&](SBinary& out, const std::string& part) {
                out.cb = static_cast<ULONG>(part.size());
                out.lpb = reinterpret_cast<BYTE*>(Keep(part));
                return true;
            });
        default:
            return false;
    }
}

bool CPropertyBatch::Add(ULONG tag, const CMailboxEvent& event) {
    SPropValue value{};
    value.ulPropTag = tag;
    const bool filled =
        (PROP_TYPE(tag) & MV_FLAG) != 0 ? FillMulti(value, event.bytes) : FillFixed(value, event.bytes);
    if (filled) m_values.push_back(value);
    return filled;
}
