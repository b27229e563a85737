// The published utilities on single properties and on arrays of property values.
#include <MapiStore/Core/StoreCall.h>
#include <MapiStore/Values/MapiMemory.h>
#include <MapiStore/Values/PropCompare.h>
#include <MapiStore/Values/PropertyCodec.h>

#include <cstring>
#include <cwchar>

namespace {

constexpr std::size_t RoundUp(std::size_t cb) {
    return (cb + 7) & ~std::size_t{7};
}

// A value as a stored one, for the comparisons. False for types that have no stored form.
bool Encode(const SPropValue* value, std::string& bytes, CStoredValue& stored) {
    PropType type = 0;
    if (!value || !AppendStored(*value, bytes, type)) return false;
    stored.View(static_cast<PropId>(PROP_ID(value->ulPropTag)), type, bytes);
    return true;
}

std::optional<int> CompareGiven(const SPropValue* a, const SPropValue* b) {
    std::string bytesA, bytesB;
    CStoredValue storedA, storedB;
    if (!Encode(a, bytesA, storedA) || !Encode(b, bytesB, storedB)) return std::nullopt;
    return CompareStored(storedA, storedB);
}

std::size_t TextSize(const char* text) {
    return text ? std::strlen(text) + 1 : 0;
}
std::size_t TextSize(const wchar_t* text) {
    return text ? (std::wcslen(text) + 1) * sizeof(wchar_t) : 0;
}

// Sum over the elements of a multi-valued property, each counted by `size`.
template <class Array, class Size>
std::size_t SumOf(const Array* elements, ULONG count, Size&& size) {
    std::size_t cb = 0;
    for (ULONG i = 0; elements && i < count; ++i)
        cb += size(elements[i]);
    return cb;
}

// Bytes of the value itself, without terminators' padding or pointers. Nothing for an unknown type.
std::optional<std::size_t> SizeOf(const SPropValue& value) {
    const ULONG type = PROP_TYPE(value.ulPropTag) & ~static_cast<ULONG>(MV_INSTANCE);
    const auto& v = value.Value;
    switch (type) {
        case PT_NULL:
            return 0;
        case PT_ERROR:
        case PT_OBJECT:
            return 4;
        case PT_STRING8:
            return TextSize(v.lpszA);
        case PT_UNICODE:
            return TextSize(v.lpszW);
        case PT_BINARY:
            return v.bin.cb;
        case PT_MV_STRING8:
            return SumOf(v.MVszA.lppszA, v.MVszA.cValues, [](const char* s) { return TextSize(s); });
        case PT_MV_UNICODE:
            return SumOf(v.MVszW.lppszW, v.MVszW.cValues, [](const wchar_t* s) { return TextSize(s); });
        case PT_MV_BINARY:
            return SumOf(v.MVbin.lpbin, v.MVbin.cValues, [](const SBinary& b) { return std::size_t{b.cb}; });
        default: {
            const std::size_t cb = FixedSizeOf(static_cast<PropType>(type));
            if (cb == 0) return std::nullopt;
            return (type & MV_FLAG) ? cb * v.MVl.cValues : cb;
        }
    }
}

// Bytes behind the SPropValue in a copy of it, each piece padded. Nothing for an unknown type.
std::optional<std::size_t> RoomBehind(const SPropValue& value) {
    const ULONG type = PROP_TYPE(value.ulPropTag) & ~static_cast<ULONG>(MV_INSTANCE);
    const auto& v = value.Value;
    const auto size = SizeOf(value);
    switch (type) {
        case PT_MV_STRING8:
            return RoundUp(v.MVszA.cValues * sizeof(LPSTR)) +
                   SumOf(v.MVszA.lppszA, v.MVszA.cValues, [](const char* s) { return RoundUp(TextSize(s)); });
        case PT_MV_UNICODE:
            return RoundUp(v.MVszW.cValues * sizeof(LPWSTR)) +
                   SumOf(v.MVszW.lppszW, v.MVszW.cValues,
                         [](const wchar_t* s) { return RoundUp(TextSize(s)); });
        case PT_MV_BINARY:
            return RoundUp(v.MVbin.cValues * sizeof(SBinary)) +
                   SumOf(v.MVbin.lpbin, v.MVbin.cValues, [](const SBinary& b) { return RoundUp(b.cb); });
        case PT_STRING8:
        case PT_UNICODE:
        case PT_BINARY:
        case PT_CLSID:
            return RoundUp(*size);
        default:
            if (!size) return std::nullopt;
            return (type & MV_FLAG) ? RoundUp(*size) : 0;
    }
}

// Copies what `value` points to into pieces that `take(cb)` gives; a null piece ends with
// MAPI_E_NOT_ENOUGH_MEMORY. `value` is a flat copy of the original and is corrected in place.
template <class Take>
class CPieceCopier {
public:
    explicit CPieceCopier(Take& take) : m_take(take) {}

