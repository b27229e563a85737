// An attachment of a message.
#pragma once
#include <MapiWrapper/GenMapiProp.h>

class IAttachPtr : public CGenMapiPropPtr {
public:
    using Interface = IAttach;
    static const IID& InterfaceId() { return IID_IAttachment; }

    IAttachPtr() = default;
    explicit IAttachPtr(IAttach* object) : m_object(object) {}  // adds a reference

    IMAPIProp* RawProp() const override { return m_object.Get(); }
    // Takes the caller's reference.
    void Attach(IAttach* object) {
        m_object.Attach(object);
        SetText(TextForm::Unknown);
    }
    IAttach* Detach() { return m_object.Detach(); }
    IAttach** Out() { return m_object.Out(); }
    void Free() { m_object.Free(); }
    IAttach* Get() const { return m_object.Get(); }
    IAttach* operator->() const { return NotNull(m_object.Get(), "IAttachPtr"); }

    // Commits without flushing gathered values. Throws.
    void SaveChanges(ULONG flags = 0) override;

private:
    CComPtr<IAttach> m_object;
};
