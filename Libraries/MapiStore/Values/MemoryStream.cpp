#include "MemoryStream.h"

#include <algorithm>
#include <cstring>

#include "StoreError.h"

namespace {
constexpr HRESULT kAccessDenied = static_cast<HRESULT>(0x80030005);    // STG_E_ACCESSDENIED
constexpr HRESULT kInvalidPointer = static_cast<HRESULT>(0x80030009);  // STG_E_INVALIDPOINTER
constexpr HRESULT kSeekError = static_cast<HRESULT>(0x80030019);       // STG_E_SEEKERROR
constexpr HRESULT kMediumFull = static_cast<HRESULT>(0x80030070);      // STG_E_MEDIUMFULL
constexpr std::uint64_t kLargestStream = 0x3FFFFFFF;                   // what one value may hold
}  // namespace

void* CMemoryStream::FindInterface(REFIID riid) {
    if (riid == IID_IUnknown || riid == IID_IStream || riid == IID_ISequentialStream)
        return static_cast<IStream*>(this);
    return nullptr;
}

HRESULT CMemoryStream::Read(void* buffer, ULONG cb, ULONG* read) {
    if (read) *read = 0;
    if (!buffer) return kInvalidPointer;
    return Guarded([&] {
        const std::size_t left = m_position < m_bytes.size() ? m_bytes.size() - m_position : 0;
        const std::size_t count = std::min<std::size_t>(cb, left);
        if (count) std::memcpy(buffer, m_bytes.data() + m_position, count);
        m_position += count;
        if (read) *read = static_cast<ULONG>(count);
        return S_OK;
    });
}

HRESULT CMemoryStream::Write(const void* buffer, ULONG cb, ULONG* written) {
    if (written) *written = 0;
    if (!buffer && cb) return kInvalidPointer;
    return Guarded([&] {
        if (!m_writable) return kAccessDenied;
        if (m_position + std::uint64_t(cb) > kLargestStream) return kMediumFull;
        if (m_bytes.size() < m_position + cb) m_bytes.resize(m_position + cb);
        if (cb) std::memcpy(m_bytes.data() + m_position, buffer, cb);
        m_position += cb;
        m_dirty = true;
        if (written) *written = cb;
        return static_cast<HRESULT>(S_OK);
    });
}

HRESULT CMemoryStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) {
    return Guarded([&] {
        std::int64_t base = 0;
        if (origin == STREAM_SEEK_CUR)
            base = static_cast<std::int64_t>(m_position);
        else if (origin == STREAM_SEEK_END)
            base = static_cast<std::int64_t>(m_bytes.size());
        else if (origin != STREAM_SEEK_SET)
            return kNotForStreams;
        if (move.QuadPart < -base || move.QuadPart > static_cast<std::int64_t>(kLargestStream))
            return kSeekError;
        m_position = static_cast<std::size_t>(base + move.QuadPart);
        if (position) position->QuadPart = m_position;
        return static_cast<HRESULT>(S_OK);
    });
}

HRESULT CMemoryStream::SetSize(ULARGE_INTEGER size) {
    return Guarded([&] {
        if (!m_writable) return kAccessDenied;
        if (size.QuadPart > kLargestStream) return kMediumFull;
        m_bytes.resize(static_cast<std::size_t>(size.QuadPart));
        m_dirty = true;
        return static_cast<HRESULT>(S_OK);
    });
}

HRESULT CMemoryStream::CopyTo(IStream* target, ULARGE_INTEGER cb, ULARGE_INTEGER* read,
                              ULARGE_INTEGER* written) {
    if (read) read->QuadPart = 0;
    if (written) written->QuadPart = 0;
    if (!target) return kInvalidPointer;
    std::string bytes;
    const HRESULT hr = Guarded([&] {
        const std::size_t left = m_position < m_bytes.size() ? m_bytes.size() - m_position : 0;
        bytes = m_bytes.substr(std::min(m_position, m_bytes.size()),
                               static_cast<std::size_t>(std::min<std::uint64_t>(cb.QuadPart, left)));
        m_position += bytes.size();
        return S_OK;
    });
    if (FAILED(hr)) return hr;
    // Without the lock: the target may belong to another store.
    ULONG count = 0;
    const HRESULT put = target->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &count);
    if (read) read->QuadPart = bytes.size();
    if (written) written->QuadPart = count;
    return put;
}

HRESULT CMemoryStream::Commit(DWORD) {
    return Guarded([&] {
        if (m_dirty) WriteBack();
        m_dirty = false;
        return S_OK;
    });
}

HRESULT CMemoryStream::Stat(STATSTG* stat, DWORD) {
    if (!stat) return kInvalidPointer;
    return Guarded([&] {
        *stat = {};
        stat->type = STGTY_STREAM;
        stat->cbSize.QuadPart = m_bytes.size();
        stat->grfMode = m_writable ? STGM_READWRITE : STGM_READ;
        return S_OK;
    });
}
