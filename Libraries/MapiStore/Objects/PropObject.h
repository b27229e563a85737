// IMAPIProp for everything that has properties: the logic, over a few questions that each kind of
// object answers, and a template that gives it the published form.
#pragma once
#include <MapiStore/Core/NamedProps.h>
#include <MapiStore/Core/StoreCall.h>
#include <MapiStore/Values/PropertyCodec.h>
#include <MapiStore/Values/UnknownImpl.h>
#include "GenericCopy.h"

class CPropObject {
public:
    CPropObject(std::shared_ptr<CStoreCore> core, bool writable)
        : m_core(std::move(core)), m_writable(writable) {}
    virtual ~CPropObject() = default;

    CStoreCore& Core() const { return *m_core; }
    const std::shared_ptr<CStoreCore>& SharedCore() const { return m_core; }
    bool IsWritable() const { return m_writable; }

    // --- what an object answers; all under the lock of its store
    // The property as it is now, computed ones included.
    virtual bool FindProp(PropId id, CStoredValue& value) = 0;
    // The bytes of a value that FindProp gave as large.
    virtual bool LoadLarge(PropId id, std::string& bytes) = 0;
    // IDs in ascending order, computed ones included, without objects.
    virtual void ListIds(std::vector<PropId>& ids) = 0;
    // Whole tags of the properties of type PT_OBJECT.
    virtual void ListObjects(std::vector<ULONG>&) {}
    // S_OK, or the code for the problem array: MAPI_E_COMPUTED and the like.
    virtual SCODE MaySet(PropId id) const = 0;
    virtual void SetStored(PropId id, PropType type, std::string_view bytes) = 0;
    virtual void RemoveStored(PropId id) = 0;
    // Runs a body that sets or removes; objects without SaveChanges write through afterwards.
    virtual void ChangeNow(const std::function<void()>& body) { body(); }
    // OpenProperty for anything but a stream.
    virtual void OpenObject(ULONG tag, REFIID iid, ULONG options, ULONG flags, IUnknown** object);
    virtual void Save(ULONG flags) = 0;
    virtual void CopyAll(const SPropTagArray* exclude, const SPropTagArray* include, IUnknown* target,
                         ULONG flags, std::vector<CopyProblem>& problems);
    // The object as COM sees it, for streams that keep it alive.
    virtual IUnknown* AsUnknown() = 0;

    // The property with its bytes, large ones loaded into `buffer`.
    bool FindWhole(PropId id, CStoredValue& value, std::string& buffer);

    // --- IMAPIProp
    HRESULT GetPropsBody(const SPropTagArray* tags, ULONG flags, ULONG* count, SPropValue** values);
    HRESULT GetPropListBody(ULONG flags, SPropTagArray** tags);
    HRESULT SetPropsBody(ULONG count, const SPropValue* values, SPropProblemArray** problems);
    HRESULT DeletePropsBody(const SPropTagArray* tags, SPropProblemArray** problems);
    HRESULT OpenPropertyBody(ULONG tag, const IID* iid, ULONG options, ULONG flags, IUnknown** object);
    HRESULT GetNamesBody(SPropTagArray** tags, const GUID* set, ULONG flags, ULONG* count,
                         MAPINAMEID*** names);
    HRESULT GetIdsBody(ULONG count, MAPINAMEID** names, ULONG flags, SPropTagArray** tags);
    // Checks the arguments that CopyTo and CopyProps share.
    HRESULT CopyBody(const SPropTagArray* exclude, const SPropTagArray* include, void* target, ULONG flags,
                     SPropProblemArray** problems);

protected:
    // GuardedCall on the object's store, if it belongs to one.
    template <class Body>
    HRESULT Guarded(Body&& body) const noexcept {
        return m_core ? GuardedCall(*m_core, body) : GuardedCall(body);
    }
    void RequireWritable() const { Require(m_writable, MAPI_E_NO_ACCESS); }
    // What SaveChanges leaves open, as its flags ask: without KEEP_OPEN_READWRITE nothing more is written.
    void CloseAfterSave(ULONG flags) { m_writable = m_writable && (flags & KEEP_OPEN_READWRITE); }

private:
    friend class CPropStream;
    std::vector<ULONG> AllTags(bool unicode);
    PropId IdForName(const MAPINAMEID& name, bool create);

    std::shared_ptr<CStoreCore> m_core;
    bool m_writable;
};

// True if the property is named by the array (by ID, whatever the type).
bool NamesId(const SPropTagArray* tags, PropId id);

template <class... Interfaces>
class CPropInterface : public CUnknownImpl<Interfaces...>, public CPropObject {
public:
    using CPropObject::CPropObject;

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT hr, ULONG flags, LPMAPIERROR* error) override {
        return GiveLastError(hr, flags, error);
    }
    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG flags) override {
        return Guarded([&] {
            Save(flags);
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray tags, ULONG flags, ULONG* count,
                                       LPSPropValue* values) override {
        return Guarded([&] { return GetPropsBody(tags, flags, count, values); });
    }
    HRESULT STDMETHODCALLTYPE GetPropList(ULONG flags, LPSPropTagArray* tags) override {
        return Guarded([&] { return GetPropListBody(flags, tags); });
    }
    HRESULT STDMETHODCALLTYPE OpenProperty(ULONG tag, LPCIID iid, ULONG options, ULONG flags,
                                           LPUNKNOWN* object) override {
        return Guarded([&] { return OpenPropertyBody(tag, iid, options, flags, object); });
    }
    HRESULT STDMETHODCALLTYPE SetProps(ULONG count, LPSPropValue values,
                                       LPSPropProblemArray* problems) override {
        return Guarded([&] { return SetPropsBody(count, values, problems); });
    }
    HRESULT STDMETHODCALLTYPE DeleteProps(LPSPropTagArray tags, LPSPropProblemArray* problems) override {
        return Guarded([&] { return DeletePropsBody(tags, problems); });
    }
    // The lock is taken further in: the target may lie in a second store.
    HRESULT STDMETHODCALLTYPE CopyTo(ULONG, LPCIID, LPSPropTagArray exclude, ULONG, LPMAPIPROGRESS, LPCIID,
                                     LPVOID target, ULONG flags, LPSPropProblemArray* problems) override {
        return CopyBody(exclude, nullptr, target, flags, problems);
    }
    HRESULT STDMETHODCALLTYPE CopyProps(LPSPropTagArray include, ULONG, LPMAPIPROGRESS, LPCIID, LPVOID target,
                                        ULONG flags, LPSPropProblemArray* problems) override {
        if (!include) return MAPI_E_INVALID_PARAMETER;
        return CopyBody(nullptr, include, target, flags, problems);
    }
    HRESULT STDMETHODCALLTYPE GetNamesFromIDs(LPSPropTagArray* tags, LPGUID set, ULONG flags, ULONG* count,
                                              LPMAPINAMEID** names) override {
        return Guarded([&] { return GetNamesBody(tags, set, flags, count, names); });
    }
    HRESULT STDMETHODCALLTYPE GetIDsFromNames(ULONG count, LPMAPINAMEID* names, ULONG flags,
                                              LPSPropTagArray* tags) override {
        return Guarded([&] { return GetIdsBody(count, names, flags, tags); });
    }
};
