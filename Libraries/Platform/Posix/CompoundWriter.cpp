#include "CompoundTree.h"

#include <cstring>
#include <vector>

namespace compound {

namespace {

constexpr std::uint32_t DifatSector = 0xFFFFFFFC;
constexpr std::uint32_t FatSector = 0xFFFFFFFD;
constexpr std::uint32_t EndOfChain = 0xFFFFFFFE;
constexpr std::uint32_t FreeSector = 0xFFFFFFFF;
constexpr std::uint32_t NoEntry = 0xFFFFFFFF;
constexpr size_t MiniCutoff = 4096;
constexpr size_t SectorSize = 512;
constexpr size_t MiniSectorSize = 64;
constexpr size_t EntrySize = 128;
constexpr size_t EntriesPerSector = SectorSize / 4;
constexpr size_t HeaderDifatEntries = 109;
constexpr char Red = 0;
constexpr char Black = 1;

void Put16(std::string& bytes, size_t at, std::uint16_t value) {
    std::memcpy(bytes.data() + at, &value, sizeof value);
}

void Put32(std::string& bytes, size_t at, std::uint32_t value) {
    std::memcpy(bytes.data() + at, &value, sizeof value);
}

size_t Rounded(size_t size, size_t unit) {
    return (size + unit - 1) / unit * unit;
}

// Appends the links of `count` sectors that follow each other from `first`.
void AppendChain(std::vector<std::uint32_t>& table, std::uint32_t first, size_t count) {
    for (size_t i = 1; i < count; ++i) {
        table.push_back(static_cast<std::uint32_t>(first + i));
    }
    if (count > 0) table.push_back(EndOfChain);
}

// Writes in one pass: large streams, then what gathers the small ones, the directory, the tables.
class CWriter {
public:
    HRESULT Write(const Element& root, std::string& bytes) {
        m_entries.push_back({&root, NoEntry, NoEntry, NoEntry, Black, EndOfChain, 0});
        m_entries[0].child = AddChildren(root);
        PutStreams();
        m_entries[0].size = m_mini.size();
        m_entries[0].start = Append(m_mini);
        const std::uint32_t miniFat = Append(TableBytes(m_miniFat));
        const size_t miniFatSectors = Rounded(m_miniFat.size() * 4, SectorSize) / SectorSize;
        const std::uint32_t directory = Append(DirectoryBytes());
        if (m_data.size() > MaxSize) return STG_E_MEDIUMFULL;

        bytes.assign(SectorSize, '\0');
        PutHeader(bytes, directory, miniFat, miniFatSectors);
        AppendTables(bytes);
        bytes.insert(SectorSize, m_data);
        return bytes.size() <= MaxSize ? S_OK : STG_E_MEDIUMFULL;
    }

private:
    struct Entry {
        const Element* element;
        std::uint32_t left, right, child;
        char colour;
        std::uint32_t start;
        std::uint64_t size;
    };
    std::vector<Entry> m_entries;
    std::string m_data;  // sectors from the first one behind the header
    std::string m_mini;
    std::vector<std::uint32_t> m_fat;
    std::vector<std::uint32_t> m_miniFat;

    // Answers the entry on top of the siblings' tree.
    std::uint32_t AddChildren(const Element& storage) {
        const size_t count = storage.children.size();
        const size_t first = m_entries.size();
        for (const auto& [name, child] : storage.children) {
            m_entries.push_back({child.get(), NoEntry, NoEntry, NoEntry, Black, EndOfChain, 0});
        }
        size_t i = first;
        for (const auto& [name, child] : storage.children) {
            if (child->isStorage) {
                const std::uint32_t top = AddChildren(*child);
                m_entries[i].child = top;
            }
            ++i;
        }
        unsigned height = 0;
        while ((size_t{2} << height) <= count) {
            ++height;
        }
        return Balance(first, first + count, 0, height);
    }

    // Halving fills all levels but the last. With the last one red every path to a leaf meets the
    // same number of black entries, as readers that search the tree may demand.
    std::uint32_t Balance(size_t begin, size_t end, unsigned level, unsigned height) {
        if (begin == end) return NoEntry;
        const size_t middle = begin + (end - begin) / 2;
        m_entries[middle].colour = level > 0 && level == height ? Red : Black;
        m_entries[middle].left = Balance(begin, middle, level + 1, height);
        m_entries[middle].right = Balance(middle + 1, end, level + 1, height);
        return static_cast<std::uint32_t>(middle);
    }

    // Appends whole sectors with their chain; EndOfChain for nothing at all.
    std::uint32_t Append(const std::string& bytes) {
        if (bytes.empty()) return EndOfChain;
        const auto first = static_cast<std::uint32_t>(m_data.size() / SectorSize);
        m_data += bytes;
        m_data.resize(Rounded(m_data.size(), SectorSize));
        AppendChain(m_fat, first, m_data.size() / SectorSize - first);
        return first;
    }

    void PutStreams() {
        for (auto& entry : m_entries) {
            if (entry.element->isStorage) continue;
            const std::string& bytes = *entry.element->bytes;
            entry.size = bytes.size();
            if (bytes.size() >= MiniCutoff) {
                entry.start = Append(bytes);
            } else if (!bytes.empty()) {
                entry.start = static_cast<std::uint32_t>(m_mini.size() / MiniSectorSize);
                m_mini += bytes;
                m_mini.resize(Rounded(m_mini.size(), MiniSectorSize));
                AppendChain(m_miniFat, entry.start, m_mini.size() / MiniSectorSize - entry.start);
            }
        }
    }

