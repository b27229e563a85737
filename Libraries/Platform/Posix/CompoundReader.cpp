#include "CompoundTree.h"

#include <cstring>
#include <optional>
#include <vector>

namespace compound {

namespace {

constexpr std::uint32_t MaxRegularSector = 0xFFFFFFFA;
constexpr std::uint32_t EndOfChain = 0xFFFFFFFE;
constexpr std::uint32_t FreeSector = 0xFFFFFFFF;
constexpr std::uint32_t NoEntry = 0xFFFFFFFF;
constexpr std::uint32_t MiniCutoff = 4096;
constexpr size_t HeaderSize = 512;
constexpr size_t EntrySize = 128;
constexpr size_t MiniSectorSize = 64;
constexpr size_t HeaderDifatEntries = 109;
constexpr unsigned char Signature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
constexpr unsigned char OldSignature[8] = {0x0E, 0x11, 0xFC, 0x0D, 0xD0, 0xCF, 0x11, 0xE0};
enum EntryType { StorageEntry = 1, StreamEntry = 2, RootEntry = 5 };

std::uint32_t U32(const char* p) {
    std::uint32_t value;
    std::memcpy(&value, p, sizeof value);
    return value;
}

std::uint16_t U16(const char* p) {
    std::uint16_t value;
    std::memcpy(&value, p, sizeof value);
    return value;
}

// A chain of sectors through an allocation table. No sector is ever given out twice, whichever chain
// asks, so that circles end and all chains together are no longer than the file.
class CSectorTable {
public:
    std::vector<std::uint32_t> next;

    // Appends the sectors from `start`; at most `max`, which may end the chain early. False if the
    // chain leaves the table, returns or runs into another.
    bool Follow(std::uint32_t start, std::uint64_t max, std::vector<std::uint32_t>& sectors) {
        m_used.resize(next.size());
        for (std::uint32_t at = start; at != EndOfChain; at = next[at]) {
            if (sectors.size() >= max) return true;
            if (at >= next.size() || m_used[at]) return false;
            m_used[at] = true;
            sectors.push_back(at);
        }
        return true;
    }

private:
    std::vector<bool> m_used;
};

struct Entry {
    std::u16string name;
    unsigned char type;
    std::uint32_t left, right, child;
    CLSID clsid;
    DWORD stateBits;
    FILETIME created, modified;
    std::uint32_t start;
    std::uint64_t size;
};

class CReader {
public:
    explicit CReader(const std::string& bytes) : m_bytes(bytes) {}

    HRESULT Read(ElementRef& root) {
        HRESULT hr = ReadHeader();
        if (hr == S_OK) hr = ReadTables();
        if (hr == S_OK) hr = ReadTree(root);
        return hr;
    }

private:
    const std::string& m_bytes;
    size_t m_sectorSize = 0;
    std::uint32_t m_sectorCount = 0;
    CSectorTable m_fat;
    CSectorTable m_miniFat;
    std::string m_mini;
    std::string m_directory;
    std::vector<bool> m_seen;  // entries of the directory that hang somewhere in the tree

    const char* At(size_t offset) const { return m_bytes.data() + offset; }

    HRESULT ReadHeader() {
        if (m_bytes.size() < sizeof Signature) return STG_E_FILEALREADYEXISTS;
        if (std::memcmp(At(0), OldSignature, sizeof OldSignature) == 0) return STG_E_OLDFORMAT;
        if (std::memcmp(At(0), Signature, sizeof Signature) != 0) return STG_E_FILEALREADYEXISTS;
        if (m_bytes.size() < HeaderSize) return STG_E_INVALIDHEADER;
        const unsigned shift = U16(At(0x1E));
        const bool known = (U16(At(0x1A)) == 3 && shift == 9) || (U16(At(0x1A)) == 4 && shift == 12);
        if (!known || U16(At(0x1C)) != 0xFFFE || U16(At(0x20)) != 6) return STG_E_INVALIDHEADER;
        if (U32(At(0x38)) != MiniCutoff) return STG_E_INVALIDHEADER;
        m_sectorSize = size_t{1} << shift;
        if (m_bytes.size() <= m_sectorSize) return STG_E_DOCFILECORRUPT;
        // The last sector may be cut short: some writers end the file with the last byte that counts.
        m_sectorCount =
            static_cast<std::uint32_t>((m_bytes.size() - m_sectorSize + m_sectorSize - 1) / m_sectorSize);
        return S_OK;
    }

