// The entry points of structured storage. A file is read whole when it is opened and written whole at
// Commit or, in direct mode, when its last reference goes.
#include "CompoundObjects.h"

#include <Platform/Machine.h>
#include <Platform/Utf8.h>

#include <filesystem>

using namespace compound;

namespace {

constexpr DWORD KnownFlags = 0x040F3073;  // all published STGM_ bits but the multi-writer one

HRESULT CheckMode(DWORD mode, bool create) {
    if (mode & ~KnownFlags) return STG_E_INVALIDFLAG;
    if ((mode & 3) == 3 || ShareOf(mode) > STGM_SHARE_DENY_NONE) return STG_E_INVALIDFLAG;
    // A new file has to be written; reading is no way to begin one.
    if (create && !IsWriter(mode)) return STG_E_INVALIDFLAG;
    return S_OK;
}

// Without a transaction nothing would keep two users of one file apart but the sharing mode.
HRESULT CheckShare(DWORD mode) {
    if (mode & STGM_TRANSACTED) return S_OK;
    if (ShareOf(mode) == STGM_SHARE_EXCLUSIVE) return S_OK;
    return !IsWriter(mode) && ShareOf(mode) == STGM_SHARE_DENY_WRITE ? S_OK : STG_E_INVALIDFLAG;
}

HRESULT CreateOn(std::unique_ptr<IBacking> backing, DWORD mode, IStorage** storage) {
    const auto document = std::make_shared<Document>();
    document->backing = std::move(backing);
    document->root = NewElement(true, std::u16string());
    document->dirty = true;
    const HRESULT hr = document->Flush();
    if (hr >= 0) *storage = NewRootStorage(document, mode);
    return hr < 0 ? hr : S_OK;
}

HRESULT OpenOn(std::unique_ptr<IBacking> backing, DWORD mode, IStorage** storage) {
    const auto document = std::make_shared<Document>();
    std::string bytes;
    HRESULT hr = backing->Load(bytes);
    if (hr >= 0) hr = ParseCompoundFile(bytes, document->root);
    if (hr < 0) return hr;
    document->backing = std::move(backing);
    *storage = NewRootStorage(document, mode);
    return S_OK;
}

std::string TemporaryPath() {
    char name[40];
    const GUID guid = NewGuid();
    std::snprintf(name, sizeof name, "vellum-%08x%04x%04x.tmp", guid.Data1, guid.Data2, guid.Data3);
    return (std::filesystem::temp_directory_path() / name).string();
}

bool HoldsCompoundFile(IBacking& backing) {
    std::string bytes;
    ElementRef root;
    return backing.Load(bytes) >= 0 && ParseCompoundFile(bytes, root) == S_OK;
}

}  // namespace

HRESULT StgCreateDocfile(const WCHAR* pwcsName, DWORD grfMode, DWORD reserved, IStorage** ppstgOpen) {
    if (!ppstgOpen) return STG_E_INVALIDPOINTER;
    *ppstgOpen = nullptr;
    if (reserved) return STG_E_INVALIDPARAMETER;
    return Guarded([&] {
        HRESULT hr = CheckMode(grfMode, true);
        if (hr == S_OK) hr = CheckShare(grfMode);
        if (hr != S_OK) return hr;
        const std::string path = pwcsName ? Utf8FromWide(pwcsName) : TemporaryPath();
        std::error_code ignored;
        const bool exists = std::filesystem::exists(path, ignored);
        if (exists && !(grfMode & STGM_CREATE)) return STG_E_FILEALREADYEXISTS;
        std::unique_ptr<IBacking> backing;
        hr = OpenFileBacking(path, grfMode, true, backing);
        return hr == S_OK ? CreateOn(std::move(backing), grfMode, ppstgOpen) : hr;
    });
}

HRESULT StgOpenStorage(const WCHAR* pwcsName, IStorage* pstgPriority, DWORD grfMode, SNB snbExclude,
                       DWORD reserved, IStorage** ppstgOpen) {
    if (!ppstgOpen) return STG_E_INVALIDPOINTER;
    *ppstgOpen = nullptr;
    if (!pwcsName) return STG_E_INVALIDNAME;
    if (pstgPriority || snbExclude || reserved) return STG_E_INVALIDPARAMETER;
    return Guarded([&] {
        HRESULT hr = CheckMode(grfMode, false);
        if (hr == S_OK) hr = CheckShare(grfMode);
        if (grfMode & (STGM_CREATE | STGM_DELETEONRELEASE)) hr = STG_E_INVALIDFLAG;
        if (hr != S_OK) return hr;
        std::unique_ptr<IBacking> backing;
        hr = OpenFileBacking(Utf8FromWide(pwcsName), grfMode, false, backing);
        return hr == S_OK ? OpenOn(std::move(backing), grfMode, ppstgOpen) : hr;
    });
}

HRESULT StgCreateDocfileOnILockBytes(ILockBytes* plkbyt, DWORD grfMode, DWORD reserved,
                                     IStorage** ppstgOpen) {
    if (!plkbyt || !ppstgOpen) return STG_E_INVALIDPOINTER;
    *ppstgOpen = nullptr;
    if (reserved) return STG_E_INVALIDPARAMETER;
    return Guarded([&] {
        const HRESULT hr = CheckMode(grfMode, true);
        if (hr != S_OK) return hr;
        auto backing = NewLockBytesBacking(plkbyt);
        if (!(grfMode & STGM_CREATE) && HoldsCompoundFile(*backing)) return STG_E_FILEALREADYEXISTS;
        return CreateOn(std::move(backing), grfMode, ppstgOpen);
    });
}

HRESULT StgOpenStorageOnILockBytes(ILockBytes* plkbyt, IStorage* pstgPriority, DWORD grfMode, SNB snbExclude,
                                   DWORD reserved, IStorage** ppstgOpen) {
    if (!plkbyt || !ppstgOpen) return STG_E_INVALIDPOINTER;
    *ppstgOpen = nullptr;
    if (pstgPriority || snbExclude || reserved) return STG_E_INVALIDPARAMETER;
    return Guarded([&] {
        const HRESULT hr = CheckMode(grfMode, false);
        if (hr != S_OK) return hr;
        if (grfMode & (STGM_CREATE | STGM_DELETEONRELEASE)) return STG_E_INVALIDFLAG;
        return OpenOn(NewLockBytesBacking(plkbyt), grfMode, ppstgOpen);
    });
}

HRESULT WriteClassStg(IStorage* pStg, REFCLSID rclsid) {
    return pStg ? pStg->SetClass(rclsid) : E_INVALIDARG;
}

HRESULT ReadClassStg(IStorage* pStg, CLSID* pclsid) {
    if (!pStg || !pclsid) return E_INVALIDARG;
    STATSTG stat{};
    const HRESULT hr = pStg->Stat(&stat, STATFLAG_NONAME);
    if (hr == S_OK) *pclsid = stat.clsid;
    return hr;
}
