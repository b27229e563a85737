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
std::uint32_t HashOf(std::string_view key) {
    return static_cast<std::uint32_t>(std::hash<std::string_view>()(key));
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
        if (slot.entry) m_slots[Probe(m_keyOf(m_entries[slot.entry - 1]), slot.hash)] = slot;
}

size_t CSyncFileIndex::Probe(std::string_view key, std::uint32_t hash) const {
    const size_t mask = m_slots.size() - 1;
    size_t at = hash & mask;
    while (m_slots[at].entry &&
           (m_slots[at].hash != hash || m_keyOf(m_entries[m_slots[at].entry - 1]) != key))
        at = (at + 1) & mask;
    return at;
}

bool CSyncFileIndex::Insert(size_t entry) {
    Reserve(m_count + 1);
    const std::string_view key = m_keyOf(m_entries[entry]);
    const std::uint32_t hash = HashOf(key);
    Slot& slot = m_slots[Probe(key, hash)];
    if (slot.entry) return false;
    slot = {static_cast<std::uint32_t>(entry + 1), hash};
    ++m_count;
    return true;
}

size_t CSyncFileIndex::Find(std::string_view key) const {
    if (m_slots.empty()) return None;
    const std::uint32_t entry = m_slots[Probe(key, HashOf(key))].entry;
    return entry ? entry - 1 : None;
}

// --- CSyncFileMap ----------------------------------------------------------------------------------

CSyncFileMap::CSyncFileMap() : m_byIdentifier(m_entries, IdentifierKey), m_bySyncId(m_entries, SyncIdKey) {}

std::string_view CSyncFileMap::KeyOf(std::string_view identifier) {
    return identifier.size() > UnstableDigits ? identifier.substr(UnstableDigits) : std::string_view();
}

void CSyncFileMap::Clear() {
    m_byIdentifier.Clear();
    m_bySyncId.Clear();
    m_identifiersIndexed = m_syncIdsIndexed = 0;
    m_expected = 0;
    m_inSequence = true;
    std::vector<CSyncFileEntry>().swap(m_entries);  // the room as well, which is most of it
    m_copies.clear();
    std::string().swap(m_bytes);
}

void CSyncFileMap::IndexIdentifiers() {
    m_byIdentifier.Reserve(m_entries.size());
    for (; m_identifiersIndexed < m_entries.size(); ++m_identifiersIndexed)
        m_byIdentifier.Insert(m_identifiersIndexed);
}

size_t CSyncFileMap::Count() {
    IndexIdentifiers();
    return m_byIdentifier.Count();
}

// The next entry may be taken without a look at the index where no earlier one can have the same key:
// where all keys are known to differ, or where all earlier entries were found one after the other (nobody
// asks for one key twice in a walk).
CSyncFileEntry* CSyncFileMap::FindByKey(std::string_view key) {
    const bool distinct = m_inSequence || m_byIdentifier.Count() == m_entries.size();
    if (distinct && m_expected < m_entries.size() && IdentifierKey(m_entries[m_expected]) == key)
        return &m_entries[m_expected++];
    m_inSequence = false;
    IndexIdentifiers();
    const size_t found = m_byIdentifier.Find(key);
    if (found == CSyncFileIndex::None) return nullptr;
    m_expected = found + 1;
    return &m_entries[found];
}

CSyncFileEntry* CSyncFileMap::FindByIdentifier(std::string_view identifier) {
    return FindByKey(KeyOf(identifier));
}

CSyncFileEntry* CSyncFileMap::FindByEntryId(const SBinary& entryId) {
    if (!entryId.lpb || entryId.cb <= cbUnstable) return FindByKey({});
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
    return FindByKey({key, 2 * cbKey});
}

CSyncFileEntry* CSyncFileMap::FindBySyncId(std::string_view syncId) {
    if (syncId.empty()) return nullptr;
    m_bySyncId.Reserve(m_entries.size());
    for (; m_syncIdsIndexed < m_entries.size(); ++m_syncIdsIndexed)
        if (!m_entries[m_syncIdsIndexed].syncId.empty()) m_bySyncId.Insert(m_syncIdsIndexed);
    const size_t found = m_bySyncId.Find(syncId);
    return found == CSyncFileIndex::None ? nullptr : &m_entries[found];
}

CSyncFileEntry& CSyncFileMap::Add(std::string_view identifier, const FILETIME& time, std::string_view syncId,
                                  std::string_view name) {
    CSyncFileEntry entry;
    entry.identifier = m_copies.emplace_back(identifier);
    entry.syncId = m_copies.emplace_back(syncId);
    entry.name = m_copies.emplace_back(name);
    entry.time = time;
    m_entries.push_back(entry);
    return m_entries.back();
}

void CSyncFileMap::SetSeen(LONG seen) {
    m_expected = 0;
    m_inSequence = true;
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
    for (size_t i = 0; i < m_entries.size(); ++i) {
        if (unseenOnly && m_entries[i].seen == 1) continue;
        IndexIdentifiers();
        if (m_byIdentifier.Find(IdentifierKey(m_entries[i])) == i) ordered.push_back(&m_entries[i]);
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
    m_entries.reserve(std::min<size_t>(announced, reader.Left() / cbSmallestEntry));
    for (std::uint32_t i = 0; i < announced; ++i) {
        CSyncFileEntry entry;
        if (!reader.Entry(entry)) return false;
        m_entries.push_back(entry);
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
