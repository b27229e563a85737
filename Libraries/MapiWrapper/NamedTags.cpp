#include <MapiWrapper/NamedTags.h>

size_t CNamedTags::Add(const wchar_t* name, ULONG type, const GUID* guid) {
    m_names.push_back({guid ? *guid : PS_PUBLIC_STRINGS, name, 0, type, 0});
    m_resolved = false;
    return m_names.size() - 1;
}

size_t CNamedTags::Add(LONG id, ULONG type, const GUID& guid) {
    m_names.push_back({guid, {}, id, type, 0});
    m_resolved = false;
    return m_names.size() - 1;
}

void CNamedTags::Resolve(IMAPIProp* raw, ULONG flags) {
    NotNull(raw, "CNamedTags::Resolve");
    std::vector<MAPINAMEID> ids(m_names.size());
    std::vector<MAPINAMEID*> pointers(m_names.size());
    for (size_t i = 0; i < m_names.size(); ++i) {
        CName& name = m_names[i];
        ids[i].lpguid = &name.guid;
        ids[i].ulKind = name.name.empty() ? MNID_ID : MNID_STRING;
        if (name.name.empty())
            ids[i].Kind.lID = name.id;
        else
            ids[i].Kind.lpwstrName = name.name.data();
        pointers[i] = &ids[i];
    }
    SPropTagArray* tags = nullptr;
    THROW_ON_FAILURE_FOR(raw->GetIDsFromNames(static_cast<ULONG>(ids.size()), pointers.data(), flags, &tags),
                         raw);
    if (!tags || tags->cValues < ids.size()) {
        if (tags) MAPIFreeBuffer(tags);
        throw CMAPIException(MAPI_E_NOT_FOUND, "CGenMapiPropPtr::GetIDFromName", raw);
    }
    for (size_t i = 0; i < m_names.size(); ++i) {
        const ULONG tag = tags->aulPropTag[i];
        const bool known = PROP_TYPE(tag) != PT_ERROR && PROP_ID(tag) != 0;
        m_names[i].tag = known ? PROP_TAG(m_names[i].type, PROP_ID(tag)) : 0;
    }
    MAPIFreeBuffer(tags);
    for (const CName& name : m_names)
        if ((flags & MAPI_CREATE) && name.tag == 0)
            throw CMAPIException(MAPI_E_NOT_FOUND, "CGenMapiPropPtr::GetIDFromName", raw);
    m_resolved = true;
}
