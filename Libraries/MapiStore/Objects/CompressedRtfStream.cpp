// WrapCompressedRTFStream: RTF text over a stream that holds its compressed form.
#include <MapiStore/Core/StoreCall.h>
#include <MapiStore/Values/Lzfu.h>
#include <MapiStore/Values/MemoryStream.h>
#include <MapiStore/Values/StreamBytes.h>

#include <mutex>

namespace {

class CRtfStream final : public CMemoryStream {
public:
    // For reading: `text` is what could be decompressed.
    CRtfStream(IStream* packed, DecompressedRtf rtf)
        : CMemoryStream(std::move(rtf.text), false),
          m_packed(CRef<IStream>::Share(packed)),
          m_damaged(rtf.damaged) {}
    // For writing; begins empty.
    CRtfStream(IStream* packed, bool compress)
        : CMemoryStream({}, true), m_packed(CRef<IStream>::Share(packed)), m_compress(compress) {}
    ~CRtfStream() override {
        if (m_dirty)
            GuardedCall([this] {
                WriteBack();
                return S_OK;
            });
    }

    // What could be read of damaged text is given first; then comes the error instead of the end.
    HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG cb, ULONG* read) override {
        ULONG count = 0;
        const HRESULT hr = CMemoryStream::Read(buffer, cb, &count);
        if (read) *read = count;
        return SUCCEEDED(hr) && m_damaged && cb > 0 && count == 0 ? MAPI_E_CORRUPT_DATA : hr;
    }

protected:
    HRESULT Guarded(const std::function<HRESULT()>& body) override {
        return GuardedCall([&] {
            const std::lock_guard lock(m_mutex);
            return body();
        });
    }
    void WriteBack() override {
        WriteWholeStream(*m_packed, m_compress ? CompressRtf(m_bytes) : WrapUncompressedRtf(m_bytes));
        m_dirty = false;
    }

private:
    std::mutex m_mutex;
    const CRef<IStream> m_packed;
    const bool m_compress = true;
    const bool m_damaged = false;
};

}  // namespace

STDAPI_(HRESULT)
WrapCompressedRTFStream(LPSTREAM lpCompressedRTFStream, ULONG ulFlags, LPSTREAM* lpUncompressedRTFStream) {
    if (!lpCompressedRTFStream || !lpUncompressedRTFStream) return MAPI_E_INVALID_PARAMETER;
    *lpUncompressedRTFStream = nullptr;
    if (ulFlags & ~(MAPI_MODIFY | STORE_UNCOMPRESSED_RTF)) return MAPI_E_UNKNOWN_FLAGS;
    return GuardedCall([&] {
        if (ulFlags & MAPI_MODIFY)
            *lpUncompressedRTFStream =
                new CRtfStream(lpCompressedRTFStream, (ulFlags & STORE_UNCOMPRESSED_RTF) == 0);
        else
            *lpUncompressedRTFStream =
                new CRtfStream(lpCompressedRTFStream, DecompressRtf(ReadWholeStream(*lpCompressedRTFStream)));
        return S_OK;
    });
}
