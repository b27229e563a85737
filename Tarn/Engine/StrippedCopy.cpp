#include <MapiWrapper/ExchangeTags.h>
#include <MapiWrapper/NamedTags.h>
#include <MapiWrapper/StreamTools.h>
#include <MapiWrapper/TagArray.h>
#include <Tarn/Engine/MessageComparison.h>
#include <Tarn/Engine/RecurrenceTexts.h>
#include <Tarn/Engine/SameContents.h>
#include <Tarn/Engine/StrippedCopy.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <vector>

namespace {
constexpr ULONG cbPortion = 65536;
constexpr LONG RecurrenceId = 0x8216;  // in PSETID_Appointment

enum class Way {
    Both,
    Out,      // decided on the side of the original
    OutOnly,  // the same, and no part of a comparison: stores have their own ideas of it
    OutBare,  // the recurrence, which goes both ways without texts
};
// Types are part of it: a text under the number of a time does not cross. The two kinds of text are one.
struct CCrossing {
    ULONG tag;  // with the type; of a named property its type alone
    const GUID* set;
    LONG id;
    Way way;
};
constexpr CCrossing Plain(ULONG tag, Way way = Way::Both) {
    return {tag, nullptr, 0, way};
}
constexpr CCrossing Named(const GUID& set, LONG id, ULONG type, Way way = Way::Both) {
    return {type, &set, id, way};
}

const CCrossing kCrossing[] = {
    Plain(PR_MESSAGE_CLASS_A, Way::Out),
    Plain(PR_SENSITIVITY, Way::Out),
    Plain(PR_SENDER_NAME_A, Way::Out),  // stands in the label
    Plain(PR_SEARCH_KEY, Way::OutOnly),
    Plain(PR_MESSAGE_FLAGS, Way::OutOnly),
    Plain(PR_ICON_INDEX, Way::OutOnly),
    Plain(PR_CLIENT_SUBMIT_TIME, Way::Out),  // the date in a list
    Plain(PR_MESSAGE_DELIVERY_TIME, Way::Out),
    Plain(PR_IMPORTANCE),
    Plain(PR_PRIORITY),
    Plain(PR_START_DATE),
    Plain(PR_END_DATE),
    Plain(PR_OWNER_APPT_ID),
    Plain(PR_RESPONSE_REQUESTED),
    Named(SetAppointment, RecurrenceId, PT_BINARY, Way::OutBare),
    Named(SetAppointment, 0x8201, PT_LONG),     // sequence
    Named(SetAppointment, 0x8205, PT_LONG),     // busy
    Named(SetAppointment, 0x8207, PT_LONG),     // flags of a copied meeting
    Named(SetAppointment, 0x820D, PT_SYSTIME),  // start
    Named(SetAppointment, 0x820E, PT_SYSTIME),  // end
    Named(SetAppointment, 0x820F, PT_SYSTIME),  // the same four in parts
    Named(SetAppointment, 0x8210, PT_SYSTIME),
    Named(SetAppointment, 0x8211, PT_SYSTIME),
    Named(SetAppointment, 0x8212, PT_SYSTIME),
    Named(SetAppointment, 0x8213, PT_LONG),     // minutes
    Named(SetAppointment, 0x8214, PT_LONG),     // color
    Named(SetAppointment, 0x8215, PT_BOOLEAN),  // all day
    Named(SetAppointment, 0x8217, PT_LONG),     // state of a meeting
    Named(SetAppointment, 0x8218, PT_LONG),     // answer
    Named(SetAppointment, 0x8220, PT_SYSTIME),
    Named(SetAppointment, 0x8223, PT_BOOLEAN),  // recurring
    Named(SetAppointment, 0x8224, PT_LONG),     // busy, as the organizer has it
    Named(SetAppointment, 0x8228, PT_SYSTIME),  // which occurrence an exception replaces
    Named(SetAppointment, 0x8229, PT_BOOLEAN),
    Named(SetAppointment, 0x8231, PT_LONG),    // kind of recurrence
    Named(SetAppointment, 0x8233, PT_BINARY),  // time zones
    Named(SetAppointment, 0x825E, PT_BINARY),
    Named(SetAppointment, 0x825F, PT_BINARY),
    Named(SetAppointment, 0x8260, PT_BINARY),
    Named(SetAppointment, 0x8235, PT_SYSTIME),  // first and last day of a series
    Named(SetAppointment, 0x8236, PT_SYSTIME),
    Named(SetCommon, 0x8501, PT_LONG),     // reminder: minutes
    Named(SetCommon, 0x8502, PT_SYSTIME),  // time
    Named(SetCommon, 0x8503, PT_BOOLEAN),  // on
    Named(SetCommon, 0x8506, PT_BOOLEAN, Way::Out),
    Named(SetCommon, 0x8510, PT_LONG),  // which forms show it
    Named(SetCommon, 0x8516, PT_SYSTIME),
    Named(SetCommon, 0x8517, PT_SYSTIME),
    Named(SetCommon, 0x8560, PT_SYSTIME),  // reminder: next
};
constexpr size_t kCrossings = std::size(kCrossing);

// ---- which of them an item has --------------------------------------------------------------------

std::vector<ULONG> ListTags(const IMessagePtr& message) {
    SPropTagArray* tags = nullptr;
    THROW_ON_FAILURE_FOR(message->GetPropList(MAPI_UNICODE, &tags), message.RawProp());
    std::vector<ULONG> all;
    if (tags) all.assign(tags->aulPropTag, tags->aulPropTag + tags->cValues);
    MAPIFreeBuffer(tags);
    return all;
}

bool IsText(ULONG tag) {
    return PROP_TYPE(tag) == PT_STRING8 || PROP_TYPE(tag) == PT_UNICODE;
}

bool Has(const std::vector<ULONG>& tags, ULONG wanted) {
    return std::any_of(tags.begin(), tags.end(), [wanted](ULONG tag) {
        return tag == wanted || (PROP_ID(tag) == PROP_ID(wanted) && IsText(tag) && IsText(wanted));
    });
}

// The tags of what crosses in one item.
class CCrossingTags {
public:
    explicit CCrossingTags(const IMessagePtr& message) : m_all(ListTags(message)) {
        CNamedTags names;
        for (const CCrossing& entry : kCrossing)
            if (entry.set) names.Add(entry.id, entry.tag, *entry.set);
        names.Resolve(message, 0);
        size_t named = 0;
        for (size_t i = 0; i < kCrossings; ++i) {
            const ULONG tag = kCrossing[i].set ? names.Tag(named++) : kCrossing[i].tag;
            m_tags[i] = tag && Has(m_all, tag) ? tag : 0;
        }
    }

