#include "NameMap.h"

#include <MapiStore/Values/StoreError.h>

std::size_t CNameMap::Hash::operator()(const PropertyName& name) const {
    const std::hash<std::string_view> hash;
    const std::string_view guid(reinterpret_cast<const char*>(&name.guid), sizeof name.guid);
    const std::size_t kind =
        name.kind == MNID_ID ? static_cast<std::uint32_t>(name.id) * 0x9E3779B1u : hash(name.name);
    return hash(guid) * 31 + kind;
}

void CNameMap::Load(IObjectStorage& storage) {
    if (m_loaded) return;
    m_names.clear();
    m_ids.clear();
    storage.ScanNames([this](PropId id, const PropertyName& name) {
        m_names.emplace_back(id, name);
        m_ids.emplace(name, id);
    });
    m_loaded = true;
    ++m_generation;
}

const PropertyName* CNameMap::NameOf(IObjectStorage& storage, PropId id) {
    Load(storage);
    if (id < kFirstNamedId) return nullptr;
    const std::size_t i = id - kFirstNamedId;
    // IDs are given without gaps, so the place is known; a file that says otherwise is searched.
    if (i < m_names.size() && m_names[i].first == id) return &m_names[i].second;
    for (const auto& [known, name] : m_names)
        if (known == id) return &name;
    return nullptr;
}

PropId CNameMap::IdOf(IObjectStorage& storage, const PropertyName& name) {
    Load(storage);
    const auto found = m_ids.find(name);
    return found == m_ids.end() ? 0 : found->second;
}

PropId CNameMap::Add(IObjectStorage& storage, const PropertyName& name, bool persist) {
    Load(storage);
    const unsigned next = m_names.empty() ? kFirstNamedId : m_names.back().first + 1u;
    Require(next <= kLastNamedId, MAPI_E_NOT_ENOUGH_RESOURCES);
    const auto id = static_cast<PropId>(next);
    if (persist) storage.AddName(id, name);
    m_names.emplace_back(id, name);
    m_ids.emplace(name, id);
    return id;
}

const std::vector<std::pair<PropId, PropertyName>>& CNameMap::All(IObjectStorage& storage) {
    Load(storage);
    return m_names;
}
