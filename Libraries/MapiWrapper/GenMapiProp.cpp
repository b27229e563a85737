#include <MapiWrapper/GenMapiProp.h>
#include <MapiWrapper/StreamTools.h>
#include <MapiWrapper/TagArray.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

// Room of the batch buffer; one entry stays free.
constexpr ULONG kBatchRoom = 50;
constexpr HRESULT kNoObject = 1;
constexpr ULONG kTextPortion = 0x10000;

bool IsUnspecified(ULONG tag) {
    return PROP_TYPE(tag) == PT_UNSPECIFIED;
}

SPropValue LongValue(ULONG tag, LONG value) {
    SPropValue v{};
    v.ulPropTag = tag;
    if (PROP_TYPE(tag) == PT_BOOLEAN)
        v.Value.b = value != 0 ? 1 : 0;
    else if (PROP_TYPE(tag) == PT_I2)
        v.Value.i = static_cast<short>(value);
    else
        v.Value.l = value;
    return v;
}

SPropValue BinaryValue(ULONG tag, const SBinary& bin) {
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.bin = bin;
    return v;
}

void ThrowWith(HRESULT hr, const char* context, IUnknown* object) {
    if (hr < 0) throw CMAPIException(hr, context, object);
}

ULONG TagOfName(IMAPIProp* raw, MAPINAMEID& name, ULONG flags) {
    NotNull(raw, "CGenMapiPropPtr::GetIDFromName");
    MAPINAMEID* names[1] = {&name};
    SPropTagArray* tags = nullptr;
    THROW_ON_FAILURE_FOR(raw->GetIDsFromNames(1, names, flags, &tags), raw);
    if (!tags || tags->cValues == 0) {
        if (tags) MAPIFreeBuffer(tags);
        throw CMAPIException(MAPI_E_NOT_FOUND, "CGenMapiPropPtr::GetIDFromName", raw);
    }
    const ULONG tag = tags->aulPropTag[0];
    MAPIFreeBuffer(tags);
    if (PROP_TYPE(tag) == PT_ERROR || PROP_ID(tag) == 0)
        throw CMAPIException(MAPI_E_NOT_FOUND, "CGenMapiPropPtr::GetIDFromName", raw);
    return tag;
}

MAPINAMEID NumericName(const GUID& guid, LONG id) {
    MAPINAMEID name{};
    name.lpguid = const_cast<GUID*>(&guid);
    name.ulKind = MNID_ID;
    name.Kind.lID = id;
    return name;
}

MAPINAMEID StringName(const GUID& guid, const wchar_t* text) {
    MAPINAMEID name{};
    name.lpguid = const_cast<GUID*>(&guid);
    name.ulKind = MNID_STRING;
    name.Kind.lpwstrName = const_cast<wchar_t*>(text);
    return name;
}

}  // namespace

// --- life, batch mode --------------------------------------------------------------------------------

CGenMapiPropPtr::~CGenMapiPropPtr() {
    DropGathered();
}

CGenMapiPropPtr::CGenMapiPropPtr(const CGenMapiPropPtr& other)
    : m_cachedBody(other.m_cachedBody), m_text(other.m_text), m_batch(other.m_batch) {}

CGenMapiPropPtr::CGenMapiPropPtr(CGenMapiPropPtr&& other) noexcept
    : m_cachedBody(std::move(other.m_cachedBody)),
      m_text(other.m_text),
      m_writeBuffer(std::exchange(other.m_writeBuffer, nullptr)),
      m_writeCount(std::exchange(other.m_writeCount, 0)),
      m_batch(other.m_batch) {}

CGenMapiPropPtr& CGenMapiPropPtr::operator=(const CGenMapiPropPtr& other) {
    if (this != &other) {
        DropGathered();
        m_cachedBody = other.m_cachedBody;
        m_text = other.m_text;
        m_batch = other.m_batch;
    }
    return *this;
}

CGenMapiPropPtr& CGenMapiPropPtr::operator=(CGenMapiPropPtr&& other) noexcept {
    if (this != &other) {
        DropGathered();
        m_cachedBody = std::move(other.m_cachedBody);
        m_text = other.m_text;
        m_writeBuffer = std::exchange(other.m_writeBuffer, nullptr);
        m_writeCount = std::exchange(other.m_writeCount, 0);
        m_batch = other.m_batch;
    }
    return *this;
}

void CGenMapiPropPtr::DropGathered() {
    if (m_writeBuffer) MAPIFreeBuffer(m_writeBuffer);
    m_writeBuffer = nullptr;
    m_writeCount = 0;
}

