#include "StreamBytes.h"

#include "StoreError.h"

#include <algorithm>

std::string ReadWholeStream(IStream& stream, std::size_t most) {
    constexpr ULONG kPiece = 65536;
    std::string bytes;
    std::size_t size = 0;
    for (;;) {
        bytes.resize(size + kPiece);
        ULONG read = 0;
        const HRESULT hr = stream.Read(bytes.data() + size, kPiece, &read);
        Require(SUCCEEDED(hr), hr);
        if (read == 0) break;
        size += std::min(read, kPiece);
        Require(size <= most, MAPI_E_TOO_BIG);
    }
    bytes.resize(size);
    return bytes;
}

void WriteWholeStream(IStream& stream, const std::string& bytes) {
    HRESULT hr = stream.Seek({}, STREAM_SEEK_SET, nullptr);
    // A stream that cannot seek is written from where it stands, which is its beginning.
    if (SUCCEEDED(hr)) hr = stream.SetSize({});
    std::size_t done = 0;
    while (done < bytes.size()) {
        ULONG written = 0;
        const auto piece = static_cast<ULONG>(std::min<std::size_t>(bytes.size() - done, 0x100000));
        hr = stream.Write(bytes.data() + done, piece, &written);
        Require(SUCCEEDED(hr), hr);
        Require(written != 0, MAPI_E_DISK_ERROR);
        done += written;
    }
}
