// Messages, folders, a store and a session over the fakes of FakeMapi.h. Entry IDs are plain texts.
#pragma once
#include "FakeMapi.h"

namespace fakes {

// What lies behind the entry IDs of one test. Holds one reference on each object.
struct CFakeWorld {
    std::map<std::string, CComPtr<IUnknown>> objects;
    bool emptySuccess = false;  // an open succeeds without an object
    std::vector<ULONG> openFlags;

    HRESULT Open(ULONG cb, LPENTRYID id, ULONG flags, ULONG* type, LPUNKNOWN* out) {
        openFlags.push_back(flags);
        if (type) *type = MAPI_FOLDER;
        if (emptySuccess) return S_OK;
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
};

class CBareMessage : public CFakeProp<IMessage> {
public:
    MAPI_IMESSAGE_METHODS(FAKE_NOT_NEEDED)
};

class CFakeMessage : public CBareMessage {
public:
    std::vector<CComPtr<CFakeAttach>> attachments;
    std::vector<CFakeTable::CRow> recipients;
    HRESULT recipientResult = S_OK;
    HRESULT openAttachResult = S_OK;
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
    HRESULT STDMETHODCALLTYPE GetRecipientTable(ULONG, LPMAPITABLE* out) override {
        if (recipientResult < 0) return recipientResult;
        *out = new CFakeTable(recipients);
        return S_OK;
    }
};

class CBareFolder : public CFakeProp<IMAPIFolder> {
public:
    MAPI_IMAPICONTAINER_METHODS(FAKE_NOT_NEEDED)
    MAPI_IMAPIFOLDER_METHODS(FAKE_NOT_NEEDED)
};

class CFakeFolder : public CBareFolder {
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

private:
    CFakeWorld& m_world;
};

class CBareMsgStore : public CFakeProp<IMsgStore> {
public:
    MAPI_IMSGSTORE_METHODS(FAKE_NOT_NEEDED)
};

class CFakeMsgStore : public CBareMsgStore {
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
        *cb = static_cast<ULONG>(receiveFolder.size());
        *id = NewBlock<ENTRYID>(receiveFolder.size() + 1);
        std::memcpy(*id, receiveFolder.data(), receiveFolder.size());
        return S_OK;
    }

private:
    CFakeWorld& m_world;
};

class CBareSession : public CFakeUnknown<IMAPISession> {
public:
    MAPI_IMAPISESSION_METHODS(FAKE_NOT_NEEDED)
};

class CFakeSession : public CBareSession {
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

private:
    CFakeWorld& m_world;
};

}  // namespace fakes