    SCODE Copy(SPropValue& value) {
        const ULONG type = PROP_TYPE(value.ulPropTag) & ~static_cast<ULONG>(MV_INSTANCE);
        auto& v = value.Value;
        const auto size = SizeOf(value);
        if (!size) return MAPI_E_INVALID_PARAMETER;
        switch (type) {
            case PT_STRING8:
            case PT_UNICODE:
            case PT_CLSID:
                Piece(v.lpszA, *size);
                break;
            case PT_BINARY:
                Piece(v.bin.lpb, v.bin.cb);
                break;
            case PT_MV_STRING8:
                Elements(v.MVszA.lppszA, v.MVszA.cValues, [this](LPSTR& s) { Piece(s, TextSize(s)); });
                break;
            case PT_MV_UNICODE:
                Elements(v.MVszW.lppszW, v.MVszW.cValues, [this](LPWSTR& s) { Piece(s, TextSize(s)); });
                break;
            case PT_MV_BINARY:
                Elements(v.MVbin.lpbin, v.MVbin.cValues, [this](SBinary& b) { Piece(b.lpb, b.cb); });
                break;
            default:
                if (type & MV_FLAG) Piece(v.MVl.lpl, *size);
        }
        return m_failed ? MAPI_E_NOT_ENOUGH_MEMORY : S_OK;
    }

private:
    template <class T>
    void Piece(T*& pointer, std::size_t cb) {
        if (!pointer || m_failed) return;
        void* room = m_take(cb);
        if (!room) {
            m_failed = true;
            return;
        }
        std::memcpy(room, pointer, cb);
        pointer = static_cast<T*>(room);
    }
    template <class T, class Each>
    void Elements(T*& elements, ULONG count, Each&& each) {
        Piece(elements, count * sizeof(T));
        for (ULONG i = 0; elements && !m_failed && i < count; ++i)
            each(elements[i]);
    }

    Take& m_take;
    bool m_failed = false;
};

// Moves the pointers of a value between two addresses of one memory block.
class CRelocator {
public:
    CRelocator(const void* from, const void* to, bool pointersAreValid)
        : m_shift(reinterpret_cast<std::intptr_t>(to) - reinterpret_cast<std::intptr_t>(from)),
          m_pointersAreValid(pointersAreValid) {}

    void Move(SPropValue& value) const {
        auto& v = value.Value;
        switch (PROP_TYPE(value.ulPropTag) & ~static_cast<ULONG>(MV_INSTANCE)) {
            case PT_STRING8:
            case PT_UNICODE:
            case PT_CLSID:
                Shift(v.lpszA);
                break;
            case PT_BINARY:
                Shift(v.bin.lpb);
                break;
            case PT_MV_STRING8:
            case PT_MV_UNICODE:
                Elements(v.MVszA.lppszA, v.MVszA.cValues, [this](LPSTR& s) { Shift(s); });
                break;
            case PT_MV_BINARY:
                Elements(v.MVbin.lpbin, v.MVbin.cValues, [this](SBinary& b) { Shift(b.lpb); });
                break;
            default:
                if (PROP_TYPE(value.ulPropTag) & MV_FLAG) Shift(v.MVl.lpl);
        }
    }

private:
    template <class T>
    void Shift(T*& pointer) const {
        if (pointer) pointer = reinterpret_cast<T*>(reinterpret_cast<std::intptr_t>(pointer) + m_shift);
    }
    template <class T, class Each>
    void Elements(T*& elements, ULONG count, Each&& each) const {
        T* before = elements;
        Shift(elements);
        T* readable = m_pointersAreValid ? before : elements;
        for (ULONG i = 0; readable && i < count; ++i)
            each(readable[i]);
    }

