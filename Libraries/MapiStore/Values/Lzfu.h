// The compressed form of PR_RTF_COMPRESSED: a header of sixteen bytes, then text packed against a
// dictionary of 4096 bytes that both sides fill in the same way ("LZFu"), or the text as it is ("MELA").
#pragma once
#include <Platform/MapiHeaders.h>

#include <string>
#include <string_view>

std::string CompressRtf(std::string_view text);
// The same frame without compression.
std::string WrapUncompressedRtf(std::string_view text);

struct DecompressedRtf {
    std::string text;      // as far as it could be read
    bool damaged = false;  // the rest could not, or the checksum does not fit
};
// Never reads outside `packed` nor yields more than it can hold, whatever its header says. No bytes at
// all are an empty text. Throws CStoreError(MAPI_E_CORRUPT_DATA) where not even the header is one.
DecompressedRtf DecompressRtf(std::string_view packed);

// The checksum of the format, also of what RTFSync remembers about the plain text.
std::uint32_t RtfChecksum(std::string_view bytes);
