// Reference counting for the objects of this room.
#pragma once
#include <Platform/MapiHeaders.h>

#include <atomic>
#include <utility>

// Base of an object with the given interfaces. A new object has one reference, which belongs to its
// creator. Release answers the exact count left: callers exist that release until it is zero.
template <class... Interfaces>
class CUnknownImpl : public Interfaces... {
public:
    CUnknownImpl() = default;
    virtual ~CUnknownImpl() = default;
    CUnknownImpl(const CUnknownImpl&) = delete;
    CUnknownImpl& operator=(const CUnknownImpl&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
        if (!object) return MAPI_E_INVALID_PARAMETER;
        *object = FindInterface(riid);
        if (!*object) return MAPI_E_INTERFACE_NOT_SUPPORTED;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --m_references;
        if (left == 0) delete this;
        return left;
    }

protected:
    // The pointer for an interface, without a reference; null if the object does not have it.
    virtual void* FindInterface(REFIID riid) = 0;

private:
    std::atomic<ULONG> m_references{1};
};

// Owns one reference.
template <class T>
class CRef {
public:
    CRef() = default;
    CRef(const CRef& other) : m_object(other.m_object) {
        if (m_object) m_object->AddRef();
    }
    CRef(CRef&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    ~CRef() { Reset(); }
    CRef& operator=(CRef other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    static CRef Take(T* object) {  // takes over the caller's reference
        CRef ref;
        ref.m_object = object;
        return ref;
    }
    static CRef Share(T* object) {  // adds a reference
        if (object) object->AddRef();
        return Take(object);
    }
    void Reset() {
        if (T* object = std::exchange(m_object, nullptr)) object->Release();
    }
    T* Get() const { return m_object; }
    T* Detach() { return std::exchange(m_object, nullptr); }
    T** Out() {  // for an out parameter; drops what is held
        Reset();
        return &m_object;
    }
    T* operator->() const { return m_object; }
    T& operator*() const { return *m_object; }
    explicit operator bool() const { return m_object != nullptr; }

private:
    T* m_object = nullptr;
};
