// The published utilities on hexadecimal text, times and strings.
#include <MapiStore/Values/MapiMemory.h>

#include <Platform/Clock.h>
#include <Platform/Machine.h>

#include <cstring>

namespace {

int DigitOf(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

bool ReadHex(const char* text, std::size_t length, BYTE* bytes) {
    if (length % 2) return false;
    for (std::size_t i = 0; i < length; i += 2) {
        const int high = DigitOf(text[i]), low = DigitOf(text[i + 1]);
        if (high < 0 || low < 0) return false;
        bytes[i / 2] = static_cast<BYTE>(high << 4 | low);
    }
    return true;
}

void PutBigEndian(BYTE* to, std::uint64_t value, int count) {
    for (int i = 0; i < count; ++i)
        to[i] = static_cast<BYTE>(value >> (8 * (count - 1 - i)));
}

constexpr ULONG kIndexHeader = 22;
constexpr ULONG kIndexChild = 5;

// The header: one reserved byte, five bytes of time, a GUID. A child: the time since the header.
void WriteIndexHeader(BYTE* index, std::uint64_t now) {
    index[0] = 1;
    PutBigEndian(index + 1, now >> 16, 5);
    const GUID guid = NewGuid();
    PutBigEndian(index + 6, guid.Data1, 4);
    PutBigEndian(index + 10, guid.Data2, 2);
    PutBigEndian(index + 12, guid.Data3, 2);
    std::memcpy(index + 14, guid.Data4, 8);
}

void WriteIndexChild(const BYTE* header, BYTE* child, std::uint64_t now) {
    std::uint64_t begun = 0;
    for (int i = 0; i < 6; ++i)
        begun = begun << 8 | header[i];
    begun <<= 16;
    const std::uint64_t delta = now > begun ? now - begun : begun - now;
    const bool recent = (delta & 0x00FE000000000000ULL) == 0;
    const auto code =
        static_cast<std::uint32_t>(recent ? (delta >> 18) & 0x7FFFFFFF : (delta >> 23) & 0x7FFFFFFF);
    PutBigEndian(child, recent ? code : code | 0x80000000u, 4);
    child[4] = static_cast<BYTE>(NewGuid().Data1);
}

}  // namespace

STDAPI_(void) HexFromBin(LPBYTE lpb, int cb, LPTSTR lpsz) {
    static const char digits[] = "0123456789ABCDEF";
    for (int i = 0; i < cb; ++i) {
        *lpsz++ = digits[lpb[i] >> 4];
        *lpsz++ = digits[lpb[i] & 15];
    }
    *lpsz = 0;
}

STDAPI_(WINBOOL) FBinFromHex(LPTSTR lpsz, LPBYTE lpb) {
    return lpsz && lpb && ReadHex(lpsz, std::strlen(lpsz), lpb);
}

STDAPI_(SCODE) ScBinFromHexBounded(LPTSTR lpsz, LPBYTE lpb, ULONG cb) {
    if (!lpsz || !lpb) return MAPI_E_INVALID_PARAMETER;
    const std::size_t length = std::strlen(lpsz);
    if (length / 2 > cb || !ReadHex(lpsz, length, lpb)) return MAPI_E_CALL_FAILED;
    return S_OK;
}

STDAPI_(ULONG) UlFromSzHex(LPCTSTR lpsz) {
    ULONG value = 0;
    for (; lpsz && DigitOf(*lpsz) >= 0; ++lpsz)
        value = value << 4 | static_cast<ULONG>(DigitOf(*lpsz));
    return value;
}

STDAPI_(unsigned int) UFromSz(LPCTSTR lpsz) {
    unsigned value = 0;
    for (; lpsz && *lpsz >= '0' && *lpsz <= '9'; ++lpsz)
        value = value * 10 + static_cast<unsigned>(*lpsz - '0');
    return value;
}

STDAPI HrEntryIDFromSz(LPTSTR lpsz, ULONG* lpcb, LPENTRYID* lppEntryID) {
    if (!lpsz || !lpcb || !lppEntryID) return MAPI_E_INVALID_PARAMETER;
    *lpcb = 0;
    *lppEntryID = nullptr;
    const std::size_t length = std::strlen(lpsz);
    void* block = nullptr;
    if (FAILED(AllocateRoot(length / 2, &block))) return MAPI_E_NOT_ENOUGH_MEMORY;
    if (!ReadHex(lpsz, length, static_cast<BYTE*>(block))) {
        MAPIFreeBuffer(block);
        return MAPI_E_CALL_FAILED;
    }
    *lpcb = static_cast<ULONG>(length / 2);
    *lppEntryID = static_cast<LPENTRYID>(block);
    return S_OK;
}

STDAPI HrSzFromEntryID(ULONG cb, LPENTRYID lpEntryID, LPTSTR* lpsz) {
    if (!lpEntryID || !lpsz || cb > 0x3FFFFFFF) return MAPI_E_INVALID_PARAMETER;
    *lpsz = nullptr;
    void* block = nullptr;
    if (FAILED(AllocateRoot(std::size_t{cb} * 2 + 1, &block))) return MAPI_E_NOT_ENOUGH_MEMORY;
    *lpsz = static_cast<LPTSTR>(block);
    HexFromBin(reinterpret_cast<LPBYTE>(lpEntryID), static_cast<int>(cb), *lpsz);
    return S_OK;
}

STDAPI_(LPTSTR) SzFindCh(LPCTSTR lpsz, USHORT ch) {
    return lpsz ? const_cast<LPTSTR>(std::strchr(lpsz, ch)) : nullptr;
}
STDAPI_(LPTSTR) SzFindLastCh(LPCTSTR lpsz, USHORT ch) {
    return lpsz ? const_cast<LPTSTR>(std::strrchr(lpsz, ch)) : nullptr;
}
STDAPI_(LPTSTR) SzFindSz(LPCTSTR lpsz, LPCTSTR lpszKey) {
    return lpsz && lpszKey ? const_cast<LPTSTR>(std::strstr(lpsz, lpszKey)) : nullptr;
}

STDAPI_(FILETIME) FtAddFt(FILETIME ftAddend1, FILETIME ftAddend2) {
    return FileTimeOf(TicksOf(ftAddend1) + TicksOf(ftAddend2));
}
STDAPI_(FILETIME) FtSubFt(FILETIME ftMinuend, FILETIME ftSubtrahend) {
    return FileTimeOf(TicksOf(ftMinuend) - TicksOf(ftSubtrahend));
}
STDAPI_(FILETIME) FtNegFt(FILETIME ft) {
    return FileTimeOf(0 - TicksOf(ft));
}
STDAPI_(FILETIME) FtMulDwDw(DWORD ftMultiplicand, DWORD ftMultiplier) {
    return FileTimeOf(std::uint64_t{ftMultiplicand} * ftMultiplier);
}
STDAPI_(FILETIME) FtMulDw(DWORD ftMultiplier, FILETIME ftMultiplicand) {
    return FileTimeOf(ftMultiplier * TicksOf(ftMultiplicand));
}

STDAPI_(ULONG) UlAddRef(LPVOID lpunk) {
    return lpunk ? static_cast<IUnknown*>(lpunk)->AddRef() : 0;
}
STDAPI_(ULONG) UlRelease(LPVOID lpunk) {
    return lpunk ? static_cast<IUnknown*>(lpunk)->Release() : 0;
}

STDAPI_(SCODE)
ScCreateConversationIndex(ULONG cbParent, LPBYTE lpbParent, ULONG* lpcbConvIndex, LPBYTE* lppbConvIndex) {
    if (!lpcbConvIndex || !lppbConvIndex) return MAPI_E_INVALID_PARAMETER;
    *lpcbConvIndex = 0;
    *lppbConvIndex = nullptr;
    const bool reply = cbParent >= kIndexHeader && lpbParent;
    const std::size_t cb = reply ? std::size_t{cbParent} + kIndexChild : kIndexHeader;
    void* block = nullptr;
    if (FAILED(AllocateRoot(cb, &block))) return MAPI_E_NOT_ENOUGH_MEMORY;
    auto* index = static_cast<BYTE*>(block);
    const std::uint64_t now = TicksOf(UtcNow());
    if (reply) {
        std::memcpy(index, lpbParent, cbParent);
        WriteIndexChild(lpbParent, index + cbParent, now);
    } else {
        WriteIndexHeader(index, now);
    }
    *lpcbConvIndex = static_cast<ULONG>(cb);
    *lppbConvIndex = index;
    return S_OK;
}

STDAPI_(SCODE) ScInitMapiUtil(ULONG) {
    return S_OK;
}
STDAPI_(VOID) DeinitMapiUtil(VOID) {}