    static std::string TableBytes(const std::vector<std::uint32_t>& table) {
        std::string bytes(Rounded(table.size() * 4, SectorSize), '\xFF');
        if (!table.empty()) std::memcpy(bytes.data(), table.data(), table.size() * 4);
        return bytes;
    }

    static void PutName(std::string& bytes, size_t at, const std::u16string& name) {
        for (size_t i = 0; i < name.size(); ++i) {
            Put16(bytes, at + 2 * i, name[i]);
        }
        Put16(bytes, at + 0x40, static_cast<std::uint16_t>(2 * (name.size() + 1)));
    }

    std::string DirectoryBytes() const {
        std::string bytes(Rounded(m_entries.size() * EntrySize, SectorSize), '\0');
        for (size_t i = 0; i * EntrySize < bytes.size(); ++i) {
            const size_t at = i * EntrySize;
            const bool unused = i >= m_entries.size();
            Put32(bytes, at + 0x44, unused ? NoEntry : m_entries[i].left);
            Put32(bytes, at + 0x48, unused ? NoEntry : m_entries[i].right);
            Put32(bytes, at + 0x4C, unused ? NoEntry : m_entries[i].child);
            if (!unused) PutEntry(bytes, at, m_entries[i], i == 0);
        }
        return bytes;
    }

    static void PutEntry(std::string& bytes, size_t at, const Entry& entry, bool isRoot) {
        const Element& element = *entry.element;
        PutName(bytes, at, isRoot ? u"Root Entry" : element.name);
        bytes[at + 0x42] = isRoot ? 5 : element.isStorage ? 1 : 2;
        bytes[at + 0x43] = entry.colour;
        std::memcpy(bytes.data() + at + 0x50, &element.clsid, sizeof element.clsid);
        Put32(bytes, at + 0x60, element.stateBits);
        if (element.isStorage) {
            // The root entry has no creation time.
            if (!isRoot) std::memcpy(bytes.data() + at + 0x64, &element.created, sizeof(FILETIME));
            std::memcpy(bytes.data() + at + 0x6C, &element.modified, sizeof(FILETIME));
        }
        const bool hasSectors = isRoot || !element.isStorage;
        Put32(bytes, at + 0x74, hasSectors ? entry.start : 0);
        Put32(bytes, at + 0x78, hasSectors ? static_cast<std::uint32_t>(entry.size) : 0);
    }

    static void PutHeader(std::string& bytes, std::uint32_t directory, std::uint32_t miniFat,
                          size_t miniFatSectors) {
        constexpr unsigned char signature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
        std::memcpy(bytes.data(), signature, sizeof signature);
        Put16(bytes, 0x18, 0x3E);
        Put16(bytes, 0x1A, 3);
        Put16(bytes, 0x1C, 0xFFFE);
        Put16(bytes, 0x1E, 9);
        Put16(bytes, 0x20, 6);
        Put32(bytes, 0x30, directory);
        Put32(bytes, 0x38, MiniCutoff);
        Put32(bytes, 0x3C, miniFat);
        Put32(bytes, 0x40, static_cast<std::uint32_t>(miniFatSectors));
    }

    // The allocation table lists its own sectors too, and those that list it, so its size has to be
    // found by trying.
    void AppendTables(std::string& header) {
        const size_t used = m_fat.size();
        size_t fatSectors = 1;
        size_t difatSectors = 0;
        for (;;) {
            const size_t needed =
                Rounded(used + fatSectors + difatSectors, EntriesPerSector) / EntriesPerSector;
            const size_t beyond = needed > HeaderDifatEntries ? needed - HeaderDifatEntries : 0;
            const size_t difat = Rounded(beyond, EntriesPerSector - 1) / (EntriesPerSector - 1);
            if (needed == fatSectors && difat == difatSectors) break;
            fatSectors = needed;
            difatSectors = difat;
        }
        m_fat.insert(m_fat.end(), fatSectors, FatSector);
        m_fat.insert(m_fat.end(), difatSectors, DifatSector);
        m_data += TableBytes(m_fat);
        PutDifat(header, used, fatSectors, difatSectors);
    }

    void PutDifat(std::string& header, size_t firstFat, size_t fatSectors, size_t difatSectors) {
        const size_t firstDifat = firstFat + fatSectors;
        Put32(header, 0x2C, static_cast<std::uint32_t>(fatSectors));
        Put32(header, 0x44, difatSectors ? static_cast<std::uint32_t>(firstDifat) : EndOfChain);
        Put32(header, 0x48, static_cast<std::uint32_t>(difatSectors));
        const auto numberOf = [&](size_t i) {
            return i < fatSectors ? static_cast<std::uint32_t>(firstFat + i) : FreeSector;
        };
        for (size_t i = 0; i < HeaderDifatEntries; ++i) {
            Put32(header, 0x4C + 4 * i, numberOf(i));
        }
        size_t i = HeaderDifatEntries;
        for (size_t sector = 0; sector < difatSectors; ++sector) {
            std::vector<std::uint32_t> list;
            while (list.size() < EntriesPerSector - 1) {
                list.push_back(numberOf(i++));
            }
            const bool last = sector + 1 == difatSectors;
            list.push_back(last ? EndOfChain : static_cast<std::uint32_t>(firstDifat + sector + 1));
            m_data += TableBytes(list);
        }
    }
};

}  // namespace

HRESULT PrintCompoundFile(const Element& root, std::string& bytes) {
    return CWriter().Write(root, bytes);
}

}  // namespace compound
