// IMAPIFolder.
#pragma once
#include "Message.h"

class CFolder : public CPropInterface<IMAPIFolder> {
public:
    // Under the lock of the store. Throws MAPI_E_NOT_FOUND.
    static CRef<CFolder> Open(const std::shared_ptr<CStoreCore>& core, ObjectId id, bool writable);
    ObjectId Id() const { return m_head.id; }

    HRESULT STDMETHODCALLTYPE GetContentsTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE GetHierarchyTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG cb, LPENTRYID id, LPCIID iid, ULONG flags, ULONG* type,
                                        LPUNKNOWN* object) override;
    HRESULT STDMETHODCALLTYPE SetSearchCriteria(LPSRestriction, LPENTRYLIST, ULONG) override;
    HRESULT STDMETHODCALLTYPE GetSearchCriteria(ULONG, LPSRestriction*, LPENTRYLIST*, ULONG*) override;

    HRESULT STDMETHODCALLTYPE CreateMessage(LPCIID iid, ULONG flags, LPMESSAGE* message) override;
    HRESULT STDMETHODCALLTYPE CopyMessages(LPENTRYLIST list, LPCIID iid, LPVOID target, ULONG, LPMAPIPROGRESS,
                                           ULONG flags) override;
    HRESULT STDMETHODCALLTYPE DeleteMessages(LPENTRYLIST list, ULONG, LPMAPIPROGRESS, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE CreateFolder(ULONG type, LPTSTR name, LPTSTR comment, LPCIID iid, ULONG flags,
                                           LPMAPIFOLDER* folder) override;
    HRESULT STDMETHODCALLTYPE CopyFolder(ULONG cb, LPENTRYID id, LPCIID iid, LPVOID target, LPTSTR name,
                                         ULONG, LPMAPIPROGRESS, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE DeleteFolder(ULONG cb, LPENTRYID id, ULONG, LPMAPIPROGRESS,
                                           ULONG flags) override;
    HRESULT STDMETHODCALLTYPE SetReadFlags(LPENTRYLIST list, ULONG, LPMAPIPROGRESS, ULONG flags) override;
    HRESULT STDMETHODCALLTYPE GetMessageStatus(ULONG cb, LPENTRYID id, ULONG flags, ULONG* status) override;
    HRESULT STDMETHODCALLTYPE SetMessageStatus(ULONG cb, LPENTRYID id, ULONG status, ULONG mask,
                                               ULONG* old) override;
    HRESULT STDMETHODCALLTYPE SaveContentsSort(LPSSortOrderSet, ULONG) override;
    HRESULT STDMETHODCALLTYPE EmptyFolder(ULONG, LPMAPIPROGRESS, ULONG flags) override;

    bool FindProp(PropId id, CStoredValue& value) override;
    bool LoadLarge(PropId id, std::string& bytes) override;
    void ListIds(std::vector<PropId>& ids) override;
    void ListObjects(std::vector<ULONG>& tags) override;
    SCODE MaySet(PropId id) const override;
    void SetStored(PropId id, PropType type, std::string_view bytes) override;
    void RemoveStored(PropId id) override;
    void ChangeNow(const std::function<void()>& body) override;
    void OpenObject(ULONG tag, REFIID iid, ULONG options, ULONG flags, IUnknown** object) override;
    void Save(ULONG) override {}  // every change is written at once
    void CopyAll(const SPropTagArray* exclude, const SPropTagArray* include, IUnknown* target, ULONG flags,
                 std::vector<CopyProblem>& problems) override;
    IUnknown* AsUnknown() override { return static_cast<IMAPIFolder*>(this); }

protected:
    void* FindInterface(REFIID riid) override;

private:
    CFolder(const std::shared_ptr<CStoreCore>& core, bool writable) : CPropInterface(core, writable) {}
    void Reload();
    void WriteBack(bool timeGiven);
    HRESULT CopyMessagesOwn(const ENTRYLIST& list, CFolder& target, bool move);
    void CopyContainedTo(CFolder& target, const SPropTagArray* exclude, const SPropTagArray* include);
    HRESULT CopyMessagesForeign(const ENTRYLIST& list, IMAPIFolder* target, bool move);
    ObjectId MessageHere(const SBinary& entry) const;

    FolderHead m_head;
    CPropertyBag m_bag;
    bool m_modifiedGiven = false;
};

// Opens a message or folder by its number: what OpenEntry of folder, store and session share.
void OpenById(const std::shared_ptr<CStoreCore>& core, ObjectId id, const IID* iid, ULONG flags,
              bool storeWritable, ULONG* type, IUnknown** object);
