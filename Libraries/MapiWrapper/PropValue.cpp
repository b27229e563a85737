#include <MapiWrapper/HexText.h>
#include <MapiWrapper/MapiException.h>
#include <MapiWrapper/PropMemory.h>
#include <MapiWrapper/PropValue.h>
#include <MapiWrapper/TextConvert.h>
#include <Platform/UserInterface.h>

#include <cstring>
#include <cwchar>
#include <utility>

// --- CMapiPropValue ----------------------------------------------------------------------------------

CMapiPropValue::CMapiPropValue(ULONG tag) {
    void* block = nullptr;
    THROW_ON_FAILURE(MAPIAllocateBuffer(sizeof(SPropValue), &block));
    if (!block) {
        ShowMessageBox("Fatal: MAPI Memory failed, program will probably abort", "Fatal", 0);
        throw CNullAccess("CMapiPropValue");
    }
    m_value = static_cast<SPropValue*>(block);
    std::memset(m_value, 0, sizeof *m_value);
    m_value->ulPropTag = tag;
}

CMapiPropValue::CMapiPropValue(const CMapiPropValue& other) : m_owns(other.m_owns) {
    if (!other.m_owns || !other.m_value) {
        m_value = other.m_value;
        return;
    }
    CMapiPropValue copy(other.m_value->ulPropTag);
    THROW_ON_FAILURE(CopyPropValue(copy.m_value, other.m_value));
    std::swap(m_value, copy.m_value);
}

CMapiPropValue::CMapiPropValue(CMapiPropValue&& other) noexcept
    : m_value(std::exchange(other.m_value, nullptr)), m_owns(std::exchange(other.m_owns, true)) {}

CMapiPropValue& CMapiPropValue::operator=(const CMapiPropValue& other) {
    if (this != &other) {
        CMapiPropValue copy(other);
        *this = std::move(copy);
    }
    return *this;
}

CMapiPropValue& CMapiPropValue::operator=(CMapiPropValue&& other) noexcept {
    if (this != &other) {
        Free();
        m_value = std::exchange(other.m_value, nullptr);
        m_owns = std::exchange(other.m_owns, true);
    }
    return *this;
}

void CMapiPropValue::Attach(SPropValue* value, bool owns) {
    Free();
    m_value = value;
    m_owns = owns;
}

void CMapiPropValue::Free() {
    if (m_owns && m_value) MAPIFreeBuffer(m_value);
    m_value = nullptr;
    m_owns = true;
}

SPropValue** CMapiPropValue::Out() {
    Free();
    return &m_value;
}

LONG CMapiPropValue::Long() const {
    if (!m_value) return 0;
    switch (Type()) {
        case PT_I2:
            return m_value->Value.i;
        case PT_BOOLEAN:
            return m_value->Value.b;
        case PT_LONG:
        case PT_R4:
        case PT_I8:
            return m_value->Value.l;
        default:
            return 0;
    }
}

bool CMapiPropValue::Bool() const {
    return Type() == PT_BOOLEAN && m_value->Value.b != 0;
}

std::string CMapiPropValue::Str() const {
    if (Type() == PT_STRING8 && m_value->Value.lpszA) return m_value->Value.lpszA;
    if (Type() == PT_UNICODE) return Utf8FromWide(m_value->Value.lpszW);
    return {};
}

std::string CMapiPropValue::Text() const {
    return ValueText(m_value);
}

// --- CMapiPropValues ---------------------------------------------------------------------------------

CMapiPropValues::CMapiPropValues(CMapiPropValues&& other) noexcept
    : m_values(std::exchange(other.m_values, nullptr)), m_count(std::exchange(other.m_count, 0)) {}

CMapiPropValues& CMapiPropValues::operator=(CMapiPropValues&& other) noexcept {
    if (this != &other) Attach(std::exchange(other.m_values, nullptr), std::exchange(other.m_count, 0));
    return *this;
}

void CMapiPropValues::Attach(SPropValue* values, ULONG count) {
    Free();
    m_values = values;
    m_count = values ? count : 0;
}

void CMapiPropValues::Free() {
    if (m_values) MAPIFreeBuffer(m_values);
    m_values = nullptr;
    m_count = 0;
}

CMapiPropValue CMapiPropValues::operator[](ULONG index) const {
    return CMapiPropValue(index < m_count ? m_values + index : nullptr, false);
}

// --- memory behind values ----------------------------------------------------------------------------

HRESULT AllocateBehind(size_t cb, void* parent, void** block) {
    *block = nullptr;
    if (cb > 0x7FFFFFFF) return static_cast<HRESULT>(MAPI_E_NOT_ENOUGH_MEMORY);
    const ULONG size = static_cast<ULONG>(cb);
    const HRESULT hr =
        IsRealParent(parent) ? MAPIAllocateMore(size, parent, block) : MAPIAllocateBuffer(size, block);
    if (hr < 0) return hr;
    return *block ? S_OK : static_cast<HRESULT>(MAPI_E_NOT_ENOUGH_MEMORY);
}

bool IsRealParent(void* parent) {
    return parent && parent != reinterpret_cast<void*>(-1) && parent != reinterpret_cast<void*>(-2);
}

HRESULT CopyBehind(const void* source, size_t cb, void* parent, void** block) {
    const HRESULT hr = AllocateBehind(cb ? cb : 1, parent, block);
    if (hr >= 0 && cb != 0) std::memcpy(*block, source, cb);
    return hr;
}

