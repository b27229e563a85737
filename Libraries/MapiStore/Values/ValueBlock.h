// Property values as they lie in the store: a block holds the values of one object, sorted by
// property ID, behind an index, so that one of them is found without decoding the others.
//
//   u32  count                                            all numbers little-endian
//   count times: u16 property ID, u16 stored type, u32 end of the value behind the index
//   the values
//
// Stored types are MAPI types with two differences: text is always PT_STRING8 or PT_MV_STRING8 and
// holds UTF-8 without a terminator, and the bit kLargeValue marks a value kept elsewhere, of which
// the block holds only the size (u32). Stored forms of the values:
//
//   fixed size                        as in SPropValue (PT_BOOLEAN: u16 0 or 1)
//   PT_STRING8, PT_BINARY             the bytes
//   multi-valued, fixed size          the elements
//   PT_MV_STRING8, PT_MV_BINARY       u32 count, count times u32 end, the bytes
#pragma once
#include <Platform/MapiHeaders.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

using PropId = std::uint16_t;
using PropType = std::uint16_t;

inline constexpr PropType kLargeValue = 0x8000;
// A value above this many bytes leaves the block for the object's second block of large values, so
// that a folder scan does not read it.
inline constexpr std::size_t kSmallValueLimit = 512;

// One value in stored form. Views bytes of a block (valid as long as that block), or its own few
// bytes where the value is computed; therefore not copyable.
class CStoredValue {
public:
    CStoredValue() = default;
    CStoredValue(const CStoredValue&) = delete;
    CStoredValue& operator=(const CStoredValue&) = delete;

    PropId Id() const { return m_id; }
    PropType Type() const { return m_type; }     // without kLargeValue
    bool IsLarge() const { return m_large; }     // Bytes() is empty, only Size() is known
    std::size_t Size() const { return m_size; }  // size of the stored form
    std::string_view Bytes() const { return m_bytes; }

    void View(PropId id, PropType type, std::string_view bytes) {
        m_id = id;
        m_type = type;
        m_large = false;
        m_bytes = bytes;
        m_size = bytes.size();
    }
    void Large(PropId id, PropType type, std::size_t size) {
        View(id, type, {});
        m_large = true;
        m_size = size;
    }
    // Keeps up to 40 bytes in the value itself.
    void Own(PropId id, PropType type, const void* bytes, std::size_t size) {
        std::memcpy(m_local, bytes, size);
        View(id, type, {m_local, size});
    }
    void OwnLong(PropId id, std::uint32_t value) { Own(id, PT_LONG, &value, sizeof value); }
    void OwnBool(PropId id, bool value) {
        const std::uint16_t stored = value;
        Own(id, PT_BOOLEAN, &stored, sizeof stored);
    }
    void OwnTime(PropId id, std::uint64_t ticks) { Own(id, PT_SYSTIME, &ticks, sizeof ticks); }

    // The value as a number; 0 when it is shorter than the type asked for.
    template <class Number>
    Number As() const {
        Number value{};
        if (m_bytes.size() >= sizeof value) std::memcpy(&value, m_bytes.data(), sizeof value);
        return value;
    }

private:
    friend class CValueBlock;
    PropId m_id = 0;
    PropType m_type = 0;
    bool m_large = false;
    std::uint32_t m_place = 0;  // where a block was searched last
    std::size_t m_size = 0;
    std::string_view m_bytes;
    char m_local[40];
};

// A view of a block. Cheap to make; the bytes stay the caller's.
class CValueBlock {
public:
    CValueBlock() = default;
    // Damaged bytes (an index that does not fit, ends out of order, IDs out of order) throw
    // CStoreError(MAPI_E_CORRUPT_DATA). Reads the index once.
    explicit CValueBlock(std::string_view bytes);

    std::size_t Count() const { return m_count; }
    PropId IdAt(std::size_t i) const { return static_cast<PropId>(EntryAt(i)); }
    void At(std::size_t i, CStoredValue& value) const;
    // Binary search; false leaves the contents of `value` as they were. Looks first where the same
    // `value` was found last: the rows of a folder are much alike.
    bool Find(PropId id, CStoredValue& value) const;

private:
    // u16 ID, u16 type, u32 end as one number.
    std::uint64_t EntryAt(std::size_t i) const {
        std::uint64_t entry;
        std::memcpy(&entry, m_index + i * sizeof entry, sizeof entry);
        return entry;
    }
    std::uint32_t EndAt(std::size_t i) const { return static_cast<std::uint32_t>(EntryAt(i) >> 32); }
    bool IsLowerBound(std::size_t i, PropId id) const {
        return i <= m_count && (i == m_count || IdAt(i) >= id) && (i == 0 || IdAt(i - 1) < id);
    }
    std::size_t LowerBound(PropId id) const;

    const char* m_index = nullptr;
    const char* m_values = nullptr;
    std::size_t m_count = 0;
};

// Writes a block. Values must come in ascending order of their IDs.
class CValueBlockWriter {
public:
    void Add(PropId id, PropType type, std::string_view bytes);
    void AddLarge(PropId id, PropType type, std::size_t size);
    bool IsEmpty() const { return m_index.empty(); }
    void Clear() {
        m_index.clear();
        m_values.clear();
    }
    std::string Finish() const;

private:
    struct Entry {
        PropId id;
        PropType type;
        std::uint32_t end;
    };
    std::vector<Entry> m_index;
    std::string m_values;
};

// Elements of a stored PT_MV_STRING8 or PT_MV_BINARY. Damaged bytes throw MAPI_E_CORRUPT_DATA.
std::vector<std::string_view> SplitElements(std::string_view stored);
std::string JoinElements(const std::vector<std::string_view>& elements);
