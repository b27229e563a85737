#include <MapiWrapper/PropMemory.h>
#include <MapiWrapper/StoreText.h>
#include <Platform/CodePage.h>
#include <Platform/Utf8.h>

#include <algorithm>
#include <cstring>

namespace {

// Stands for a text that a store cannot hold; a person's text never holds it.
constexpr char kNowhere[] = "\x01\x01";

constexpr ULONG SingleOf(ULONG type) {
    return type & ~static_cast<ULONG>(MVI_FLAG);
}
constexpr bool IsNarrow(ULONG type) {
    return SingleOf(type) == PT_STRING8;
}
constexpr bool IsWide(ULONG type) {
    return SingleOf(type) == PT_UNICODE;
}
constexpr ULONG WithText(ULONG tag, ULONG text) {
    return PROP_TAG(text | (PROP_TYPE(tag) & MVI_FLAG), PROP_ID(tag));
}
// A column of single instances has the flag in its tag and one value in its cells.
constexpr bool IsMulti(ULONG type) {
    return (type & MV_FLAG) != 0 && (type & MV_INSTANCE) == 0;
}

HRESULT Replace(char*& text, const std::string& utf8, void* parent) {
    void* block = nullptr;
    const HRESULT hr = CopyBehind(utf8.c_str(), utf8.size() + 1, parent, &block);
    if (hr >= 0) text = static_cast<char*>(block);
    return hr;
}

// An 8-bit text in the code page, in its place.
HRESULT TakeNarrow(char*& text, void* parent) {
    if (!text || IsAscii(text)) return S_OK;
    return Replace(text, Utf8FromCodePage(text, AnsiCodePage()), parent);
}

HRESULT TakeWide(wchar_t* wide, char*& text, void* parent) {
    return Replace(text, Utf8FromWide(wide), parent);
}

// Both members are a count and a pointer to pointers; an element is read before it is replaced.
HRESULT TakeArray(SPropValue& value, bool wide, void* parent) {
    SLPSTRArray& texts = value.Value.MVszA;
    HRESULT hr = S_OK;
    for (ULONG i = 0; hr >= 0 && texts.lppszA && i < texts.cValues; ++i)
        hr = wide ? TakeWide(value.Value.MVszW.lppszW[i], texts.lppszA[i], parent)
                  : TakeNarrow(texts.lppszA[i], parent);
    return hr;
}

}  // namespace

TextForm TextFormOfSystem() {
    return AnsiCodePage() == Utf8CodePage ? TextForm::Same : TextForm::Wide;
}

TextForm TextFormOf(IMAPIProp* object) {
    if (!object || TextFormOfSystem() == TextForm::Same) return TextFormOfSystem();
    SPropValue* mask = nullptr;
    if (HrGetOneProp(object, PR_STORE_SUPPORT_MASK, &mask) < 0 || !mask) return TextForm::Wide;
    const bool wide = (mask->Value.l & STORE_UNICODE_OK) != 0;
    MAPIFreeBuffer(mask);
    return wide ? TextForm::Wide : TextForm::Narrow;
}

ULONG TagForStore(ULONG tag, TextForm form) {
    if (form == TextForm::Wide && IsNarrow(PROP_TYPE(tag))) return WithText(tag, PT_UNICODE);
    if (form == TextForm::Narrow && IsWide(PROP_TYPE(tag))) return WithText(tag, PT_STRING8);
    return tag;
}

HRESULT TakeText(SPropValue& value, ULONG asked, TextForm form, void* parent) {
    const ULONG type = PROP_TYPE(value.ulPropTag);
    if (form == TextForm::Same || (IsWide(type) && IsWide(PROP_TYPE(asked)))) return S_OK;
    if (!IsNarrow(type) && !IsWide(type)) return S_OK;
    HRESULT hr = S_OK;
    if (IsMulti(type))
        hr = TakeArray(value, IsWide(type), parent);
    else if (IsWide(type))
        hr = TakeWide(value.Value.lpszW, value.Value.lpszA, parent);
    else
        hr = TakeNarrow(value.Value.lpszA, parent);
    if (hr >= 0) value.ulPropTag = WithText(value.ulPropTag, PT_STRING8);
    return hr;
}

