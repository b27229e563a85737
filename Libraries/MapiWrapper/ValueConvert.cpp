// Values as text and as variants, and back.
#include <MapiWrapper/HexText.h>
#include <MapiWrapper/PropMemory.h>
#include <MapiWrapper/PropValue.h>
#include <MapiWrapper/TextConvert.h>

#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

template <class Item>
std::string Joined(ULONG count, Item item) {
    std::string text;
    for (ULONG i = 0; i < count; ++i) {
        if (i != 0) text += "; ";
        text += item(i);
    }
    return text;
}

std::string JoinedText(const SPropValue& value) {
    const auto& v = value.Value;
    switch (PROP_TYPE(value.ulPropTag)) {
        case PT_MV_LONG:
            return Joined(v.MVl.lpl ? v.MVl.cValues : 0,
                          [&v](ULONG i) { return std::to_string(v.MVl.lpl[i]); });
        case PT_MV_STRING8:
            return Joined(v.MVszA.lppszA ? v.MVszA.cValues : 0,
                          [&v](ULONG i) { return std::string(v.MVszA.lppszA[i] ? v.MVszA.lppszA[i] : ""); });
        default:
            return Joined(v.MVbin.lpbin ? v.MVbin.cValues : 0,
                          [&v](ULONG i) { return HexFromBinary(v.MVbin.lpbin[i]); });
    }
}

// atol, with the end of the range for a number beyond it.
LONG LongOf(const std::string& text) {
    const long long value = std::strtoll(text.c_str(), nullptr, 10);
    return static_cast<LONG>(value > INT_MAX ? INT_MAX : value < INT_MIN ? INT_MIN : value);
}

HRESULT SetBinary(const std::string& hex, SBinary& bin, void* parent) {
    const CMapiBinary bytes = BinaryFromHex(hex);
    void* block = nullptr;
    HRESULT hr = CopyBehind(bytes.Data(), bytes.Count(), parent, &block);
    if (hr < 0 && IsRealParent(parent)) hr = CopyBehind(bytes.Data(), bytes.Count(), nullptr, &block);
    if (hr < 0) return hr;
    bin.cb = bytes.Count();
    bin.lpb = static_cast<BYTE*>(block);
    return S_OK;
}

HRESULT SetText(const std::string& text, char*& out, void* parent) {
    void* block = nullptr;
    const HRESULT hr = CopyBehind(text.c_str(), std::strlen(text.c_str()) + 1, parent, &block);
    if (hr >= 0) out = static_cast<char*>(block);
    return hr;
}

HRESULT SetWide(const std::wstring& text, wchar_t*& out, void* parent) {
    void* block = nullptr;
    const HRESULT hr = CopyBehind(text.c_str(), (text.size() + 1) * sizeof(wchar_t), parent, &block);
    if (hr >= 0) out = static_cast<wchar_t*>(block);
    return hr;
}

// Fills an array of `count` items; the memory of the items hangs on the array where nothing else is given.
template <class Item, class Fill>
HRESULT SetArray(const std::vector<std::string>& texts, ULONG& count, Item*& items, void* parent, Fill fill) {
    void* block = nullptr;
    const size_t cb = texts.size() * sizeof(Item);
    HRESULT hr = AllocateBehind(cb ? cb : 1, parent, &block);
    if (hr < 0) return hr;
    std::memset(block, 0, cb ? cb : 1);
    Item* made = static_cast<Item*>(block);
    void* behind = IsRealParent(parent) ? parent : block;
    for (size_t i = 0; hr >= 0 && i < texts.size(); ++i)
        hr = fill(texts[i], made[i], behind);
    if (hr < 0) return hr;
    items = made;
    count = static_cast<ULONG>(texts.size());
    return S_OK;
}

HRESULT SetList(const std::string& text, SPropValue& value, void* parent) {
    std::vector<std::string> texts;
    TextToList(text, texts);
    auto& v = value.Value;
    switch (PROP_TYPE(value.ulPropTag)) {
        case PT_MV_LONG:
            return SetArray(texts, v.MVl.cValues, v.MVl.lpl, parent,
                            [](const std::string& t, LONG& item, void*) -> HRESULT {
                                item = LongOf(t);
                                return S_OK;
                            });
        case PT_MV_STRING8:
            return SetArray(texts, v.MVszA.cValues, v.MVszA.lppszA, parent,
                            [](const std::string& t, LPSTR& item, void* p) { return SetText(t, item, p); });
        default:
            return SetArray(
                texts, v.MVbin.cValues, v.MVbin.lpbin, parent,
                [](const std::string& t, SBinary& item, void* p) { return SetBinary(t, item, p); });
    }
}

