#include <MapiWrapper/MapiException.h>
#include <MapiWrapper/PropMemory.h>
#include <MapiWrapper/StreamTools.h>

#include <algorithm>
#include <cstring>

namespace {
constexpr ULONG kPortion = 0x10000;
constexpr HRESULT kShort = static_cast<HRESULT>(MAPI_E_CORRUPT_DATA);
}  // namespace

HRESULT ReadExactly(IStream* stream, void* bytes, ULONG cb) {
    BYTE* at = static_cast<BYTE*>(bytes);
    while (cb != 0) {
        ULONG read = 0;
        const HRESULT hr = stream->Read(at, cb, &read);
        if (hr < 0) return hr;
        if (read == 0 || read > cb) return kShort;
        at += read;
        cb -= read;
    }
    return S_OK;
}

HRESULT WriteAll(IStream* stream, const void* bytes, ULONG cb, ULONG cbPortion) {
    const BYTE* at = static_cast<const BYTE*>(bytes);
    while (cb != 0) {
        const ULONG portion = std::min(cb, cbPortion);
        ULONG written = 0;
        const HRESULT hr = stream->Write(at, portion, &written);
        if (hr != S_OK) return hr < 0 ? hr : static_cast<HRESULT>(MAPI_E_UNABLE_TO_COMPLETE);
        if (written == 0 || written > portion) return static_cast<HRESULT>(MAPI_E_UNABLE_TO_COMPLETE);
        at += written;
        cb -= written;
    }
    return S_OK;
}

HRESULT ReadToEnd(IStream* stream, std::string& out, ULONG cbPortion, size_t cbLimit) {
    std::string portion(cbPortion, '\0');
    for (;;) {
        ULONG read = 0;
        const HRESULT hr = stream->Read(portion.data(), cbPortion, &read);
        if (hr < 0) return hr;
        if (read == 0) return S_OK;
        if (read > cbPortion) return kShort;
        if (out.size() + read > cbLimit) return static_cast<HRESULT>(MAPI_E_TOO_BIG);
        out.append(portion, 0, read);
    }
}

HRESULT ReadWord(IStream* stream, ULONG& value) {
    BYTE b[4];
    value = 0;
    const HRESULT hr = ReadExactly(stream, b, 4);
    if (hr >= 0)
        value = b[0] | static_cast<ULONG>(b[1]) << 8 | static_cast<ULONG>(b[2]) << 16 |
                static_cast<ULONG>(b[3]) << 24;
    return hr;
}

ULONG ReadWord(IStream* stream) {
    ULONG value = 0;
    ReadWord(stream, value);
    return value;
}

HRESULT WriteWord(IStream* stream, ULONG value) {
    const BYTE b[4] = {static_cast<BYTE>(value), static_cast<BYTE>(value >> 8),
                       static_cast<BYTE>(value >> 16), static_cast<BYTE>(value >> 24)};
    return WriteAll(stream, b, 4);
}

HRESULT ReadBlobBytes(IStream* stream, std::string& out) {
    out.clear();
    ULONG left = 0;
    HRESULT hr = ReadWord(stream, left);
    if (hr < 0) return hr;
    if (left > kStreamLimit) return kShort;
    while (left != 0) {
        const ULONG portion = std::min(left, kPortion);
        const size_t old = out.size();
        out.resize(old + portion);
        hr = ReadExactly(stream, out.data() + old, portion);
        if (hr < 0) {
            out.clear();
            return hr;
        }
        left -= portion;
    }
    return S_OK;
}

HRESULT ReadBlob(IStream* stream, SBinary& out, void* parent) {
    out = SBinary{0, nullptr};
    std::string bytes;
    HRESULT hr = ReadBlobBytes(stream, bytes);
    if (hr < 0) return hr;
    void* block = nullptr;
    hr = CopyBehind(bytes.data(), bytes.size(), parent, &block);
    if (hr < 0 && IsRealParent(parent)) hr = CopyBehind(bytes.data(), bytes.size(), nullptr, &block);
    if (hr < 0) return hr;
    out.cb = static_cast<ULONG>(bytes.size());
    out.lpb = static_cast<BYTE*>(block);
    return S_OK;
}

HRESULT ReadStreamText(IStream* stream, std::string& out) {
    const HRESULT hr = ReadBlobBytes(stream, out);
    out.resize(std::strlen(out.c_str()));
    return hr;
}

HRESULT WriteBlob(IStream* stream, const SBinary& bin) {
    const ULONG cb = bin.lpb ? bin.cb : 0;
    const HRESULT hr = WriteWord(stream, cb);
    return hr < 0 ? hr : WriteAll(stream, bin.lpb, cb);
}
