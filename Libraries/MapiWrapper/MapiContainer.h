// Any container: a folder, or a container of the address book.
#pragma once
#include <MapiWrapper/GenMapiCont.h>

class IMAPIContainerPtr : public CGenMapiPropPtr, public CGenMapiContPtr {
public:
    using Interface = IMAPIContainer;
    static const IID& InterfaceId() { return IID_IMAPIContainer; }

    IMAPIContainerPtr() = default;
    explicit IMAPIContainerPtr(IMAPIContainer* object) : m_object(object) {}  // adds a reference

    IMAPIProp* RawProp() const override { return m_object.Get(); }
    IMAPIContainer* RawContainer() const override { return m_object.Get(); }
    TextForm ContainerText() const override { return Text(); }
    // Takes the caller's reference.
    void Attach(IMAPIContainer* object) {
        m_object.Attach(object);
        SetText(TextForm::Unknown);
    }
    IMAPIContainer* Detach() { return m_object.Detach(); }
    IMAPIContainer* Get() const { return m_object.Get(); }
    IMAPIContainer* operator->() const { return NotNull(m_object.Get(), "IMAPIContainerPtr"); }

private:
    CComPtr<IMAPIContainer> m_object;
};