    // 0 for a property that the item has not.
    ULONG At(size_t entry) const { return m_tags[entry]; }
    ULONG Recurrence() const {
        for (size_t i = 0; i < kCrossings; ++i)
            if (kCrossing[i].way == Way::OutBare) return m_tags[i];
        return 0;
    }
    // Every property of the item, these among them.
    const std::vector<ULONG>& All() const { return m_all; }

private:
    std::vector<ULONG> m_all;
    ULONG m_tags[kCrossings] = {};
};

// ---- the recurrence -------------------------------------------------------------------------------

std::string ReadBytes(const IMessagePtr& message, ULONG tag) {
    if (!tag) return {};
    CComPtr<IStream> stream;
    THROW_ON_FAILURE_FOR(message.OpenStream(tag, 0, 0, stream), message.RawProp());
    std::string bytes;
    THROW_ON_FAILURE_FOR(ReadToEnd(stream.Get(), bytes, cbPortion), message.RawProp());
    return bytes;
}

void WriteRecurrence(IMessagePtr& message, std::string bytes) {
    const SBinary value = {static_cast<ULONG>(bytes.size()), reinterpret_cast<BYTE*>(bytes.data())};
    message.SetProp(message.GetIDFromName(SetAppointment, RecurrenceId, PT_BINARY), value);
}

void DeleteTags(IMessagePtr& message, const std::vector<ULONG>& tags) {
    if (tags.empty()) return;  // which would delete all
    CTagArray list(tags);
    THROW_ON_FAILURE_FOR(message->DeleteProps(list.Get(), nullptr), message.RawProp());
}

void ReturnRecurrence(CSyncFolder& engine, const IMessagePtr& copy, ULONG copyTag, IMessagePtr& original,
                      ULONG originalTag) {
    const std::string theirs = ReadBytes(copy, copyTag), own = ReadBytes(original, originalTag);
    const std::optional<std::string> bare = RecurrenceWithoutTexts(own);
    if (!originalTag) {
        const auto added = RecurrenceWithoutTexts(theirs);
        if (added) WriteRecurrence(original, *added);
    } else if (copyTag) {
        const auto returned = RecurrenceWithTextsOf(own, theirs);
        if (!returned || returned->bytes == own) return;
        if (returned->losesTexts) KeepVersion(engine, original);
        WriteRecurrence(original, returned->bytes);
    } else if (bare) {  // else it has never been in the copy
        if (*bare != own) KeepVersion(engine, original);
        DeleteTags(original, {originalTag});
    }
}

HRESULT CopyTags(IMessagePtr& source, IMessagePtr& target, const std::vector<ULONG>& tags, bool retry) {
    if (tags.empty()) return S_OK;
    CTagArray list(tags);
    const HRESULT hr = source->CopyProps(list.Get(), 0, nullptr, &IID_IMessage, target.Get(), 0, nullptr);
    if (hr >= 0 || !retry) return hr;
    return source->CopyProps(list.Get(), 0, nullptr, &IID_IMAPIProp, static_cast<IMAPIProp*>(target.Get()), 0,
                             nullptr);
}
}  // namespace

