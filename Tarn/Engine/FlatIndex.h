// Finds numbers by the texts that they stand for. Open addressing over the numbers alone: eight to sixteen
// bytes a number, and ten thousand of them are entered in well below a millisecond.
#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

// The texts stay with the owner of the numbers, whose `keyOf(number)` tells the text of one; it must not
// change while the number is entered. Not for sharing between threads.
class CFlatIndex {
public:
    static constexpr std::uint32_t None = 0xFFFFFFFF;

    // Gives back the room as well.
    void Clear() {
        std::vector<Slot>().swap(m_slots);
        m_count = 0;
    }
    size_t Count() const { return m_count; }

    void Reserve(size_t count) {
        size_t slots = 16;
        while (slots < 2 * count)
            slots *= 2;
        if (slots <= m_slots.size()) return;
        std::vector<Slot> old(slots);
        old.swap(m_slots);
        for (const Slot& slot : old)
            if (slot.number) m_slots[FreeSlot(slot.hash)] = slot;
    }

    // The number that has this text, or None.
    template <class KeyOf>
    std::uint32_t Find(std::string_view key, const KeyOf& keyOf) const {
        return m_slots.empty() ? None : m_slots[Probe(key, HashOf(key), keyOf)].number - 1;
    }

    // Enters a number under its text. Where the text is there already the former number stays, or gives way
    // if `replace` is set; the answer is then false.
    template <class KeyOf>
    bool Insert(std::uint32_t number, const KeyOf& keyOf, bool replace = false) {
        Reserve(m_count + 1);
        const std::string_view key = keyOf(number);
        const std::uint32_t hash = HashOf(key);
        Slot& slot = m_slots[Probe(key, hash, keyOf)];
        const bool isNew = slot.number == 0;
        if (isNew || replace) slot = {number + 1, hash};
        if (isNew) ++m_count;
        return isNew;
    }

private:
    struct Slot {
        std::uint32_t number = 0;  // + 1; 0: free
        std::uint32_t hash = 0;
    };

    static std::uint32_t HashOf(std::string_view key) {
        return static_cast<std::uint32_t>(std::hash<std::string_view>()(key));
    }
    size_t FreeSlot(std::uint32_t hash) const {
        size_t at = hash & (m_slots.size() - 1);
        while (m_slots[at].number)
            at = (at + 1) & (m_slots.size() - 1);
        return at;
    }
    // The slot of the key, or the free one where it belongs.
    template <class KeyOf>
    size_t Probe(std::string_view key, std::uint32_t hash, const KeyOf& keyOf) const {
        const size_t mask = m_slots.size() - 1;
        size_t at = hash & mask;
        while (m_slots[at].number && (m_slots[at].hash != hash || keyOf(m_slots[at].number - 1) != key))
            at = (at + 1) & mask;
        return at;
    }

    std::vector<Slot> m_slots;  // a power of two, at most half full
    size_t m_count = 0;
};
