// A sync file: what one side of a pair held at the end of the last run. In memory, and as the bytes
// that lie in the hidden message of the source folder.
//
// The bytes, little-endian, without header, checksum or padding: u32 count, then for each entry
// identifier, u32 high and u32 low half of the time, sync ID, name. A text is a u32 length, the bytes
// and a zero byte that the length does not count.
#pragma once
#include <Platform/MapiHeaders.h>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

// The texts are views into the map that holds the entry and live until it is cleared.
struct CSyncFileEntry {
    FILETIME time{};
    std::string_view identifier;  // upper-case hexadecimal of the entry ID, as read
    std::string_view syncId;
    std::string_view name;
    LONG seen = 0;  // 1: a row of the folder matched this entry
};

// Finds entries by one of their texts. Open addressing over the numbers of the entries, so that ten
// thousand of them are entered in well below a millisecond. A key that is there already is not entered
// again.
class CSyncFileIndex {
public:
    using KeyOf = std::string_view (*)(const CSyncFileEntry& entry);
    CSyncFileIndex(const std::vector<CSyncFileEntry>& entries, KeyOf keyOf)
        : m_entries(entries), m_keyOf(keyOf) {}

    static constexpr size_t None = static_cast<size_t>(-1);

    void Clear();
    void Reserve(size_t count);
    bool Insert(size_t entry);
    // The number of the entry, or None.
    size_t Find(std::string_view key) const;
    size_t Count() const { return m_count; }

private:
    struct Slot {
        std::uint32_t entry = 0;  // its number + 1; 0: free
        std::uint32_t hash = 0;
    };
    // The slot of the key, or the free one where it belongs.
    size_t Probe(std::string_view key, std::uint32_t hash) const;

    const std::vector<CSyncFileEntry>& m_entries;
    KeyOf m_keyOf;
    std::vector<Slot> m_slots;  // a power of two, at most half full
    size_t m_count = 0;
};

// Two maps over the same entries: by identifier, from its 41st character on (the flags and the
// provider's UID in front of it change between opens of one store), and by the whole sync ID (entries
// without one are not in it). Pointers to entries hold until the next Add. Not for sharing between
// threads.
class CSyncFileMap {
public:
    CSyncFileMap();
    CSyncFileMap(const CSyncFileMap&) = delete;
    CSyncFileMap& operator=(const CSyncFileMap&) = delete;

    void Clear();

    // Null if there is none. `identifier` is the whole text, also where only its end counts.
    CSyncFileEntry* FindByIdentifier(std::string_view identifier);
    CSyncFileEntry* FindByEntryId(const SBinary& entryId);
    CSyncFileEntry* FindBySyncId(std::string_view syncId);

    // Copies the texts and enters the entry in both maps.
    CSyncFileEntry& Add(std::string_view identifier, const FILETIME& time, std::string_view syncId,
                        std::string_view name);

    void SetSeen(LONG seen);
    // The entries of the first map, ordered by the bytes of their keys. Sorted anew at each call.
    std::vector<CSyncFileEntry*> InKeyOrder();
    // Only those that are not marked as seen: after most runs none, and then nothing is sorted.
    std::vector<CSyncFileEntry*> UnseenInKeyOrder();
    // Entries in the first map.
    size_t Count();

    // Replaces the contents by what `bytes` hold. Bytes that break off or lie about their lengths end
    // the reading: what was complete before stays, and the answer is false. `announced` receives the
    // count that the bytes begin with.
    bool Parse(std::string bytes, std::uint32_t& announced);

    static std::string_view KeyOf(std::string_view identifier);

private:
    void IndexIdentifiers();
    CSyncFileEntry* FindByKey(std::string_view key);
    std::vector<CSyncFileEntry*> Ordered(bool unseenOnly);

    std::string m_bytes;               // what Parse was given; the texts point into it
    std::deque<std::string> m_copies;  // texts of Add
    std::vector<CSyncFileEntry> m_entries;
    // Both indexes hold the first entries up to these numbers. The rows of a folder come in the order in
    // which they were remembered but for those that changed, so where nothing has, neither is ever built.
    size_t m_identifiersIndexed = 0;
    size_t m_syncIdsIndexed = 0;
    CSyncFileIndex m_byIdentifier;
    CSyncFileIndex m_bySyncId;
    size_t m_expected = 0;     // the entry behind the one found last
    bool m_inSequence = true;  // since SetSeen each was found where it was expected
};

// Builds the bytes.
class CSyncFileWriter {
public:
    explicit CSyncFileWriter(std::uint32_t count);
    void Reserve(size_t cb) { m_bytes.reserve(cb); }
    // A text ends at its first zero byte, as the reader would take it.
    void Add(std::string_view identifier, const FILETIME& time, std::string_view syncId,
             std::string_view name);
    // Takes the place of the count given before.
    void SetCount(std::uint32_t count) {
        for (size_t i = 0; i < sizeof(count); ++i)
            m_bytes[i] = static_cast<char>(count >> (8 * i));
    }
    const std::string& Bytes() const { return m_bytes; }
    std::string TakeBytes() { return std::move(m_bytes); }

private:
    void PutNumber(std::uint32_t value);
    void PutText(std::string_view text);

    std::string m_bytes;
};