    std::string Sector(std::uint32_t sector) const {
        std::string bytes = m_bytes.substr((size_t{sector} + 1) * m_sectorSize, m_sectorSize);
        bytes.resize(m_sectorSize);
        return bytes;
    }

    std::string Bytes(const std::vector<std::uint32_t>& sectors) const {
        std::string bytes;
        bytes.reserve(sectors.size() * m_sectorSize);
        for (const std::uint32_t sector : sectors) {
            bytes += Sector(sector);
        }
        return bytes;
    }

    // The numbers of the sectors that hold the allocation table: the first in the header, the rest
    // in a chain of sectors whose last entry points to the next.
    bool ListFatSectors(std::vector<std::uint32_t>& list) const {
        for (size_t i = 0; i < HeaderDifatEntries; ++i) {
            list.push_back(U32(At(0x4C + 4 * i)));
        }
        std::vector<bool> used(m_sectorCount);
        for (std::uint32_t at = U32(At(0x44)); at < MaxRegularSector;) {
            if (at >= m_sectorCount || used[at]) return false;
            used[at] = true;
            const std::string sector = Sector(at);
            for (size_t i = 0; i + 4 < m_sectorSize; i += 4) {
                list.push_back(U32(sector.data() + i));
            }
            at = U32(sector.data() + m_sectorSize - 4);
        }
        return true;
    }

    HRESULT ReadTables() {
        std::vector<std::uint32_t> fatSectors;
        if (!ListFatSectors(fatSectors)) return STG_E_DOCFILECORRUPT;
        for (const std::uint32_t sector : fatSectors) {
            if (sector == FreeSector || m_fat.next.size() >= m_sectorCount) continue;
            if (sector >= m_sectorCount) return STG_E_DOCFILECORRUPT;
            AppendTable(Sector(sector), m_fat.next);
        }
        if (m_fat.next.size() > m_sectorCount) m_fat.next.resize(m_sectorCount);

        std::vector<std::uint32_t> sectors;
        if (!m_fat.Follow(U32(At(0x30)), m_sectorCount, sectors)) return STG_E_DOCFILECORRUPT;
        m_directory = Bytes(sectors);
        if (m_directory.size() < EntrySize) return STG_E_DOCFILECORRUPT;

        sectors.clear();
        const std::uint32_t miniFat = U32(At(0x3C));
        // Without its small streams the rest of the file can still be read.
        if (miniFat < MaxRegularSector) m_fat.Follow(miniFat, m_sectorCount, sectors);
        AppendTable(Bytes(sectors), m_miniFat.next);
        return S_OK;
    }

    static void AppendTable(const std::string& bytes, std::vector<std::uint32_t>& table) {
        for (size_t i = 0; i + 4 <= bytes.size(); i += 4) {
            table.push_back(U32(bytes.data() + i));
        }
    }

    std::optional<Entry> EntryAt(std::uint32_t number) const {
        const size_t offset = size_t{number} * EntrySize;
        if (offset + EntrySize > m_directory.size()) return std::nullopt;
        const char* p = m_directory.data() + offset;
        Entry entry;
        const size_t cbName = U16(p + 0x40);
        if (cbName > 2 * (MaxNameLength + 1) || cbName % 2) return std::nullopt;
        for (size_t i = 0; i + 2 < cbName; i += 2) {
            entry.name += static_cast<char16_t>(U16(p + i));
        }
        entry.type = static_cast<unsigned char>(p[0x42]);
        entry.left = U32(p + 0x44);
        entry.right = U32(p + 0x48);
        entry.child = U32(p + 0x4C);
        std::memcpy(&entry.clsid, p + 0x50, sizeof entry.clsid);
        entry.stateBits = U32(p + 0x60);
        std::memcpy(&entry.created, p + 0x64, sizeof entry.created);
        std::memcpy(&entry.modified, p + 0x6C, sizeof entry.modified);
        entry.start = U32(p + 0x74);
        // Version 3 writers may leave the upper half uninitialised.
        const std::uint64_t high = m_sectorSize > 512 ? U32(p + 0x7C) : 0;
        entry.size = U32(p + 0x78) | (high << 32);
        return entry;
    }

