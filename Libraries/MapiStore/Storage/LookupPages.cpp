#include "LookupPages.h"

#include <MapiStore/Values/StoreError.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t kPageBytes = 4000;  // of a database page of eight kilobytes, which so holds two
constexpr std::size_t kTypeBytes = 2;     // in front of each key, and nearly always the same

// The eight bytes behind the type; what comes after the end counts as nothing.
std::uint64_t HeadOf(std::string_view key) {
    std::uint64_t head = 0;
    for (std::size_t i = 0; i < sizeof head; ++i) {
        const std::size_t at = kTypeBytes + i;
        head = head << 8 | (at < key.size() ? static_cast<unsigned char>(key[at]) : 0u);
    }
    return head;
}

void AppendEntry(std::string_view key, ObjectId id, std::string& page) {
    page.push_back(static_cast<char>(key.size()));
    page.append(key);
    page.append(reinterpret_cast<const char*>(&id), sizeof id);
}

}  // namespace

void CLookupKeys::Add(std::string_view key, ObjectId id) {
    Require(key.size() <= 0xFF && m_bytes.size() + key.size() <= 0xFFFFFFFF, MAPI_E_TOO_BIG);
    m_entries.push_back({HeadOf(key), id, static_cast<std::uint32_t>(m_bytes.size()),
                         static_cast<std::uint32_t>(key.size())});
    m_bytes.append(key);
}

void CLookupKeys::Sort() {
    const auto isBefore = [this](const Entry& a, const Entry& b) {
        const std::string_view left = KeyOf(a), right = KeyOf(b);
        const int order = left.compare(right);
        return order != 0 ? order < 0 : a.id < b.id;
    };
    const auto type = [this](const Entry& entry) { return KeyOf(entry).substr(0, kTypeBytes); };
    const bool isOneType = std::all_of(m_entries.begin(), m_entries.end(), [&](const Entry& entry) {
        return type(entry) == type(m_entries.front());
    });
    std::sort(m_entries.begin(), m_entries.end(), [&](const Entry& a, const Entry& b) {
        return isOneType && a.head != b.head ? a.head < b.head : isBefore(a, b);
    });
    const auto isSame = [this](const Entry& a, const Entry& b) {
        return a.id == b.id && KeyOf(a) == KeyOf(b);
    };
    m_entries.erase(std::unique(m_entries.begin(), m_entries.end(), isSame), m_entries.end());
}

void CLookupKeys::ForEach(const OnEntry& each) {
    Sort();
    for (const Entry& entry : m_entries)
        each(KeyOf(entry), entry.id);
}

void CLookupKeys::Pack(const OnPage& each) {
    std::string page;
    std::string_view first;
    ForEach([&](std::string_view key, ObjectId id) {
        if (page.empty()) first = key;
        AppendEntry(key, id, page);
        if (page.size() < kPageBytes) return;
        each(first, page);
        page.clear();
    });
    if (!page.empty()) each(first, page);
}

void ScanLookupPage(std::string_view page, const std::function<bool(std::string_view, ObjectId)>& each) {
    for (std::size_t at = 0; at < page.size();) {
        const std::size_t size = static_cast<unsigned char>(page[at]);
        ObjectId id;
        Require(page.size() - at >= 1 + size + sizeof id, MAPI_E_CORRUPT_DATA);
        std::memcpy(&id, page.data() + at + 1 + size, sizeof id);
        if (!each(page.substr(at + 1, size), id)) return;
        at += 1 + size + sizeof id;
    }
}
