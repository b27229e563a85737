// The base of every wrapper of a property object: which accessor throws and which answers a default.
//
// A plain Get... throws CMAPIException on a negative HRESULT of the read, and only then: a value of
// another type is no error and gives the default. A Get...Or0, Get...OrEmpty or Get...Or(default) never
// throws. Set... throws. Operations on an empty wrapper throw CNullAccess unless they never throw.
//
// Text is UTF-8 under the type PT_STRING8 everywhere here, whatever the store is asked for (StoreText.h).
#pragma once
#include <MapiWrapper/ComPtr.h>
#include <MapiWrapper/MapiBinary.h>
#include <MapiWrapper/MapiException.h>
#include <MapiWrapper/PropValue.h>
#include <MapiWrapper/StoreText.h>
#include <Platform/MapiHeaders.h>

#include <string>
#include <vector>

// What IMAPIProp::OpenProperty takes beside the tag when a property is opened as a stream.
inline constexpr ULONG kStreamReadWriteMode = 2;

class CGenMapiPropPtr {
public:
    CGenMapiPropPtr() = default;
    virtual ~CGenMapiPropPtr();

    // The wrapped object without a reference for the caller; null for an empty wrapper.
    virtual IMAPIProp* RawProp() const = 0;
    // S_OK or the store's code. In batch mode the value is copied and S_OK means that it is gathered.
    virtual HRESULT SetOneProp(const SPropValue* value);
    // `out` owns what was read, or is a view of a gathered value in batch mode (the first written of
    // that tag). The store's code; 1 and a null value on an empty wrapper.
    virtual HRESULT GetOneProp(ULONG tag, CMapiPropValue& out) const;
    // Flushes gathered values, then commits the object. Throws.
    virtual void SaveChanges(ULONG flags = 0);

    // In which form the store of this object takes text. Wrappers take it from the one that they were opened
    // through; otherwise the object is asked once. Never throws.
    TextForm Text() const {
        if (m_text == TextForm::Unknown) m_text = TextFormOf(RawProp());
        return m_text;
    }
    void SetText(TextForm text) const { m_text = text; }
    // What is known of it so far, for a wrapper of the same store.
    TextForm KnownText() const { return m_text; }

    bool IsValid() const { return RawProp() != nullptr; }
    explicit operator bool() const { return IsValid(); }

    // Batch mode gathers up to 49 writes into one SetProps and lets a message keep its body. Values
    // that were not flushed by SaveChanges or SaveProps are lost with the wrapper. A copy of the wrapper
    // takes the mode and the kept body, not the gathered values; a move takes all.
    void SetBatch(bool on) { m_batch = on; }
    bool Batch() const { return m_batch; }
    ULONG GatheredCount() const { return m_writeCount; }
    // Hands gathered values over in one SetProps. A failure is reported with "SaveProps" and goes no
    // further; the values are gone either way.
    void SaveProps();

    // --- reading ------------------------------------------------------------------------------------
    // Throws "CGenMapiPropPtr::GetProps". MAPI_W_ERRORS_RETURNED is no failure: cells may be PT_ERROR.
    void GetProps(CMapiPropValues& out, const std::vector<ULONG>& tags) const;
    CMapiPropValues GetProps(const std::vector<ULONG>& tags) const;
    // Never throws; the HRESULT of IMAPIProp::GetProps with these flags.
    HRESULT GetPropsHr(ULONG flags, CMapiPropValues& out, const std::vector<ULONG>& tags) const;
    LONG GetLongProp(ULONG tag) const;               // throws "CGenMapiPropPtr::GetLongProp"
    LONG GetLongPropOr0(ULONG tag) const;            // never throws
    std::string GetStrProp(ULONG tag) const;         // PT_STRING8 only; throws "GetStrProp"
    std::string GetStrPropOrEmpty(ULONG tag) const;  // PT_STRING8, PT_UNICODE; never throws
    CMapiBinary GetBinProp(ULONG tag) const;         // empty for a result of another tag; throws
    // Interface option 2, MAPI_MODIFY. Throws.
    CComPtr<IStream> OpenPropertyStream(ULONG tag) const;
    // The store's code; with S_OK and no stream E_FAIL. Never throws but on an empty wrapper. The bytes of a
    // text are in the store's form: see ReadTextStream.
    HRESULT OpenStream(ULONG tag, ULONG options, ULONG flags, CComPtr<IStream>& out) const;
    // A text property whatever its size. The code of the stream, also that of a read that failed: `text` is
    // then empty, since what came before is not the text and would be cut for good where it is written back.
    HRESULT ReadTextStream(ULONG tag, ULONG options, ULONG flags, std::string& text) const;

