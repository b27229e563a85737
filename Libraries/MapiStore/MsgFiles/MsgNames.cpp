#include "MsgNames.h"

#include <MapiStore/Core/NamedProps.h>
#include <MapiStore/Values/Lzfu.h>
#include <MapiStore/Values/PropertyCodec.h>
#include <MapiStore/Values/UnknownImpl.h>
#include "MsgFormat.h"

#include <array>

namespace {

using namespace msg;

constexpr std::size_t kMostNameBytes = 16 * 1024 * 1024;
constexpr std::size_t kNameEntry = 8;
// Numbers of property sets that are not listed.
constexpr unsigned kSetMapi = 1;
constexpr unsigned kSetPublicStrings = 2;
constexpr unsigned kFirstListedSet = 3;

struct NameStreams {
    std::string guids, entries, strings;
};

bool SetOf(const NameStreams& streams, unsigned number, GUID& set) {
    if (number == kSetMapi) {
        set = PS_MAPI;
        return true;
    }
    if (number == kSetPublicStrings) {
        set = PS_PUBLIC_STRINGS;
        return true;
    }
    if (number < kFirstListedSet) return false;
    const std::size_t at = (number - kFirstListedSet) * sizeof(GUID);
    if (at + sizeof(GUID) > streams.guids.size()) return false;
    std::memcpy(&set, streams.guids.data() + at, sizeof set);
    return true;
}

bool NameAt(const NameStreams& streams, std::size_t at, PropertyName& name, PropId& id) {
    const auto value = NumberAt<std::uint32_t>(streams.entries, at);
    const auto kind = NumberAt<std::uint16_t>(streams.entries, at + 4);
    const auto index = NumberAt<std::uint16_t>(streams.entries, at + 6);
    if (index > kLastNamedId - kFirstNamedId || !SetOf(streams, kind >> 1, name.guid)) return false;
    id = static_cast<PropId>(kFirstNamedId + index);
    name.kind = kind & 1 ? MNID_STRING : MNID_ID;
    if (name.kind == MNID_ID) {
        name.id = static_cast<LONG>(value);
        return true;
    }
    if (value > streams.strings.size() || streams.strings.size() - value < 4) return false;
    const std::size_t cb = NumberAt<std::uint32_t>(streams.strings, value);
    if (cb > streams.strings.size() - value - 4) return false;
    name.name = Utf8FromUtf16Bytes(std::string_view(streams.strings).substr(value + 4, cb & ~std::size_t{1}));
    return !name.name.empty();
}

class CNamesWriter {
public:
    void Add(PropId id, const PropertyName& name) {
        const unsigned set = SetNumber(name.guid);
        const bool text = name.kind == MNID_STRING;
        const auto kind = static_cast<std::uint16_t>(set << 1 | (text ? 1 : 0));
        const auto index = static_cast<std::uint16_t>(id - kFirstNamedId);
        std::uint32_t value = static_cast<std::uint32_t>(name.id);
        std::uint32_t hash = value;
        if (text) {
            const std::string wide = Utf16BytesFromUtf8(name.name);
            value = static_cast<std::uint32_t>(m_streams.strings.size());
            hash = RtfChecksum(wide);
            Append(static_cast<std::uint32_t>(wide.size()), m_streams.strings);
            m_streams.strings += wide;
            m_streams.strings.resize((m_streams.strings.size() + 3) & ~std::size_t{3});
        }
        Put(value, kind, index, m_streams.entries);
        Put(hash, kind, index, m_hashed[(hash ^ kind) % kHashStreams]);
    }

    void Write(IStorage& names) {
        WriteStream(names, Name(kValue, kGuidStream), m_streams.guids);
        WriteStream(names, Name(kValue, kEntryStream), m_streams.entries);
        WriteStream(names, Name(kValue, kStringStream), m_streams.strings);
        for (ULONG i = 0; i < kHashStreams; ++i)
            if (!m_hashed[i].empty())
                WriteStream(names, Name(kValue, (kFirstHashStream + i) << 16 | PT_BINARY), m_hashed[i]);
    }

private:
    static void Put(std::uint32_t value, std::uint16_t kind, std::uint16_t index, std::string& to) {
        Append(value, to);
        Append(kind, to);
        Append(index, to);
    }
    unsigned SetNumber(const GUID& set) {
        if (set == PS_MAPI) return kSetMapi;
        if (set == PS_PUBLIC_STRINGS) return kSetPublicStrings;
        const std::string_view bytes(reinterpret_cast<const char*>(&set), sizeof set);
        for (std::size_t at = 0; at < m_streams.guids.size(); at += sizeof set)
            if (std::string_view(m_streams.guids).substr(at, sizeof set) == bytes)
                return static_cast<unsigned>(kFirstListedSet + at / sizeof set);
        m_streams.guids += bytes;
        return static_cast<unsigned>(kFirstListedSet + m_streams.guids.size() / sizeof set - 1);
    }

    NameStreams m_streams;
    std::array<std::string, kHashStreams> m_hashed;
};

}  // namespace

MsgNameMap ReadMsgNames(IStorage& message, CStoreCore& core) {
    MsgNameMap map;
    CRef<IStorage> names;
    if (FAILED(
            message.OpenStorage(kNames, nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0, names.Out())))
        return map;
    NameStreams streams;
    ReadStream(*names, Name(kValue, kGuidStream), kMostNameBytes, streams.guids);
    ReadStream(*names, Name(kValue, kEntryStream), kMostNameBytes, streams.entries);
    ReadStream(*names, Name(kValue, kStringStream), kMostNameBytes, streams.strings);
    for (std::size_t at = 0; at + kNameEntry <= streams.entries.size(); at += kNameEntry) {
        PropertyName name;
        PropId id = 0;
        if (!NameAt(streams, at, name, id)) continue;
        const PropId known = core.Names().IdOf(core.Storage(), name);
        map[id] = known ? known : AddName(core, name);
    }
    return map;
}

void WriteMsgNames(IStorage& message, CStoreCore& core) {
    CRef<IStorage> names;
    const HRESULT hr =
        message.CreateStorage(kNames, STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0, names.Out());
    Require(SUCCEEDED(hr), MapiCodeOf(hr));
    CNamesWriter writer;
    for (const auto& [id, name] : core.Names().All(core.Storage()))
        writer.Add(id, name);
    writer.Write(*names);
}