HRESULT TakeTexts(SPropValue* values, ULONG count, const std::vector<ULONG>& asked, TextForm form,
                  void* parent) {
    if (form == TextForm::Same || !values) return S_OK;
    HRESULT hr = S_OK;
    for (ULONG i = 0; hr >= 0 && i < count; ++i)
        hr = TakeText(values[i], i < asked.size() ? asked[i] : PR_NULL, form, parent);
    return hr;
}

std::string TextFromStream(const std::string& bytes, TextForm form) {
    if (form == TextForm::Wide) {
        const std::string text = Utf8FromUtf16Bytes(bytes);
        return text.c_str();
    }
    const std::string text = bytes.c_str();
    return form == TextForm::Narrow ? Utf8FromCodePage(text, AnsiCodePage()) : text;
}

std::string TextForStream(const std::string& text, TextForm form, bool end) {
    std::string bytes = text.c_str();
    if (form == TextForm::Wide) bytes = Utf16BytesFromUtf8(bytes);
    if (form == TextForm::Narrow) bytes = CodePageFromUtf8(bytes, AnsiCodePage());
    if (end) bytes.append(form == TextForm::Wide ? 2 : 1, '\0');
    return bytes;
}

bool CanKeepText(const std::string& text, TextForm form) {
    if (form != TextForm::Narrow || IsAscii(text)) return true;
    return Utf8FromCodePage(CodePageFromUtf8(text, AnsiCodePage()), AnsiCodePage()) == text;
}

HRESULT GetOneText(IMAPIProp* object, ULONG tag, TextForm form, SPropValue** value) {
    HRESULT hr = HrGetOneProp(object, TagForStore(tag, form), value);
    if (hr < 0 || !*value) return hr;
    hr = TakeText(**value, tag, form, *value);
    if (hr >= 0) return hr;
    MAPIFreeBuffer(*value);
    *value = nullptr;
    return hr;
}

// --- what is given ------------------------------------------------------------------------------------

void* CStoreText::Room(size_t cb) {
    m_blocks.push_back(std::make_unique<char[]>(std::max<size_t>(cb, 1)));
    return m_blocks.back().get();
}

template <class T>
T* CStoreText::Array(size_t count) {
    return static_cast<T*>(Room(count * sizeof(T)));
}

char* CStoreText::Narrow(const char* text) {
    const bool kept = !m_search || CanKeepText(text, m_form);
    const std::string bytes = kept ? CodePageFromUtf8(text, AnsiCodePage()) : std::string(kNowhere);
    return static_cast<char*>(std::memcpy(Room(bytes.size() + 1), bytes.c_str(), bytes.size() + 1));
}

wchar_t* CStoreText::Widen(const char* text) {
    const std::wstring wide = WideFromUtf8(text);
    const size_t cb = (wide.size() + 1) * sizeof(wchar_t);
    return static_cast<wchar_t*>(std::memcpy(Room(cb), wide.c_str(), cb));
}

// From the program's text (or, for a Narrow store, from wide text) to the store's.
void CStoreText::Convert(SPropValue& value) {
    const ULONG type = PROP_TYPE(value.ulPropTag);
    const bool toWide = m_form == TextForm::Wide;
    if (!IsNarrow(type) && (toWide || !IsWide(type))) return;
    const auto convert = [&](const char* narrow, const wchar_t* wide) -> void* {
        if (IsWide(type)) return wide ? Narrow(Utf8FromWide(wide).c_str()) : nullptr;
        if (!narrow) return nullptr;
        return toWide ? static_cast<void*>(Widen(narrow)) : Narrow(narrow);
    };
    auto& v = value.Value;
    if (IsMulti(type)) {
        void** texts = Array<void*>(v.MVszA.cValues);
        for (ULONG i = 0; v.MVszA.lppszA && i < v.MVszA.cValues; ++i)
            texts[i] = convert(v.MVszA.lppszA[i], v.MVszW.lppszW[i]);
        if (v.MVszA.lppszA) v.MVszA.lppszA = reinterpret_cast<char**>(texts);
    } else {
        v.lpszA = static_cast<char*>(convert(v.lpszA, v.lpszW));
    }
    value.ulPropTag = WithText(value.ulPropTag, toWide ? PT_UNICODE : PT_STRING8);
}

