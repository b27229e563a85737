// Owners for what libpff hands out, and its calls in the shape that the walk needs.
#pragma once
// The part of libpff that takes file handles of another library needs that library's headers; we open
// files by name and do without.
#include <libpff/features.h>
#undef LIBPFF_HAVE_BFIO
#include <libpff.h>

#include <cstdint>
#include <optional>
#include <string>

// Takes the error of one call and throws it away: what matters is which thing could not be read, and
// that the walk says itself.
class CPffError {
public:
    CPffError() = default;
    ~CPffError() { libpff_error_free(&m_error); }
    CPffError(const CPffError&) = delete;
    CPffError& operator=(const CPffError&) = delete;
    operator libpff_error_t**() {
        libpff_error_free(&m_error);
        return &m_error;
    }

private:
    libpff_error_t* m_error = nullptr;
};

template <typename T, int (*Free)(T**, libpff_error_t**)>
class CPffHandle {
public:
    CPffHandle() = default;
    ~CPffHandle() { Reset(); }
    CPffHandle(CPffHandle&& other) noexcept : m_handle(other.m_handle) { other.m_handle = nullptr; }
    CPffHandle(const CPffHandle&) = delete;
    CPffHandle& operator=(const CPffHandle&) = delete;
    operator T*() const { return m_handle; }
    explicit operator bool() const { return m_handle != nullptr; }
    T** Out() {
        Reset();
        return &m_handle;
    }

private:
    void Reset() {
        CPffError error;
        if (m_handle) Free(&m_handle, error);
        m_handle = nullptr;
    }
    T* m_handle = nullptr;
};

using CPffFile = CPffHandle<libpff_file_t, libpff_file_free>;
using CPffItem = CPffHandle<libpff_item_t, libpff_item_free>;
using CPffRecordSet = CPffHandle<libpff_record_set_t, libpff_record_set_free>;
using CPffRecordEntry = CPffHandle<libpff_record_entry_t, libpff_record_entry_free>;
using CPffMultiValue = CPffHandle<libpff_multi_value_t, libpff_multi_value_free>;

// A text by one of libpff's pairs of calls (size with terminating zero, then bytes). Empty if the
// value is absent, unreadable or longer than `limit`.
template <typename SizeCall, typename TextCall>
std::optional<std::string> PffText(SizeCall size, TextCall text, std::size_t limit) {
    std::size_t cb = 0;
    if (size(&cb) != 1 || cb > limit) return std::nullopt;
    std::string result(cb, '\0');
    if (cb != 0 && text(reinterpret_cast<std::uint8_t*>(result.data()), cb) != 1) return std::nullopt;
    while (!result.empty() && result.back() == '\0')
        result.pop_back();
    return result;
}