HRESULT CopyWithoutText(IMessagePtr& source, IMessagePtr& target, bool retry) {
    const CCrossingTags present(source);
    std::vector<ULONG> tags;
    for (size_t i = 0; i < kCrossings; ++i)
        if (present.At(i) && kCrossing[i].way != Way::OutBare) tags.push_back(present.At(i));
    const HRESULT hr = CopyTags(source, target, tags, retry);
    if (hr < 0) return hr;
    if (const auto bare = RecurrenceWithoutTexts(ReadBytes(source, present.Recurrence())))
        WriteRecurrence(target, *bare);
    return hr;
}

void ReturnToOriginal(CSyncFolder& engine, IMessagePtr& copy, IMessagePtr& original) {
    const CCrossingTags theirs(copy), own(original);
    ReturnRecurrence(engine, copy, theirs.Recurrence(), original, own.Recurrence());
    std::vector<ULONG> changed, gone;
    for (size_t i = 0; i < kCrossings; ++i) {
        if (kCrossing[i].way != Way::Both) continue;
        if (theirs.At(i))
            changed.push_back(theirs.At(i));
        else if (own.At(i))
            gone.push_back(own.At(i));
    }
    DeleteTags(original, gone);
    THROW_ON_FAILURE_FOR(CopyTags(copy, original, changed, true), copy.RawProp());
}

// ---- what a person did to a copy ------------------------------------------------------------------

