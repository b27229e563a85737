// A folder that does nothing but number named properties, and a compiler that stands on one.
#pragma once
#include <MapiWrapper/UserFields.h>
#include <Platform/MapiHeaders.h>
#include <Tools/CompileRestriction.h>

#include <map>
#include <string>
#include <tuple>

// Answers MAPI_E_NO_SUPPORT to everything.
#define NOT_NEEDED                \
    override {                    \
        return MAPI_E_NO_SUPPORT; \
    }
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-parameter"
class CBareFolder : public IMAPIContainer {
public:
    MAPI_IMAPIPROP_METHODS(NOT_NEEDED)
    MAPI_IMAPICONTAINER_METHODS(NOT_NEEDED)
};
#pragma GCC diagnostic pop
#undef NOT_NEEDED

// Lives on the stack of a test, which sees by References whether somebody still holds it.
class CFakeFolder : public CBareFolder {
public:
    ULONG References() const { return m_references; }
    unsigned idCalls = 0;     // calls of GetIDsFromNames
    HRESULT idResult = S_OK;  // what they answer

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        *object = nullptr;
        if (iid != IID_IUnknown && iid != IID_IMAPIProp && iid != IID_IMAPIContainer) return E_NOINTERFACE;
        *object = this;
        ++m_references;
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override { return --m_references; }

    // Numbers from 0x8000 in order of first use, as a store gives them.
    HRESULT STDMETHODCALLTYPE GetIDsFromNames(ULONG count, LPMAPINAMEID* names, ULONG,
                                              LPSPropTagArray* tags) override {
        ++idCalls;
        if (idResult < 0) return idResult;
        void* block = nullptr;
        if (MAPIAllocateBuffer(static_cast<ULONG>(CbNewSPropTagArray(count)), &block) < 0)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        *tags = static_cast<SPropTagArray*>(block);
        (*tags)->cValues = count;
        for (ULONG i = 0; i < count; ++i)
            (*tags)->aulPropTag[i] = PROP_TAG(PT_UNSPECIFIED, Number(*names[i]));
        return S_OK;
    }

private:
    ULONG Number(const MAPINAMEID& name) {
        const bool isString = name.ulKind == MNID_STRING;
        const std::wstring text = isString ? name.Kind.lpwstrName : L"";
        const auto key = std::make_tuple(isString ? 0 : name.Kind.lID, text);
        return m_ids.try_emplace(key, 0x8000 + static_cast<ULONG>(m_ids.size())).first->second;
    }

    ULONG m_references = 1;
    std::map<std::tuple<LONG, std::wstring>, ULONG> m_ids;
};

inline constexpr ULONG kTagA = PROP_TAG(PT_LONG, 0x6601);
inline constexpr ULONG kTagB = PROP_TAG(PT_LONG, 0x6602);
inline constexpr ULONG kTagC = PROP_TAG(PT_LONG, 0x6603);
inline constexpr ULONG kTagText = PROP_TAG(PT_STRING8, 0x6604);
inline constexpr ULONG kTagBytes = PROP_TAG(PT_BINARY, 0x6605);
inline constexpr ULONG kTagGuid = PROP_TAG(PT_CLSID, 0x6606);
inline constexpr ULONG kTagHuge = PROP_TAG(PT_I8, 0x6607);
inline constexpr ULONG kTagList = PROP_TAG(PT_MV_STRING8, 0x6608);
inline constexpr ULONG kTagWhen = PROP_TAG(PT_SYSTIME, 0x6609);
inline constexpr ULONG kTagYes = PROP_TAG(PT_BOOLEAN, 0x660A);

// Adds the words of the tests: a, b, c (numbers), text, bytes, guid, huge, list, when, yes.
inline void AddTestFields(CCompileRestriction& compiler) {
    CUserFields& fields = compiler.UserFields();
    fields.AddTag("a", kTagA);
    fields.AddTag("b", kTagB);
    fields.AddTag("c", kTagC);
    fields.AddTag("text", kTagText);
    fields.AddTag("bytes", kTagBytes);
    fields.AddTag("guid", kTagGuid);
    fields.AddTag("huge", kTagHuge);
    fields.AddTag("list", kTagList);
    fields.AddTag("when", kTagWhen);
    fields.AddTag("yes", kTagYes);
}
