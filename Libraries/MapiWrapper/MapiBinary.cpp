#include <MapiWrapper/HexText.h>
#include <MapiWrapper/MapiBinary.h>
#include <MapiWrapper/MapiException.h>

#include <cstring>
#include <utility>

namespace {

constexpr ULONG kSpareBytes = 10;

// One digit of ParseHex: no test, so that any character gives some value.
unsigned LooseDigit(char c) {
    return static_cast<unsigned char>(c < 'A' ? c - '0' : c - '7');
}

}  // namespace

BYTE* CMapiBufferMemory::Alloc(ULONG cb) {
    void* block = nullptr;
    THROW_ON_FAILURE(MAPIAllocateBuffer(cb, &block));
    return static_cast<BYTE*>(NotNull(block, "MAPIAllocateBuffer"));
}
void CMapiBufferMemory::Free(BYTE* bytes) {
    if (bytes) MAPIFreeBuffer(bytes);
}
BYTE* CNewMemory::Alloc(ULONG cb) {
    return new BYTE[cb];
}
void CNewMemory::Free(BYTE* bytes) {
    delete[] bytes;
}

template <class Memory>
CMapiBinaryOf<Memory>::CMapiBinaryOf(CMapiBinaryOf&& other) noexcept
    : m_cb(std::exchange(other.m_cb, 0)), m_bytes(std::exchange(other.m_bytes, nullptr)) {}

template <class Memory>
CMapiBinaryOf<Memory>& CMapiBinaryOf<Memory>::operator=(const CMapiBinaryOf& other) {
    if (this != &other) Assign(other.Bin());
    return *this;
}

template <class Memory>
CMapiBinaryOf<Memory>& CMapiBinaryOf<Memory>::operator=(CMapiBinaryOf&& other) noexcept {
    if (this != &other) {
        Free();
        m_cb = std::exchange(other.m_cb, 0);
        m_bytes = std::exchange(other.m_bytes, nullptr);
    }
    return *this;
}

template <class Memory>
CMapiBinaryOf<Memory>& CMapiBinaryOf<Memory>::operator=(const SBinary& bin) {
    Assign(bin);
    return *this;
}

template <class Memory>
void CMapiBinaryOf<Memory>::Assign(const SBinary& bin) {
    Assign(bin.lpb, bin.cb);
}

template <class Memory>
void CMapiBinaryOf<Memory>::Assign(const void* bytes, ULONG cb) {
    if (!bytes) {
        Free();
        return;
    }
    if (cb > 0xFFFFFFFFu - kSpareBytes) throw CMAPIException(MAPI_E_NOT_ENOUGH_MEMORY, nullptr, nullptr);
    BYTE* copy = Memory::Alloc(cb + kSpareBytes);
    std::memcpy(copy, bytes, cb);
    std::memset(copy + cb, 0, kSpareBytes);
    Free();
    m_bytes = copy;
    m_cb = cb;
}

template <class Memory>
void CMapiBinaryOf<Memory>::ParseHex(const std::string& text) {
    const char* at = text.c_str();
    const ULONG cb = static_cast<ULONG>(std::strlen(at) / 2);
    BYTE* bytes = Memory::Alloc(cb + kSpareBytes);
    std::memset(bytes, 0, cb + kSpareBytes);
    for (ULONG i = 0; i < cb; ++i)
        bytes[i] = static_cast<BYTE>((LooseDigit(at[2 * i]) << 4) + LooseDigit(at[2 * i + 1]));
    Free();
    m_bytes = bytes;
    m_cb = cb;
}

template <class Memory>
void CMapiBinaryOf<Memory>::Free() {
    Memory::Free(std::exchange(m_bytes, nullptr));
    m_cb = 0;
}

template <class Memory>
std::string CMapiBinaryOf<Memory>::Hex() const {
    return HexFromBinary(Bin());
}

template <class Memory>
int CMapiBinaryOf<Memory>::Compare(const SBinary& other) const {
    return CompareBinary(Bin(), other);
}

template class CMapiBinaryOf<CNewMemory>;
template class CMapiBinaryOf<CMapiBufferMemory>;

int CompareBinary(const SBinary& a, const SBinary& b) {
    const ULONG cbA = a.lpb ? a.cb : 0;
    const ULONG cbB = b.lpb ? b.cb : 0;
    if (cbA != cbB) return cbA < cbB ? -1 : 1;
    if (a.lpb == b.lpb || cbA == 0) return 0;
    return std::memcmp(a.lpb, b.lpb, cbA);
}

CMapiBinary BinaryFromHex(const std::string& text) {
    CMapiBinary binary;
    binary.ParseHex(text);
    return binary;
}
