#include <MapiWrapper/HexText.h>
#include <Tarn/Engine/SyncFile.h>

#include <algorithm>
#include <cstring>

namespace {
// Flags and provider UID at the front of an entry ID.
constexpr size_t cbUnstable = 20;
constexpr size_t UnstableDigits = 2 * cbUnstable;
// Five numbers and the ends of three texts.
constexpr size_t cbSmallestEntry = 5 * sizeof(std::uint32_t) + 3;

std::string_view IdentifierKey(const CSyncFileEntry& entry) {
    return CSyncFileMap::KeyOf(entry.Identifier());
}

// Two digits for each byte, as they are needed for each row.
class CHexPairs {
public:
    constexpr CHexPairs() {
        constexpr char Digits[] = "0123456789ABCDEF";
        for (size_t value = 0; value < 256; ++value) {
            m_pairs[2 * value] = Digits[value >> 4];
            m_pairs[2 * value + 1] = Digits[value & 15];
        }
    }
    char* Put(char* at, const BYTE* bytes, size_t cb) const {
        for (size_t i = 0; i < cb; ++i, at += 2)
            std::memcpy(at, m_pairs + 2 * bytes[i], 2);
        return at;
    }

private:
    char m_pairs[512]{};
};
constexpr CHexPairs HexPairs;

char* PutNumber(char* at, std::uint32_t value) {
    for (int i = 0; i < 4; ++i)
        *at++ = static_cast<char>(value >> (8 * i));
    return at;
}

char* PutText(char* at, std::string_view text) {
    at = PutNumber(at, static_cast<std::uint32_t>(text.size()));
    at = std::copy(text.begin(), text.end(), at);
    *at++ = 0;
    return at;
}

void PutBehindIdentifier(char* at, const FILETIME& time, std::string_view syncId, std::string_view name) {
    at = PutNumber(at, time.dwHighDateTime);
    at = PutNumber(at, time.dwLowDateTime);
    PutText(PutText(at, syncId), name);
}

std::string_view UpToZero(std::string_view text) {
    return text.substr(0, text.find('\0'));
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
        std::string_view identifier, syncId, name;
        std::uint32_t high = 0, low = 0;
        if (!Text(identifier) || !Number(high) || !Number(low) || !Text(syncId) || !Text(name)) return false;
        entry = CSyncFileEntry(identifier.data(), {low, high}, identifier.size(), syncId.size(), name.size());
        return true;
    }

    size_t Left() const { return m_rest.size(); }

private:
    std::string_view m_rest;
};
}  // namespace

// --- CSyncFileMap ----------------------------------------------------------------------------------

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
        m_byIdentifier.Insert(m_identifiersIndexed, [this](std::uint32_t entry) { return KeyAt(entry); });
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
    const std::uint32_t found =
        m_byIdentifier.Find(key, [this](std::uint32_t entry) { return KeyAt(entry); });
    if (found == CFlatIndex::None) return nullptr;
    m_expected = found + size_t{1};
    return &m_entries[found];
}

CSyncFileEntry* CSyncFileMap::FindByIdentifier(std::string_view identifier) {
    return FindByKey(KeyOf(identifier));
}

CSyncFileEntry* CSyncFileMap::FindByItem(const CItemKeyView& item) {
    const SBinary entryId = item;
    if (!entryId.lpb || entryId.cb <= cbUnstable) return FindByKey({});
    // Only the end of the identifier counts, and for the stores at hand it is a few bytes long.
    char key[256];
    const size_t cbKey = entryId.cb - cbUnstable;
    if (2 * cbKey > sizeof key) return FindByIdentifier(HexFromBinary(entryId));
    HexPairs.Put(key, entryId.lpb + cbUnstable, cbKey);
    return FindByKey({key, 2 * cbKey});
}

CSyncFileEntry* CSyncFileMap::FindBySyncId(std::string_view syncId) {
    if (syncId.empty()) return nullptr;
    const auto syncIdOf = [this](std::uint32_t entry) { return m_entries[entry].SyncId(); };
    m_bySyncId.Reserve(m_entries.size());
    for (; m_syncIdsIndexed < m_entries.size(); ++m_syncIdsIndexed)
        if (!m_entries[m_syncIdsIndexed].SyncId().empty()) m_bySyncId.Insert(m_syncIdsIndexed, syncIdOf);
    const std::uint32_t found = m_bySyncId.Find(syncId, syncIdOf);
    return found == CFlatIndex::None ? nullptr : &m_entries[found];
}

CSyncFileEntry& CSyncFileMap::Add(std::string_view identifier, const FILETIME& time, std::string_view syncId,
                                  std::string_view name) {
    CSyncFileWriter writer(1);
    writer.Add(identifier, time, syncId, name);
    CFieldReader reader(m_copies.emplace_back(writer.TakeBytes()));
    std::uint32_t count = 0;
    CSyncFileEntry entry;
    reader.Number(count);
    reader.Entry(entry);
    m_entries.push_back(entry);
    return m_entries.back();
}

void CSyncFileMap::SetSeen(LONG seen) {
    m_expected = 0;
    m_inSequence = true;
    for (CSyncFileEntry& entry : m_entries)
        entry.seen = seen;
}

void CSyncFileMap::ForgetUnseen() {
    std::erase_if(m_entries, [](const CSyncFileEntry& entry) { return entry.seen != 1; });
    m_byIdentifier.Clear();
    m_bySyncId.Clear();
    m_identifiersIndexed = m_syncIdsIndexed = 0;
    m_expected = 0;
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
        const std::uint32_t first = m_byIdentifier.Find(IdentifierKey(m_entries[i]),
                                                        [this](std::uint32_t entry) { return KeyAt(entry); });
        if (first == i) ordered.push_back(&m_entries[i]);
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
    m_bytes.resize(sizeof count);
    SetCount(count);
}

void CSyncFileWriter::SetCount(std::uint32_t count) {
    PutNumber(m_bytes.data(), count);
}

char* CSyncFileWriter::RoomFor(size_t cbIdentifier, std::string_view& syncId, std::string_view& name) {
    syncId = UpToZero(syncId);
    name = UpToZero(name);
    const size_t at = m_bytes.size();
    m_bytes.resize(at + cbSmallestEntry + cbIdentifier + syncId.size() + name.size());
    return m_bytes.data() + at;
}

void CSyncFileWriter::Add(std::string_view identifier, const FILETIME& time, std::string_view syncId,
                          std::string_view name) {
    identifier = UpToZero(identifier);
    char* const at = RoomFor(identifier.size(), syncId, name);
    PutBehindIdentifier(PutText(at, identifier), time, syncId, name);
}

void CSyncFileWriter::Add(const CItemKeyView& item, const FILETIME& time, std::string_view syncId,
                          std::string_view name) {
    const SBinary entryId = item;
    const size_t cb = entryId.lpb ? entryId.cb : 0;
    char* at = RoomFor(2 * cb, syncId, name);
    at = PutNumber(at, static_cast<std::uint32_t>(2 * cb));
    at = HexPairs.Put(at, entryId.lpb, cb);
    *at++ = 0;
    PutBehindIdentifier(at, time, syncId, name);
}
