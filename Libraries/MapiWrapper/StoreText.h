// Text on its way to a store and back.
//
// Above this library a text is UTF-8 and its type is PT_STRING8: PR_SUBJECT_A names the subject with all of
// its letters. Where the 8-bit form of the interfaces is in a code page that lacks most of them, the
// wrappers ask for PT_UNICODE in its place, and give it. They do so for every value, column and restriction
// that passes through them; what goes to a raw interface by itself has to be converted by the caller.
#pragma once
#include <Platform/MapiHeaders.h>

#include <memory>
#include <string>
#include <vector>

enum class TextForm : unsigned char {
    Unknown,  // nobody has asked yet
    Same,     // 8-bit text is UTF-8: nothing to convert
    Wide,     // PT_UNICODE and MAPI_UNICODE
    Narrow,   // the store has nothing but 8-bit text: converted from and to its code page
};

// Same where the code page is UTF-8, otherwise Wide: for whatever is no part of a store.
TextForm TextFormOfSystem();
// Same, or as the PR_STORE_SUPPORT_MASK of the object says; Wide where it has none. One call unless Same.
TextForm TextFormOf(IMAPIProp* object);

// The tag under which a store is asked for what this program calls `tag`. Types other than text stay.
ULONG TagForStore(ULONG tag, TextForm form);

// Turns a value that came from a store into text of this program. `asked` is the program's tag for it: text
// that was asked for as PT_UNICODE stays so. New memory hangs on `parent`, the block of the value. S_OK, or
// the allocator's code.
HRESULT TakeText(SPropValue& value, ULONG asked, TextForm form, void* parent);
// The same for `count` values that were asked for by as many tags.
HRESULT TakeTexts(SPropValue* values, ULONG count, const std::vector<ULONG>& asked, TextForm form,
                  void* parent);
// Bytes of a stream that was opened with TagForStore of a text property, up to a terminating zero.
std::string TextFromStream(const std::string& bytes, TextForm form);
// The reverse; `end` adds the terminating zero that writers of such streams store.
std::string TextForStream(const std::string& text, TextForm form, bool end);

// Whether a store of this form keeps every letter of the text.
bool CanKeepText(const std::string& text, TextForm form);

// HrGetOneProp with the text of this program.
HRESULT GetOneText(IMAPIProp* object, ULONG tag, TextForm form, SPropValue** value);

// What a call gives to a store: owns the converted copies, so it has to live as long as the call. What needs
// no conversion is passed on as it is.
class CStoreText {
public:
    explicit CStoreText(TextForm form) : m_form(form) {}
    CStoreText(const CStoreText&) = delete;
    CStoreText& operator=(const CStoreText&) = delete;

    SPropValue* Values(const SPropValue* values, ULONG count);
    // In a search, a text that a Narrow store cannot hold is one that it does not hold: it fits no item.
    SRestriction* Restriction(SRestriction* restriction);
    SSortOrderSet* Order(SSortOrderSet* order);
    ADRLIST* Addresses(ADRLIST* list);
    // For arguments of type LPTSTR, together with the flag.
    LPTSTR Argument(const std::string& text);
    ULONG Flag() const { return m_form == TextForm::Wide ? MAPI_UNICODE : 0; }

private:
    void* Room(size_t cb);
    template <class T>
    T* Array(size_t count);
    char* Narrow(const char* text);
    wchar_t* Widen(const char* text);
    void Convert(SPropValue& value);
    void Fill(SRestriction& to, const SRestriction& from);

    TextForm m_form;
    bool m_search = false;
    std::vector<std::unique_ptr<char[]>> m_blocks;
};
