// The operations of every container: tables and entries.
#pragma once
#include <MapiWrapper/MapiProp.h>
#include <MapiWrapper/MapiTable.h>
#include <Platform/MapiHeaders.h>

#include <string>

class IMAPIFolderPtr;
class IMsgStorePtr;

// A second base beside CGenMapiPropPtr. Openers throw CMAPIException with the context told; on an empty
// wrapper they throw CNullAccess. Whoever receives a wrapper holds exactly one reference.
class CGenMapiContPtr {
public:
    virtual ~CGenMapiContPtr() = default;
    // The wrapped object without a reference for the caller; null for an empty wrapper.
    virtual IMAPIContainer* RawContainer() const = 0;

    // The form of text that its tables take over.
    virtual TextForm ContainerText() const = 0;

    // "CGenMapiContPtr::_rawContentsTable"; an empty wrapper gives an empty table.
    IMAPITablePtr _rawContentsTable() const;
    IMAPITablePtr _rawAssociatedTable() const;  // "CGenMapiContPtr::_rawAssociatedTable"
    IMAPITablePtr _rawHierrarchyTable() const;  // "CGenMapiContPtr::_rawHierrarchyTable"

    // "CGenMapiContPtr::OpenEntry". `type` receives the object type if it is not null. Success without
    // an object gives an empty wrapper. A value that is not PT_BINARY counts as MAPI_E_NOT_FOUND.
    IMAPIPropPtr OpenEntry(const SBinary& entryId, LPCIID iid, ULONG flags, ULONG* type = nullptr) const;
    IMAPIPropPtr OpenEntry(const SPropValue& entryId, LPCIID iid, ULONG flags, ULONG* type = nullptr) const;
    // "CGenMapiContPtr::OpenEntryv". The form without flags opens with MAPI_BEST_ACCESS and does not
    // expect success without an object: CNullAccess.
    IMAPIPropPtr OpenEntryv(const SBinary& entryId) const;
    // Success without an object gives an empty wrapper.
    IMAPIPropPtr OpenEntryv(const SBinary& entryId, ULONG flags) const;
    IMAPIPropPtr OpenEntryv(const SBinary& entryId, ULONG flags, ULONG* type) const;
    // MAPI_BEST_ACCESS; a value that is not PT_BINARY (also null) counts as MAPI_E_NOT_FOUND.
    IMAPIPropPtr OpenEntryv(const SPropValue& entryId) const;
    IMAPIPropPtr OpenEntryv(const CMapiPropValue& entryId) const;

    // The folder above, by PR_PARENT_ENTRYID and MAPI_BEST_ACCESS. A failed read or open throws without
    // a context, a read without a value MAPI_E_NOT_FOUND with "CGenMapiContPtr::Parent".
    IMAPIFolderPtr Parent(IMAPISession* session) const;
    IMAPIFolderPtr Parent(IMsgStore* store) const;
    // The store of the container, by PR_STORE_ENTRYID; "CGenMapiContPtr::MsgStore" likewise.
    IMsgStorePtr MsgStore(IMAPISession* session) const;

private:
    IMAPIPropPtr OpenChecked(const SBinary& entryId, LPCIID iid, ULONG flags, ULONG* type,
                             const char* context) const;
    IMAPIContainer* RequireContainer(const char* where) const { return NotNull(RawContainer(), where); }
};
