#include <MapiWrapper/HexText.h>
#include <Tarn/Engine/SyncFile.h>

#include <algorithm>
#include <functional>

namespace {
// Flags and provider UID at the front of an entry ID.
constexpr size_t cbUnstable = 20;
constexpr size_t UnstableDigits = 2 * cbUnstable;
// Five numbers and the ends of three texts.
constexpr size_t cbSmallestEntry = 5 * sizeof(std::uint32_t) + 3;

std::string_view IdentifierKey(const CSyncFileEntry& entry) {
    return CSyncFileMap::KeyOf(entry.identifier);
}
std::string_view SyncIdKey(const CSyncFileEntry& entry) {
    return entry.syncId;
}
size_t HashOf(std::string_view key) {
    return std::hash<std::string_view>()(key);
}

// Takes the fields off the front of the bytes. Once a field is not whole, nothing more is read.
class CFieldReader {
public:
    explicit CFieldReader(std::string_view bytes) : m_rest(bytes) {}

    bool Number(std::uint32_t& value) {
        if (m_rest.size() < sizeof value) return false;
        value = 0;
        for (size_t i = sizeof value; i-- > 0;)
            value = (value << 8) | static_cast<unsigned char>(m_rest[i]);
        m_rest.remove_prefix(sizeof value);
        return true;
    }

    // A text whose end mark is not where the length says has a damaged length.
    bool Text(std::string_view& text) {
        std::uint32_t length = 0;
        if (!Number(length) || length >= m_rest.size()) return false;
        if (m_rest.find('\0') != length) return false;
        text = m_rest.substr(0, length);
        m_rest.remove_prefix(length + 1);
        return true;
    }

    bool Entry(CSyncFileEntry& entry) {
        std::uint32_t high = 0, low = 0;
        if (!Text(entry.identifier) || !Number(high) || !Number(low)) return false;
        entry.time.dwHighDateTime = high;
        entry.time.dwLowDateTime = low;
        return Text(entry.syncId) && Text(entry.name);
    }

    size_t Left() const { return m_rest.size(); }

private:
    std::string_view m_rest;
};
}  // namespace

// --- CSyncFileIndex --------------------------------------------------------------------------------

void CSyncFileIndex::Clear() {
    m_slots.clear();
    m_count = 0;
}

void CSyncFileIndex::Reserve(size_t count) {
    size_t slots = 16;
    while (slots < 2 * count)
        slots *= 2;
    if (slots <= m_slots.size()) return;
    std::vector<Slot> old(slots);
    old.swap(m_slots);
    for (const Slot& slot : old)
        if (slot.entry) m_slots[Probe(m_keyOf(*slot.entry), slot.hash)] = slot;
}

size_t CSyncFileIndex::Probe(std::string_view key, size_t hash) const {
    const size_t mask = m_slots.size() - 1;
    size_t at = hash & mask;
    while (m_slots[at].entry && (m_slots[at].hash != hash || m_keyOf(*m_slots[at].entry) != key))
        at = (at + 1) & mask;
    return at;
}

bool CSyncFileIndex::Insert(CSyncFileEntry* entry) {
    Reserve(m_count + 1);
    const std::string_view key = m_keyOf(*entry);
    const size_t hash = HashOf(key);
    Slot& slot = m_slots[Probe(key, hash)];
    if (slot.entry) return false;
    slot = {entry, hash};
    ++m_count;
    return true;
}

CSyncFileEntry* CSyncFileIndex::Find(std::string_view key) const {
    if (m_slots.empty()) return nullptr;
    return m_slots[Probe(key, HashOf(key))].entry;
}

// --- CSyncFileMap ----------------------------------------------------------------------------------

CSyncFileMap::CSyncFileMap() : m_byIdentifier(IdentifierKey), m_bySyncId(SyncIdKey) {}

std::string_view CSyncFileMap::KeyOf(std::string_view identifier) {
    return identifier.size() > UnstableDigits ? identifier.substr(UnstableDigits) : std::string_view();
}

void CSyncFileMap::Clear() {
    m_byIdentifier.Clear();
    m_bySyncId.Clear();
    m_indexed = 0;
    m_entries.clear();
    m_copies.clear();
    m_bytes.clear();
}

CSyncFileEntry* CSyncFileMap::FindByIdentifier(std::string_view identifier) {
    return m_byIdentifier.Find(KeyOf(identifier));
}

