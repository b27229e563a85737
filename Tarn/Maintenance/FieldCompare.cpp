#include <MapiWrapper/GuidText.h>
#include <Tarn/Maintenance/FieldCompare.h>

#include <cstring>
#include <string_view>

namespace {

constexpr char AppointmentSet[] = "00062002-0000-0000-C000-000000000046";
constexpr char TaskSet[] = "00062008-0000-0000-C000-000000000046";
constexpr char ContactSet[] = "00062004-0000-0000-C000-000000000046";

constexpr CComparedField Plain(ULONG tag) {
    return {tag, nullptr, 0};
}
constexpr CComparedField Named(const char* set, LONG id) {
    return {0, set, id};
}

constexpr CComparedField AppointmentFields[] = {Plain(PR_SENDER_NAME_A),
                                                Plain(PR_DISPLAY_TO_A),
                                                Plain(PR_DISPLAY_CC_A),
                                                Plain(PR_DISPLAY_BCC_A),
                                                Plain(PR_BODY_A),
                                                Named(AppointmentSet, 0x820D),
                                                Named(AppointmentSet, 0x8213),
                                                Named(AppointmentSet, 0x8213),
                                                Named(AppointmentSet, 0x8235),
                                                Named(AppointmentSet, 0x8236)};
constexpr CComparedField NoteFields[] = {Plain(PR_SENDER_NAME_A), Plain(PR_DISPLAY_TO_A),
                                         Plain(PR_DISPLAY_CC_A), Plain(PR_DISPLAY_BCC_A), Plain(PR_BODY_A)};
constexpr CComparedField TaskFields[] = {
    Plain(PR_PRIORITY),      Plain(PR_SENDER_NAME_A), Plain(PR_DISPLAY_TO_A), Plain(PR_DISPLAY_CC_A),
    Plain(PR_DISPLAY_BCC_A), Plain(PR_BODY_A),        Named(TaskSet, 0x8502), Named(TaskSet, 0x8560),
    Named(TaskSet, 0x8517),  Named(TaskSet, 0x8105)};
constexpr CComparedField ContactFields[] = {
    Plain(PR_SENDER_NAME_A),   Plain(PR_DISPLAY_TO_A),    Plain(PR_DISPLAY_CC_A),   Plain(PR_DISPLAY_BCC_A),
    Plain(PR_GENERATION_A),    Plain(PR_GIVEN_NAME_A),    Plain(PR_INITIALS_A),     Plain(PR_LOCALITY_A),
    Plain(PR_LOCATION_A),      Plain(PR_SURNAME_A),       Plain(PR_TITLE_A),        Plain(PR_BODY_A),
    Named(ContactSet, 0x8082), Named(ContactSet, 0x8084), Named(ContactSet, 0x801B)};

template <std::size_t N>
constexpr CComparedFields All(const CComparedField (&fields)[N]) {
    return {fields, N};
}

struct CFamily {
    const char* begins;
    CComparedFields fields;
};
constexpr CFamily Families[] = {{"IPM.Appointment", All(AppointmentFields)},
                                {"IPM.Post", All(NoteFields)},
                                {"IPM.Note", All(NoteFields)},
                                {"IPM.Task", All(TaskFields)},
                                {"IPM.Contact", All(ContactFields)}};

// 0 for a name that no item of the store has.
ULONG TagOf(const IMessagePtr& message, const CComparedField& field) {
    if (!field.set) return field.tag;
    GUID set{};
    GuidFromText(field.set, set);
    CNamedTags names;
    const size_t name = names.Add(field.id, PT_SYSTIME, set);
    names.Resolve(message, 0);
    return names.Tag(name);
}

// A value of another type than it is asked for in is not there for this purpose.
bool IsAbsence(HRESULT hr) {
    return hr == MAPI_E_NOT_FOUND || hr == MAPI_E_UNEXPECTED_TYPE || hr == MAPI_E_INVALID_TYPE ||
           hr == MAPI_E_NO_SUPPORT;
}

struct CFieldValue {
    bool isThere = false;
    CMapiPropValue value;
    std::string text;  // of PT_STRING8
};

// To be the same by mistake would cost the item its place, so what cannot be read is no absence.
CFieldValue ReadField(const IMessagePtr& message, ULONG tag) {
    CFieldValue field;
    const HRESULT hr = message.GetOneProp(tag, field.value);
    if (IsAbsence(hr)) return field;
    const bool isText = PROP_TYPE(tag) == PT_STRING8;
    if (!isText || hr != MAPI_E_NOT_ENOUGH_MEMORY) THROW_ON_FAILURE_FOR(hr, message.Get());
    field.isThere = hr < 0 || field.value.Type() == PROP_TYPE(tag);
    if (!isText || !field.isThere) return field;
    field.text = hr < 0 ? message.ReadText(tag) : field.value.Str();
    field.text.erase(field.text.find_last_not_of(" \t\r\n\v\f") + 1);
    return field;
}

bool SameValue(const CFieldValue& first, const CFieldValue& second, ULONG type) {
    if (type == PT_STRING8) return first.text == second.text;
    const auto& a = first.value.Get()->Value;
    const auto& b = second.value.Get()->Value;
    switch (type) {
        case PT_I2:
            return a.i == b.i;
        case PT_LONG:
            return a.l == b.l;
        case PT_R4:
            return a.flt == b.flt;
        case PT_DOUBLE:
            return a.dbl == b.dbl;
        case PT_BOOLEAN:
            return a.b == b.b;
        case PT_SYSTIME:
            return std::memcmp(&a.ft, &b.ft, sizeof a.ft) == 0;
        default:
            return true;
    }
}

}  // namespace

CComparedFields FieldsOfClass(const std::string& messageClass) {
    for (const CFamily& family : Families)
        if (messageClass.starts_with(family.begins)) return family.fields;
    return {nullptr, 0};
}

bool FieldCompare(const IMessagePtr& first, const IMessagePtr& second, const CComparedFields& fields) {
    for (std::size_t i = 0; i < fields.count; ++i) {
        const ULONG tag = TagOf(first, fields.fields[i]);
        if (!tag) continue;
        const CFieldValue ofFirst = ReadField(first, tag);
        if (!ofFirst.isThere) continue;
        const CFieldValue ofSecond = ReadField(second, tag);
        if (ofSecond.isThere && !SameValue(ofFirst, ofSecond, PROP_TYPE(tag))) return false;
    }
    return true;
}