    std::intptr_t m_shift;
    bool m_pointersAreValid;
};

std::optional<std::size_t> RoomForAll(int count, const SPropValue* values) {
    std::size_t cb = RoundUp(static_cast<std::size_t>(count) * sizeof(SPropValue));
    for (int i = 0; i < count; ++i) {
        const auto behind = RoomBehind(values[i]);
        if (!behind || *behind > 0x7FFFFFFF) return std::nullopt;
        cb += *behind;
    }
    if (cb > 0x7FFFFFFF) return std::nullopt;
    return cb;
}

}  // namespace

// --- single properties ------------------------------------------------------------------------------

STDAPI HrGetOneProp(LPMAPIPROP lpMapiProp, ULONG ulPropTag, LPSPropValue* lppProp) {
    if (!lpMapiProp || !lppProp) return MAPI_E_INVALID_PARAMETER;
    *lppProp = nullptr;
    SizedSPropTagArray(1, tags) = {1, {ulPropTag}};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    HRESULT hr = lpMapiProp->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, &values);
    if (FAILED(hr)) return hr;
    if (count != 1 || !values)
        hr = MAPI_E_NOT_FOUND;
    else if (PROP_TYPE(values->ulPropTag) == PT_ERROR)
        hr = values->Value.err;
    else
        hr = S_OK;
    if (FAILED(hr))
        MAPIFreeBuffer(values);
    else
        *lppProp = values;
    return hr;
}

STDAPI HrSetOneProp(LPMAPIPROP lpMapiProp, LPSPropValue lpProp) {
    if (!lpMapiProp || !lpProp) return MAPI_E_INVALID_PARAMETER;
    LPSPropProblemArray problems = nullptr;
    HRESULT hr = lpMapiProp->SetProps(1, lpProp, &problems);
    if (SUCCEEDED(hr) && problems && problems->cProblem > 0) hr = problems->aProblem[0].scode;
    MAPIFreeBuffer(problems);
    return hr;
}

STDAPI_(WINBOOL) FPropExists(LPMAPIPROP lpMapiProp, ULONG ulPropTag) {
    if (!lpMapiProp) return FALSE;
    LPSPropTagArray list = nullptr;
    if (FAILED(lpMapiProp->GetPropList(0, &list)) || !list) return FALSE;
    bool found = false;
    const ULONG type = PROP_TYPE(ulPropTag);
    for (ULONG i = 0; i < list->cValues && !found; ++i) {
        const ULONG tag = list->aulPropTag[i];
        if (PROP_ID(tag) != PROP_ID(ulPropTag)) continue;
        const bool bothText = (type == PT_STRING8 || type == PT_UNICODE) &&
                              (PROP_TYPE(tag) == PT_STRING8 || PROP_TYPE(tag) == PT_UNICODE);
        found = type == PT_UNSPECIFIED || PROP_TYPE(tag) == type || bothText;
    }
    MAPIFreeBuffer(list);
    return found;
}

STDAPI_(LPSPropValue) PpropFindProp(LPSPropValue lpPropArray, ULONG cValues, ULONG ulPropTag) {
    for (ULONG i = 0; lpPropArray && i < cValues; ++i) {
        const ULONG tag = lpPropArray[i].ulPropTag;
        if (tag == ulPropTag ||
            (PROP_TYPE(ulPropTag) == PT_UNSPECIFIED && PROP_ID(tag) == PROP_ID(ulPropTag)))
            return lpPropArray + i;
    }
    return nullptr;
}