HRESULT HrCopySBinary(SBinary* destination, const SBinary* source, void* parent) {
    if (destination->lpb) MAPIFreeBuffer(destination->lpb);
    *destination = SBinary{0, nullptr};
    void* block = nullptr;
    const HRESULT hr = CopyBehind(source->lpb, source->lpb ? source->cb : 0, parent, &block);
    if (!SUCCEEDED_HR(hr, "HrCopySBinary")) return hr;
    destination->cb = source->lpb ? source->cb : 0;
    destination->lpb = static_cast<BYTE*>(block);
    return hr;
}

namespace {

template <class T>
HRESULT CopyItems(T*& items, ULONG count, void* parent) {
    void* block = nullptr;
    const HRESULT hr = CopyBehind(items, items ? sizeof(T) * static_cast<size_t>(count) : 0, parent, &block);
    items = static_cast<T*>(block);
    return hr;
}

size_t BytesOf(const char* text) {
    return std::strlen(text) + 1;
}
size_t BytesOf(const wchar_t* text) {
    return (std::wcslen(text) + 1) * sizeof(wchar_t);
}

template <class Char>
HRESULT CopyText(Char*& text, void* parent) {
    if (!text) return S_OK;
    void* block = nullptr;
    const HRESULT hr = CopyBehind(text, BytesOf(text), parent, &block);
    text = static_cast<Char*>(block);
    return hr;
}

// The strings hang on the array where there is no other parent, so that freeing the array frees all.
template <class Char>
HRESULT CopyTexts(Char**& texts, ULONG count, size_t spare, void* parent) {
    Char** source = texts;
    texts = nullptr;
    void* block = nullptr;
    const size_t cb = (static_cast<size_t>(count) + spare) * sizeof(Char*);
    HRESULT hr = AllocateBehind(cb ? cb : 1, parent, &block);
    if (hr < 0) return hr;
    std::memset(block, 0, cb);
    texts = static_cast<Char**>(block);
    for (ULONG i = 0; hr >= 0 && source && i < count; ++i) {
        texts[i] = source[i];
        hr = CopyText(texts[i], IsRealParent(parent) ? parent : block);
    }
    return hr;
}

HRESULT CopyBinaries(SBinaryArray& array, void* parent) {
    const SBinary* source = array.lpbin;
    HRESULT hr = CopyItems(array.lpbin, array.cValues, parent);
    for (ULONG i = 0; hr >= 0 && source && i < array.cValues; ++i) {
        void* block = nullptr;
        hr = CopyBehind(source[i].lpb, source[i].lpb ? source[i].cb : 0,
                        IsRealParent(parent) ? parent : array.lpbin, &block);
        array.lpbin[i].lpb = static_cast<BYTE*>(block);
        if (!source[i].lpb) array.lpbin[i].cb = 0;
    }
    return hr;
}

HRESULT CopyMemoryBehind(SPropValue& value, void* parent) {
    auto& v = value.Value;
    switch (PROP_TYPE(value.ulPropTag)) {
        case PT_STRING8:
            return CopyText(v.lpszA, parent);
        case PT_UNICODE:
            return CopyText(v.lpszW, parent);
        case PT_CLSID:
            return v.lpguid ? CopyItems(v.lpguid, 1, parent) : S_OK;
        case PT_BINARY:
            if (!v.bin.lpb) v.bin.cb = 0;
            return CopyItems(v.bin.lpb, v.bin.cb, parent);
        case PT_MV_I2:
            return CopyItems(v.MVi.lpi, v.MVi.cValues, parent);
        case PT_MV_LONG:
            return CopyItems(v.MVl.lpl, v.MVl.cValues, parent);
        case PT_MV_R4:
            return CopyItems(v.MVflt.lpflt, v.MVflt.cValues, parent);
        case PT_MV_DOUBLE:
            return CopyItems(v.MVdbl.lpdbl, v.MVdbl.cValues, parent);
        case PT_MV_CURRENCY:
            return CopyItems(v.MVcur.lpcur, v.MVcur.cValues, parent);
        case PT_MV_APPTIME:
            return CopyItems(v.MVat.lpat, v.MVat.cValues, parent);
        case PT_MV_SYSTIME:
            return CopyItems(v.MVft.lpft, v.MVft.cValues, parent);
        case PT_MV_I8:
            return CopyItems(v.MVli.lpli, v.MVli.cValues, parent);
        case PT_MV_CLSID:
            return CopyItems(v.MVguid.lpguid, v.MVguid.cValues, parent);
        case PT_MV_STRING8:
            return CopyTexts(v.MVszA.lppszA, v.MVszA.cValues, 2, parent);
        case PT_MV_UNICODE:
            return CopyTexts(v.MVszW.lppszW, v.MVszW.cValues, 0, parent);
        case PT_MV_BINARY:
            return CopyBinaries(v.MVbin, parent);
        default:
            return S_OK;
    }
}

}  // namespace

HRESULT CopyPropValue(SPropValue* destination, const SPropValue* source, void* parent) {
    SPropValue copy = *source;
    const HRESULT hr = CopyMemoryBehind(copy, parent);
    if (hr < 0) {
        copy = SPropValue{};
        copy.ulPropTag = PROP_TAG(PT_NULL, PROP_ID(source->ulPropTag));
    }
    *destination = copy;
    return hr;
}

HRESULT CopyPropValue(SPropValue* destination, const SPropValue* source) {
    return CopyPropValue(destination, source, destination);
}
