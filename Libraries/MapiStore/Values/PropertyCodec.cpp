#include "PropertyCodec.h"

#include "StoreError.h"

namespace {

constexpr std::size_t Aligned(std::size_t cb) {
    return (cb + 7) & ~std::size_t(7);
}

// Bytes of one value of a fixed-size type; 0 for the others.
std::size_t FixedSize(ULONG type) {
    switch (type) {
        case PT_I2:
        case PT_BOOLEAN:
            return 2;
        case PT_LONG:
        case PT_R4:
            return 4;
        case PT_DOUBLE:
        case PT_APPTIME:
        case PT_CURRENCY:
        case PT_I8:
        case PT_SYSTIME:
            return 8;
        case PT_CLSID:
            return 16;
        default:
            return 0;
    }
}

constexpr bool IsMulti(ULONG type) {
    return (type & MV_FLAG) != 0;
}
constexpr ULONG Single(ULONG type) {
    return type & ~static_cast<ULONG>(MV_FLAG);
}

void AppendRaw(std::string& bytes, const void* from, std::size_t cb) {
    if (cb == 0) return;
    Require(from != nullptr, MAPI_E_INVALID_PARAMETER);
    bytes.append(static_cast<const char*>(from), cb);
}

std::string JoinOwned(const std::vector<std::string>& texts) {
    return JoinElements({texts.begin(), texts.end()});
}

std::string StoredTexts(const SPropValue& value) {
    const bool wide = PROP_TYPE(value.ulPropTag) == PT_MV_UNICODE;
    const ULONG count = wide ? value.Value.MVszW.cValues : value.Value.MVszA.cValues;
    Require(count == 0 || value.Value.MVszA.lppszA, MAPI_E_INVALID_PARAMETER);
    std::vector<std::string> texts;
    for (ULONG i = 0; i < count; ++i) {
        const void* text =
            wide ? static_cast<const void*>(value.Value.MVszW.lppszW[i]) : value.Value.MVszA.lppszA[i];
        Require(text != nullptr, MAPI_E_INVALID_PARAMETER);
        texts.push_back(Utf8FromArgument(text, wide ? MAPI_UNICODE : 0));
    }
    return JoinOwned(texts);
}

std::string StoredBinaries(const SBinaryArray& array) {
    Require(array.cValues == 0 || array.lpbin, MAPI_E_INVALID_PARAMETER);
    std::vector<std::string_view> elements;
    for (ULONG i = 0; i < array.cValues; ++i) {
        const SBinary& one = array.lpbin[i];
        Require(one.cb == 0 || one.lpb, MAPI_E_INVALID_PARAMETER);
        elements.emplace_back(reinterpret_cast<const char*>(one.lpb), one.cb);
    }
    return JoinElements(elements);
}

void AppendMulti(const SPropValue& value, std::string& bytes) {
    const ULONG type = PROP_TYPE(value.ulPropTag);
    if (type == PT_MV_STRING8 || type == PT_MV_UNICODE) {
        bytes += StoredTexts(value);
    } else if (type == PT_MV_BINARY) {
        bytes += StoredBinaries(value.Value.MVbin);
    } else {
        // All fixed-size arrays are a count and a pointer.
        AppendRaw(bytes, value.Value.MVl.lpl, value.Value.MVl.cValues * FixedSize(Single(type)));
    }
}

void AppendSingle(const SPropValue& value, std::string& bytes) {
    switch (PROP_TYPE(value.ulPropTag)) {
        case PT_STRING8:
            Require(value.Value.lpszA, MAPI_E_INVALID_PARAMETER);
            if (IsSameNarrow(value.Value.lpszA))
                bytes += value.Value.lpszA;
            else
                bytes += Utf8FromNarrow(value.Value.lpszA);
            break;
        case PT_UNICODE:
            Require(value.Value.lpszW, MAPI_E_INVALID_PARAMETER);
            bytes += Utf8FromWide(value.Value.lpszW);
            break;
        case PT_BINARY:
            AppendRaw(bytes, value.Value.bin.lpb, value.Value.bin.cb);
            break;
        case PT_CLSID:
            AppendRaw(bytes, value.Value.lpguid, sizeof(GUID));
            break;
        case PT_BOOLEAN: {
            const std::uint16_t flag = value.Value.b ? 1 : 0;
            AppendRaw(bytes, &flag, sizeof flag);
            break;
        }
        default:
            AppendRaw(bytes, &value.Value, FixedSize(PROP_TYPE(value.ulPropTag)));
            break;
    }
}

// A table cell shows the beginning, without cutting a character in two.
std::string_view CutText(std::string_view utf8, bool cell) {
    if (!cell || utf8.size() <= kCellCharacters) return utf8;
    std::size_t characters = 0;
    for (std::size_t at = 0; at < utf8.size(); ++at) {
        const bool continues = (static_cast<unsigned char>(utf8[at]) & 0xC0) == 0x80;
        if (!continues && characters++ == kCellCharacters) return utf8.substr(0, at);
    }
    return utf8;
}

std::string_view CutBinary(std::string_view bytes, bool cell) {
    return cell ? bytes.substr(0, kCellBytes) : bytes;
}

std::size_t RoomForText(std::string_view utf8, PropType given, bool cell) {
    utf8 = CutText(utf8, cell);
    if (given == PT_UNICODE) return Aligned((WideFromUtf8(utf8).size() + 1) * sizeof(WCHAR));
    return Aligned((IsSameNarrow(utf8) ? utf8.size() : NarrowFromUtf8(utf8).size()) + 1);
}

char* TakeRoom(char*& room, std::size_t cb) {
    char* at = room;
    room += Aligned(cb);
    return at;
}

void GiveText(std::string_view utf8, PropType given, bool cell, char*& room) {
    utf8 = CutText(utf8, cell);
    if (given == PT_UNICODE) {
        const std::wstring wide = WideFromUtf8(utf8);
        std::memcpy(TakeRoom(room, (wide.size() + 1) * sizeof(WCHAR)), wide.c_str(),
                    (wide.size() + 1) * sizeof(WCHAR));
        return;
    }
    std::string narrow;
    if (!IsSameNarrow(utf8)) utf8 = narrow = NarrowFromUtf8(utf8);
    char* at = TakeRoom(room, utf8.size() + 1);
    if (!utf8.empty()) std::memcpy(at, utf8.data(), utf8.size());
    at[utf8.size()] = 0;
}

void GiveMulti(const CStoredValue& value, PropType given, bool cell, SPropValue& out, char*& room) {
    const PropType single = given & ~MV_FLAG;
    if (single != PT_STRING8 && single != PT_UNICODE && single != PT_BINARY) {
        const std::size_t each = FixedSize(single);
        Require(each != 0, MAPI_E_CORRUPT_DATA);
        out.Value.MVl.cValues = static_cast<ULONG>(value.Bytes().size() / each);
        const std::size_t cb = out.Value.MVl.cValues * each;
        out.Value.MVl.lpl = reinterpret_cast<LONG*>(TakeRoom(room, cb));
        if (cb) std::memcpy(out.Value.MVl.lpl, value.Bytes().data(), cb);
        return;
    }
    const auto elements = SplitElements(value.Bytes());
    if (single == PT_BINARY) {
        auto* array = reinterpret_cast<SBinary*>(TakeRoom(room, elements.size() * sizeof(SBinary)));
        for (std::size_t i = 0; i < elements.size(); ++i) {
            const std::string_view bytes = CutBinary(elements[i], cell);
            array[i].cb = static_cast<ULONG>(bytes.size());
            array[i].lpb = reinterpret_cast<BYTE*>(TakeRoom(room, bytes.size()));
            if (!bytes.empty()) std::memcpy(array[i].lpb, bytes.data(), bytes.size());
        }
        out.Value.MVbin = {static_cast<ULONG>(elements.size()), array};
        return;
    }
    auto* array = reinterpret_cast<char**>(TakeRoom(room, elements.size() * sizeof(char*)));
    for (std::size_t i = 0; i < elements.size(); ++i) {
        array[i] = room;
        GiveText(elements[i], single, cell, room);
    }
    out.Value.MVszA = {static_cast<ULONG>(elements.size()), array};
}

}  // namespace

