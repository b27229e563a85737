// One SPropValue, or a block of them, with the knowledge of who frees it.
#pragma once
#include <MapiWrapper/MapiBinary.h>
#include <MapiWrapper/Variant.h>
#include <Platform/MapiHeaders.h>

#include <string>

// A pointer to one SPropValue and an owns flag. A view from a row set or a block does not own and dies
// with it. A copy of a view is a view; a copy of an owner is a deep copy. All accessors of a null or
// unfitting value give the empty value and never throw.
class CMapiPropValue {
public:
    CMapiPropValue() = default;
    // Allocates one zeroed value with that tag. Throws CMAPIException when there is no memory, after
    // the message box "Fatal: MAPI Memory failed, program will probably abort".
    explicit CMapiPropValue(ULONG tag);
    // View, or owner of a block from MAPIAllocateBuffer.
    CMapiPropValue(SPropValue* value, bool owns) : m_value(value), m_owns(owns) {}
    CMapiPropValue(const CMapiPropValue& other);
    CMapiPropValue(CMapiPropValue&& other) noexcept;
    ~CMapiPropValue() {
        if (m_owns && m_value) Free();
    }
    CMapiPropValue& operator=(const CMapiPropValue& other);
    CMapiPropValue& operator=(CMapiPropValue&& other) noexcept;

    void Attach(SPropValue* value, bool owns);
    void Free();
    // For out arguments that return a block to be owned; frees first.
    SPropValue** Out();

    SPropValue* Get() const { return m_value; }
    bool IsNull() const { return !m_value; }
    bool Owns() const { return m_owns; }
    ULONG Tag() const { return m_value ? m_value->ulPropTag : 0; }
    // The low 16 bits of the tag; PT_ERROR for a null pointer.
    ULONG Type() const { return m_value ? PROP_TYPE(m_value->ulPropTag) : PT_ERROR; }
    bool IsError() const { return Type() == PT_ERROR; }

    LONG Long() const;  // PT_LONG, PT_I2 and PT_BOOLEAN, otherwise 0
    bool Bool() const;  // PT_BOOLEAN, otherwise false
    // PT_SYSTIME, otherwise zero
    FILETIME Time() const { return Type() == PT_SYSTIME ? m_value->Value.ft : FILETIME{0, 0}; }
    // view of PT_BINARY, otherwise {0, null}
    SBinary Binary() const { return Type() == PT_BINARY ? m_value->Value.bin : SBinary{0, nullptr}; }
    std::string Str() const;   // PT_STRING8, or PT_UNICODE in UTF-8, otherwise empty
    std::string Text() const;  // any type, as ValueText

private:
    SPropValue* m_value = nullptr;
    bool m_owns = true;
};

// The block of a GetProps call. Movable, not copyable.
class CMapiPropValues {
public:
    CMapiPropValues() = default;
    CMapiPropValues(CMapiPropValues&& other) noexcept;
    CMapiPropValues& operator=(CMapiPropValues&& other) noexcept;
    ~CMapiPropValues() { Free(); }

    void Attach(SPropValue* values, ULONG count);  // takes the block
    void Free();
    ULONG Count() const { return m_count; }
    SPropValue* Get() const { return m_values; }
    // A view; null behind the end.
    CMapiPropValue operator[](ULONG index) const;

private:
    SPropValue* m_values = nullptr;
    ULONG m_count = 0;
};

// Deep copy. Memory behind the value comes from MAPIAllocateMore on `parent`, or from
// MAPIAllocateBuffer where parent is null or one of the reserved pointer values -1 and -2. Types
// without memory behind them stay with the flat copy. S_OK or the allocator's code; on failure
// `destination` holds no pointer into `source`.
HRESULT CopyPropValue(SPropValue* destination, const SPropValue* source, void* parent);
// The same with `destination` as parent, which must be a block of its own.
HRESULT CopyPropValue(SPropValue* destination, const SPropValue* source);

// Frees the old bytes with MAPIFreeBuffer and copies, with memory as for CopyPropValue. On failure
// nothing is copied and the destination is empty.
HRESULT HrCopySBinary(SBinary* destination, const SBinary* source, void* parent);

// The text of a value: PT_STRING8 its text, any other type as ValueVariant(value).Text(); null: empty.
std::string ValueText(const SPropValue* value);
// PT_I2, PT_LONG, PT_R4, PT_DOUBLE, PT_BOOLEAN and PT_SYSTIME map to their kinds, PT_STRING8 and
// PT_UNICODE to text, PT_BINARY to upper-case hexadecimal, PT_MV_LONG, PT_MV_STRING8 and PT_MV_BINARY to
// text with the items joined by "; ". Anything else, and null, is empty.
CVariant ValueVariant(const SPropValue* value);
// The reverse: value->ulPropTag says the target type. Memory as for CopyPropValue, where a null parent
// means one block each. An empty variant gives 0, empty text, no bytes, and turns PT_SYSTIME into
// PT_ERROR. A kind that does not fit leaves the value as it stands. S_OK or the allocator's code.
HRESULT VariantToValue(const CVariant& variant, SPropValue* value, void* parent);
