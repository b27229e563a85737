#include <Tarn/Engine/MessageCache.h>
#include <Tarn/Engine/MessageComparison.h>
#include <Tarn/Engine/SyncTrace.h>

#include <cstring>
#include <vector>

const GUID SetAppointment = {0x00062002, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const GUID SetTask = {0x00062003, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const GUID SetAddress = {0x00062004, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const GUID SetCommon = {0x00062008, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

namespace {
constexpr PropCompareEntry Plain(ULONG tag) {
    return {tag, nullptr, 0, 0};
}
constexpr PropCompareEntry Appointment(LONG id, ULONG type) {
    return {0, &SetAppointment, type, id};
}
constexpr PropCompareEntry Contact(LONG id) {
    return {0, &SetAddress, PT_STRING8, id};
}
constexpr PropCompareEntry Common(LONG id, ULONG type) {
    return {0, &SetCommon, type, id};
}
constexpr PropCompareEntry Task(LONG id, ULONG type) {
    return {0, &SetTask, type, id};
}
}  // namespace

const PropCompareEntry HeaderTags[] = {
    Plain(PR_MESSAGE_CLASS_A), Plain(PR_DISPLAY_BCC_A),     Plain(PR_DISPLAY_CC_A),
    Plain(PR_DISPLAY_TO_A),    Plain(PR_HASATTACH),         Plain(PR_IMPORTANCE),
    Plain(PR_SENDER_NAME_A),   Plain(PR_SENDER_ADDRTYPE_A), Plain(PR_SENDER_EMAIL_ADDRESS_A),
    Plain(PropCompareEnd)};

const PropCompareEntry AppointmentTags[] = {Appointment(0x820D, PT_SYSTIME),  // start
                                            Appointment(0x820E, PT_SYSTIME),  // end
                                            Appointment(0x8213, PT_SYSTIME),
                                            Appointment(0x8208, PT_STRING8),  // location
                                            Appointment(0x8205, PT_STRING8),
                                            Appointment(0x8215, PT_BOOLEAN),
                                            Appointment(0x8241, PT_LONG),
                                            Appointment(0x8243, PT_STRING8),
                                            Appointment(0x8241, PT_LONG),
                                            Appointment(0x8242, PT_STRING8),
                                            Appointment(0x8247, PT_STRING8),
                                            Appointment(0x8248, PT_STRING8),
                                            Appointment(0x8217, PT_STRING8),
                                            Appointment(0x8200, PT_STRING8),
                                            Appointment(0x8218, PT_STRING8),
                                            Appointment(0x8231, PT_STRING8),
                                            Appointment(0x8232, PT_STRING8),
                                            Appointment(0x8234, PT_STRING8),
                                            Appointment(0x8246, PT_STRING8),
                                            Appointment(0x8249, PT_STRING8),
                                            Plain(PropCompareEnd)};

const PropCompareEntry ContactTags[] = {
    Contact(0x8084), Contact(0x8005), Contact(0x801B),  // e-mail display name, file-as, business address
    Contact(0x8045), Contact(0x8046), Contact(0x8047), Contact(0x8048),
    Contact(0x8049), Contact(0x8080), Contact(0x8082), Contact(0x8083),  // first e-mail address
    Contact(0x80B2), Contact(0x80B3), Contact(0x80B4),                   // faxes
    Contact(0x80C2), Contact(0x80C3), Contact(0x80C4),                   //
    Contact(0x80D2), Contact(0x80D3), Contact(0x80D4), Plain(PropCompareEnd)};

const PropCompareEntry TaskTags[] = {
    Common(0x8506, PT_BOOLEAN), Common(0x8501, PT_LONG),    Common(0x8502, PT_SYSTIME),
    Common(0x8516, PT_SYSTIME), Common(0x8517, PT_SYSTIME), Common(0x8503, PT_BOOLEAN),
    Common(0x850E, PT_BOOLEAN), Common(0x8534, PT_STRING8), Common(0x8535, PT_STRING8),
    Common(0x8539, PT_STRING8), Task(0x8105, PT_SYSTIME),   Task(0x8104, PT_SYSTIME),
    Task(0x811C, PT_BOOLEAN),   Task(0x8101, PT_LONG),      Task(0x8102, PT_DOUBLE),
    Task(0x8110, PT_LONG),      Task(0x8111, PT_LONG),      Task(0x8129, PT_LONG),
    Task(0x812A, PT_LONG),      Task(0x8127, PT_LONG),      Task(0x8103, PT_LONG),
    Task(0x8103, PT_LONG),      Task(0x8126, PT_LONG),      Plain(PropCompareEnd)};

ULONG CountTagList(const PropCompareEntry* list) {
    ULONG count = 0;
    while (list[count].tag != PropCompareEnd)
        ++count;
    return count;
}

namespace {
bool EqualTexts(const char* a, const char* b) {
    if (!a || !b) return a == b;
    return std::strcmp(a, b) == 0;
}

bool EqualTextLists(const SPropValue& a, const SPropValue& b) {
    const SLPSTRArray& first = a.Value.MVszA;
    const SLPSTRArray& second = b.Value.MVszA;
    if (first.cValues != second.cValues) return false;
    for (ULONG i = 0; i < first.cValues; ++i)
        if (!EqualTexts(first.lppszA[i], second.lppszA[i])) return false;
    return true;
}

// One side of a comparison: every property of the list, read in one call.
class CListValues {
public:
    CListValues(const PropCompareEntry* list, const IMessagePtr& message) : m_message(message) {
        FindTags(list);
        m_whole = message.GetPropsHr(0, m_values, m_tags) >= 0;
    }

    // The result of reading that entry alone. `value` is null unless it succeeded.
    HRESULT Read(ULONG index, CMapiPropValue& value) const {
        if (m_tags[index] == PR_NULL) return MAPI_E_NOT_FOUND;
        if (!m_whole) return m_message.GetOneProp(m_tags[index], value);
        CMapiPropValue cell = m_values[index];
        if (cell.IsNull()) return MAPI_E_NOT_FOUND;
        if (cell.IsError()) return cell.Get()->Value.err;
        value = cell;
        return S_OK;
    }

private:
    // A store that does not know a name has no such property either; PR_NULL keeps the place.
    void FindTags(const PropCompareEntry* list) {
        CNamedTags names;
        for (const PropCompareEntry* entry = list; entry->tag != PropCompareEnd; ++entry)
            if (entry->tag == 0) names.Add(entry->id, entry->type, *entry->set);
        if (names.Count() != 0) names.Resolve(m_message, 0);
        size_t named = 0;
        for (const PropCompareEntry* entry = list; entry->tag != PropCompareEnd; ++entry) {
            const ULONG tag = entry->tag != 0 ? entry->tag : names.Tag(named++);
            m_tags.push_back(PROP_ID(tag) != 0 ? tag : PR_NULL);
        }
    }

    const IMessagePtr& m_message;
    std::vector<ULONG> m_tags;
    CMapiPropValues m_values;
    bool m_whole = false;
};
}  // namespace

bool EqualPropValues(const SPropValue& a, const SPropValue& b) {
    const bool sameType = PROP_TYPE(a.ulPropTag) == PROP_TYPE(b.ulPropTag);
    switch (PROP_TYPE(a.ulPropTag)) {
        case PT_I2:
        case PT_BOOLEAN:
            return sameType && a.Value.i == b.Value.i;
        case PT_LONG:
            return sameType && a.Value.l == b.Value.l;
        case PT_R4:
            return sameType && a.Value.flt == b.Value.flt;
        case PT_DOUBLE:
            return sameType && a.Value.dbl == b.Value.dbl;
        case PT_STRING8:
            return sameType && EqualTexts(a.Value.lpszA, b.Value.lpszA);
        case PT_SYSTIME:
            return sameType && a.Value.ft.dwLowDateTime == b.Value.ft.dwLowDateTime &&
                   a.Value.ft.dwHighDateTime == b.Value.ft.dwHighDateTime;
        case PT_MV_STRING8:
            return sameType && EqualTextLists(a, b);
        default:
            return true;
    }
}

int CompareTagList(const PropCompareEntry* list, IMessagePtr a, IMessagePtr b) {
    const CListValues first(list, a);
    const CListValues second(list, b);
    for (ULONG i = 0; list[i].tag != PropCompareEnd; ++i) {
        CMapiPropValue firstValue;
        CMapiPropValue secondValue;
        const HRESULT result = first.Read(i, firstValue);
        if (second.Read(i, secondValue) != result) return 0;
        if (firstValue.IsNull() || secondValue.IsNull()) continue;
        if (!EqualPropValues(*firstValue.Get(), *secondValue.Get())) return 0;
    }
    return 1;
}

int CompareMessages(const IMessagePtr& a, const IMessagePtr& b) {
    const std::string messageClass = a.GetStrProp(PR_MESSAGE_CLASS_A);
    if (messageClass != b.GetStrProp(PR_MESSAGE_CLASS_A)) return 0;
    if (!CompareTagList(HeaderTags, a, b)) return 0;
    if (messageClass == "IPM.Appointment" && !CompareTagList(AppointmentTags, a, b)) return 0;
    if (messageClass == "IPM.Contact" && !CompareTagList(ContactTags, a, b)) return 0;
    if (messageClass == "IPM.Task" && !CompareTagList(TaskTags, a, b)) return 0;
    return 1;
}

int CompareCacheEntries(CMessageCacheEntry& source, CMessageCacheEntry& candidate, FILE* traceFile) {
    if (!source.m_body.empty() && !candidate.m_body.empty() && source.m_body != candidate.m_body) {
        TraceText(traceFile, "unqueal in body\n");
        return 0;
    }
    if (source.m_class != candidate.m_class) {
        TraceText(traceFile, "unequal in MsgClass\n");
        return 0;
    }
    if (!CompareScalarFields(source, candidate)) return 0;
    if (source.m_class == "IPM.Appointment" && !CompareCachedNamed(source, AppointmentTags, candidate))
        return 0;
    if (source.m_class == "IPM.Contact" &&
        !CompareTagList(ContactTags, source.m_message, candidate.m_message)) {
        TraceText(traceFile, "unequal in contact tags\n");
        return 0;
    }
    if (source.m_class == "IPM.Task" && !CompareTagList(TaskTags, source.m_message, candidate.m_message)) {
        TraceText(traceFile, "unequal in task props\n");
        return 0;
    }
    return 1;
}
