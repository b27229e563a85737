#include "CompoundObjects.h"

#include <algorithm>
#include <cstring>

namespace compound {

namespace {

class CStream : public CComObject<IStream> {
public:
    CStream(const DocumentRef& document, const ElementRef& element, const LifelineRef& parent,
            const std::shared_ptr<void>& token, DWORD mode)
        : m_document(document), m_element(element), m_parent(parent), m_token(token), m_mode(mode) {}

    HRESULT Read(void* pv, ULONG cb, ULONG* pcbRead) override {
        if (pcbRead) *pcbRead = 0;
        if (!pv) return STG_E_INVALIDPOINTER;
        if (IsGone()) return STG_E_REVERTED;
        if (!IsReadable(m_mode)) return STG_E_ACCESSDENIED;
        const std::string& bytes = *m_element->bytes;
        if (m_position >= bytes.size()) return S_OK;
        const auto n = static_cast<ULONG>(std::min<std::uint64_t>(cb, bytes.size() - m_position));
        std::memcpy(pv, bytes.data() + m_position, n);
        m_position += n;
        if (pcbRead) *pcbRead = n;
        return S_OK;
    }

    HRESULT Write(const void* pv, ULONG cb, ULONG* pcbWritten) override {
        if (pcbWritten) *pcbWritten = 0;
        if (!pv) return STG_E_INVALIDPOINTER;
        const HRESULT hr = MayWrite();
        if (hr != S_OK || cb == 0) return hr;
        if (m_position > MaxSize || cb > MaxSize - m_position) return STG_E_MEDIUMFULL;
        return Guarded([&] {
            std::string& bytes = m_element->WritableBytes();
            if (m_position + cb > bytes.size()) bytes.resize(m_position + cb);
            std::memcpy(bytes.data() + m_position, pv, cb);
            m_position += cb;
            m_document->dirty = true;
            if (pcbWritten) *pcbWritten = cb;
            return S_OK;
        });
    }

    HRESULT Seek(LARGE_INTEGER dlibMove, DWORD dwOrigin, ULARGE_INTEGER* plibNewPosition) override {
        if (IsGone()) return STG_E_REVERTED;
        std::uint64_t from = 0;
        if (dwOrigin == STREAM_SEEK_CUR) {
            from = m_position;
        } else if (dwOrigin == STREAM_SEEK_END) {
            from = m_element->bytes->size();
        } else if (dwOrigin != STREAM_SEEK_SET) {
            return STG_E_INVALIDFUNCTION;
        }
        const std::int64_t move = dlibMove.QuadPart;
        const auto distance =
            move < 0 ? 0 - static_cast<std::uint64_t>(move) : static_cast<std::uint64_t>(move);
        if (move < 0 ? distance > from : distance > INT64_MAX - from) return STG_E_INVALIDFUNCTION;
        m_position = move < 0 ? from - distance : from + distance;
        if (plibNewPosition) plibNewPosition->QuadPart = m_position;
        return S_OK;
    }

    HRESULT SetSize(ULARGE_INTEGER libNewSize) override {
        const HRESULT hr = MayWrite();
        if (hr != S_OK) return hr;
        if (libNewSize.QuadPart > MaxSize) return STG_E_MEDIUMFULL;
        return Guarded([&] {
            m_element->WritableBytes().resize(libNewSize.QuadPart);
            m_document->dirty = true;
            return S_OK;
        });
    }

    HRESULT CopyTo(IStream* pstm, ULARGE_INTEGER cb, ULARGE_INTEGER* pcbRead,
                   ULARGE_INTEGER* pcbWritten) override {
        ULARGE_INTEGER read{};
        ULARGE_INTEGER written{};
        HRESULT hr = pstm ? S_OK : STG_E_INVALIDPOINTER;
        char block[16384];
        while (hr == S_OK && read.QuadPart < cb.QuadPart) {
            const ULONGLONG rest = cb.QuadPart - read.QuadPart;
            ULONG got = 0;
            ULONG put = 0;
            hr = Read(block, static_cast<ULONG>(std::min<ULONGLONG>(rest, sizeof block)), &got);
            if (hr != S_OK || got == 0) break;
            read.QuadPart += got;
            hr = pstm->Write(block, got, &put);
            written.QuadPart += put;
            if (hr == S_OK && put != got) hr = STG_E_MEDIUMFULL;
        }
        if (pcbRead) *pcbRead = read;
        if (pcbWritten) *pcbWritten = written;
        return hr;
    }

    // A stream has no transaction of its own: what is written stands in the storage at once.
    HRESULT Commit(DWORD) override { return IsGone() ? STG_E_REVERTED : S_OK; }
    HRESULT Revert() override { return IsGone() ? STG_E_REVERTED : S_OK; }
    HRESULT LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return STG_E_INVALIDFUNCTION; }
    HRESULT UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return STG_E_INVALIDFUNCTION; }

    HRESULT Stat(STATSTG* pstatstg, DWORD grfStatFlag) override {
        if (!pstatstg) return STG_E_INVALIDPOINTER;
        if (IsGone()) return STG_E_REVERTED;
        return Guarded([&] {
            const HRESULT hr = FillStat(*m_element, WideOf(m_element->name), grfStatFlag, *pstatstg);
            pstatstg->grfMode = m_mode;
            return hr;
        });
    }

    HRESULT Clone(IStream** ppstm) override {
        if (!ppstm) return STG_E_INVALIDPOINTER;
        *ppstm = nullptr;
        if (IsGone()) return STG_E_REVERTED;
        return Guarded([&] {
            auto* clone = new CStream(m_document, m_element, m_parent, m_token, m_mode);
            clone->m_position = m_position;
            *ppstm = clone;
            return S_OK;
        });
    }

private:
    bool Answers(REFIID riid) const override { return riid == IID_IStream || riid == IID_ISequentialStream; }
    bool IsGone() const { return m_element->gone || m_parent->IsCut(); }
    HRESULT MayWrite() const {
        if (IsGone()) return STG_E_REVERTED;
        return IsWriter(m_mode) ? S_OK : STG_E_ACCESSDENIED;
    }

    DocumentRef m_document;
    ElementRef m_element;
    LifelineRef m_parent;
    std::shared_ptr<void> m_token;
    DWORD m_mode;
    std::uint64_t m_position = 0;
};

}  // namespace

IStream* NewStream(const DocumentRef& document, const ElementRef& element, const LifelineRef& parent,
                   const std::shared_ptr<void>& token, DWORD mode) {
    return new CStream(document, element, parent, token, mode);
}

}  // namespace compound
