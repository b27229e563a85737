// A storage as the bytes of a compound file, and back.
#pragma once
#include <Platform/MapiHeaders.h>

#include <string>
#include <string_view>

// False if the storage cannot be copied or the bytes would be more than `most`.
bool BytesOfStorage(IStorage& storage, std::size_t most, std::string& bytes);
// True for bytes that begin as compound files do.
bool IsCompoundFile(std::string_view bytes);
// Copies what lies in the bytes of a compound file into `target`. Throws CStoreError.
void CopyBytesInto(std::string_view bytes, IStorage& target);
