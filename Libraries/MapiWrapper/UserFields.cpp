#include <MapiWrapper/GuidText.h>
#include <MapiWrapper/NameTables.h>
#include <MapiWrapper/TextConvert.h>
#include <MapiWrapper/UserFields.h>

namespace {

const char kAddressSet[] = "{00062004-0000-0000-C000-000000000046}";
const char kCommonSet[] = "{00062008-0000-0000-C000-000000000046}";

struct CDefaultField {
    const char* name;
    USHORT id;
    USHORT type;
    const char* set;
};

// Two rows of one name, and two names that differ in one letter, are both meant: the first row of a
// name counts, and the letter tells two properties apart.
constexpr CDefaultField kDefaultFields[] = {
    {"Private", 0x8506, PT_BOOLEAN, kCommonSet},
    {"ReminderSet", 0x8503, PT_BOOLEAN, kCommonSet},
    {"Email1Address", 0x8083, PT_STRING8, kAddressSet},
    {"Email1AddressType", 0x8082, PT_STRING8, kAddressSet},
    {"Fax2EmailAddress", 0x80C3, PT_STRING8, kAddressSet},
    {"Email1DisplayName", 0x8080, PT_STRING8, kAddressSet},
    {"Fax2AddrType", 0x80C2, PT_STRING8, kAddressSet},
    {"EMail1DisplayName", 0x8084, PT_STRING8, kAddressSet},
    {"Fax2OriginalDisplayName", 0x80C4, PT_STRING8, kAddressSet},
    {"FileAs", 0x8005, PT_STRING8, kAddressSet},
    {"Journal", 0x8025, PT_BOOLEAN, kAddressSet},
    {"IMAddress", 0x8062, PT_STRING8, kAddressSet},
    {"WebPage", 0x802B, PT_STRING8, kAddressSet},
    {"ReminderSet", 0x8503, PT_BOOLEAN, kCommonSet},
    {"Email2Address", 0x8093, PT_STRING8, kAddressSet},
    {"Email2AddressType", 0x8092, PT_STRING8, kAddressSet},
    {"Email3Address", 0x80A3, PT_STRING8, kAddressSet},
    {"Email3AddressType", 0x80A2, PT_STRING8, kAddressSet},
    {"Email2DisplayName", 0x8090, PT_STRING8, kAddressSet},
    {"Email3DisplayName", 0x80A0, PT_STRING8, kAddressSet},
    {"SelectedMailingAddress", 0x8022, PT_STRING8, kAddressSet},
    {"OtherAddress", 0x801C, PT_STRING8, kAddressSet},
};

GUID SetOf(const char* text) {
    GUID guid{};
    if (text)
        GuidFromText(text, guid);
    else
        guid = PS_PUBLIC_STRINGS;
    return guid;
}

bool HasTextSuffix(const std::string& name) {
    return name.size() >= 2 && name[name.size() - 2] == '_' && (name.back() == 'A' || name.back() == 'W');
}

}  // namespace

void CUserFields::AddTag(const std::string& name, ULONG tag) {
    auto row = std::make_unique<CUserField>();
    row->name = name;
    row->tag = tag;
    m_rows.push_back(std::move(row));
}

void CUserFields::AddNamed(const std::string& name, USHORT id, USHORT type, const char* guid) {
    auto row = std::make_unique<CUserField>();
    row->name = name;
    row->id = id;
    row->type = type;
    row->guid = SetOf(guid);
    m_rows.push_back(std::move(row));
}

void CUserFields::AddStringNamed(const std::string& name, const std::string& stringName, USHORT type,
                                 const char* guid) {
    AddNamed(name, 0, type, guid);
    m_rows.back()->stringName = stringName;
}

void CUserFields::AddDefaults() {
    AddStringNamed("Categories", "Keywords", PT_MV_STRING8, nullptr);
    for (const CDefaultField& field : kDefaultFields)
        AddNamed(field.name, field.id, field.type, field.set);
}

const CUserField* CUserFields::Find(const std::string& name) const {
    for (const auto& row : m_rows) {
        if (row->name == name) return row.get();
    }
    return nullptr;
}

ULONG CUserFields::Resolve(IMAPIProp* raw, const std::string& name) const {
    const CUserField* row = Find(name);
    if (!row) return 0;
    if (row->tag != 0) return row->tag;
    ULONG tag;
    if (!row->stringName.empty())
        tag = CGenMapiPropPtr::GetIDFromName(raw, row->guid, WideFromUtf8(row->stringName).c_str(),
                                             PT_UNSPECIFIED);
    else
        tag = CGenMapiPropPtr::GetIDFromName(raw, row->guid, static_cast<LONG>(row->id), PT_UNSPECIFIED);
    return PROP_TAG(row->type, PROP_ID(tag));
}

void CUserFields::FillNames(std::vector<std::string>& list) const {
    std::string previous;
    for (const CNameRow& row : NameRows(MainNameTable())) {
        std::string name = row.name;
        if (HasTextSuffix(name)) name.resize(name.size() - 2);
        if (name == previous) continue;
        previous = name;
        if (PROP_TYPE(row.tag) != PT_BINARY) list.push_back(QueryWordFromName(name));
    }
    for (const auto& row : m_rows)
        list.push_back(row->name);
}
