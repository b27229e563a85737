// The properties of an open object: the block as it was read, and over it what was set and removed
// since. Nothing is decoded before it is asked for.
#pragma once
#include "ValueBlock.h"

class CPropertyBag {
public:
    CPropertyBag() = default;
    CPropertyBag(const CPropertyBag&) = delete;
    CPropertyBag& operator=(const CPropertyBag&) = delete;

    // Starts again from a block; throws MAPI_E_CORRUPT_DATA for damaged bytes, the bag is empty then.
    void Load(std::string block);

    // The same with the changes since the last load kept, over the new block.
    void LoadBelow(std::string block);

    // True if the property is there. Small values and those set since view the bag (valid until the
    // next change); large ones of the block come back with IsLarge().
    bool Find(PropId id, CStoredValue& value) const;
    bool Has(PropId id) const;

    // Overwrites. `bytes` must not view this bag.
    void Set(PropId id, PropType type, std::string_view bytes);
    void SetLong(PropId id, std::uint32_t value);
    void SetText(PropId id, std::string_view utf8) { Set(id, PT_STRING8, utf8); }
    bool Remove(PropId id);  // false if it was not there
    void Clear();            // removes everything, also what the block holds

    // All properties in ascending order of IDs: body(const CStoredValue&).
    template <class Body>
    void ForEach(Body&& body) const;

    bool IsChanged() const { return !m_changes.empty() || m_cleared; }
    bool ChangedSinceLoad(PropId id) const;  // set or removed since

    struct Blocks {
        std::string small;  // with a mark for each large value
        std::string large;  // block of the large values, empty if there are none; only if LargeChanged
        std::size_t cb;     // bytes of all values
        bool hasLarge;
    };
    // What is to be stored. `oldLarge` is the object's present block of large values (empty if it has
    // none); it is needed only when LargeChanged() and KeepsLargeOfBlock().
    Blocks Build(std::string_view oldLarge) const;
    // A large value was set, overwritten or removed: the block of large values has to be written.
    bool LargeChanged() const;
    // Some large value of the block stands as it was.
    bool KeepsLargeOfBlock() const;

private:
    struct Change {
        PropId id;
        PropType type;
        bool removed;
        std::uint32_t offset, size;
    };
    const Change* FindChange(PropId id) const;
    Change& ChangeFor(PropId id);
    std::string_view BytesOf(const Change& change) const {
        return std::string_view(m_bytes).substr(change.offset, change.size);
    }
    void Compact();
    void SetBlock(std::string block);

    std::string m_block;
    CValueBlock m_view;             // of m_block
    std::vector<Change> m_changes;  // sorted by ID
    std::string m_bytes;            // of the changes
    std::size_t m_cbLive = 0;       // of m_bytes in use
    bool m_cleared = false;
    bool m_blockHasLarge = false;
};

template <class Body>
void CPropertyBag::ForEach(Body&& body) const {
    const std::size_t count = m_cleared ? 0 : m_view.Count();
    std::size_t i = 0;
    auto change = m_changes.begin();
    CStoredValue value;
    while (i < count || change != m_changes.end()) {
        if (change == m_changes.end() || (i < count && m_view.IdAt(i) < change->id)) {
            m_view.At(i++, value);
            body(static_cast<const CStoredValue&>(value));
            continue;
        }
        if (i < count && m_view.IdAt(i) == change->id) ++i;
        if (!change->removed) {
            value.View(change->id, change->type, BytesOf(*change));
            body(static_cast<const CStoredValue&>(value));
        }
        ++change;
    }
}
