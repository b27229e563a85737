#include "ValueBlock.h"

#include "StoreError.h"

#include <bit>

static_assert(std::endian::native == std::endian::little, "blocks are little-endian in memory and on disk");

namespace {

constexpr std::size_t kEntrySize = 8;

template <class Number>
Number Load(const char* bytes) {
    Number value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

template <class Number>
void Append(std::string& bytes, Number value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

}  // namespace

CValueBlock::CValueBlock(std::string_view bytes) {
    if (bytes.empty()) return;
    Require(bytes.size() >= 4, MAPI_E_CORRUPT_DATA);
    const auto count = Load<std::uint32_t>(bytes.data());
    Require(count <= (bytes.size() - 4) / kEntrySize, MAPI_E_CORRUPT_DATA);
    m_index = bytes.data() + 4;
    m_count = count;
    m_values = m_index + count * kEntrySize;
    const std::size_t cbValues = bytes.size() - 4 - count * kEntrySize;
    // The whole index in one pass without a branch: this is done for each row of each table.
    std::uint32_t end = 0;
    int previousId = -1;
    bool inOrder = true;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t entry = EntryAt(i);
        const auto here = static_cast<std::uint32_t>(entry >> 32);
        const int id = static_cast<PropId>(entry);
        inOrder = inOrder & (here >= end) & (id > previousId);
        end = here;
        previousId = id;
    }
    Require(inOrder && end <= cbValues, MAPI_E_CORRUPT_DATA);
}

void CValueBlock::At(std::size_t i, CStoredValue& value) const {
    const std::uint32_t begin = i == 0 ? 0 : EndAt(i - 1);
    const std::string_view bytes(m_values + begin, EndAt(i) - begin);
    const auto type = static_cast<PropType>(EntryAt(i) >> 16);
    if ((type & kLargeValue) == 0) {
        value.View(IdAt(i), type, bytes);
        return;
    }
    Require(bytes.size() == 4, MAPI_E_CORRUPT_DATA);
    value.Large(IdAt(i), type & ~kLargeValue, Load<std::uint32_t>(bytes.data()));
}

std::size_t CValueBlock::LowerBound(PropId id) const {
    std::size_t low = 0, high = m_count;
    while (low < high) {
        const std::size_t middle = (low + high) / 2;
        if (IdAt(middle) < id)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

bool CValueBlock::Find(PropId id, CStoredValue& value) const {
    if (!IsLowerBound(value.m_place, id)) value.m_place = static_cast<std::uint32_t>(LowerBound(id));
    const std::size_t i = value.m_place;
    if (i == m_count || IdAt(i) != id) return false;
    At(i, value);
    return true;
}

void CValueBlockWriter::Add(PropId id, PropType type, std::string_view bytes) {
    Require(m_values.size() + bytes.size() < 0xFFFFFFFF, MAPI_E_TOO_BIG);
    m_values.append(bytes);
    m_index.push_back({id, type, static_cast<std::uint32_t>(m_values.size())});
}

void CValueBlockWriter::AddLarge(PropId id, PropType type, std::size_t size) {
    const auto stored = static_cast<std::uint32_t>(size);
    Add(id, type | kLargeValue, {reinterpret_cast<const char*>(&stored), sizeof stored});
}

std::string CValueBlockWriter::Finish() const {
    std::string block;
    if (m_index.empty()) return block;
    static_assert(sizeof(Entry) == kEntrySize);
    block.reserve(4 + m_index.size() * kEntrySize + m_values.size());
    Append(block, static_cast<std::uint32_t>(m_index.size()));
    block.append(reinterpret_cast<const char*>(m_index.data()), m_index.size() * kEntrySize);
    block.append(m_values);
    return block;
}

std::vector<std::string_view> SplitElements(std::string_view stored) {
    std::vector<std::string_view> elements;
    if (stored.empty()) return elements;
    Require(stored.size() >= 4, MAPI_E_CORRUPT_DATA);
    const auto count = Load<std::uint32_t>(stored.data());
    Require(count <= (stored.size() - 4) / 4, MAPI_E_CORRUPT_DATA);
    const std::string_view bytes = stored.substr(4 + std::size_t(count) * 4);
    elements.reserve(count);
    std::uint32_t begin = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        const auto end = Load<std::uint32_t>(stored.data() + 4 + std::size_t(i) * 4);
        Require(end >= begin && end <= bytes.size(), MAPI_E_CORRUPT_DATA);
        elements.push_back(bytes.substr(begin, end - begin));
        begin = end;
    }
    return elements;
}

std::string JoinElements(const std::vector<std::string_view>& elements) {
    std::string stored;
    Append(stored, static_cast<std::uint32_t>(elements.size()));
    std::size_t end = 0;
    for (const auto& element : elements) {
        end += element.size();
        Require(end < 0xFFFFFFFF, MAPI_E_TOO_BIG);
        Append(stored, static_cast<std::uint32_t>(end));
    }
    for (const auto& element : elements)
        stored.append(element);
    return stored;
}