PropType StoredTypeOf(ULONG mapiType) {
    const ULONG single = Single(mapiType);
    if (IsMulti(mapiType) && single == PT_BOOLEAN) return 0;
    if (single == PT_STRING8 || single == PT_UNICODE)
        return static_cast<PropType>(PT_STRING8 | (mapiType & MV_FLAG));
    if (single == PT_BINARY || FixedSize(single) != 0) return static_cast<PropType>(mapiType);
    return 0;
}

bool AppendStored(const SPropValue& value, std::string& bytes, PropType& type) {
    type = StoredTypeOf(PROP_TYPE(value.ulPropTag));
    if (type == 0) return false;
    const std::size_t before = bytes.size();
    try {
        if (IsMulti(type))
            AppendMulti(value, bytes);
        else
            AppendSingle(value, bytes);
    } catch (...) {
        bytes.resize(before);
        throw;
    }
    return true;
}

std::optional<PropType> GivenType(PropType stored, ULONG wanted, bool unicode) {
    const bool text = Single(stored) == PT_STRING8;
    if (wanted == PT_UNSPECIFIED) {
        if (!text || !unicode) return stored;
        return static_cast<PropType>(PT_UNICODE | (stored & MV_FLAG));
    }
    if (wanted == stored) return stored;
    if (text && wanted == (PT_UNICODE | (stored & static_cast<ULONG>(MV_FLAG))))
        return static_cast<PropType>(wanted);
    return std::nullopt;
}

