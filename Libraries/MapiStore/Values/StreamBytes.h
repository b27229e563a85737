// Streams read and written as a whole.
#pragma once
#include <Platform/MapiHeaders.h>

#include <string>

// All bytes from the stream's position on. Throws CStoreError with the stream's code, MAPI_E_TOO_BIG
// above `most` bytes.
std::string ReadWholeStream(IStream& stream, std::size_t most = 0x3FFFFFFF);
// The bytes become all there is in the stream. Does not commit it.
void WriteWholeStream(IStream& stream, const std::string& bytes);
