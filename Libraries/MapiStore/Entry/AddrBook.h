// A minimal address book: one-off recipients, made, resolved and opened. There is no directory.
#pragma once
#include <MapiStore/Objects/PlainObject.h>

class CAddrBook : public CPlainObject<IAddrBook> {
public:
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG cb, LPENTRYID id, LPCIID iid, ULONG flags, ULONG* type,
                                        LPUNKNOWN* object) override;
    HRESULT STDMETHODCALLTYPE CompareEntryIDs(ULONG cb1, LPENTRYID id1, ULONG cb2, LPENTRYID id2, ULONG flags,
                                              ULONG* result) override;
    HRESULT STDMETHODCALLTYPE Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG*) override {
        return kNone;
    }
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG) override { return kNone; }
    HRESULT STDMETHODCALLTYPE CreateOneOff(LPTSTR name, LPTSTR type, LPTSTR address, ULONG flags, ULONG* cb,
                                           LPENTRYID* id) override;
    HRESULT STDMETHODCALLTYPE NewEntry(ULONG_PTR, ULONG, ULONG, LPENTRYID, ULONG, LPENTRYID, ULONG*,
                                       LPENTRYID*) override {
        return kNone;
    }
    HRESULT STDMETHODCALLTYPE ResolveName(ULONG_PTR, ULONG flags, LPTSTR, LPADRLIST list) override;
    HRESULT STDMETHODCALLTYPE Address(ULONG_PTR*, LPADRPARM, LPADRLIST*) override { return kNone; }
    HRESULT STDMETHODCALLTYPE Details(ULONG*, LPFNDISMISS, LPVOID, ULONG, LPENTRYID, LPFNBUTTON, LPVOID,
                                      LPTSTR, ULONG) override {
        return kNone;
    }
    HRESULT STDMETHODCALLTYPE RecipOptions(ULONG_PTR, ULONG, LPADRENTRY) override { return kNone; }
    HRESULT STDMETHODCALLTYPE QueryDefaultRecipOpt(LPTSTR, ULONG, ULONG*, LPSPropValue*) override {
        return kNone;
    }
    HRESULT STDMETHODCALLTYPE GetPAB(ULONG*, LPENTRYID*) override { return kNone; }
    HRESULT STDMETHODCALLTYPE SetPAB(ULONG, LPENTRYID) override { return kNone; }
    HRESULT STDMETHODCALLTYPE GetDefaultDir(ULONG*, LPENTRYID*) override { return kNone; }
    HRESULT STDMETHODCALLTYPE SetDefaultDir(ULONG, LPENTRYID) override { return kNone; }
    HRESULT STDMETHODCALLTYPE GetSearchPath(ULONG, LPSRowSet*) override { return kNone; }
    HRESULT STDMETHODCALLTYPE SetSearchPath(ULONG, LPSRowSet) override { return kNone; }
    HRESULT STDMETHODCALLTYPE PrepareRecips(ULONG, LPSPropTagArray, LPADRLIST) override { return S_OK; }

protected:
    void* FindInterface(REFIID riid) override;

private:
    static constexpr HRESULT kNone = static_cast<HRESULT>(MAPI_E_NO_SUPPORT);
};

// The published form of a one-off entry ID; texts are UTF-8.
struct OneOff {
    std::string name, type, address;
    bool rich = true;
};
std::string MakeOneOff(const OneOff& one);
bool ParseOneOff(ULONG cb, const ENTRYID* bytes, OneOff& one);
// The recipient behind a one-off entry ID. MAPI_E_UNKNOWN_ENTRYID as CStoreError.
IUnknown* OpenOneOff(ULONG cb, const ENTRYID* bytes, const IID* iid);