HRESULT CGenMapiPropPtr::Gather(const SPropValue* value) {
    if (m_writeCount == kBatchRoom - 1) SaveProps();
    if (!m_writeBuffer) {
        void* block = nullptr;
        const HRESULT hr = MAPIAllocateBuffer(kBatchRoom * sizeof(SPropValue), &block);
        if (hr < 0) return hr;
        m_writeBuffer = static_cast<SPropValue*>(block);
    }
    const HRESULT hr = CopyPropValue(m_writeBuffer + m_writeCount, value, m_writeBuffer);
    if (hr < 0) return hr;
    ++m_writeCount;
    return S_OK;
}

void CGenMapiPropPtr::SaveProps() {
    if (m_writeCount == 0) return;
    try {
        THROW_ON_FAILURE_FOR(SetPropsHr(m_writeBuffer, m_writeCount), RawProp());
    } catch (const CMAPIException& e) {
        ReportException(CMAPIException(e), "SaveProps");
    } catch (...) {
        DropGathered();
        throw;
    }
    DropGathered();
}

HRESULT CGenMapiPropPtr::SetOneProp(const SPropValue* value) {
    if (m_batch) return Gather(value);
    IMAPIProp* raw = Require("CGenMapiPropPtr::SetOneProp");
    CStoreText text(Text());
    return HrSetOneProp(raw, text.Values(value, 1));
}

HRESULT CGenMapiPropPtr::GetOneProp(ULONG tag, CMapiPropValue& out) const {
    out.Free();
    if (m_batch) {
        for (ULONG i = 0; i < m_writeCount; ++i) {
            if (m_writeBuffer[i].ulPropTag != tag) continue;
            out.Attach(m_writeBuffer + i, false);
            return S_OK;
        }
    }
    IMAPIProp* raw = RawProp();
    return raw ? GetOneText(raw, tag, Text(), out.Out()) : kNoObject;
}

void CGenMapiPropPtr::SaveChanges(ULONG flags) {
    SaveProps();
    THROW_ON_FAILURE(Require("CGenMapiPropPtr::SaveChanges")->SaveChanges(flags));
}

// --- reading -----------------------------------------------------------------------------------------

void CGenMapiPropPtr::GetProps(CMapiPropValues& out, const std::vector<ULONG>& tags) const {
    Require("CGenMapiPropPtr::GetProps");
    ThrowWith(GetPropsHr(0, out, tags), "CGenMapiPropPtr::GetProps", RawProp());
}

CMapiPropValues CGenMapiPropPtr::GetProps(const std::vector<ULONG>& tags) const {
    CMapiPropValues values;
    GetProps(values, tags);
    return values;
}

HRESULT CGenMapiPropPtr::GetPropsHr(ULONG flags, CMapiPropValues& out, const std::vector<ULONG>& tags) const {
    out.Free();
    IMAPIProp* raw = RawProp();
    if (!raw) return static_cast<HRESULT>(MAPI_E_INVALID_OBJECT);
    CTagArray array(tags, Text());
    ULONG count = 0;
    SPropValue* values = nullptr;
    const bool open = tags.empty() || std::any_of(tags.begin(), tags.end(), IsUnspecified);
    if (open && Text() == TextForm::Wide) flags |= MAPI_UNICODE;
    const HRESULT hr = raw->GetProps(array.Get(), flags, &count, &values);
    if (hr < 0) return hr;
    out.Attach(values, count);
    const HRESULT taken = TakeTexts(values, count, tags, Text(), values);
    if (taken < 0) out.Free();
    return taken < 0 ? taken : hr;
}

LONG CGenMapiPropPtr::GetLongProp(ULONG tag) const {
    CMapiPropValue value;
    ThrowWith(GetOneProp(tag, value), "CGenMapiPropPtr::GetLongProp", RawProp());
    return value.Long();
}

LONG CGenMapiPropPtr::GetLongPropOr0(ULONG tag) const {
    CMapiPropValue value;
    return GetOneProp(tag, value) < 0 ? 0 : value.Long();
}

std::string CGenMapiPropPtr::GetStrProp(ULONG tag) const {
    CMapiPropValue value;
    ThrowWith(GetOneProp(tag, value), "GetStrProp", RawProp());
    return value.Type() == PT_STRING8 ? value.Str() : std::string();
}

std::string CGenMapiPropPtr::GetStrPropOrEmpty(ULONG tag) const {
    CMapiPropValue value;
    return GetOneProp(tag, value) < 0 ? std::string() : value.Str();
}

