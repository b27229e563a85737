// A sync file: what one side of a pair held at the end of the last run. In memory, and as the bytes
// that lie in the hidden message of the source folder.
//
// The bytes, little-endian, without header, checksum or padding: u32 count, then for each entry
// identifier, u32 high and u32 low half of the time, sync ID, name. A text is a u32 length, the bytes
// and a zero byte that the length does not count.
#pragma once
#include <Tarn/Engine/FlatIndex.h>
#include <Tarn/Engine/ItemKey.h>

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

// What an entry tells. Its texts lie one after the other in the form of the bytes, in the map that holds the
// entry, and live until that is cleared; a large folder has a hundred thousand entries.
class CSyncFileEntry {
public:
    CSyncFileEntry() = default;
    // `fields`: an entry's bytes from the first text on.
    CSyncFileEntry(const char* fields, const FILETIME& modified, size_t cbIdentifier, size_t cbSyncId,
                   size_t cbName)
        : time(modified),
          m_fields(fields),
          m_cbIdentifier(static_cast<std::uint32_t>(cbIdentifier)),
          m_cbSyncId(static_cast<std::uint32_t>(cbSyncId)),
          m_cbName(static_cast<std::uint32_t>(cbName)) {}

    // Upper-case hexadecimal of the entry ID, as read.
    std::string_view Identifier() const { return {m_fields, m_cbIdentifier}; }
    std::string_view SyncId() const { return {m_fields + m_cbIdentifier + cbBeforeSyncId, m_cbSyncId}; }
    std::string_view Name() const {
        return {m_fields + m_cbIdentifier + cbBeforeSyncId + m_cbSyncId + cbBeforeName, m_cbName};
    }

    FILETIME time{};
    LONG seen = 0;  // 1: a row of the folder matched this entry

private:
    static constexpr size_t cbBeforeSyncId = 1 + 3 * sizeof(std::uint32_t);  // end, two halves, length
    static constexpr size_t cbBeforeName = 1 + sizeof(std::uint32_t);

    const char* m_fields = nullptr;
    std::uint32_t m_cbIdentifier = 0;
    std::uint32_t m_cbSyncId = 0;
    std::uint32_t m_cbName = 0;
};

// Two maps over the same entries: by identifier, from its 41st character on (the flags and the
// provider's UID in front of it change between opens of one store), and by the whole sync ID (entries
// without one are not in it). Pointers to entries hold until the next Add. Not for sharing between
// threads.
class CSyncFileMap {
public:
    CSyncFileMap() = default;
    CSyncFileMap(const CSyncFileMap&) = delete;
    CSyncFileMap& operator=(const CSyncFileMap&) = delete;

    void Clear();

    // Null if there is none. `identifier` is the whole text, also where only its end counts.
    CSyncFileEntry* FindByIdentifier(std::string_view identifier);
    CSyncFileEntry* FindByItem(const CItemKeyView& item);
    CSyncFileEntry* FindBySyncId(std::string_view syncId);

    // Copies the texts and enters the entry in both maps.
    CSyncFileEntry& Add(std::string_view identifier, const FILETIME& time, std::string_view syncId,
                        std::string_view name);

    void SetSeen(LONG seen);
    // Drops the entries that are not marked as seen.
    void ForgetUnseen();
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
    std::string_view KeyAt(std::uint32_t entry) const { return KeyOf(m_entries[entry].Identifier()); }
    void IndexIdentifiers();
    CSyncFileEntry* FindByKey(std::string_view key);
    std::vector<CSyncFileEntry*> Ordered(bool unseenOnly);

    std::string m_bytes;               // what Parse was given; the texts point into it
    std::deque<std::string> m_copies;  // entries of Add, in the form of the bytes
    std::vector<CSyncFileEntry> m_entries;
    // Both indexes hold the first entries up to these numbers. The rows of a folder come in the order in
    // which they were remembered but for those that changed, so where nothing has, neither is ever built.
    std::uint32_t m_identifiersIndexed = 0;
    std::uint32_t m_syncIdsIndexed = 0;
    CFlatIndex m_byIdentifier;
    CFlatIndex m_bySyncId;
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
    // The same with the identifier as bytes.
    void Add(const CItemKeyView& item, const FILETIME& time, std::string_view syncId, std::string_view name);
    // Takes the place of the count given before.
    void SetCount(std::uint32_t count);
    const std::string& Bytes() const { return m_bytes; }
    std::string TakeBytes() { return std::move(m_bytes); }

private:
    char* RoomFor(size_t cbIdentifier, std::string_view& syncId, std::string_view& name);

    std::string m_bytes;
};
