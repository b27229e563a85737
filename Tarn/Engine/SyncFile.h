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

// Finds entries by one of their texts. Open addressing with the hashes beside the entries, so that ten
// thousand entries are entered in well below a millisecond. A key that is there already is not entered
// again.
class CSyncFileIndex {
public:
    using KeyOf = std::string_view (*)(const CSyncFileEntry& entry);
    explicit CSyncFileIndex(KeyOf keyOf) : m_keyOf(keyOf) {}

    void Clear();
    void Reserve(size_t count);
    bool Insert(CSyncFileEntry* entry);
    CSyncFileEntry* Find(std::string_view key) const;
    size_t Count() const { return m_count; }

private:
    struct Slot {
        CSyncFileEntry* entry = nullptr;
        size_t hash = 0;
    };
    // The slot of the key, or the free one where it belongs.
    size_t Probe(std::string_view key, size_t hash) const;

    KeyOf m_keyOf;
    std::vector<Slot> m_slots;  // a power of two, at most half full
    size_t m_count = 0;
};

// Two maps over the same entries: by identifier, from its 41st character on (the flags and the
// provider's UID in front of it change between opens of one store), and by the whole sync ID (entries
// without one are not in it). Not for sharing between threads.
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
    size_t Count() const { return m_byIdentifier.Count(); }

    // Replaces the contents by what `bytes` hold. Bytes that break off or lie about their lengths end
    // the reading: what was complete before stays, and the answer is false. `announced` receives the
    // count that the bytes begin with.
    bool Parse(std::string bytes, std::uint32_t& announced);

    static std::string_view KeyOf(std::string_view identifier);

private:
    std::vector<CSyncFileEntry*> Ordered(bool unseenOnly);

    std::string m_bytes;               // what Parse was given; the texts point into it
    std::deque<std::string> m_copies;  // texts of Add
    std::deque<CSyncFileEntry> m_entries;
    CSyncFileIndex m_byIdentifier;
    CSyncFileIndex m_bySyncId;  // holds the first m_indexed entries; most runs never ask it
    size_t m_indexed = 0;
};

// Builds the bytes.
class CSyncFileWriter {
public:
    explicit CSyncFileWriter(std::uint32_t count);
    // A text ends at its first zero byte, as the reader would take it.
    void Add(std::string_view identifier, const FILETIME& time, std::string_view syncId,
             std::string_view name);
    const std::string& Bytes() const { return m_bytes; }

private:
    void PutNumber(std::uint32_t value);
    void PutText(std::string_view text);

    std::string m_bytes;
};
