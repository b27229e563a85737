#include "StorageBytes.h"

#include <cstring>

#include <MapiStore/Values/StoreError.h>
#include <MapiStore/Values/UnknownImpl.h>
#include "MsgFormat.h"

namespace {

constexpr char kSignature[] = "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1";

void Check(HRESULT hr) {
    Require(SUCCEEDED(hr), msg::MapiCodeOf(hr));
}

}  // namespace

bool IsCompoundFile(std::string_view bytes) {
    return bytes.size() >= 512 && bytes.substr(0, 8) == std::string_view(kSignature, 8);
}

bool BytesOfStorage(IStorage& storage, std::size_t most, std::string& bytes) {
    CRef<ILockBytes> lockBytes;
    CRef<IStorage> file;
    if (FAILED(CreateILockBytesOnHGlobal(nullptr, TRUE, lockBytes.Out()))) return false;
    if (FAILED(StgCreateDocfileOnILockBytes(
            lockBytes.Get(), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, file.Out())))
        return false;
    if (FAILED(storage.CopyTo(0, nullptr, nullptr, file.Get()))) return false;
    CLSID id{};
    if (SUCCEEDED(ReadClassStg(&storage, &id))) WriteClassStg(file.Get(), id);
    if (FAILED(file->Commit(STGC_DEFAULT))) return false;
    file.Reset();
    STATSTG stat{};
    if (FAILED(lockBytes->Stat(&stat, STATFLAG_NONAME)) || stat.cbSize.QuadPart > most) return false;
    bytes.resize(static_cast<std::size_t>(stat.cbSize.QuadPart));
    ULONG read = 0;
    return SUCCEEDED(lockBytes->ReadAt({}, bytes.data(), static_cast<ULONG>(bytes.size()), &read)) &&
           read == bytes.size();
}

void CopyBytesInto(std::string_view bytes, IStorage& target) {
    CRef<ILockBytes> lockBytes;
    CRef<IStorage> file;
    Check(CreateILockBytesOnHGlobal(nullptr, TRUE, lockBytes.Out()));
    ULONG written = 0;
    Check(lockBytes->WriteAt({}, bytes.data(), static_cast<ULONG>(bytes.size()), &written));
    Check(StgOpenStorageOnILockBytes(lockBytes.Get(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                                     file.Out()));
    Check(file->CopyTo(0, nullptr, nullptr, &target));
    CLSID id{};
    if (SUCCEEDED(ReadClassStg(file.Get(), &id))) WriteClassStg(&target, id);
}
