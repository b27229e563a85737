#include "StoreError.h"

#include <new>

HRESULT CodeOfCurrentException() noexcept {
    try {
        throw;
    } catch (const CStoreError& error) {
        return error.Code();
    } catch (const std::bad_alloc&) {
        return MAPI_E_NOT_ENOUGH_MEMORY;
    } catch (...) {
        return MAPI_E_CALL_FAILED;
    }
}
