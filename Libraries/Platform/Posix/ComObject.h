// The reference count and QueryInterface of an object with one interface. For this room only.
#pragma once
#include <windows.h>
#include <atomic>

template <class Interface>
class CComObject : public Interface {
public:
    CComObject(const CComObject&) = delete;
    CComObject& operator=(const CComObject&) = delete;

    HRESULT QueryInterface(REFIID riid, void** ppvObject) override {
        if (!ppvObject) return E_POINTER;
        *ppvObject = nullptr;
        if (riid != IID_IUnknown && !Answers(riid)) return E_NOINTERFACE;
        *ppvObject = static_cast<Interface*>(this);
        AddRef();
        return S_OK;
    }
    ULONG AddRef() override { return ++m_references; }
    ULONG Release() override {
        const ULONG left = --m_references;
        if (left == 0) delete this;
        return left;
    }

protected:
    CComObject() = default;  // the creator holds the one reference
    virtual ~CComObject() = default;
    virtual bool Answers(REFIID riid) const = 0;

private:
    std::atomic<ULONG> m_references{1};
};
