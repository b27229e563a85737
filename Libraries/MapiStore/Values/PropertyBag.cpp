#include "PropertyBag.h"

#include "StoreError.h"

#include <algorithm>

namespace {
constexpr std::size_t kRoomBehindLarge = 1024;
}  // namespace

void CPropertyBag::Load(std::string block) {
    m_changes.clear();
    m_bytes.clear();
    m_cbLive = 0;
    m_cleared = false;
    SetBlock(std::move(block));
}

void CPropertyBag::LoadBelow(std::string block) {
    SetBlock(std::move(block));
}

void CPropertyBag::SetBlock(std::string block) {
    m_blockHasLarge = false;
    m_view = CValueBlock();
    m_block = std::move(block);
    m_view = CValueBlock(m_block);
    CStoredValue value;
    for (std::size_t i = 0; i < m_view.Count() && !m_blockHasLarge; ++i) {
        m_view.At(i, value);
        m_blockHasLarge = value.IsLarge();
    }
}

const CPropertyBag::Change* CPropertyBag::FindChange(PropId id) const {
    const auto at = std::lower_bound(m_changes.begin(), m_changes.end(), id,
                                     [](const Change& change, PropId wanted) { return change.id < wanted; });
    return at != m_changes.end() && at->id == id ? &*at : nullptr;
}

CPropertyBag::Change& CPropertyBag::ChangeFor(PropId id) {
    // Values mostly arrive in ascending order.
    if (m_changes.empty() || m_changes.back().id < id) {
        m_changes.push_back({id, 0, true, 0, 0});
        return m_changes.back();
    }
    const auto at = std::lower_bound(m_changes.begin(), m_changes.end(), id,
                                     [](const Change& change, PropId wanted) { return change.id < wanted; });
    if (at->id == id) {
        m_cbLive -= at->size;
        return *at;
    }
    return *m_changes.insert(at, Change{id, 0, true, 0, 0});
}

bool CPropertyBag::Find(PropId id, CStoredValue& value) const {
    if (!m_changes.empty()) {
        if (const Change* change = FindChange(id)) {
            if (change->removed) return false;
            value.View(id, change->type, BytesOf(*change));
            return true;
        }
    }
    return !m_cleared && m_view.Find(id, value);
}

bool CPropertyBag::Has(PropId id) const {
    CStoredValue value;
    return Find(id, value);
}

bool CPropertyBag::ChangedSinceLoad(PropId id) const {
    return m_cleared || FindChange(id) != nullptr;
}

void CPropertyBag::Set(PropId id, PropType type, std::string_view bytes) {
    Require(m_bytes.size() + bytes.size() < 0xFFFFFFFF, MAPI_E_TOO_BIG);
    const auto offset = static_cast<std::uint32_t>(m_bytes.size());
    // The small values that follow a large one must not move it.
    if (bytes.size() > kSmallValueLimit) m_bytes.reserve(offset + bytes.size() + kRoomBehindLarge);
    m_bytes.append(bytes);
    Change& change = ChangeFor(id);
    change = {id, type, false, offset, static_cast<std::uint32_t>(bytes.size())};
    m_cbLive += bytes.size();
    if (m_bytes.size() > 64 * 1024 && m_bytes.size() > 2 * m_cbLive) Compact();
}

void CPropertyBag::SetLong(PropId id, std::uint32_t value) {
    Set(id, PT_LONG, {reinterpret_cast<const char*>(&value), sizeof value});
}

bool CPropertyBag::Remove(PropId id) {
    if (!Has(id)) return false;
    Change& change = ChangeFor(id);
    change = {id, 0, true, 0, 0};
    return true;
}

void CPropertyBag::Clear() {
    m_changes.clear();
    m_bytes.clear();
    m_cbLive = 0;
    m_cleared = true;
}

// Overwritten values leave their old bytes behind; a long-lived object must not grow by them.
void CPropertyBag::Compact() {
    std::string bytes;
    bytes.reserve(m_cbLive);
    for (Change& change : m_changes) {
        const auto offset = static_cast<std::uint32_t>(bytes.size());
        bytes.append(BytesOf(change));
        change.offset = offset;
    }
    m_bytes = std::move(bytes);
}

bool CPropertyBag::LargeChanged() const {
    if (m_cleared && m_blockHasLarge) return true;
    CStoredValue old;
    for (const Change& change : m_changes) {
        if (!change.removed && change.size > kSmallValueLimit) return true;
        if (m_blockHasLarge && m_view.Find(change.id, old) && old.IsLarge()) return true;
    }
    return false;
}

bool CPropertyBag::KeepsLargeOfBlock() const {
    if (m_cleared || !m_blockHasLarge) return false;
    CStoredValue value;
    for (std::size_t i = 0; i < m_view.Count(); ++i) {
        m_view.At(i, value);
        if (value.IsLarge() && !FindChange(value.Id())) return true;
    }
    return false;
}

CPropertyBag::Blocks CPropertyBag::Build(std::string_view oldLarge) const {
    CValueBlockWriter small, large;
    const bool largeChanged = LargeChanged();
    const CValueBlock old(oldLarge);
    Blocks blocks{{}, {}, 0, false};
    ForEach([&](const CStoredValue& value) {
        blocks.cb += value.Size();
        const bool isLarge = value.IsLarge() || value.Size() > kSmallValueLimit;
        blocks.hasLarge = blocks.hasLarge || isLarge;
        if (!isLarge) {
            small.Add(value.Id(), value.Type(), value.Bytes());
            return;
        }
        small.AddLarge(value.Id(), value.Type(), value.Size());
        if (!largeChanged) return;
        CStoredValue kept;
        if (value.IsLarge()) Require(old.Find(value.Id(), kept), MAPI_E_CORRUPT_STORE);
        large.Add(value.Id(), value.Type(), value.IsLarge() ? kept.Bytes() : value.Bytes());
    });
    blocks.small = small.Finish();
    blocks.large = large.Finish();
    return blocks;
}
