#include <MapiWrapper/GenMapiCont.h>
#include <MapiWrapper/MapiFolder.h>
#include <MapiWrapper/MsgStore.h>
#include <MapiWrapper/OpenObject.h>

namespace {

// Reads the entry ID in `tag` and opens it with `opener` (a session or a store).
template <class Opener>
IMAPIPropPtr OpenNamed(IMAPIProp* raw, ULONG tag, Opener* opener, TextForm text, const char* context) {
    NotNull(raw, context);
    NotNull(opener, context);
    CMapiPropValue value;
    THROW_ON_FAILURE_FOR(HrGetOneProp(raw, tag, value.Out()), raw);
    if (value.Type() != PT_BINARY) throw CMAPIException(MAPI_E_NOT_FOUND, context, raw);
    IMAPIPropPtr object;
    ULONG type = 0;
    THROW_ON_FAILURE_FOR(OpenObject(opener, value.Binary(), nullptr, MAPI_BEST_ACCESS, &type, object), raw);
    object.SetText(text);
    return object;
}

IMAPITablePtr CheckedTable(HRESULT hr, IMAPITablePtr table, TextForm text, const char* context,
                           IUnknown* object) {
    if (FAILED_HR(hr, context) != 0) throw CMAPIException(hr, context, object);
    table.SetText(text);
    return table;
}

}  // namespace

IMAPITablePtr CGenMapiContPtr::_rawContentsTable() const {
    IMAPITablePtr table;
    IMAPIContainer* raw = RawContainer();
    if (!raw) return table;
    const HRESULT hr = raw->GetContentsTable(0, table.Out());
    return CheckedTable(hr, std::move(table), ContainerText(), "CGenMapiContPtr::_rawContentsTable", raw);
}

IMAPITablePtr CGenMapiContPtr::_rawAssociatedTable() const {
    IMAPITablePtr table;
    IMAPIContainer* raw = RequireContainer("CGenMapiContPtr::_rawAssociatedTable");
    const HRESULT hr = raw->GetContentsTable(MAPI_ASSOCIATED, table.Out());
    return CheckedTable(hr, std::move(table), ContainerText(), "CGenMapiContPtr::_rawAssociatedTable", raw);
}

IMAPITablePtr CGenMapiContPtr::_rawHierrarchyTable() const {
    IMAPITablePtr table;
    IMAPIContainer* raw = RequireContainer("CGenMapiContPtr::_rawHierrarchyTable");
    const HRESULT hr = raw->GetHierarchyTable(0, table.Out());
    return CheckedTable(hr, std::move(table), ContainerText(), "CGenMapiContPtr::_rawHierrarchyTable", raw);
}

IMAPIPropPtr CGenMapiContPtr::OpenChecked(const SBinary& entryId, LPCIID iid, ULONG flags, ULONG* type,
                                          const char* context) const {
    IMAPIContainer* raw = RequireContainer(context);
    IMAPIPropPtr object;
    const HRESULT hr = OpenObject(raw, entryId, iid, flags, type, object);
    if (hr < 0) throw CMAPIException(hr, context, raw);
    object.SetText(ContainerText());
    return object;
}

IMAPIPropPtr CGenMapiContPtr::OpenEntry(const SBinary& entryId, LPCIID iid, ULONG flags, ULONG* type) const {
    return OpenChecked(entryId, iid, flags, type, "CGenMapiContPtr::OpenEntry");
}

IMAPIPropPtr CGenMapiContPtr::OpenEntry(const SPropValue& entryId, LPCIID iid, ULONG flags,
                                        ULONG* type) const {
    if (PROP_TYPE(entryId.ulPropTag) != PT_BINARY)
        throw CMAPIException(MAPI_E_NOT_FOUND, "CGenMapiContPtr::OpenEntry", RawContainer());
    return OpenEntry(entryId.Value.bin, iid, flags, type);
}

IMAPIPropPtr CGenMapiContPtr::OpenEntryv(const SBinary& entryId) const {
    IMAPIPropPtr object = OpenEntryv(entryId, MAPI_BEST_ACCESS);
    NotNull(object.Get(), "CGenMapiContPtr::OpenEntryv");
    return object;
}

IMAPIPropPtr CGenMapiContPtr::OpenEntryv(const SBinary& entryId, ULONG flags) const {
    return OpenEntryv(entryId, flags, nullptr);
}

IMAPIPropPtr CGenMapiContPtr::OpenEntryv(const SBinary& entryId, ULONG flags, ULONG* type) const {
    return OpenChecked(entryId, nullptr, flags, type, "CGenMapiContPtr::OpenEntryv");
}

IMAPIPropPtr CGenMapiContPtr::OpenEntryv(const SPropValue& entryId) const {
    return OpenEntryv(CMapiPropValue(const_cast<SPropValue*>(&entryId), false));
}

IMAPIPropPtr CGenMapiContPtr::OpenEntryv(const CMapiPropValue& entryId) const {
    if (entryId.Type() != PT_BINARY)
        throw CMAPIException(MAPI_E_NOT_FOUND, "CGenMapiContPtr::OpenEntryv", RawContainer());
    return OpenEntryv(entryId.Binary(), MAPI_BEST_ACCESS);
}

IMAPIFolderPtr CGenMapiContPtr::Parent(IMAPISession* session) const {
    return OpenNamed(RawContainer(), PR_PARENT_ENTRYID, session, ContainerText(), "CGenMapiContPtr::Parent")
        .As<IMAPIFolderPtr>();
}

IMAPIFolderPtr CGenMapiContPtr::Parent(IMsgStore* store) const {
    return OpenNamed(RawContainer(), PR_PARENT_ENTRYID, store, ContainerText(), "CGenMapiContPtr::Parent")
        .As<IMAPIFolderPtr>();
}

IMsgStorePtr CGenMapiContPtr::MsgStore(IMAPISession* session) const {
    return OpenNamed(RawContainer(), PR_STORE_ENTRYID, session, ContainerText(), "CGenMapiContPtr::MsgStore")
        .As<IMsgStorePtr>();
}