namespace {
bool IsEmptyTable(HRESULT hr, const IMAPITablePtr& table, const IMessagePtr& message) {
    if (hr == MAPI_E_NO_SUPPORT) return true;
    THROW_ON_FAILURE_FOR(hr, message.RawProp());
    return !table.IsValid() || table.QueryRows({PR_ROWID}).Count() == 0;
}

bool HangsNothingOn(const IMessagePtr& message) {
    IMAPITablePtr recipients, attachments;
    const HRESULT hr = message->GetRecipientTable(0, recipients.Out());
    return IsEmptyTable(hr, recipients, message) &&
           IsEmptyTable(message->GetAttachmentTable(0, attachments.Out()), attachments, message);
}

// The texts that a copy has beside those of ReadItemText. Stores and programs write some of their own below
// the numbers of names, so of these only what a person is asked for counts.
std::vector<ULONG> OtherTexts(const CSyncTags& tags, const CCrossingTags& present) {
    constexpr ULONG firstNamed = 0x8000;
    constexpr ULONG place = PROP_TAG(PT_STRING8, 0x3A0D);
    std::vector<ULONG> others;
    for (const ULONG tag : present.All()) {
        const bool asked = tag == PR_COMMENT_A || tag == PR_COMMENT_W || PROP_ID(tag) == PROP_ID(place);
        const bool own = PROP_ID(tag) == PROP_ID(tags.larchId);
        if ((PROP_ID(tag) < firstNamed && !asked) || own) continue;
        if (IsText(tag) || PROP_TYPE(tag) == PT_MV_STRING8 || PROP_TYPE(tag) == PT_MV_UNICODE)
            others.push_back(tag);
    }
    return others;
}

bool IsEmptyText(const CMapiPropValue& value) {
    switch (value.Type()) {
        case PT_STRING8:
            return !value.Get()->Value.lpszA || !*value.Get()->Value.lpszA;
        case PT_UNICODE:
            return !value.Get()->Value.lpszW || !*value.Get()->Value.lpszW;
        case PT_MV_STRING8:
            return value.Get()->Value.MVszA.cValues == 0;
        case PT_MV_UNICODE:
            return value.Get()->Value.MVszW.cValues == 0;
        default:  // too long, or not to be read
            return !value.IsNull() && value.IsError() && value.Get()->Value.err == MAPI_E_NOT_FOUND;
    }
}

bool HasOtherTexts(CSyncFolder& engine, const IMessagePtr& copy) {
    const std::vector<ULONG> tags = OtherTexts(engine.TagsOf(copy.RawProp()), CCrossingTags(copy));
    if (tags.empty()) return false;
    CMapiPropValues values;
    copy.GetProps(values, tags);
    for (ULONG i = 0; i < tags.size(); ++i)
        if (!IsEmptyText(values[i])) return true;
    return false;
}
}  // namespace

bool ShowsLabelAlone(CSyncFolder& engine, IMessagePtr& copy) {
    return IsLabelOrEmpty(ReadItemText(engine, copy)) && HangsNothingOn(copy) && !HasOtherTexts(engine, copy);
}

bool IsStrippedCopyOf(CSyncFolder& engine, IMessagePtr& copy, IMessagePtr& original) {
    const CCrossingTags theirs(copy), own(original);
    std::vector<ULONG> ofCopy, ofOriginal;
    for (size_t i = 0; i < kCrossings; ++i) {
        if (kCrossing[i].way == Way::OutOnly || kCrossing[i].way == Way::OutBare) continue;
        if (!theirs.At(i) != !own.At(i)) return false;
        if (!own.At(i)) continue;
        ofCopy.push_back(theirs.At(i));
        ofOriginal.push_back(own.At(i));
    }
    const auto bare = RecurrenceWithoutTexts(ReadBytes(original, own.Recurrence()));
    return HaveSameValues(copy, ofCopy, original, ofOriginal) &&
           bare.value_or("") == ReadBytes(copy, theirs.Recurrence()) && ShowsLabelAlone(engine, copy);
}

bool SayTheSame(CSyncFolder& engine, IMessagePtr& a, IMessagePtr& b) {
    const bool isCopy = engine.IsMarkedPrivate(a);
    if (isCopy == engine.IsMarkedPrivate(b)) return HaveSameContents(a, b);
    return isCopy ? IsStrippedCopyOf(engine, a, b) : IsStrippedCopyOf(engine, b, a);
}