SPropValue* CStoreText::Values(const SPropValue* values, ULONG count) {
    const auto isText = [](const SPropValue& value) {
        return IsNarrow(PROP_TYPE(value.ulPropTag)) || IsWide(PROP_TYPE(value.ulPropTag));
    };
    if (m_form == TextForm::Same || !values || std::none_of(values, values + count, isText))
        return const_cast<SPropValue*>(values);
    auto* copies = Array<SPropValue>(count);
    std::copy_n(values, count, copies);
    std::for_each(copies, copies + count, [this](SPropValue& value) { Convert(value); });
    return copies;
}

void CStoreText::Fill(SRestriction& to, const SRestriction& from) {
    to = from;
    auto& r = to.res;
    switch (from.rt) {
        case RES_AND:
        case RES_OR: {
            auto* parts = Array<SRestriction>(r.resAnd.cRes);
            for (ULONG i = 0; i < r.resAnd.cRes; ++i)
                Fill(parts[i], r.resAnd.lpRes[i]);
            r.resAnd.lpRes = parts;
            break;
        }
        case RES_NOT:
            r.resNot.lpRes = Restriction(r.resNot.lpRes);
            break;
        case RES_SUBRESTRICTION:
            r.resSub.lpRes = Restriction(r.resSub.lpRes);
            break;
        case RES_COMMENT:
            r.resComment.lpRes = Restriction(r.resComment.lpRes);
            break;
        case RES_CONTENT:
            r.resContent.ulPropTag = TagForStore(r.resContent.ulPropTag, m_form);
            r.resContent.lpProp = Values(r.resContent.lpProp, 1);
            break;
        case RES_PROPERTY:
            r.resProperty.ulPropTag = TagForStore(r.resProperty.ulPropTag, m_form);
            r.resProperty.lpProp = Values(r.resProperty.lpProp, 1);
            break;
        case RES_COMPAREPROPS:
            r.resCompareProps.ulPropTag1 = TagForStore(r.resCompareProps.ulPropTag1, m_form);
            r.resCompareProps.ulPropTag2 = TagForStore(r.resCompareProps.ulPropTag2, m_form);
            break;
        case RES_EXIST:
            r.resExist.ulPropTag = TagForStore(r.resExist.ulPropTag, m_form);
            break;
        default:  // a size keeps its tag: bytes of wide text would be twice as many
            break;
    }
}

SRestriction* CStoreText::Restriction(SRestriction* restriction) {
    if (m_form == TextForm::Same || !restriction) return restriction;
    m_search = true;
    auto* copy = Array<SRestriction>(1);
    Fill(*copy, *restriction);
    return copy;
}

SSortOrderSet* CStoreText::Order(SSortOrderSet* order) {
    if (m_form == TextForm::Same || !order) return order;
    auto* copy = static_cast<SSortOrderSet*>(Room(CbSSortOrderSet(order)));
    std::memcpy(static_cast<void*>(copy), order, CbSSortOrderSet(order));
    for (ULONG i = 0; i < copy->cSorts; ++i)
        copy->aSort[i].ulPropTag = TagForStore(copy->aSort[i].ulPropTag, m_form);
    return copy;
}

ADRLIST* CStoreText::Addresses(ADRLIST* list) {
    if (m_form == TextForm::Same || !list) return list;
    auto* copy = static_cast<ADRLIST*>(Room(CbADRLIST(list)));
    std::memcpy(static_cast<void*>(copy), list, CbADRLIST(list));
    for (ULONG i = 0; i < copy->cEntries; ++i)
        copy->aEntries[i].rgPropVals = Values(copy->aEntries[i].rgPropVals, copy->aEntries[i].cValues);
    return copy;
}

LPTSTR CStoreText::Argument(const std::string& text) {
    if (m_form == TextForm::Wide) return reinterpret_cast<LPTSTR>(Widen(text.c_str()));
    if (m_form == TextForm::Narrow) return reinterpret_cast<LPTSTR>(Narrow(text.c_str()));
    return reinterpret_cast<LPTSTR>(const_cast<char*>(text.c_str()));
}
