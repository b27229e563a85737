// The named properties of a store: names to IDs from 0x8000 up, in order of first use.
#pragma once
#include "Storage.h"

#include <unordered_map>

inline constexpr PropId kFirstNamedId = 0x8000;
inline constexpr PropId kLastNamedId = 0xFFFE;

class CNameMap {
public:
    // Reads the names again at the next question: another process may have added some.
    void Forget() { m_loaded = false; }

    // Null if the ID has no name. The pointer holds until Forget or Add.
    const PropertyName* NameOf(IObjectStorage& storage, PropId id);
    // 0 if the name has no ID yet.
    PropId IdOf(IObjectStorage& storage, const PropertyName& name);
    // Gives the next ID to a name that has none. With `persist` inside a save, without it (read-only
    // store) for this process only. MAPI_E_NOT_ENOUGH_RESOURCES when all IDs are given.
    PropId Add(IObjectStorage& storage, const PropertyName& name, bool persist);
    // All in order of their IDs.
    const std::vector<std::pair<PropId, PropertyName>>& All(IObjectStorage& storage);
    // Changes when the names are read again; IDs known before may be void then.
    std::uint64_t Generation() const { return m_generation; }

private:
    struct Hash {
        std::size_t operator()(const PropertyName& name) const;
    };
    void Load(IObjectStorage& storage);

    bool m_loaded = false;
    std::uint64_t m_generation = 0;
    std::vector<std::pair<PropId, PropertyName>> m_names;
    std::unordered_map<PropertyName, PropId, Hash> m_ids;
};
