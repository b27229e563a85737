// A byte string that owns its bytes.
#pragma once
#include <Platform/MapiHeaders.h>

#include <cstdint>
#include <cstring>
#include <string>

// The two ways of getting memory. Alloc throws (CMAPIException or std::bad_alloc) when there is none.
struct CMapiBufferMemory {
    static BYTE* Alloc(ULONG cb);
    static void Free(BYTE* bytes);
};
struct CNewMemory {
    static BYTE* Alloc(ULONG cb);
    static void Free(BYTE* bytes);
};

// Bytes with 10 spare zero bytes behind them. Copying copies the bytes. Comparison is by pointer
// first, then by length, then by content.
template <class Memory>
class CMapiBinaryOf {
public:
    CMapiBinaryOf() = default;
    explicit CMapiBinaryOf(const SBinary& bin) { Assign(bin); }
    CMapiBinaryOf(const CMapiBinaryOf& other) { Assign(other.Bin()); }
    CMapiBinaryOf(CMapiBinaryOf&& other) noexcept;
    ~CMapiBinaryOf() { Free(); }
    CMapiBinaryOf& operator=(const CMapiBinaryOf& other);
    CMapiBinaryOf& operator=(CMapiBinaryOf&& other) noexcept;
    CMapiBinaryOf& operator=(const SBinary& bin);

    // Copies the bytes; they may be those held. A null pointer counts as no bytes.
    void Assign(const SBinary& bin);
    void Assign(const void* bytes, ULONG cb);
    // Frees the old bytes and reads digit pairs up to the first zero byte; half a pair at the end is
    // dropped. Upper-case digits only: any other character gives a senseless byte, never a fault.
    void ParseHex(const std::string& text);
    void Free();

    ULONG Count() const { return m_cb; }
    const BYTE* Data() const { return m_bytes; }
    BYTE* Data() { return m_bytes; }
    bool IsEmpty() const { return m_cb == 0; }
    // A view, valid until the object is changed or dies.
    SBinary Bin() const { return SBinary{m_cb, m_bytes}; }
    operator SBinary() const { return Bin(); }
    std::string Hex() const;  // upper-case hexadecimal

    // Negative, zero, positive. Shorter is less.
    int Compare(const SBinary& other) const;
    bool operator==(const CMapiBinaryOf& other) const { return Compare(other.Bin()) == 0; }
    bool operator!=(const CMapiBinaryOf& other) const { return Compare(other.Bin()) != 0; }
    bool operator<(const CMapiBinaryOf& other) const { return Compare(other.Bin()) < 0; }
    bool operator==(const SBinary& other) const { return Compare(other) == 0; }

private:
    ULONG m_cb = 0;
    BYTE* m_bytes = nullptr;
};

extern template class CMapiBinaryOf<CNewMemory>;
extern template class CMapiBinaryOf<CMapiBufferMemory>;

// For members of engine classes: needs no MAPI.
using CMapiBinary = CMapiBinaryOf<CNewMemory>;
// For bytes that MAPI shall be able to free.
using CMapiBufferBinary = CMapiBinaryOf<CMapiBufferMemory>;

// By length first, then by content; null pointers count as no bytes.
int CompareBinary(const SBinary& a, const SBinary& b);
inline bool EqualBinary(const SBinary& a, const SBinary& b) {
    const ULONG cb = a.lpb ? a.cb : 0;
    if (cb != (b.lpb ? b.cb : 0)) return false;
    return cb == 0 || std::memcmp(a.lpb, b.lpb, cb) == 0;
}

// The form of ParseHex as a function.
CMapiBinary BinaryFromHex(const std::string& text);