CMapiBinary CGenMapiPropPtr::GetBinProp(ULONG tag) const {
    CMapiPropValue value;
    THROW_ON_FAILURE_FOR(GetOneProp(tag, value), RawProp());
    return value.Tag() == tag ? CMapiBinary(value.Binary()) : CMapiBinary();
}

HRESULT CGenMapiPropPtr::OpenStream(ULONG tag, ULONG options, ULONG flags, CComPtr<IStream>& out) const {
    out.Free();
    const HRESULT hr =
        Require("OpenProperty")->OpenProperty(tag, &IID_IStream, options, flags, out.OutUnknown());
    if (hr < 0) out.Free();
    return hr >= 0 && !out ? static_cast<HRESULT>(E_FAIL) : hr;
}

HRESULT CGenMapiPropPtr::ReadTextStream(ULONG tag, ULONG options, ULONG flags, std::string& text) const {
    text.clear();
    CComPtr<IStream> stream;
    HRESULT hr = OpenStream(TagForStore(tag, Text()), options, flags, stream);
    if (hr < 0) return hr;
    std::string bytes;
    hr = ReadToEnd(stream.Get(), bytes, kTextPortion);
    if (hr >= 0) text = TextFromStream(bytes, Text());
    return hr;
}

HRESULT CGenMapiPropPtr::WriteTextStream(ULONG tag, ULONG options, const std::string& text, bool end) {
    CComPtr<IStream> stream;
    HRESULT hr = OpenStream(TagForStore(tag, Text()), options, MAPI_MODIFY | MAPI_CREATE, stream);
    if (hr < 0) return hr;
    const std::string bytes = TextForStream(text, Text(), end);
    if (bytes.size() > kStreamLimit) return static_cast<HRESULT>(MAPI_E_TOO_BIG);
    const ULONG cb = static_cast<ULONG>(bytes.size());
    hr = WriteAll(stream.Get(), bytes.data(), cb, cb);
    return hr < 0 ? hr : stream->Commit(0);
}

CComPtr<IStream> CGenMapiPropPtr::OpenPropertyStream(ULONG tag) const {
    CComPtr<IStream> stream;
    THROW_ON_FAILURE_FOR(OpenStream(tag, kStreamReadWriteMode, MAPI_MODIFY, stream), RawProp());
    return stream;
}

HRESULT HrGetProp(IMAPIProp* raw, ULONG tag, CVariant& out) {
    out = CVariant();
    CMapiPropValue value;
    const HRESULT hr = GetOneText(NotNull(raw, "HrGetProp"), tag, TextFormOf(raw), value.Out());
    if (SUCCEEDED_HR(hr, "HrGetProp")) out = CVariant(value.Text());
    return hr;
}

// --- writing -----------------------------------------------------------------------------------------

void CGenMapiPropPtr::SetProp(ULONG tag, LONG value) {
    const SPropValue v = LongValue(tag, value);
    ThrowWith(SetOneProp(&v), "CGenMapiPropPtr::SetProp", RawProp());
}

void CGenMapiPropPtr::SetProp(ULONG tag, CMapiPropValue value) {
    SPropValue v = *NotNull(value.Get(), "CGenMapiPropPtr::SetProp");
    v.ulPropTag = tag;
    ThrowWith(SetOneProp(&v), "CGenMapiPropPtr::SetProp", RawProp());
}

void CGenMapiPropPtr::SetProp(ULONG tag, const SBinary& value) {
    const SPropValue v = BinaryValue(tag, value);
    ThrowWith(SetOneProp(&v), "CGenMapiPropPtr::SetProp", RawProp());
}

void CGenMapiPropPtr::SetProp(ULONG tag, const FILETIME& value) {
    SPropValue v{};
    v.ulPropTag = tag;
    v.Value.ft = value;
    ThrowWith(SetOneProp(&v), "CGenMapiPropPtr::SetProp", RawProp());
}

void CGenMapiPropPtr::SetLongProp(ULONG tag, LONG value) {
    const SPropValue v = LongValue(tag, value);
    ThrowWith(SetOneProp(&v), "CGenMapiPropPtr::SetLongProp", RawProp());
}

void CGenMapiPropPtr::SetLongProp(IMAPIProp* raw, ULONG tag, LONG value) {
    SPropValue v = LongValue(tag, value);
    ThrowWith(HrSetOneProp(NotNull(raw, "SetLongProp"), &v), "CGenMapiPropPtr::SetLongProp", nullptr);
}

