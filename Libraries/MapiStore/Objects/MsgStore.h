// IMsgStore, with the interfaces of StoreExtensions.h.
#pragma once
#include <Platform/StoreExtensions.h>

#include <MapiStore/Values/PropertyBag.h>
#include "PropObject.h"

class CMsgStore : public CPropInterface<IMsgStore, IStoreBatch, IStoreFaults, IStoreCare> {
public:
    // `isDefault`: it is the default store of the session's profile.
    CMsgStore(const std::shared_ptr<CStoreCore>& core, bool writable, bool isDefault)
        : CPropInterface(core, writable && !core->IsReadOnly()), m_isDefault(isDefault) {}
    ~CMsgStore() override;

    HRESULT STDMETHODCALLTYPE Advise(ULONG cb, LPENTRYID id, ULONG mask, LPMAPIADVISESINK sink,
                                     ULONG* connection) override;
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG connection) override;
    HRESULT STDMETHODCALLTYPE CompareEntryIDs(ULONG cb1, LPENTRYID id1, ULONG cb2, LPENTRYID id2, ULONG flags,
                                              ULONG* result) override;
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG cb, LPENTRYID id, LPCIID iid, ULONG flags, ULONG* type,
                                        LPUNKNOWN* object) override;
    HRESULT STDMETHODCALLTYPE SetReceiveFolder(LPTSTR messageClass, ULONG flags, ULONG cb,
                                               LPENTRYID id) override;
    HRESULT STDMETHODCALLTYPE GetReceiveFolder(LPTSTR messageClass, ULONG flags, ULONG* cb, LPENTRYID* id,
                                               LPTSTR* explicitClass) override;
    HRESULT STDMETHODCALLTYPE GetReceiveFolderTable(ULONG flags, LPMAPITABLE* table) override;
    HRESULT STDMETHODCALLTYPE StoreLogoff(ULONG* flags) override;
    HRESULT STDMETHODCALLTYPE AbortSubmit(ULONG, LPENTRYID, ULONG) override { return NoSupport(); }
    HRESULT STDMETHODCALLTYPE GetOutgoingQueue(ULONG, LPMAPITABLE*) override { return NoSupport(); }
    HRESULT STDMETHODCALLTYPE SetLockState(LPMESSAGE, ULONG) override { return NoSupport(); }
    HRESULT STDMETHODCALLTYPE FinishedMsg(ULONG, ULONG, LPENTRYID) override { return NoSupport(); }
    HRESULT STDMETHODCALLTYPE NotifyNewMail(LPNOTIFICATION) override { return NoSupport(); }

    HRESULT STDMETHODCALLTYPE BeginBatch() override;
    HRESULT STDMETHODCALLTYPE FlushBatch() override;
    HRESULT STDMETHODCALLTYPE EndBatch() override;
    HRESULT STDMETHODCALLTYPE FlushToDisk() override;
    HRESULT STDMETHODCALLTYPE BatchState() override;

    HRESULT STDMETHODCALLTYPE Check(Damage* damage, void* context, StoreCheckCounts* counts) override;
    HRESULT STDMETHODCALLTYPE Compact(ULONGLONG* before, ULONGLONG* after) override;
    HRESULT STDMETHODCALLTYPE BackUp(const char* file) override;
    HRESULT STDMETHODCALLTYPE IsInPlace() override;

    void STDMETHODCALLTYPE SetFault(ULONG n, HRESULT hr, BOOL forGood) override;
    ULONG STDMETHODCALLTYPE CallCount() override { return Core().CallCount(); }
    void STDMETHODCALLTYPE SetCommitFault(ULONG n, HRESULT hr, BOOL forGood) override {
        Core().SetCommitFault(n, hr, forGood != FALSE);
    }
    ULONG STDMETHODCALLTYPE CommitCount() override { return Core().CommitCount(); }
    ULONG STDMETHODCALLTYPE DurableCommitCount() override { return Core().DurableCommitCount(); }
    void STDMETHODCALLTYPE SetSavesPerCommit(ULONG saves) override { Core().SetSavesPerCommit(saves); }
    void STDMETHODCALLTYPE CommitAsOwnThread() override { Core().CommitAsOwnThread(); }
    void STDMETHODCALLTYPE SetKillAtSave(ULONG n) override { Core().SetKillAtSave(n); }
    ULONG STDMETHODCALLTYPE SaveCount() override { return Core().SaveCount(); }
    void STDMETHODCALLTYPE SetInterruption(ULONG n, Interruption* body, void* context) override {
        Core().SetInterruption(n, body, context);
    }

    bool FindProp(PropId id, CStoredValue& value) override;
    bool LoadLarge(PropId id, std::string& bytes) override;
    void ListIds(std::vector<PropId>& ids) override;
    SCODE MaySet(PropId id) const override;
    void SetStored(PropId id, PropType type, std::string_view bytes) override { m_bag.Set(id, type, bytes); }
    void RemoveStored(PropId id) override { m_bag.Remove(id); }
    void ChangeNow(const std::function<void()>& body) override;
    void Save(ULONG) override {}  // every change is written at once
    IUnknown* AsUnknown() override { return static_cast<IMsgStore*>(this); }

protected:
    void* FindInterface(REFIID riid) override;

private:
    HRESULT NoSupport() {
        return Guarded([] { return MAPI_E_NO_SUPPORT; });
    }
    void LoadBag(bool again);

    bool m_isDefault;
    CBatchHolder m_batch;
    CPropertyBag m_bag;  // what callers have set on the store
    std::string m_large;
    bool m_loaded = false;
    std::string m_name;
};

// True if two entry IDs name the same object, whatever their term.
bool SameEntry(ULONG cb1, const ENTRYID* id1, ULONG cb2, const ENTRYID* id2);
