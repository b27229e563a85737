// The one way in which a session, a store and a container open an entry. For this library only.
#pragma once
#include <MapiWrapper/MapiProp.h>

// The HRESULT of opener->OpenEntry. What came back is wrapped before anybody looks at the result, so it
// is released on the failing path too; an object that is no property object leaves `out` empty.
template <class Opener>
HRESULT OpenObject(Opener* opener, const SBinary& entryId, LPCIID iid, ULONG flags, ULONG* type,
                   IMAPIPropPtr& out) {
    CComPtr<IUnknown> object;
    ULONG unused = 0;
    const HRESULT hr = opener->OpenEntry(entryId.cb, reinterpret_cast<ENTRYID*>(entryId.lpb), iid, flags,
                                         type ? type : &unused, object.Out());
    out = IMAPIPropPtr();
    if (hr < 0 || !object) return hr;
    void* prop = nullptr;
    const HRESULT asked = object->QueryInterface(IID_IMAPIProp, &prop);
    if (asked < 0) return asked;
    out.Attach(static_cast<IMAPIProp*>(prop));
    return hr;
}
