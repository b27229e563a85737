// The one exception of this room. It never leaves it: every interface method turns it into its code
// (StoreCall.h).
#pragma once
#include <Platform/MapiHeaders.h>

#include <string>

class CStoreError {
public:
    explicit CStoreError(HRESULT hr, std::string text = {}) : m_hr(hr), m_text(std::move(text)) {}
    HRESULT Code() const { return m_hr; }
    const std::string& Text() const { return m_text; }  // for a person; may be empty

private:
    HRESULT m_hr;
    std::string m_text;
};

// Throws CStoreError unless the condition holds.
inline void Require(bool condition, HRESULT hr) {
    if (!condition) throw CStoreError(hr);
}

// The exception under way as a CStoreError. Call inside a catch block only.
CStoreError CurrentError() noexcept;

// The code of the exception under way: CStoreError's own, MAPI_E_NOT_ENOUGH_MEMORY for bad_alloc,
// MAPI_E_CALL_FAILED for anything else. Call inside a catch block only. Every failure of a call goes through
// here, so the reason behind it is kept for GiveLastError of the same thread.
HRESULT CodeOfCurrentException() noexcept;

// GetLastError of every object of this room: the database's own words for the last call on this thread, if
// it failed with `hr` and there are any; S_OK and null otherwise.
HRESULT GiveLastError(HRESULT hr, ULONG flags, LPMAPIERROR* error) noexcept;
