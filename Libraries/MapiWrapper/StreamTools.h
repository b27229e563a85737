// Small numbers, texts and blobs in a stream. All numbers are little-endian 32-bit words.
#pragma once
#include <MapiWrapper/ComPtr.h>
#include <Platform/MapiHeaders.h>

#include <string>

// S_OK; MAPI_E_CORRUPT_DATA at the end of the stream (out values are then zero or empty); or the stream's
// code. A length is never believed: memory grows with what was really read.
HRESULT ReadWord(IStream* stream, ULONG& value);
ULONG ReadWord(IStream* stream);  // 0 where there is none
HRESULT ReadStreamText(IStream* stream, std::string& out);
// The bytes are allocated with MAPIAllocateMore on `parent`, or with MAPIAllocateBuffer without one (or
// where that fails); out is {0, null} on failure.
HRESULT ReadBlob(IStream* stream, SBinary& out, void* parent);
HRESULT ReadBlobBytes(IStream* stream, std::string& out);

HRESULT WriteWord(IStream* stream, ULONG value);
HRESULT WriteBlob(IStream* stream, const SBinary& bin);

// No text or body of a message is larger; reading stops there.
inline constexpr size_t kStreamLimit = 0x40000000;

// Exactly cb bytes or a failure, whatever portions the stream works in.
HRESULT ReadExactly(IStream* stream, void* bytes, ULONG cb);
HRESULT WriteAll(IStream* stream, const void* bytes, ULONG cb, ULONG cbPortion = 0x10000);
// Appends to `out` until a read gives 0 bytes or fails, cbPortion at a time. Stops with MAPI_E_TOO_BIG at
// cbLimit, so that a stream without end does no harm.
HRESULT ReadToEnd(IStream* stream, std::string& out, ULONG cbPortion, size_t cbLimit = kStreamLimit);
