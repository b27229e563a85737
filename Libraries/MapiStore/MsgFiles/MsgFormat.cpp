#include "MsgFormat.h"

#include <algorithm>

#include <MapiStore/Values/StoreError.h>
#include <MapiStore/Values/UnknownImpl.h>

namespace msg {
namespace {

constexpr DWORD kReading = STGM_READ | STGM_SHARE_EXCLUSIVE;
constexpr DWORD kMaking = STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
constexpr std::size_t kMostElements = 200000;

int DigitOf(wchar_t c) {
    if (c >= L'0' && c <= L'9') return c - L'0';
    if (c >= L'A' && c <= L'F') return c - L'A' + 10;
    if (c >= L'a' && c <= L'f') return c - L'a' + 10;
    return -1;
}

}  // namespace

std::wstring Name(const wchar_t* prefix, ULONG number) {
    std::wstring name = prefix;
    for (int shift = 28; shift >= 0; shift -= 4)
        name.push_back(L"0123456789ABCDEF"[number >> shift & 15]);
    return name;
}

bool ParseName(std::wstring_view name, const wchar_t* prefix, ULONG& number) {
    const std::wstring_view head(prefix);
    if (name.size() != head.size() + 8 || name.substr(0, head.size()) != head) return false;
    ULONG value = 0;
    for (wchar_t c : name.substr(head.size())) {
        const int digit = DigitOf(c);
        if (digit < 0) return false;
        value = value << 4 | static_cast<ULONG>(digit);
    }
    number = value;
    return true;
}

std::vector<Element> ListElements(IStorage& storage) {
    std::vector<Element> elements;
    CRef<IEnumSTATSTG> list;
    if (FAILED(storage.EnumElements(0, nullptr, 0, list.Out()))) return elements;
    STATSTG stat{};
    ULONG fetched = 0;
    while (elements.size() < kMostElements && list->Next(1, &stat, &fetched) == S_OK && fetched == 1) {
        if (!stat.pwcsName) continue;
        elements.push_back({stat.pwcsName, stat.type == STGTY_STORAGE});
        CoTaskMemFree(stat.pwcsName);
    }
    return elements;
}

bool ReadStream(IStorage& storage, const std::wstring& name, std::size_t most, std::string& bytes) {
    CRef<IStream> stream;
    if (FAILED(storage.OpenStream(name.c_str(), nullptr, kReading, 0, stream.Out()))) return false;
    constexpr ULONG kPiece = 65536;
    bytes.clear();
    while (bytes.size() < most) {
        const std::size_t before = bytes.size();
        const auto wanted = static_cast<ULONG>(std::min<std::size_t>(kPiece, most - before));
        bytes.resize(before + wanted);
        ULONG read = 0;
        const HRESULT hr = stream->Read(bytes.data() + before, wanted, &read);
        bytes.resize(before + (SUCCEEDED(hr) ? std::min(read, wanted) : 0));
        if (bytes.size() == before) break;
    }
    return true;
}

void WriteStream(IStorage& storage, const std::wstring& name, std::string_view bytes) {
    CRef<IStream> stream;
    HRESULT hr = storage.CreateStream(name.c_str(), kMaking, 0, 0, stream.Out());
    Require(SUCCEEDED(hr), MapiCodeOf(hr));
    Require(bytes.size() <= 0x7FFFFFFF, MAPI_E_TOO_BIG);
    ULONG written = 0;
    hr = stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written);
    Require(SUCCEEDED(hr), MapiCodeOf(hr));
    Require(written == bytes.size(), MAPI_E_NOT_ENOUGH_DISK);
}

SCODE MapiCodeOf(SCODE code) {
    switch (static_cast<ULONG>(code)) {
        case 0x80030002:  // STG_E_FILENOTFOUND
        case 0x80030003:  // STG_E_PATHNOTFOUND
            return MAPI_E_NOT_FOUND;
        case 0x80030004:  // STG_E_TOOMANYOPENFILES
            return MAPI_E_NOT_ENOUGH_RESOURCES;
        case 0x80030005:  // STG_E_ACCESSDENIED
        case 0x80030020:  // STG_E_SHAREVIOLATION
        case 0x80030021:  // STG_E_LOCKVIOLATION
        case 0x80030103:  // STG_E_CANTSAVE
            return MAPI_E_NO_ACCESS;
        case 0x80030008:  // STG_E_INSUFFICIENTMEMORY
            return MAPI_E_NOT_ENOUGH_MEMORY;
        case 0x80030006:  // STG_E_INVALIDHANDLE
        case 0x80030009:  // STG_E_INVALIDPOINTER
        case 0x80030057:  // STG_E_INVALIDPARAMETER
        case 0x800300FF:  // STG_E_INVALIDFLAG
            return MAPI_E_INVALID_PARAMETER;
        case 0x80030013:  // STG_E_DISKISWRITEPROTECTED
            return MAPI_E_NO_ACCESS;
        case 0x80030019:  // STG_E_SEEKERROR
        case 0x8003001D:  // STG_E_WRITEFAULT
        case 0x8003001E:  // STG_E_READFAULT
            return MAPI_E_DISK_ERROR;
        case 0x80030050:  // STG_E_FILEALREADYEXISTS
            return MAPI_E_COLLISION;
        case 0x80030070:  // STG_E_MEDIUMFULL
            return MAPI_E_NOT_ENOUGH_DISK;
        case 0x800300FB:  // STG_E_INVALIDHEADER
        case 0x800300FC:  // STG_E_INVALIDNAME
        case 0x80030109:  // STG_E_DOCFILECORRUPT
            return MAPI_E_CORRUPT_DATA;
        case 0x80030102:  // STG_E_REVERTED
            return MAPI_E_OBJECT_DELETED;
        default:
            return SUCCEEDED(code) || (static_cast<ULONG>(code) >> 16 & 0x7FF) != 3 ? code
                                                                                    : MAPI_E_CALL_FAILED;
    }
}

}  // namespace msg
