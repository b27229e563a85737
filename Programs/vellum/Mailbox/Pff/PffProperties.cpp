#include <Programs/vellum/Mailbox/Pff/PffProperties.h>

#include <cstring>

namespace {

// One event carries at most this much of a value, so that no value has to fit into memory.
constexpr std::size_t cbChunk = 256 * 1024;
// Where libpff gives a value only as a whole: more than any real value of such a kind.
constexpr std::size_t cbWholeValue = 32 * 1024 * 1024;
constexpr std::size_t cbName = 4096;
constexpr std::uint32_t maxValues = 65536;
constexpr std::uint32_t multiValueFlag = 0x1000;
constexpr std::uint32_t typeObject = 0x000D;
constexpr std::uint32_t typeString8 = 0x001E;
constexpr std::uint32_t typeUnicode = 0x001F;
constexpr std::uint32_t typeBinary = 0x0102;

bool IsKnownType(std::uint32_t type) {
    switch (type & ~multiValueFlag) {
        case 0x0002:
        case 0x0003:
        case 0x0004:
        case 0x0005:
        case 0x0006:
        case 0x0007:
        case 0x000B:
        case 0x0014:
        case 0x0040:
        case 0x0048:
        case typeString8:
        case typeUnicode:
        case typeBinary:
            return true;
        default:
            return false;
    }
}

bool IsText(std::uint32_t type) {
    return type == typeString8 || type == typeUnicode;
}

void AppendCounted(std::string& bytes, const char* data, std::size_t cb) {
    const auto length = static_cast<std::uint32_t>(cb);
    bytes.append(reinterpret_cast<const char*>(&length), sizeof(length));
    bytes.append(data, cb);
}

void DropWideTerminator(std::string& bytes) {
    while (bytes.size() >= 2 && bytes[bytes.size() - 1] == 0 && bytes[bytes.size() - 2] == 0)
        bytes.resize(bytes.size() - 2);
}

// One value of a multi-valued property, texts as UTF-8.
bool AppendValue(libpff_multi_value_t* values, int index, std::uint32_t type, std::string& bytes) {
    CPffError error;
    if (IsText(type)) {
        const auto text = PffText(
            [&](std::size_t* cb) {
                return libpff_multi_value_get_value_utf8_string_size(values, index, cb, error);
            },
            [&](std::uint8_t* out, std::size_t cb) {
                return libpff_multi_value_get_value_utf8_string(values, index, out, cb, error);
            },
            cbWholeValue);
        if (!text) return false;
        AppendCounted(bytes, text->data(), text->size());
        return true;
    }
    std::uint8_t* data = nullptr;
    std::size_t cb = 0;
    std::uint32_t valueType = 0;
    if (libpff_multi_value_get_value(values, index, &valueType, &data, &cb, error) != 1) return false;
    AppendCounted(bytes, reinterpret_cast<const char*>(data), data ? cb : 0);
    return true;
}

}  // namespace

bool CPffProperties::SendFirstSet(libpff_item_t* item, std::uint32_t without) {
    CPffError error;
    int sets = 0;
    if (libpff_item_get_number_of_record_sets(item, &sets, error) != 1) return false;
    if (sets < 1) return true;
    CPffRecordSet set;
    if (libpff_item_get_record_set_by_index(item, 0, set.Out(), error) != 1) return false;
    return SendSet(set, without);
}

bool CPffProperties::SendSet(libpff_record_set_t* set, std::uint32_t without) {
    CPffError error;
    int count = 0;
    if (libpff_record_set_get_number_of_entries(set, &count, error) != 1) return false;
    bool whole = true;
    for (int i = 0; i < count; ++i) {
        CPffRecordEntry entry;
        if (libpff_record_set_get_entry_by_index(set, i, entry.Out(), error) != 1)
            whole = false;
        else if (SendEntry(entry, without) == Outcome::Failed)
            whole = false;
    }
    return whole;
}

