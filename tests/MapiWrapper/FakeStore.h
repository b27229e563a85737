// Messages, folders, a store and a session over the fakes of FakeMapi.h. Entry IDs are plain texts.
#pragma once
#include "FakeMapi.h"

#include <memory>

namespace fakes {

// What lies behind the entry IDs of one test. Holds one reference on each object.
struct CFakeWorld {
    std::map<std::string, CComPtr<IUnknown>> objects;
    HRESULT openResult = S_OK;
    bool emptySuccess = false;  // an open succeeds without an object
    std::vector<ULONG> openFlags;

    HRESULT Open(ULONG cb, LPENTRYID id, ULONG flags, ULONG* type, LPUNKNOWN* out) {
        openFlags.push_back(flags);
        if (type) *type = MAPI_FOLDER;
        if (openResult < 0 || emptySuccess) return openResult;
        const auto found = objects.find(std::string(reinterpret_cast<const char*>(id), cb));
        if (found == objects.end()) return static_cast<HRESULT>(MAPI_E_NOT_FOUND);
        *out = found->second.Get();
        (*out)->AddRef();
        return S_OK;
    }
    template <class Fake>
    Fake* Add(const std::string& entryId, Fake* fake) {
        fake->values[PR_ENTRYID] = Bytes(PR_ENTRYID, entryId);
        objects[entryId].Attach(fake);
        return fake;
    }
};

class CFakeAttach : public CFakeProp<IAttach> {
public:
    bool Offers(const IID& iid) const override { return iid == IID_IMAPIProp || iid == IID_IAttachment; }
    MAPI_IATTACH_METHODS(FAKE_NOT_NEEDED)
};

class CFakeMessage : public CFakeProp<IMessage> {
public:
    std::vector<CComPtr<CFakeAttach>> attachments;
    std::vector<CFakeTable::CRow> recipients;
    HRESULT recipientResult = S_OK;
    HRESULT openAttachResult = S_OK;
    std::vector<std::string> addedAddresses;
    bool Offers(const IID& iid) const override { return iid == IID_IMAPIProp || iid == IID_IMessage; }
    HRESULT STDMETHODCALLTYPE GetAttachmentTable(ULONG, LPMAPITABLE* out) override {
        std::vector<CFakeTable::CRow> rows;
        for (size_t i = 0; i < attachments.size(); ++i) {
            rows.emplace_back(attachments[i]->values);
            rows.back()[PR_ATTACH_NUM] = Number(PR_ATTACH_NUM, static_cast<LONG>(i));
        }
        *out = new CFakeTable(std::move(rows));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OpenAttach(ULONG number, LPCIID, ULONG, LPATTACH* out) override {
        if (openAttachResult < 0) return openAttachResult;
        if (number >= attachments.size()) return static_cast<HRESULT>(MAPI_E_NOT_FOUND);
        *out = attachments[number].Get();
        (*out)->AddRef();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE CreateAttach(LPCIID, ULONG, ULONG* number, LPATTACH* out) override {
        attachments.emplace_back();
        attachments.back().Attach(new CFakeAttach);
        *number = static_cast<ULONG>(attachments.size() - 1);
        return OpenAttach(*number, nullptr, 0, out);
    }
    HRESULT STDMETHODCALLTYPE DeleteAttach(ULONG, ULONG, LPMAPIPROGRESS,
                                           ULONG) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        GetRecipientTable(ULONG, LPMAPITABLE* out) override {
        if (recipientResult < 0) return recipientResult;
        *out = new CFakeTable(recipients);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ModifyRecipients(ULONG, LPADRLIST) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        SubmitMessage(ULONG) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE SetReadFlag(ULONG) FAKE_NOT_NEEDED
};

class CFakeFolder : public CFakeProp<IMAPIFolder> {
public:
    explicit CFakeFolder(CFakeWorld& world) : m_world(world) {}
    std::vector<CFakeTable::CRow> contents, associated, children;
    HRESULT tableResult = S_OK;
    std::vector<std::string> createdFolders;
    std::vector<ULONG> createFlags;
    std::vector<std::string> moved;  // entry IDs of CopyMessages
    IUnknown* movedTo = nullptr;
    HRESULT moveResult = S_OK;

    bool Offers(const IID& iid) const override {
        return iid == IID_IMAPIProp || iid == IID_IMAPIFolder || iid == IID_IMAPIContainer;
    }
    HRESULT STDMETHODCALLTYPE GetContentsTable(ULONG flags, LPMAPITABLE* out) override {
        if (tableResult < 0) return tableResult;
        *out = new CFakeTable((flags & MAPI_ASSOCIATED) ? associated : contents);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetHierarchyTable(ULONG, LPMAPITABLE* out) override {
        if (tableResult < 0) return tableResult;
        *out = new CFakeTable(children);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG cb, LPENTRYID id, LPCIID, ULONG flags, ULONG* type,
                                        LPUNKNOWN* out) override {
        return m_world.Open(cb, id, flags, type, out);
    }
    HRESULT STDMETHODCALLTYPE CreateMessage(LPCIID, ULONG flags, LPMESSAGE* out) override {
        createFlags.push_back(flags);
        *out = new CFakeMessage;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE CreateFolder(ULONG, LPTSTR name, LPTSTR, LPCIID, ULONG flags,
                                           LPMAPIFOLDER* out) override {
        createFlags.push_back(flags);
        createdFolders.push_back(reinterpret_cast<char*>(name));
        if (createdFolders.back() == "forbidden") return static_cast<HRESULT>(MAPI_E_NO_ACCESS);
        AddRef();
        *out = this;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE CopyMessages(LPENTRYLIST list, LPCIID, LPVOID target, ULONG, LPMAPIPROGRESS,
                                           ULONG flags) override {
        createFlags.push_back(flags);
        movedTo = static_cast<IMAPIFolder*>(target);
        for (ULONG i = 0; i < list->cValues; ++i)
            moved.emplace_back(reinterpret_cast<char*>(list->lpbin[i].lpb), list->lpbin[i].cb);
        return moveResult;
    }
    HRESULT STDMETHODCALLTYPE SetSearchCriteria(LPSRestriction, LPENTRYLIST,
                                                ULONG) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        GetSearchCriteria(ULONG, LPSRestriction*, LPENTRYLIST*,
                          ULONG*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        DeleteMessages(LPENTRYLIST, ULONG, LPMAPIPROGRESS, ULONG) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        CopyFolder(ULONG, LPENTRYID, LPCIID, LPVOID, LPTSTR, ULONG, LPMAPIPROGRESS,
                   ULONG) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        DeleteFolder(ULONG, LPENTRYID, ULONG, LPMAPIPROGRESS, ULONG) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        SetReadFlags(LPENTRYLIST, ULONG, LPMAPIPROGRESS, ULONG) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        GetMessageStatus(ULONG, LPENTRYID, ULONG, ULONG*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        SetMessageStatus(ULONG, LPENTRYID, ULONG, ULONG, ULONG*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        SaveContentsSort(LPSSortOrderSet, ULONG) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        EmptyFolder(ULONG, LPMAPIPROGRESS, ULONG) FAKE_NOT_NEEDED

        private : CFakeWorld& m_world;
};

class CFakeMsgStore : public CFakeProp<IMsgStore> {
public:
    explicit CFakeMsgStore(CFakeWorld& world) : m_world(world) {}
    std::string receiveFolder;
    bool Offers(const IID& iid) const override { return iid == IID_IMAPIProp || iid == IID_IMsgStore; }
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG cb, LPENTRYID id, LPCIID, ULONG flags, ULONG* type,
                                        LPUNKNOWN* out) override {
        return m_world.Open(cb, id, flags, type, out);
    }
    HRESULT STDMETHODCALLTYPE CompareEntryIDs(ULONG cb1, LPENTRYID id1, ULONG cb2, LPENTRYID id2, ULONG,
                                              ULONG* result) override {
        if (cb1 == 0 || cb2 == 0) return static_cast<HRESULT>(MAPI_E_INVALID_ENTRYID);
        *result = cb1 == cb2 && std::memcmp(id1, id2, cb1) == 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetReceiveFolder(LPTSTR, ULONG, ULONG* cb, LPENTRYID* id, LPTSTR*) override {
        void* block = nullptr;
        MAPIAllocateBuffer(static_cast<ULONG>(receiveFolder.size()) + 1, &block);
        std::memcpy(block, receiveFolder.data(), receiveFolder.size());
        *cb = static_cast<ULONG>(receiveFolder.size());
        *id = static_cast<LPENTRYID>(block);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK,
                                     ULONG*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        Unadvise(ULONG) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        SetReceiveFolder(LPTSTR, ULONG, ULONG, LPENTRYID) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        GetReceiveFolderTable(ULONG, LPMAPITABLE*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        StoreLogoff(ULONG*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        AbortSubmit(ULONG, LPENTRYID, ULONG) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        GetOutgoingQueue(ULONG, LPMAPITABLE*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        SetLockState(LPMESSAGE, ULONG) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        FinishedMsg(ULONG, ULONG, LPENTRYID) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        NotifyNewMail(LPNOTIFICATION) FAKE_NOT_NEEDED

        private : CFakeWorld& m_world;
};

class CFakeSession : public CFakeUnknown<IMAPISession> {
public:
    explicit CFakeSession(CFakeWorld& world) : m_world(world) {}
    std::vector<CFakeTable::CRow> stores;
    HRESULT tableResult = S_OK;

    void AddStore(const std::string& entryId, const char* name, const std::string& recordKey, LONG flags) {
        stores.push_back({{PR_ENTRYID, Bytes(PR_ENTRYID, entryId)},
                          {PR_DISPLAY_NAME_A, Text(PR_DISPLAY_NAME_A, name)},
                          {PR_STORE_RECORD_KEY, Bytes(PR_STORE_RECORD_KEY, recordKey)},
                          {PR_RESOURCE_FLAGS, Number(PR_RESOURCE_FLAGS, flags)}});
    }
    HRESULT STDMETHODCALLTYPE GetMsgStoresTable(ULONG, LPMAPITABLE* out) override {
        if (tableResult < 0) return tableResult;
        *out = new CFakeTable(stores);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG cb, LPENTRYID id, LPCIID, ULONG flags, ULONG* type,
                                        LPUNKNOWN* out) override {
        return m_world.Open(cb, id, flags, type, out);
    }
    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT, ULONG,
                                           LPMAPIERROR*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        OpenMsgStore(ULONG_PTR, ULONG, LPENTRYID, LPCIID, ULONG,
                     LPMDB*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        OpenAddressBook(ULONG_PTR, LPCIID, ULONG, LPADRBOOK*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        OpenProfileSection(LPMAPIUID, LPCIID, ULONG, LPPROFSECT*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        GetStatusTable(ULONG, LPMAPITABLE*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        CompareEntryIDs(ULONG, LPENTRYID, ULONG, LPENTRYID, ULONG,
                        ULONG*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        Unadvise(ULONG) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        MessageOptions(ULONG_PTR, ULONG, LPTSTR, LPMESSAGE) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        QueryDefaultMessageOpt(LPTSTR, ULONG, ULONG*, LPSPropValue*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        EnumAdrTypes(ULONG, ULONG*, LPTSTR**) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        QueryIdentity(ULONG*, LPENTRYID*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        Logoff(ULONG_PTR, ULONG, ULONG) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        SetDefaultStore(ULONG, ULONG, LPENTRYID) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        AdminServices(ULONG, LPSERVICEADMIN*) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        ShowForm(ULONG_PTR, LPMDB, LPMAPIFOLDER, LPCIID, ULONG, LPMESSAGE, ULONG, ULONG, ULONG, ULONG,
                 LPSTR) FAKE_NOT_NEEDED HRESULT STDMETHODCALLTYPE
        PrepareForm(LPCIID, LPMESSAGE, ULONG*) FAKE_NOT_NEEDED

        private : CFakeWorld& m_world;
};

}  // namespace fakes