HRESULT TextToValue(const CVariant& variant, SPropValue& value, void* parent) {
    const std::string& text = variant.As<std::string>();
    std::int32_t number = 0;
    double date = 0;
    switch (PROP_TYPE(value.ulPropTag)) {
        case PT_BINARY:
            return SetBinary(text, value.Value.bin, parent);
        case PT_LONG:
            if (variant.ToLong(number)) value.Value.l = number;
            return S_OK;
        case PT_STRING8:
            return SetText(text, value.Value.lpszA, parent);
        case PT_UNICODE:
            return SetWide(WideFromUtf8(text), value.Value.lpszW, parent);
        case PT_SYSTIME: {
            FILETIME ft;
            if (variant.ToDate(date) && FileTimeFromDate(date, ft)) value.Value.ft = ft;
            return S_OK;
        }
        case PT_MV_LONG:
        case PT_MV_STRING8:
        case PT_MV_BINARY:
            return SetList(text, value, parent);
        default:
            return S_OK;
    }
}

void EmptyToValue(SPropValue& value) {
    // Never written through: an empty text has nothing but its end.
    static char emptyText[1] = {0};
    static wchar_t emptyWide[1] = {0};
    switch (PROP_TYPE(value.ulPropTag)) {
        case PT_LONG:
            value.Value.l = 0;
            break;
        case PT_STRING8:
            value.Value.lpszA = emptyText;
            break;
        case PT_UNICODE:
            value.Value.lpszW = emptyWide;
            break;
        case PT_BINARY:
            value.Value.bin = SBinary{0, nullptr};
            break;
        case PT_SYSTIME:
            value.ulPropTag = PROP_TAG(PT_ERROR, PROP_ID(value.ulPropTag));
            break;
        default:
            break;
    }
}

}  // namespace

std::string ValueText(const SPropValue* value) {
    if (!value) return {};
    if (PROP_TYPE(value->ulPropTag) == PT_STRING8) return value->Value.lpszA ? value->Value.lpszA : "";
    return ValueVariant(value).Text();
}

CVariant ValueVariant(const SPropValue* value) {
    if (!value) return {};
    const auto& v = value->Value;
    switch (PROP_TYPE(value->ulPropTag)) {
        case PT_I2:
            return CVariant(static_cast<std::int16_t>(v.i));
        case PT_LONG:
            return CVariant(static_cast<std::int32_t>(v.l));
        case PT_R4:
            return CVariant(v.flt);
        case PT_DOUBLE:
            return CVariant(v.dbl);
        case PT_BOOLEAN:
            return CVariant(v.b != 0);
        case PT_SYSTIME:
            return CVariant(CVariantDate{DateFromFileTime(v.ft)});
        case PT_STRING8:
            return CVariant(v.lpszA ? v.lpszA : "");
        case PT_UNICODE:
            return CVariant(Utf8FromWide(v.lpszW));
        case PT_BINARY:
            return CVariant(HexFromBinary(v.bin));
        case PT_MV_LONG:
        case PT_MV_STRING8:
        case PT_MV_BINARY:
            return CVariant(JoinedText(*value));
        default:
            return {};
    }
}

HRESULT VariantToValue(const CVariant& variant, SPropValue* value, void* parent) {
    auto& v = value->Value;
    FILETIME ft;
    switch (variant.GetKind()) {
        case CVariant::Kind::Empty:
            EmptyToValue(*value);
            break;
        case CVariant::Kind::I2:
            v.i = variant.As<std::int16_t>();
            break;
        case CVariant::Kind::I4:
            v.l = variant.As<std::int32_t>();
            break;
        case CVariant::Kind::R4:
            v.flt = variant.As<float>();
            break;
        case CVariant::Kind::R8:
            v.dbl = variant.As<double>();
            break;
        case CVariant::Kind::Currency:
            std::memcpy(&v.cur, &variant.As<CVariantCurrency>().value, 8);
            break;
        case CVariant::Kind::Bool:
            v.b = variant.As<bool>() ? 1 : 0;
            break;
        case CVariant::Kind::Date:
            if (FileTimeFromDate(variant.As<CVariantDate>().value, ft)) v.ft = ft;
            break;
        case CVariant::Kind::Text:
            return TextToValue(variant, *value, parent);
    }
    return S_OK;
}
