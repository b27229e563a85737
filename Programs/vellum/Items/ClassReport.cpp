#include <Programs/vellum/Items/ClassReport.h>

#include <MapiWrapper/NamedTags.h>
#include <Platform/Clock.h>
#include <Platform/Utf8.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Items/ItemReport.h>
#include <Programs/vellum/Items/PropertyReport.h>

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>

namespace {

constexpr GUID AppointmentSet = {0x00062002, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr GUID TaskSet = {0x00062003, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr GUID AddressSet = {0x00062004, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr GUID CommonSet = {0x00062008, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr ULONG PR_TRACK_STATUS = PROP_TAG(PT_LONG, 0x5FFF);

using Heads = std::vector<std::pair<std::string, std::string>>;
using Words = std::span<const char* const>;

constexpr const char* TaskStates[] = {"not started", "in progress", "done", "waiting for somebody",
                                      "put off"};
constexpr const char* Rhythms[] = {"", "daily", "weekly", "monthly", "yearly"};
constexpr const char* Answers[] = {"", "organizes", "tentative", "accepted", "declined"};

// A plain tag, or a name of a set; numbers that stand for something have words.
struct CField {
    const char* label;
    ULONG tag;  // of a name its type alone
    const GUID* set = nullptr;
    LONG id = 0;
    Words words = {};
};

constexpr CField AppointmentFields[] = {
    {"Start", PT_SYSTIME, &AppointmentSet, 0x820D},         {"End", PT_SYSTIME, &AppointmentSet, 0x820E},
    {"All day", PT_BOOLEAN, &AppointmentSet, 0x8215},       {"Place", PT_STRING8, &AppointmentSet, 0x8208},
    {"Repeats", PT_LONG, &AppointmentSet, 0x8231, Rhythms}, {"Pattern", PT_STRING8, &AppointmentSet, 0x8232}};
constexpr CField TaskFields[] = {
    {"Start", PT_SYSTIME, &TaskSet, 0x8104},          {"Due", PT_SYSTIME, &TaskSet, 0x8105},
    {"State", PT_LONG, &TaskSet, 0x8101, TaskStates}, {"Done", PT_DOUBLE, &TaskSet, 0x8102},
    {"Completed", PT_SYSTIME, &TaskSet, 0x810F},      {"Owner", PT_STRING8, &TaskSet, 0x811F},
    {"Reminder", PT_SYSTIME, &CommonSet, 0x8502}};
constexpr CField ContactFields[] = {{"Name", PR_DISPLAY_NAME_A},
                                    {"First name", PR_GIVEN_NAME_A},
                                    {"Last name", PR_SURNAME_A},
                                    {"Position", PR_TITLE_A},
                                    {"Company", PR_COMPANY_NAME_A},
                                    {"Department", PR_DEPARTMENT_NAME_A},
                                    {"E-mail", PT_STRING8, &AddressSet, 0x8083},
                                    {"E-mail 2", PT_STRING8, &AddressSet, 0x8093},
                                    {"E-mail 3", PT_STRING8, &AddressSet, 0x80A3},
                                    {"Office", PR_BUSINESS_TELEPHONE_NUMBER_A},
                                    {"Home", PR_HOME_TELEPHONE_NUMBER_A},
                                    {"Mobile", PR_MOBILE_TELEPHONE_NUMBER_A},
                                    {"Fax", PR_BUSINESS_FAX_NUMBER_A},
                                    {"At work", PT_STRING8, &AddressSet, 0x801B},
                                    {"At home", PT_STRING8, &AddressSet, 0x801A},
                                    {"Elsewhere", PT_STRING8, &AddressSet, 0x801C},
                                    {"Birthday", PR_BIRTHDAY}};

std::string ValueOf(const IMessagePtr& message, ULONG tag, Words words) {
    if (PROP_TYPE(tag) == PT_STRING8) return ShownText(message, tag);
    CMapiPropValue value;
    if (message.GetOneProp(tag, value) < 0 || value.Type() != PROP_TYPE(tag)) return {};
    switch (value.Type()) {
        case PT_SYSTIME:
            return ShortTime(value.Time());
        case PT_BOOLEAN:
            return value.Bool() ? "yes" : "";
        case PT_DOUBLE:
            return std::to_string(static_cast<int>(value.Get()->Value.dbl * 100 + 0.5)) + " %";
        default:
            const auto number = static_cast<std::size_t>(value.Long());
            return number < words.size() ? words[number] : std::string();
    }
}

void AddFields(const IMessagePtr& message, std::span<const CField> fields, Heads& heads) {
    CNamedTags names;
    for (const CField& field : fields)
        if (field.set) names.Add(field.id, field.tag, *field.set);
    names.Resolve(message, 0);
    std::size_t name = 0;
    for (const CField& field : fields) {
        const ULONG tag = field.set ? names.Tag(name++) : field.tag;
        if (tag) heads.emplace_back(field.label, ValueOf(message, tag, field.words));
    }
}

void AddAttendees(const IMessagePtr& message, Heads& heads) {
    IMAPITablePtr table;
    THROW_ON_FAILURE_FOR(message->GetRecipientTable(0, table.Out()), message.Get());
    table.SetText(message.Text());
    const CMapiRowSet rows =
        table.QueryRows({PR_RECIPIENT_TYPE, PR_DISPLAY_NAME_A, PR_EMAIL_ADDRESS_A, PR_TRACK_STATUS});
    for (ULONG row = 0; row < rows.Count(); ++row) {
        const LONG type = rows.Cell(row, 0).Long() & 0x0F;
        std::string person = Utf8FromNarrow(rows.Cell(row, 1).Str());
        const std::string address = Utf8FromNarrow(rows.Cell(row, 2).Str());
        if (!address.empty() && address != person) person += " <" + address + ">";
        const auto answer = static_cast<std::size_t>(rows.Cell(row, 3).Long());
        if (answer > 0 && answer < std::size(Answers)) person += std::string(", ") + Answers[answer];
        heads.emplace_back(type == MAPI_CC ? "Optional" : type == MAPI_BCC ? "Resource" : "Attendee", person);
    }
}

// --- members of a list ------------------------------------------------------------------------------

// Texts of an address that stands for itself, one behind the other, each with a zero at its end.
class COneOffTexts {
public:
    COneOffTexts(const SBinary& bin, std::size_t begin, bool isWide)
        : m_bytes(reinterpret_cast<const char*>(bin.lpb), bin.cb), m_at(begin), m_isWide(isWide) {}

    std::string Next() {
        const std::size_t cb = m_isWide ? 2 : 1, begin = std::min(m_at, m_bytes.size());
        std::size_t end = begin;
        while (end + cb <= m_bytes.size() &&
               m_bytes.substr(end, cb).find_first_not_of('\0') != std::string::npos)
            end += cb;
        m_at = end + cb;
        const std::string text = m_bytes.substr(begin, end - begin);
        return m_isWide ? Utf8FromUtf16Bytes(text) : Utf8FromNarrow(text);
    }

private:
    const std::string m_bytes;
    std::size_t m_at;
    const bool m_isWide;
};

std::string MemberOf(const SBinary& entry) {
    constexpr std::size_t cbHead = 24;  // flags, provider, version, form
    constexpr BYTE provider[] = {0x81, 0x2B, 0x1F, 0xA4, 0xBE, 0xA3, 0x10, 0x19,
                                 0x9D, 0x6E, 0x00, 0xDD, 0x01, 0x0F, 0x54, 0x02};
    if (entry.cb < cbHead || std::memcmp(entry.lpb + 4, provider, sizeof provider) != 0)
        return "an entry of an address book";
    COneOffTexts texts(entry, cbHead, (entry.lpb[23] & 0x80) != 0);
    const std::string name = texts.Next();
    texts.Next();
    const std::string address = texts.Next();
    return address.empty() || address == name ? name : name + " <" + address + ">";
}

void AddMembers(const IMessagePtr& message, Heads& heads) {
    CNamedTags names;
    for (const LONG id : {0x8054, 0x8055})  // as they were when they were taken in, and where they lie
        names.Add(id, PT_MV_BINARY, AddressSet);
    names.Resolve(message, 0);
    for (std::size_t i = 0; i < names.Count(); ++i) {
        CMapiPropValue value;
        if (!names.Tag(i) || message.GetOneProp(names.Tag(i), value) < 0 || value.Type() != PT_MV_BINARY)
            continue;
        const SBinaryArray& members = value.Get()->Value.MVbin;
        for (ULONG member = 0; member < members.cValues; ++member)
            heads.emplace_back("Member", MemberOf(members.lpbin[member]));
        if (members.cValues > 0) return;
    }
}

bool Begins(const std::string& text, const char* begin) {
    return text.starts_with(begin);
}

}  // namespace

std::vector<std::pair<std::string, std::string>> HeadsOfClass(const IMessagePtr& message) {
    const std::string messageClass = message.GetStrPropOrEmpty(PR_MESSAGE_CLASS_A);
    Heads heads;
    try {
        if (Begins(messageClass, "IPM.Appointment") || Begins(messageClass, "IPM.Schedule.Meeting")) {
            AddFields(message, AppointmentFields, heads);
            AddAttendees(message, heads);
        } else if (Begins(messageClass, "IPM.Task")) {
            AddFields(message, TaskFields, heads);
        } else if (Begins(messageClass, "IPM.Contact")) {
            AddFields(message, ContactFields, heads);
        } else if (Begins(messageClass, "IPM.DistList")) {
            AddMembers(message, heads);
        }
    } catch (const CMAPIException&) {
        // What was found by then is shown.
    }
    std::erase_if(heads, [](const auto& head) { return head.second.empty(); });
    return heads;
}
