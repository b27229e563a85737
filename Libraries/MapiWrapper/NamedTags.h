// Several named properties of one store, asked in one call.
#pragma once
#include <MapiWrapper/GenMapiProp.h>

#include <string>
#include <vector>

// Names are added first and resolved once; the tags hold for every object of the same store as long as
// it is open, and for no other store. Keep one per store and run.
class CNamedTags {
public:
    // The number under which Tag gives the answer. A null set means PS_PUBLIC_STRINGS.
    size_t Add(const wchar_t* name, ULONG type, const GUID* guid = nullptr);
    size_t Add(LONG id, ULONG type, const GUID& guid);

    // One GetIDsFromNames. Throws CMAPIException on a negative result, and MAPI_E_NOT_FOUND with the
    // context "CGenMapiPropPtr::GetIDFromName" where the store answers without tags, or with MAPI_CREATE
    // without one of them: what is read under no tag looks absent on every item. With 0 those unknown
    // to the store stay 0.
    void Resolve(IMAPIProp* raw, ULONG flags = MAPI_CREATE);
    void Resolve(const CGenMapiPropPtr& object, ULONG flags = MAPI_CREATE) {
        Resolve(object.RawProp(), flags);
    }
    bool IsResolved() const { return m_resolved; }
    // With the type of its Add; 0 before Resolve and for an unknown name.
    ULONG Tag(size_t index) const { return index < m_names.size() ? m_names[index].tag : 0; }
    size_t Count() const { return m_names.size(); }

private:
    struct CName {
        GUID guid;
        std::wstring name;  // empty: numeric
        LONG id;
        ULONG type;
        ULONG tag;
    };
    std::vector<CName> m_names;
    bool m_resolved = false;
};