    // --- writing ------------------------------------------------------------------------------------
    void SetProp(ULONG tag, LONG value);            // all throw "CGenMapiPropPtr::SetProp"
    void SetProp(ULONG tag, CMapiPropValue value);  // the value part under another tag
    void SetProp(ULONG tag, const SBinary& value);
    void SetProp(ULONG tag, const FILETIME& value);
    void SetLongProp(ULONG tag, LONG value);  // throws "CGenMapiPropPtr::SetLongProp"
    static void SetLongProp(IMAPIProp* raw, ULONG tag, LONG value);
    // Writes a text of any size as a stream; `end` with its terminating zero. The code of what failed first.
    HRESULT WriteTextStream(ULONG tag, ULONG options, const std::string& text, bool end);
    // IMAPIProp::SetProps past the batch; problems are the caller's to free. The store's code.
    HRESULT SetPropsHr(const SPropValue* values, ULONG count, SPropProblemArray** problems = nullptr);
    // Null text does nothing and does not touch the object.
    void SetStrProp(ULONG tag, const char* text);
    void SetStrProp(ULONG tag, const std::string& text) { SetStrProp(tag, text.c_str()); }
    void SetWideProp(ULONG tag, const wchar_t* text);

    // --- named properties ---------------------------------------------------------------------------
    // The tag of a name in this object's store, with `type` as its type. One call of the store each
    // time: who asks often keeps the tag, or uses CNamedTags. Throws; MAPI_E_NOT_FOUND with the context
    // "CGenMapiPropPtr::GetIDFromName" where the store answers without a tag, or with an error in its
    // place (MAPI_W_ERRORS_RETURNED): a name that it does not know, or could not create.
    ULONG GetIDFromName(const GUID& guid, LONG id, ULONG type, ULONG flags = MAPI_CREATE) const;
    ULONG GetIDFromName(const GUID& guid, const wchar_t* name, ULONG type, ULONG flags = MAPI_CREATE) const;
    // For a raw object: `type` is added to the tag that the store gave, whose type is not cleared first.
    static ULONG GetIDFromName(IMAPIProp* raw, const GUID& guid, LONG id, ULONG type,
                               ULONG flags = MAPI_CREATE);
    static ULONG GetIDFromName(IMAPIProp* raw, const GUID& guid, const wchar_t* name, ULONG type,
                               ULONG flags = MAPI_CREATE);
    // PT_STRING8 in PS_PUBLIC_STRINGS, created at need. Throws.
    std::string GetNamedStr(const wchar_t* name) const;
    // The same in an explicit set (null: PS_PUBLIC_STRINGS); the empty text on failure.
    std::string GetNamedStr(const wchar_t* name, const GUID* guid) const;
    LONG GetNamedLong(const wchar_t* name) const;                     // throws
    LONG GetNamedLong(const wchar_t* name, LONG defaultValue) const;  // never throws
    // In PS_PUBLIC_STRINGS; `type` must be one of 32 bits, or PT_BINARY for the second. Throw.
    void SetNamedValue(const wchar_t* name, ULONG type, LONG value);
    void SetNamedValue(const wchar_t* name, ULONG type, const SBinary& value);
    void SetNamedStr(const wchar_t* name, const char* text);  // PT_STRING8

protected:
    CGenMapiPropPtr(const CGenMapiPropPtr& other);
    CGenMapiPropPtr(CGenMapiPropPtr&& other) noexcept;
    CGenMapiPropPtr& operator=(const CGenMapiPropPtr& other);
    CGenMapiPropPtr& operator=(CGenMapiPropPtr&& other) noexcept;

    // The raw object; CNullAccess(where) on an empty wrapper.
    IMAPIProp* Require(const char* where) const { return NotNull(RawProp(), where); }

    // The plain body kept in batch mode (messages).
    mutable std::string m_cachedBody;

private:
    HRESULT Gather(const SPropValue* value);
    void DropGathered();

    mutable TextForm m_text = TextForm::Unknown;
    SPropValue* m_writeBuffer = nullptr;
    ULONG m_writeCount = 0;
    bool m_batch = false;
};

// HrGetOneProp with the value as a variant: failure leaves `out` empty.
HRESULT HrGetProp(IMAPIProp* raw, ULONG tag, CVariant& out);
