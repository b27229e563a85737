// One counted reference on a COM object.
#pragma once
#include <Platform/MapiHeaders.h>

#include <utility>

// Attach takes the caller's reference, assignment and copy add one, Detach gives the reference away.
// Never throws. Not for sharing one CComPtr between threads.
template <class T>
class CComPtr {
public:
    CComPtr() = default;
    CComPtr(std::nullptr_t) {}
    explicit CComPtr(T* object) : m_object(object) { AddRefOf(m_object); }
    CComPtr(const CComPtr& other) : m_object(other.m_object) { AddRefOf(m_object); }
    CComPtr(CComPtr&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    ~CComPtr() { ReleaseOf(m_object); }

    CComPtr& operator=(const CComPtr& other) {
        CComPtr copy(other);
        std::swap(m_object, copy.m_object);
        return *this;
    }
    CComPtr& operator=(CComPtr&& other) noexcept {
        CComPtr taken(std::move(other));
        std::swap(m_object, taken.m_object);
        return *this;
    }

    // Releases what was held and takes over the caller's reference on `object` (null allowed).
    void Attach(T* object) { ReleaseOf(std::exchange(m_object, object)); }
    // The reference now belongs to the caller.
    T* Detach() { return std::exchange(m_object, nullptr); }
    void Free() { Attach(nullptr); }
    // For out arguments: releases first, so that nothing leaks. What the callee stores is taken over.
    T** Out() {
        Free();
        return &m_object;
    }
    LPUNKNOWN* OutUnknown() { return reinterpret_cast<LPUNKNOWN*>(Out()); }

    T* Get() const { return m_object; }
    T* operator->() const { return m_object; }
    explicit operator bool() const { return m_object != nullptr; }

private:
    static void AddRefOf(T* object) {
        if (object) object->AddRef();
    }
    static void ReleaseOf(T* object) {
        if (object) object->Release();
    }
    T* m_object = nullptr;
};