// Unlike PpropFindProp looks at the ID only, and passes over errors.
STDAPI_(LPSPropValue) LpValFindProp(ULONG ulPropTag, ULONG cValues, LPSPropValue lpPropArray) {
    for (ULONG i = 0; lpPropArray && i < cValues; ++i) {
        const ULONG tag = lpPropArray[i].ulPropTag;
        if (PROP_ID(tag) == PROP_ID(ulPropTag) && PROP_TYPE(tag) != PT_ERROR) return lpPropArray + i;
    }
    return nullptr;
}

STDAPI_(ULONG) UlPropSize(LPSPropValue lpSPropValue) {
    if (!lpSPropValue) return 0;
    const auto size = SizeOf(*lpSPropValue);
    return size ? static_cast<ULONG>(*size) : 0;
}

STDAPI_(WINBOOL) FEqualNames(LPMAPINAMEID lpName1, LPMAPINAMEID lpName2) {
    if (!lpName1 || !lpName2 || !lpName1->lpguid || !lpName2->lpguid) return FALSE;
    if (lpName1->ulKind != lpName2->ulKind || !IsEqualGUID(*lpName1->lpguid, *lpName2->lpguid)) return FALSE;
    if (lpName1->ulKind == MNID_ID) return lpName1->Kind.lID == lpName2->Kind.lID;
    const LPCWSTR a = lpName1->Kind.lpwstrName, b = lpName2->Kind.lpwstrName;
    return a && b && std::wcscmp(a, b) == 0;
}

STDAPI_(void) GetInstance(LPSPropValue lpPropMv, LPSPropValue lpPropSv, ULONG uliInst) {
    if (!lpPropMv || !lpPropSv) return;
    const auto& v = lpPropMv->Value;
    if (!v.MVl.lpl || uliInst >= v.MVl.cValues) return;
    const auto type = static_cast<PropType>(PROP_TYPE(lpPropMv->ulPropTag) & ~static_cast<ULONG>(MVI_FLAG));
    auto& one = lpPropSv->Value;
    if (type == PT_STRING8)
        one.lpszA = v.MVszA.lppszA[uliInst];
    else if (type == PT_UNICODE)
        one.lpszW = v.MVszW.lppszW[uliInst];
    else if (type == PT_BINARY)
        one.bin = v.MVbin.lpbin[uliInst];
    else if (type == PT_CLSID)
        one.lpguid = v.MVguid.lpguid + uliInst;
    else if (const std::size_t cb = FixedSizeOf(type))
        std::memcpy(&one, reinterpret_cast<const char*>(v.MVl.lpl) + uliInst * cb, cb);
}

// --- comparison -------------------------------------------------------------------------------------

STDAPI_(LONG) LPropCompareProp(LPSPropValue lpSPropValueA, LPSPropValue lpSPropValueB) {
    try {
        if (const auto order = CompareGiven(lpSPropValueA, lpSPropValueB)) return *order;
    } catch (...) {
    }
    if (!lpSPropValueA || !lpSPropValueB) return lpSPropValueA ? 1 : (lpSPropValueB ? -1 : 0);
    return static_cast<LONG>(PROP_TYPE(lpSPropValueA->ulPropTag)) -
           static_cast<LONG>(PROP_TYPE(lpSPropValueB->ulPropTag));
}

STDAPI_(WINBOOL) FPropCompareProp(LPSPropValue lpSPropValue1, ULONG ulRelOp, LPSPropValue lpSPropValue2) {
    try {
        const auto order = CompareGiven(lpSPropValue1, lpSPropValue2);
        return order && RelationHolds(ulRelOp, *order);
    } catch (...) {
        return FALSE;
    }
}

STDAPI_(WINBOOL)
FPropContainsProp(LPSPropValue lpSPropValueDst, LPSPropValue lpSPropValueSrc, ULONG ulFuzzyLevel) {
    try {
        std::string bytes, pattern;
        CStoredValue value, wanted;
        if (!Encode(lpSPropValueDst, bytes, value) || !Encode(lpSPropValueSrc, pattern, wanted)) return FALSE;
        if (wanted.Type() != PT_STRING8 && wanted.Type() != PT_BINARY) return FALSE;
        return CContentPattern(wanted, ulFuzzyLevel).Matches(value);
    } catch (...) {
        return FALSE;
    }
}

