#include "ComObject.h"

#include <algorithm>
#include <cstring>

namespace {

// A byte array in global memory. The block may move but keeps its handle.
class CGlobalLockBytes : public CComObject<ILockBytes> {
public:
    CGlobalLockBytes(HGLOBAL block, bool frees) : m_block(block), m_frees(frees) {}

    HGLOBAL Block() const { return m_block; }

    HRESULT ReadAt(ULARGE_INTEGER ulOffset, void* pv, ULONG cb, ULONG* pcbRead) override {
        if (pcbRead) *pcbRead = 0;
        if (!pv) return STG_E_INVALIDPOINTER;
        const SIZE_T size = GlobalSize(m_block);
        if (ulOffset.QuadPart >= size) return S_OK;
        const auto n = static_cast<ULONG>(std::min<ULONGLONG>(cb, size - ulOffset.QuadPart));
        std::memcpy(pv, static_cast<char*>(GlobalLock(m_block)) + ulOffset.QuadPart, n);
        GlobalUnlock(m_block);
        if (pcbRead) *pcbRead = n;
        return S_OK;
    }

    HRESULT WriteAt(ULARGE_INTEGER ulOffset, const void* pv, ULONG cb, ULONG* pcbWritten) override {
        if (pcbWritten) *pcbWritten = 0;
        if (!pv) return STG_E_INVALIDPOINTER;
        if (ulOffset.QuadPart > MaxBytes - cb) return STG_E_MEDIUMFULL;
        ULARGE_INTEGER end;
        end.QuadPart = ulOffset.QuadPart + cb;
        if (end.QuadPart > GlobalSize(m_block)) {
            const HRESULT hr = SetSize(end);
            if (hr != S_OK) return hr;
        }
        std::memcpy(static_cast<char*>(GlobalLock(m_block)) + ulOffset.QuadPart, pv, cb);
        GlobalUnlock(m_block);
        if (pcbWritten) *pcbWritten = cb;
        return S_OK;
    }

    HRESULT Flush() override { return S_OK; }

    HRESULT SetSize(ULARGE_INTEGER cb) override {
        if (cb.QuadPart > MaxBytes) return STG_E_MEDIUMFULL;
        const HGLOBAL block = GlobalReAlloc(m_block, cb.QuadPart, GMEM_MOVEABLE | GMEM_ZEROINIT);
        if (!block) return STG_E_MEDIUMFULL;
        m_block = block;
        return S_OK;
    }

    HRESULT LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return STG_E_INVALIDFUNCTION; }
    HRESULT UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return STG_E_INVALIDFUNCTION; }

    HRESULT Stat(STATSTG* pstatstg, DWORD) override {
        if (!pstatstg) return STG_E_INVALIDPOINTER;
        *pstatstg = STATSTG{};
        pstatstg->type = STGTY_LOCKBYTES;
        pstatstg->cbSize.QuadPart = GlobalSize(m_block);
        return S_OK;
    }

private:
    static constexpr ULONGLONG MaxBytes = 0xFFFFFFFF;

    ~CGlobalLockBytes() override {
        if (m_frees) GlobalFree(m_block);
    }
    bool Answers(REFIID riid) const override { return riid == IID_ILockBytes; }

    HGLOBAL m_block;
    bool m_frees;
};

}  // namespace

HRESULT CreateILockBytesOnHGlobal(HGLOBAL hGlobal, BOOL fDeleteOnRelease, ILockBytes** pplkbyt) {
    if (!pplkbyt) return E_INVALIDARG;
    *pplkbyt = nullptr;
    const HGLOBAL block = hGlobal ? hGlobal : GlobalAlloc(GMEM_MOVEABLE, 0);
    if (!block) return E_OUTOFMEMORY;
    *pplkbyt = new (std::nothrow) CGlobalLockBytes(block, fDeleteOnRelease != FALSE);
    if (*pplkbyt) return S_OK;
    if (!hGlobal) GlobalFree(block);
    return E_OUTOFMEMORY;
}

HRESULT GetHGlobalFromILockBytes(ILockBytes* plkbyt, HGLOBAL* phglobal) {
    if (!plkbyt || !phglobal) return E_INVALIDARG;
    const auto* bytes = dynamic_cast<CGlobalLockBytes*>(plkbyt);
    if (!bytes) return E_INVALIDARG;
    *phglobal = bytes->Block();
    return S_OK;
}