HRESULT CGenMapiPropPtr::SetPropsHr(const SPropValue* values, ULONG count, SPropProblemArray** problems) {
    IMAPIProp* raw = Require("CGenMapiPropPtr::SetProps");
    CStoreText text(Text());
    return raw->SetProps(count, text.Values(values, count), problems);
}

void CGenMapiPropPtr::SetStrProp(ULONG tag, const char* text) {
    if (!text) return;
    SPropValue v{};
    v.ulPropTag = PROP_TAG(PT_STRING8, PROP_ID(tag));
    v.Value.lpszA = const_cast<char*>(text);
    THROW_ON_FAILURE_FOR(SetOneProp(&v), RawProp());
}

void CGenMapiPropPtr::SetWideProp(ULONG tag, const wchar_t* text) {
    if (!text) return;
    SPropValue v{};
    v.ulPropTag = PROP_TAG(PT_UNICODE, PROP_ID(tag));
    v.Value.lpszW = const_cast<wchar_t*>(text);
    THROW_ON_FAILURE_FOR(SetOneProp(&v), RawProp());
}

// --- named properties --------------------------------------------------------------------------------

ULONG CGenMapiPropPtr::GetIDFromName(const GUID& guid, LONG id, ULONG type, ULONG flags) const {
    MAPINAMEID name = NumericName(guid, id);
    return PROP_TAG(type, PROP_ID(TagOfName(RawProp(), name, flags)));
}

ULONG CGenMapiPropPtr::GetIDFromName(const GUID& guid, const wchar_t* text, ULONG type, ULONG flags) const {
    MAPINAMEID name = StringName(guid, text);
    return PROP_TAG(type, PROP_ID(TagOfName(RawProp(), name, flags)));
}

ULONG CGenMapiPropPtr::GetIDFromName(IMAPIProp* raw, const GUID& guid, LONG id, ULONG type, ULONG flags) {
    MAPINAMEID name = NumericName(guid, id);
    return TagOfName(raw, name, flags) + type;
}

ULONG CGenMapiPropPtr::GetIDFromName(IMAPIProp* raw, const GUID& guid, const wchar_t* text, ULONG type,
                                     ULONG flags) {
    MAPINAMEID name = StringName(guid, text);
    return TagOfName(raw, name, flags) + type;
}

std::string CGenMapiPropPtr::GetNamedStr(const wchar_t* name) const {
    CMapiPropValue value;
    const ULONG tag = GetIDFromName(PS_PUBLIC_STRINGS, name, PT_STRING8);
    THROW_ON_FAILURE_FOR(GetOneProp(tag, value), RawProp());
    return value.Str();
}

std::string CGenMapiPropPtr::GetNamedStr(const wchar_t* name, const GUID* guid) const {
    try {
        CMapiPropValue value;
        const ULONG tag = GetIDFromName(guid ? *guid : PS_PUBLIC_STRINGS, name, PT_STRING8);
        return GetOneProp(tag, value) < 0 ? std::string() : value.Str();
    } catch (const CMAPIException&) {
        return {};
    } catch (const CNullAccess&) {
        return {};
    }
}

LONG CGenMapiPropPtr::GetNamedLong(const wchar_t* name) const {
    CMapiPropValue value;
    const ULONG tag = GetIDFromName(PS_PUBLIC_STRINGS, name, PT_LONG);
    THROW_ON_FAILURE_FOR(GetOneProp(tag, value), RawProp());
    return value.Long();
}

LONG CGenMapiPropPtr::GetNamedLong(const wchar_t* name, LONG defaultValue) const {
    try {
        return GetNamedLong(name);
    } catch (const CMAPIException&) {
        return defaultValue;
    } catch (const CNullAccess&) {
        return defaultValue;
    }
}

void CGenMapiPropPtr::SetNamedValue(const wchar_t* name, ULONG type, LONG value) {
    const SPropValue v = LongValue(GetIDFromName(PS_PUBLIC_STRINGS, name, type), value);
    THROW_ON_FAILURE_FOR(SetOneProp(&v), RawProp());
}

void CGenMapiPropPtr::SetNamedValue(const wchar_t* name, ULONG type, const SBinary& value) {
    const SPropValue v = BinaryValue(GetIDFromName(PS_PUBLIC_STRINGS, name, type), value);
    THROW_ON_FAILURE_FOR(SetOneProp(&v), RawProp());
}

void CGenMapiPropPtr::SetNamedStr(const wchar_t* name, const char* text) {
    SetStrProp(GetIDFromName(PS_PUBLIC_STRINGS, name, PT_STRING8), text);
}