bool CPffProperties::FillName(libpff_record_entry_t* entry, std::uint32_t identifier, CMailboxEvent& event) {
    CPffError error;
    libpff_name_to_id_map_entry_t* map = nullptr;
    const int named = libpff_record_entry_get_name_to_id_map_entry(entry, &map, error);
    // A number of the named range without a name means nothing outside this file.
    if (named != 1 || !map) return identifier < 0x8000;
    std::uint8_t kind = 0;
    if (libpff_name_to_id_map_entry_get_guid(map, event.name.set.data(), event.name.set.size(), error) != 1 ||
        libpff_name_to_id_map_entry_get_type(map, &kind, error) != 1)
        return false;
    event.isNamed = true;
    event.name.byText = kind == LIBPFF_NAME_TO_ID_MAP_ENTRY_TYPE_STRING;
    if (!event.name.byText)
        return libpff_name_to_id_map_entry_get_number(map, &event.name.number, error) == 1;
    const auto text = PffText(
        [&](std::size_t* cb) { return libpff_name_to_id_map_entry_get_utf8_string_size(map, cb, error); },
        [&](std::uint8_t* out, std::size_t cb) {
            return libpff_name_to_id_map_entry_get_utf8_string(map, out, cb, error);
        },
        cbName);
    if (text) event.name.text = *text;
    return text && !text->empty();
}

CPffProperties::Outcome CPffProperties::SendEntry(libpff_record_entry_t* entry, std::uint32_t without) {
    CPffError error;
    std::uint32_t identifier = 0;
    std::uint32_t type = 0;
    if (libpff_record_entry_get_entry_type(entry, &identifier, error) != 1 ||
        libpff_record_entry_get_value_type(entry, &type, error) != 1)
        return Outcome::Failed;
    if (!IsKnownType(type) || type == typeObject) return Outcome::Skipped;

    CMailboxEvent event;
    event.kind = MailboxEventKind::Property;
    if (!FillName(entry, identifier, event)) return Outcome::Skipped;
    if (!event.isNamed && without != 0 && identifier == without) return Outcome::Skipped;
    event.tag = (event.isNamed ? 0 : identifier << 16) | type;
    bool sent = false;
    if (type & multiValueFlag)
        sent = SendMultiValue(entry, type & ~multiValueFlag, event);
    else
        sent = type == typeString8 ? SendNarrow(entry, event) : SendRaw(entry, event);
    return sent ? Outcome::Sent : Outcome::Failed;
}

bool CPffProperties::SendNarrow(libpff_record_entry_t* entry, CMailboxEvent& event) {
    CPffError error;
    const auto text = PffText(
        [&](std::size_t* cb) { return libpff_record_entry_get_data_as_utf8_string_size(entry, cb, error); },
        [&](std::uint8_t* out, std::size_t cb) {
            return libpff_record_entry_get_data_as_utf8_string(entry, out, cb, error);
        },
        cbWholeValue);
    if (!text) return false;
    event.bytes = *text;
    m_sink(event);
    return true;
}

bool CPffProperties::SendMultiValue(libpff_record_entry_t* entry, std::uint32_t type, CMailboxEvent& event) {
    CPffError error;
    std::size_t cb = 0;
    if (libpff_record_entry_get_data_size(entry, &cb, error) != 1 || cb > cbWholeValue) return false;
    if (cb == 0) return true;
    CPffMultiValue values;
    int count = 0;
    if (libpff_record_entry_get_multi_value(entry, values.Out(), error) != 1 ||
        libpff_multi_value_get_number_of_values(values, &count, error) != 1 || count < 0 ||
        static_cast<std::uint32_t>(count) > maxValues)
        return false;
    for (int i = 0; i < count; ++i)
        if (!AppendValue(values, i, type, event.bytes)) return false;
    if (event.bytes.size() > cbWholeValue) return false;
    m_sink(event);
    return true;
}