// --- copies -----------------------------------------------------------------------------------------

STDAPI_(SCODE)
PropCopyMore(LPSPropValue lpSPropValueDest, LPSPropValue lpSPropValueSrc, ALLOCATEMORE* lpfAllocMore,
             LPVOID lpvObject) {
    if (!lpSPropValueDest || !lpSPropValueSrc || !lpfAllocMore) return MAPI_E_INVALID_PARAMETER;
    auto take = [&](std::size_t cb) -> void* {
        void* piece = nullptr;
        if (cb > 0x7FFFFFFF || FAILED(lpfAllocMore(static_cast<ULONG>(cb), lpvObject, &piece)))
            return nullptr;
        return piece;
    };
    SPropValue copy = *lpSPropValueSrc;
    const SCODE code = CPieceCopier(take).Copy(copy);
    if (SUCCEEDED(code)) *lpSPropValueDest = copy;
    return code;
}

STDAPI_(SCODE) ScCountProps(int cValues, LPSPropValue lpPropArray, ULONG* lpcb) {
    if (cValues <= 0 || !lpPropArray || !lpcb) return MAPI_E_INVALID_PARAMETER;
    const auto cb = RoomForAll(cValues, lpPropArray);
    if (!cb) return MAPI_E_INVALID_PARAMETER;
    *lpcb = static_cast<ULONG>(*cb);
    return S_OK;
}

STDAPI_(SCODE) ScCopyProps(int cValues, LPSPropValue lpPropArray, LPVOID lpvDst, ULONG* lpcb) {
    if (cValues <= 0 || !lpPropArray || !lpvDst) return MAPI_E_INVALID_PARAMETER;
    auto* values = static_cast<SPropValue*>(lpvDst);
    char* const begin = static_cast<char*>(lpvDst);
    char* next = begin + RoundUp(static_cast<std::size_t>(cValues) * sizeof(SPropValue));
    auto take = [&next](std::size_t cb) -> void* {
        void* piece = next;
        next += RoundUp(cb);
        return piece;
    };
    for (int i = 0; i < cValues; ++i) {
        values[i] = lpPropArray[i];
        const SCODE code = CPieceCopier(take).Copy(values[i]);
        if (FAILED(code)) return code;
    }
    if (lpcb) *lpcb = static_cast<ULONG>(next - begin);
    return S_OK;
}

STDAPI_(SCODE)
ScRelocProps(int cValues, LPSPropValue lpPropArray, LPVOID lpvBaseOld, LPVOID lpvBaseNew, ULONG* lpcb) {
    if (cValues <= 0 || !lpPropArray || !lpvBaseOld || !lpvBaseNew) return MAPI_E_INVALID_PARAMETER;
    if (lpcb) {
        const bool valid = lpPropArray == lpvBaseOld;
        const auto cb = valid ? RoomForAll(cValues, lpPropArray) : std::nullopt;
        *lpcb = cb ? static_cast<ULONG>(*cb) : 0;
    }
    const CRelocator relocator(lpvBaseOld, lpvBaseNew, lpPropArray == lpvBaseOld);
    for (int i = 0; i < cValues; ++i)
        relocator.Move(lpPropArray[i]);
    return S_OK;
}

STDAPI_(SCODE)
ScDupPropset(int cValues, LPSPropValue lpPropArray, LPALLOCATEBUFFER lpAllocateBuffer,
             LPSPropValue* lppPropArray) {
    if (!lppPropArray || !lpAllocateBuffer) return MAPI_E_INVALID_PARAMETER;
    *lppPropArray = nullptr;
    ULONG cb = 0;
    SCODE code = ScCountProps(cValues, lpPropArray, &cb);
    if (FAILED(code)) return code;
    void* block = nullptr;
    code = lpAllocateBuffer(cb, &block);
    if (FAILED(code)) return code;
    code = ScCopyProps(cValues, lpPropArray, block, nullptr);
    if (FAILED(code))
        MAPIFreeBuffer(block);
    else
        *lppPropArray = static_cast<LPSPropValue>(block);
    return code;
}
