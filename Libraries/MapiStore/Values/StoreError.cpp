#include "StoreError.h"

#include <algorithm>
#include <new>

#include "MapiMemory.h"

namespace {
thread_local CStoreError s_last{S_OK};
}

CStoreError CurrentError() noexcept {
    try {
        throw;
    } catch (const CStoreError& error) {
        return error;
    } catch (const std::bad_alloc&) {
        return CStoreError(MAPI_E_NOT_ENOUGH_MEMORY);
    } catch (...) {
        return CStoreError(MAPI_E_CALL_FAILED);
    }
}

HRESULT CodeOfCurrentException() noexcept {
    s_last = CurrentError();
    return s_last.Code();
}

namespace {
// The words are plain ASCII in every version of the database.
template <class Char>
void* CopyWords(void* root, const std::string& words) {
    void* room = nullptr;
    if (FAILED(AllocateOn(root, (words.size() + 1) * sizeof(Char), &room))) return nullptr;
    *std::copy(words.begin(), words.end(), static_cast<Char*>(room)) = 0;
    return room;
}
}  // namespace

HRESULT GiveLastError(HRESULT hr, ULONG flags, LPMAPIERROR* error) noexcept {
    if (!error) return MAPI_E_INVALID_PARAMETER;
    *error = nullptr;
    if (s_last.Code() != hr || s_last.Text().empty()) return S_OK;
    void* root = nullptr;
    if (FAILED(AllocateRoot(sizeof(MAPIERROR), &root))) return MAPI_E_NOT_ENOUGH_MEMORY;
    auto* given = static_cast<MAPIERROR*>(root);
    *given = {};
    given->ulVersion = MAPI_ERROR_VERSION;
    given->lpszError = static_cast<LPTSTR>((flags & MAPI_UNICODE) ? CopyWords<wchar_t>(root, s_last.Text())
                                                                  : CopyWords<char>(root, s_last.Text()));
    *error = given;
    return S_OK;
}
