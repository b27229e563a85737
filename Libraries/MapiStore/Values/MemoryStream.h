// The part of IStream that is the same for every stream held in memory.
#pragma once
#include "UnknownImpl.h"

#include <functional>
#include <string>

class CMemoryStream : public CUnknownImpl<IStream> {
public:
    HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG cb, ULONG* read) override;
    HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG cb, ULONG* written) override;
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) override;
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER size) override;
    HRESULT STDMETHODCALLTYPE CopyTo(IStream* target, ULARGE_INTEGER cb, ULARGE_INTEGER* read,
                                     ULARGE_INTEGER* written) override;
    HRESULT STDMETHODCALLTYPE Commit(DWORD flags) override;
    HRESULT STDMETHODCALLTYPE Revert() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
        return kNotForStreams;
    }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
        return kNotForStreams;
    }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD flags) override;
    HRESULT STDMETHODCALLTYPE Clone(IStream**) override { return MAPI_E_NO_SUPPORT; }

protected:
    CMemoryStream(std::string bytes, bool writable) : m_bytes(std::move(bytes)), m_writable(writable) {}
    void* FindInterface(REFIID riid) override;
    // Runs one method: lock, count, exceptions.
    virtual HRESULT Guarded(const std::function<HRESULT()>& body) = 0;
    virtual void WriteBack() = 0;  // on Commit, when something was written

    static constexpr HRESULT kNotForStreams = static_cast<HRESULT>(0x80030001);  // STG_E_INVALIDFUNCTION
    std::string m_bytes;
    std::size_t m_position = 0;
    bool m_writable;
    bool m_dirty = false;
};