    static void TakeAttributes(const Entry& entry, Element& element) {
        element.clsid = entry.clsid;
        element.stateBits = entry.stateBits;
        element.created = entry.created;
        element.modified = entry.modified;
    }

    HRESULT ReadTree(ElementRef& root) {
        const auto entry = EntryAt(0);
        if (!entry || entry->type != RootEntry) return STG_E_DOCFILECORRUPT;
        ReadMiniStream(*entry);
        root = NewElement(true, std::u16string());
        TakeAttributes(*entry, *root);
        m_seen.assign(m_directory.size() / EntrySize, false);
        m_seen[0] = true;
        return ReadChildren(*root, entry->child, 1);
    }

    void ReadMiniStream(const Entry& root) {
        std::vector<std::uint32_t> sectors;
        if (root.size > 0 && root.start < MaxRegularSector) {
            m_fat.Follow(root.start, m_sectorCount, sectors);
        }
        m_mini = Bytes(sectors);
        m_miniFat.next.resize(std::min(m_miniFat.next.size(), m_mini.size() / MiniSectorSize));
    }

    // The siblings form a tree of any shape, also a list of many thousands: walked without recursion.
    HRESULT ReadChildren(Element& parent, std::uint32_t top, unsigned depth) {
        std::vector<std::uint32_t> waiting{top};
        while (!waiting.empty()) {
            const std::uint32_t number = waiting.back();
            waiting.pop_back();
            if (number == NoEntry) continue;
            const auto entry = EntryAt(number);
            if (!entry || m_seen[number]) return STG_E_DOCFILECORRUPT;
            m_seen[number] = true;
            waiting.push_back(entry->left);
            waiting.push_back(entry->right);
            const HRESULT hr = ReadElement(parent, *entry, depth);
            if (hr != S_OK) return hr;
        }
        return S_OK;
    }

    HRESULT ReadElement(Element& parent, const Entry& entry, unsigned depth) {
        if (entry.type != StorageEntry && entry.type != StreamEntry) return STG_E_DOCFILECORRUPT;
        if (entry.name.empty() || depth >= MaxDepth) return STG_E_DOCFILECORRUPT;
        const ElementRef element = NewElement(entry.type == StorageEntry, entry.name);
        TakeAttributes(entry, *element);
        // Of two elements of one name only the first could ever be opened.
        if (!parent.children.emplace(entry.name, element).second) return STG_E_DOCFILECORRUPT;
        if (element->isStorage) return ReadChildren(*element, entry.child, depth + 1);
        element->damaged = !ReadStream(entry, *element->bytes);
        return S_OK;
    }

    bool ReadStream(const Entry& entry, std::string& bytes) {
        if (entry.size == 0) return true;
        if (entry.size > m_bytes.size()) return false;
        const bool mini = entry.size < MiniCutoff;
        const size_t cbSector = mini ? MiniSectorSize : m_sectorSize;
        std::vector<std::uint32_t> sectors;
        CSectorTable& table = mini ? m_miniFat : m_fat;
        const std::uint64_t needed = (entry.size + cbSector - 1) / cbSector;
        if (!table.Follow(entry.start, needed, sectors) || sectors.size() < needed) return false;
        bytes.reserve(sectors.size() * cbSector);
        for (const std::uint32_t sector : sectors) {
            bytes += mini ? m_mini.substr(sector * MiniSectorSize, MiniSectorSize) : Sector(sector);
        }
        bytes.resize(entry.size);
        return true;
    }
};

}  // namespace

HRESULT ParseCompoundFile(const std::string& bytes, ElementRef& root) {
    if (bytes.size() > MaxSize) return STG_E_INSUFFICIENTMEMORY;
    return CReader(bytes).Read(root);
}

}  // namespace compound
