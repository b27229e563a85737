// A compound file made of a fuzzer's bytes.
#pragma once
#include <MapiStore/Values/UnknownImpl.h>
#include <Platform/MapiHeaders.h>

#include <cstdint>

inline CRef<IStorage> StorageOf(const std::uint8_t* data, std::size_t size) {
    CRef<ILockBytes> bytes;
    CRef<IStorage> storage;
    ULONG written = 0;
    if (FAILED(CreateILockBytesOnHGlobal(nullptr, TRUE, bytes.Out())) ||
        FAILED(bytes->WriteAt({}, data, static_cast<ULONG>(size), &written)))
        return storage;
    StgOpenStorageOnILockBytes(bytes.Get(), nullptr, STGM_READWRITE | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                               storage.Out());
    return storage;
}