std::size_t RoomFor(const CStoredValue& value, PropType given, bool cell) {
    const PropType single = given & ~MV_FLAG;
    if (!IsMulti(given)) {
        if (single == PT_STRING8 || single == PT_UNICODE) return RoomForText(value.Bytes(), single, cell);
        if (single == PT_BINARY) return Aligned(CutBinary(value.Bytes(), cell).size());
        return single == PT_CLSID ? sizeof(GUID) : 0;
    }
    if (single != PT_STRING8 && single != PT_UNICODE && single != PT_BINARY)
        return Aligned(value.Bytes().size());
    std::size_t cb = 0;
    for (const auto& element : SplitElements(value.Bytes())) {
        if (single == PT_BINARY)
            cb += sizeof(SBinary) + Aligned(CutBinary(element, cell).size());
        else
            cb += sizeof(char*) + RoomForText(element, single, cell);
    }
    return Aligned(cb);
}

void GiveValue(const CStoredValue& value, ULONG tag, bool cell, SPropValue& out, char*& room) {
    const auto given = static_cast<PropType>(PROP_TYPE(tag));
    out.ulPropTag = tag;
    out.dwAlignPad = 0;
    out.Value.bin = {0, nullptr};
    if (IsMulti(given)) {
        GiveMulti(value, given, cell, out, room);
        return;
    }
    switch (given) {
        case PT_STRING8:
        case PT_UNICODE:
            out.Value.lpszA = room;
            GiveText(value.Bytes(), given, cell, room);
            return;
        case PT_BINARY: {
            const std::string_view bytes = CutBinary(value.Bytes(), cell);
            out.Value.bin.cb = static_cast<ULONG>(bytes.size());
            out.Value.bin.lpb = reinterpret_cast<BYTE*>(TakeRoom(room, bytes.size()));
            if (!bytes.empty()) std::memcpy(out.Value.bin.lpb, bytes.data(), bytes.size());
            return;
        }
        case PT_CLSID:
            Require(value.Bytes().size() == sizeof(GUID), MAPI_E_CORRUPT_DATA);
            out.Value.lpguid = reinterpret_cast<GUID*>(TakeRoom(room, sizeof(GUID)));
            std::memcpy(out.Value.lpguid, value.Bytes().data(), sizeof(GUID));
            return;
        default:
            Require(FixedSize(given) != 0 && value.Bytes().size() == FixedSize(given), MAPI_E_CORRUPT_DATA);
            std::memcpy(&out.Value, value.Bytes().data(), value.Bytes().size());
    }
}