CSyncFileEntry* CSyncFileMap::FindByEntryId(const SBinary& entryId) {
    if (!entryId.lpb || entryId.cb <= cbUnstable) return m_byIdentifier.Find({});
    // Only the end of the identifier counts, and for the stores at hand it is a few bytes long.
    static constexpr char Digits[] = "0123456789ABCDEF";
    char key[256];
    const size_t cbKey = entryId.cb - cbUnstable;
    if (2 * cbKey > sizeof key) return FindByIdentifier(HexFromBinary(entryId));
    for (size_t i = 0; i < cbKey; ++i) {
        const BYTE value = entryId.lpb[cbUnstable + i];
        key[2 * i] = Digits[value >> 4];
        key[2 * i + 1] = Digits[value & 15];
    }
    return m_byIdentifier.Find({key, 2 * cbKey});
}

CSyncFileEntry* CSyncFileMap::FindBySyncId(std::string_view syncId) {
    if (syncId.empty()) return nullptr;
    m_bySyncId.Reserve(m_entries.size());
    for (; m_indexed < m_entries.size(); ++m_indexed)
        if (!m_entries[m_indexed].syncId.empty()) m_bySyncId.Insert(&m_entries[m_indexed]);
    return m_bySyncId.Find(syncId);
}

CSyncFileEntry& CSyncFileMap::Add(std::string_view identifier, const FILETIME& time, std::string_view syncId,
                                  std::string_view name) {
    CSyncFileEntry entry;
    entry.identifier = m_copies.emplace_back(identifier);
    entry.syncId = m_copies.emplace_back(syncId);
    entry.name = m_copies.emplace_back(name);
    entry.time = time;
    m_entries.push_back(entry);
    m_byIdentifier.Insert(&m_entries.back());
    return m_entries.back();
}

void CSyncFileMap::SetSeen(LONG seen) {
    for (CSyncFileEntry& entry : m_entries)
        entry.seen = seen;
}

std::vector<CSyncFileEntry*> CSyncFileMap::InKeyOrder() {
    return Ordered(false);
}

std::vector<CSyncFileEntry*> CSyncFileMap::UnseenInKeyOrder() {
    return Ordered(true);
}

std::vector<CSyncFileEntry*> CSyncFileMap::Ordered(bool unseenOnly) {
    std::vector<CSyncFileEntry*> ordered;
    for (CSyncFileEntry& entry : m_entries) {
        if (unseenOnly && entry.seen == 1) continue;
        if (m_byIdentifier.Find(IdentifierKey(entry)) == &entry) ordered.push_back(&entry);
    }
    std::sort(ordered.begin(), ordered.end(), [](const CSyncFileEntry* a, const CSyncFileEntry* b) {
        return IdentifierKey(*a) < IdentifierKey(*b);
    });
    return ordered;
}

bool CSyncFileMap::Parse(std::string bytes, std::uint32_t& announced) {
    Clear();
    announced = 0;
    m_bytes = std::move(bytes);
    CFieldReader reader(m_bytes);
    if (!reader.Number(announced)) return false;
    const size_t possible = std::min<size_t>(announced, reader.Left() / cbSmallestEntry);
    m_byIdentifier.Reserve(possible);
    for (std::uint32_t i = 0; i < announced; ++i) {
        CSyncFileEntry entry;
        if (!reader.Entry(entry)) return false;
        m_entries.push_back(entry);
        m_byIdentifier.Insert(&m_entries.back());
    }
    return true;
}

// --- CSyncFileWriter -------------------------------------------------------------------------------

CSyncFileWriter::CSyncFileWriter(std::uint32_t count) {
    PutNumber(count);
}

void CSyncFileWriter::Add(std::string_view identifier, const FILETIME& time, std::string_view syncId,
                          std::string_view name) {
    PutText(identifier);
    PutNumber(time.dwHighDateTime);
    PutNumber(time.dwLowDateTime);
    PutText(syncId);
    PutText(name);
}

void CSyncFileWriter::PutNumber(std::uint32_t value) {
    for (int i = 0; i < 4; ++i)
        m_bytes.push_back(static_cast<char>(value >> (8 * i)));
}

void CSyncFileWriter::PutText(std::string_view text) {
    text = text.substr(0, text.find('\0'));
    PutNumber(static_cast<std::uint32_t>(text.size()));
    m_bytes.append(text);
    m_bytes.push_back('\0');
}
