// Any property object.
#pragma once
#include <MapiWrapper/GenMapiProp.h>

class IMAPIPropPtr : public CGenMapiPropPtr {
public:
    IMAPIPropPtr() = default;
    // Adds a reference.
    explicit IMAPIPropPtr(IMAPIProp* object) : m_object(object) {}
    // Shares the object of another wrapper.
    IMAPIPropPtr(const CGenMapiPropPtr& other) : CGenMapiPropPtr(other), m_object(other.RawProp()) {}

    IMAPIProp* RawProp() const override { return m_object.Get(); }
    // Takes the caller's reference.
    void Attach(IMAPIProp* object) {
        m_object.Attach(object);
        SetText(TextForm::Unknown);
    }
    IMAPIProp* Detach() { return m_object.Detach(); }
    IMAPIProp* Get() const { return m_object.Get(); }
    IMAPIProp* operator->() const { return NotNull(m_object.Get(), "IMAPIPropPtr"); }

    // The same object in another wrapper (IMessagePtr, IMAPIFolderPtr, IAttachPtr, IMsgStorePtr,
    // IMAPIContainerPtr); empty where the object does not offer that interface, or is not there.
    template <class Wrapper>
    Wrapper As() const {
        Wrapper wrapper;
        if (!m_object) return wrapper;
        void* other = nullptr;
        if (m_object->QueryInterface(Wrapper::InterfaceId(), &other) >= 0 && other)
            wrapper.Attach(static_cast<typename Wrapper::Interface*>(other));
        wrapper.SetText(KnownText());
        return wrapper;
    }

private:
    CComPtr<IMAPIProp> m_object;
};