bool CPffProperties::SendRaw(libpff_record_entry_t* entry, CMailboxEvent& event) {
    CPffError error;
    std::size_t cb = 0;
    if (libpff_record_entry_get_data_size(entry, &cb, error) != 1) return false;
    if (cb <= cbChunk) {
        event.bytes.resize(cb);
        if (cb != 0 && libpff_record_entry_get_data(
                           entry, reinterpret_cast<std::uint8_t*>(event.bytes.data()), cb, error) != 1)
            return false;
        if ((event.tag & 0xFFFF) == typeUnicode) DropWideTerminator(event.bytes);
        m_sink(event);
        return true;
    }
    for (std::size_t done = 0; done < cb;) {
        event.bytes.resize(std::min(cbChunk, cb - done));
        const auto read = libpff_record_entry_read_buffer(
            entry, reinterpret_cast<std::uint8_t*>(event.bytes.data()), event.bytes.size(), error);
        const bool broken = read <= 0;
        event.bytes.resize(broken ? 0 : static_cast<std::size_t>(read));
        done += event.bytes.size();
        event.more = !broken && done < cb;
        m_sink(event);
        if (broken) return false;
        event.kind = MailboxEventKind::PropertyData;
    }
    return true;
}

bool CPffProperties::SendAttachmentData(libpff_item_t* attachment) {
    CPffError error;
    size64_t cb = 0;
    if (libpff_attachment_get_data_size(attachment, &cb, error) != 1) return false;
    CMailboxEvent event;
    event.kind = MailboxEventKind::Property;
    event.tag = (attachmentData << 16) | typeBinary;
    size64_t done = 0;
    do {
        event.bytes.resize(static_cast<std::size_t>(std::min<size64_t>(cbChunk, cb - done)));
        ssize_t read = 0;
        if (!event.bytes.empty())
            read = libpff_attachment_data_read_buffer(
                attachment, reinterpret_cast<std::uint8_t*>(event.bytes.data()), event.bytes.size(), error);
        const bool broken = done < cb && read <= 0;
        event.bytes.resize(read > 0 ? static_cast<std::size_t>(read) : 0);
        done += event.bytes.size();
        event.more = !broken && done < cb;
        m_sink(event);
        if (broken) return false;
        event.kind = MailboxEventKind::PropertyData;
    } while (done < cb);
    return true;
}

std::string CPffProperties::FolderName(libpff_item_t* folder) {
    CPffError error;
    return PffText([&](std::size_t* cb) { return libpff_folder_get_utf8_name_size(folder, cb, error); },
                   [&](std::uint8_t* out, std::size_t cb) {
                       return libpff_folder_get_utf8_name(folder, out, cb, error);
                   },
                   cbName)
        .value_or(std::string());
}

bool CPffProperties::FindEntry(libpff_item_t* item, std::uint32_t identifier, CPffRecordSet& set,
                               CPffRecordEntry& entry) {
    CPffError error;
    int sets = 0;
    return libpff_item_get_number_of_record_sets(item, &sets, error) == 1 && sets > 0 &&
           libpff_item_get_record_set_by_index(item, 0, set.Out(), error) == 1 &&
           libpff_record_set_get_entry_by_type(set, identifier, 0, entry.Out(),
                                               LIBPFF_ENTRY_VALUE_FLAG_MATCH_ANY_VALUE_TYPE, error) == 1;
}

std::string CPffProperties::ReadText(libpff_item_t* item, std::uint32_t identifier) {
    CPffError error;
    CPffRecordSet set;
    CPffRecordEntry entry;
    if (!FindEntry(item, identifier, set, entry)) return {};
    return PffText(
               [&](std::size_t* cb) {
                   return libpff_record_entry_get_data_as_utf8_string_size(entry, cb, error);
               },
               [&](std::uint8_t* out, std::size_t cb) {
                   return libpff_record_entry_get_data_as_utf8_string(entry, out, cb, error);
               },
               cbName)
        .value_or(std::string());
}

std::optional<std::string> CPffProperties::ReadBinary(libpff_item_t* item, std::uint32_t identifier,
                                                      std::size_t limit) {
    CPffError error;
    CPffRecordSet set;
    CPffRecordEntry entry;
    std::size_t cb = 0;
    if (!FindEntry(item, identifier, set, entry) ||
        libpff_record_entry_get_data_size(entry, &cb, error) != 1 || cb > limit)
        return std::nullopt;
    std::string bytes(cb, '\0');
    if (cb != 0 &&
        libpff_record_entry_get_data(entry, reinterpret_cast<std::uint8_t*>(bytes.data()), cb, error) != 1)
        return std::nullopt;
    return bytes;
}
