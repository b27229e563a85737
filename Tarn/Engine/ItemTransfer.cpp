#include <Tarn/Engine/ItemTransfer.h>
#include <Tarn/Engine/MessageComparison.h>
#include <Tarn/Engine/StrippedCopy.h>

#include <algorithm>
#include <vector>

namespace {
constexpr char AppointmentPrefix[] = "IPM.Appointment";
constexpr ULONG HtmlTextTag = PROP_TAG(PT_STRING8, 0x1013);
constexpr LONG LocationId = 0x8208;  // in PSETID_Appointment

// A cell that holds no value because there is none. Any other error is a failed read.
bool IsAbsent(const CMapiPropValue& cell, const IMessagePtr& message) {
    if (!cell.IsError()) return false;
    const HRESULT hr = cell.IsNull() ? MAPI_E_NOT_FOUND : cell.Get()->Value.err;
    if (hr == MAPI_E_NOT_FOUND) return true;
    throw CMAPIException(hr, "CGenMapiPropPtr::GetProps", message.RawProp());
}

enum FactCell : ULONG {
    FACT_SYNC_ID,
    FACT_CLASS,
    FACT_SENSITIVITY,
    FACT_SEARCH_KEY,
    FACT_CREATED,
    FACT_SUBJECT,
    FACT_MARK,
    FACT_PRIVATE,
};
}  // namespace

bool CItemFacts::IsAppointment() const {
    return messageClass.compare(0, sizeof AppointmentPrefix - 1, AppointmentPrefix) == 0;
}

bool CItemFacts::IsPrivateAppointment() const {
    return (sensitivity == static_cast<LONG>(SENSITIVITY_PRIVATE) || flaggedPrivate) && IsAppointment();
}

bool CItemFacts::IsWithheldAppointment() const {
    return (sensitivity != 0 || flaggedPrivate) && IsAppointment();
}

CItemFacts ReadItemFacts(CSyncFolder& engine, IMessagePtr& message) {
    const CSyncTags& tags = engine.TagsOf(message.RawProp());
    const CMapiPropValues values =
        message.GetProps({tags.larchId, PR_MESSAGE_CLASS_A, PR_SENSITIVITY, PR_SEARCH_KEY, PR_CREATION_TIME,
                          PR_SUBJECT_A, tags.privateMark, tags.privateFlag});

    CItemFacts facts;
    if (!IsAbsent(values[FACT_SYNC_ID], message)) facts.syncId = values[FACT_SYNC_ID].Str();
    if (!IsAbsent(values[FACT_CLASS], message)) facts.messageClass = values[FACT_CLASS].Str();
    if (!IsAbsent(values[FACT_SENSITIVITY], message)) facts.sensitivity = values[FACT_SENSITIVITY].Long();
    if (!IsAbsent(values[FACT_SEARCH_KEY], message)) facts.searchKey = values[FACT_SEARCH_KEY].Binary();
    facts.markedPrivate = !IsAbsent(values[FACT_MARK], message) && values[FACT_MARK].Long() == 1;
    facts.flaggedPrivate = !IsAbsent(values[FACT_PRIVATE], message) && values[FACT_PRIVATE].Bool();
    facts.hasCreated = values[FACT_CREATED].Type() == PT_SYSTIME;
    facts.created = values[FACT_CREATED].Time();
    // A subject that cannot be read is one.
    const CMapiPropValue subject = values[FACT_SUBJECT];
    facts.hasSubject = subject.IsError() ? subject.Get() && subject.Get()->Value.err != MAPI_E_NOT_FOUND
                                         : !subject.Str().empty();
    return facts;
}

IMessagePtr OpenMessage(const IMAPIFolderPtr& folder, const SBinary& entryId) {
    IMessagePtr message = folder.OpenEntryv(entryId, MAPI_BEST_ACCESS).As<IMessagePtr>();
    NotNull(message.Get(), "OpenMessage");
    return message;
}

IMessagePtr TryOpenMessage(const IMAPIFolderPtr& folder, const SBinary& entryId) {
    CComPtr<IUnknown> object;
    ULONG type = 0;
    if (folder->OpenEntry(entryId.cb, reinterpret_cast<LPENTRYID>(entryId.lpb), nullptr, MAPI_BEST_ACCESS,
                          &type, object.Out()) < 0 ||
        !object)
        return {};
    IMessagePtr message;
    void* other = nullptr;
    if (object->QueryInterface(IID_IMessage, &other) >= 0) message.Attach(static_cast<IMessage*>(other));
    message.SetText(folder.KnownText());
    return message;
}

HRESULT CopyContents(IMessagePtr& source, IMessagePtr& target, bool retry) {
    const HRESULT hr =
        source->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, target.Get(), 0, nullptr);
    if (hr >= 0 || !retry) return hr;
    return source->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMAPIProp,
                          static_cast<IMAPIProp*>(target.Get()), 0, nullptr);
}

namespace {
std::string ReadRtfOrThrow(const IMessagePtr& message) {
    try {
        return message.GetRtf();
    } catch (const CMAPIException& e) {
        if (e.Hr() != MAPI_E_NOT_FOUND) throw;
        return {};
    }
}

ULONG LocationTag(const IMessagePtr& message) {
    return message.GetIDFromName(SetAppointment, LocationId, PT_STRING8);
}

void RequireArrived(bool arrived, const char* part, const IMessagePtr& message) {
    if (!arrived) throw CMAPIException(MAPI_E_UNABLE_TO_COMPLETE, part, message.RawProp());
}

std::string JoinedTexts(const CMapiPropValue& value) {
    std::string all;
    if (value.Type() != PT_MV_STRING8) return all;
    const SLPSTRArray& texts = value.Get()->Value.MVszA;
    for (ULONG i = 0; i < texts.cValues; ++i)
        if (texts.lppszA[i]) all.append(texts.lppszA[i]).append("\n");
    return all;
}

// Alone, or behind the sender as in a subject. Stores end a body with a line of its own.
bool IsLabel(const std::string& text, const CItemText& item) {
    const std::string label = LoadText(TEXT_PRIVATE_LABEL);
    const std::string shown = text.substr(0, text.find_last_not_of("\r\n") + 1);
    return shown == label || shown == "[" + item.sender + "] " + label;
}

bool IsMissedPart(const std::string& old, const std::string& now, const CItemText& item) {
    return !old.empty() && old != now && !IsLabel(old, item);
}

// Parts that are other ones or gone; the label of an anonymised copy is nobody's text.
bool ShowsMore(const CItemText& old, const CItemText& now) {
    return IsMissedPart(old.subject, now.subject, old) || IsMissedPart(old.body, now.body, old) ||
           (IsMissedPart(old.rtf, now.rtf, old) && now.body.empty()) ||
           IsMissedPart(old.location, now.location, old) || IsMissedPart(old.links, now.links, old);
}

// Parts of which nothing is left.
bool LosesPart(const CItemText& old, const CItemText& now) {
    const auto gone = [](const std::string& before, const std::string& after) {
        return !before.empty() && after.empty();
    };
    return gone(old.subject, now.subject) || gone(old.body, now.body) || gone(old.rtf, now.rtf + now.body) ||
           gone(old.location, now.location) || gone(old.links, now.links);
}
}  // namespace

bool IsLabelOrEmpty(const CItemText& item) {
    return !ShowsMore(item, CItemText());
}

CItemText ReadItemText(CSyncFolder& engine, IMessagePtr& message) {
    const CSyncTags& tags = engine.TagsOf(message.RawProp());
    enum : ULONG { SUBJECT, BODY, HTML, SENSITIVITY, SENDER, MARK, LOCATION, LINKS };
    std::vector<ULONG> asked = {PR_SUBJECT_A,   PR_BODY_A,        HtmlTextTag,
                                PR_SENSITIVITY, PR_SENDER_NAME_A, tags.privateMark};
    // Names that the store does not know stand on no item of it.
    if (tags.location) asked.push_back(tags.location);
    if (tags.linkNames) asked.push_back(tags.linkNames);
    const CMapiPropValues values = message.GetProps(asked);
    const auto text = [&](ULONG cell) {
        const CMapiPropValue value = values[cell];
        if (value.IsError() && value.Get() && value.Get()->Value.err == MAPI_E_NOT_ENOUGH_MEMORY)
            return message.ReadText(asked[cell]);
        return IsAbsent(value, message) ? std::string() : value.Str();
    };
    CItemText item;
    item.subject = text(SUBJECT);
    item.body = text(BODY);
    if (item.body.empty()) item.body = text(HTML);
    if (item.body.empty()) item.rtf = ReadRtfOrThrow(message);
    if (!IsAbsent(values[SENSITIVITY], message)) item.sensitivity = values[SENSITIVITY].Long();
    item.sender = text(SENDER);
    item.markedPrivate = !IsAbsent(values[MARK], message) && values[MARK].Long() == 1;
    if (tags.location) item.location = text(LOCATION);
    if (tags.linkNames) {
        const CMapiPropValue links = values[tags.location ? LINKS : LOCATION];
        if (!IsAbsent(links, message)) item.links = JoinedTexts(links);
    }
    return item;
}

bool HasOtherText(CSyncFolder& engine, IMessagePtr& source, IMessagePtr& target) {
    return ShowsMore(ReadItemText(engine, target), ReadItemText(engine, source));
}

bool StripsCopy(const CSyncFolder& engine, const CItemFacts& facts) {
    return engine.m_stripPrivate && facts.IsWithheldAppointment();
}

void AnonymiseTarget(CSyncFolder& engine, const CItemFacts& facts, IMessagePtr& target, bool stripped) {
    engine.ModifyTarget(target);
    if (!stripped) return;
    if (!facts.IsPrivateAppointment()) target.SetLongProp(engine.TagsOf(target.RawProp()).privateMark, 1);
    RequireArrived(engine.IsMarkedPrivate(target), "CSyncFolder::ModifyTarget", target);
}

namespace {
void SetTime(IMessagePtr& message, ULONG tag, const FILETIME& time) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.ft = time;
    const HRESULT hr = message.SetOneProp(&value);
    if (hr != MAPI_E_COMPUTED) THROW_ON_FAILURE_FOR(hr, message.RawProp());  // some stores know it better
}

void SetTimes(IMessagePtr& message, const FILETIME& created, const FILETIME& modified) {
    SetTime(message, PR_CREATION_TIME, created);
    SetTime(message, PR_LAST_MODIFICATION_TIME, modified);
}
}  // namespace

CKeptVersion KeepVersion(CSyncFolder& engine, IMessagePtr& version) {
    if (!engine.m_overwriteFolder) throw CMAPIException(MAPI_E_NOT_FOUND, "KeepVersion", version.RawProp());
    const CMapiPropValues times = version.GetProps({PR_CREATION_TIME, PR_LAST_MODIFICATION_TIME});
    CKeptVersion kept;
    kept.created = times[0].Time();
    kept.modified = times[1].Time();
    IMessagePtr copy = engine.m_overwriteFolder.CreateMessage(nullptr, 0);
    THROW_ON_FAILURE_FOR(CopyContents(version, copy, true), version.RawProp());
    SetTimes(copy, kept.created, kept.modified);
    copy.SaveChanges(KEEP_OPEN_READWRITE);
    kept.item = CItemKey::OfItem(copy);
    return kept;
}

void RestoreVersion(CSyncFolder& engine, const IMAPIFolderPtr& folder, const CItemKeyView& item,
                    const CKeptVersion& kept) {
    IMessagePtr version = OpenMessage(engine.m_overwriteFolder, kept.item);
    const std::string syncId = ReadItemFacts(engine, version).syncId;
    IMessagePtr target = OpenMessage(folder, item);
    engine.RemoveContents(target);
    THROW_ON_FAILURE_FOR(CopyContents(version, target, true), version.RawProp());
    SetTimes(target, kept.created, kept.modified);
    if (!syncId.empty()) StampItem(engine, target, syncId);
    target.SaveChanges(KEEP_OPEN_READWRITE);
    engine.NoteSaved(target, item, syncId);
}

namespace {
bool IsChangedSince(const IMessagePtr& message, const FILETIME& seen) {
    if (seen.dwLowDateTime == 0 && seen.dwHighDateTime == 0) return false;  // a store that tells no times
    CMapiPropValue time;
    return message.GetOneProp(PR_LAST_MODIFICATION_TIME, time) < 0 ||
           CompareFileTimes(time.Time(), seen) != 0;
}
}  // namespace

namespace {
// The ways across take the text out of appointments alone. Of other items it is enough to look for one that
// stands there without anything, as a target does whose contents did not come.
bool WouldBeMissed(CSyncFolder& engine, const CItemFacts& facts, IMessagePtr& source, IMessagePtr& target,
                   bool withoutText) {
    if (facts.markedPrivate) return false;  // what the target shows stays there
    if (!facts.IsAppointment() && (facts.hasSubject || !source.GetBody().empty())) return false;
    const CItemText old = ReadItemText(engine, target);
    if (old.markedPrivate) return !ShowsLabelAlone(engine, target);
    const CItemText now = ReadItemText(engine, source);
    // Where texts do not travel, or the source is perhaps a copy whose text did not, what somebody wrote
    // over there was not written instead of what stands here.
    const bool mayBeStripped = engine.m_stripPrivate && (old.sensitivity != 0 || now.sensitivity != 0);
    return withoutText || mayBeStripped ? ShowsMore(old, now) : LosesPart(old, now);
}

// Text of a store that knows one code page alone, about to replace text with other letters.
bool LosesLetters(const IMessagePtr& source, const IMessagePtr& target) {
    if (source.Text() != TextForm::Narrow || target.Text() == TextForm::Narrow) return false;
    const auto loses = [](const std::string& text) { return !CanKeepText(text, TextForm::Narrow); };
    return loses(target.GetTitle()) || loses(target.GetBody()) ||
           loses(target.GetStrPropOrEmpty(LocationTag(target)));
}
}  // namespace

CSeenTarget::CSeenTarget(const CSyncFolder& engine, const CMapiRowSet& rows, ULONG row)
    : time(rows.Cell(row, COL_MODIFIED).Time()),
      isUncarried(engine.IsUncarried(rows.Cell(row, COL_SYNC_ID).Str())) {}

namespace {
// A run that was interrupted has carried edits that no memory tells of.
bool IsLoneEdit(CSyncFolder& engine, IMessagePtr& source, IMessagePtr& target, const CSeenTarget& seen) {
    return seen.isUncarried && !SayTheSame(engine, source, target);
}
}  // namespace

void KeepWhatMayBeMissed(CSyncFolder& engine, const CItemFacts& facts, IMessagePtr& source,
                         IMessagePtr& target, bool withoutText, const CSeenTarget* seen) {
    if (engine.MemoriesDiffer() ||
        (seen && (engine.MayHideAChange(seen->time) || IsChangedSince(target, seen->time) ||
                  IsLoneEdit(engine, source, target, *seen))) ||
        LosesLetters(source, target) || WouldBeMissed(engine, facts, source, target, withoutText))
        KeepVersion(engine, target);
}

bool HasEntryId(const IMessagePtr& message) {
    CMapiPropValue entryId;
    return message.GetOneProp(PR_ENTRYID, entryId) != MAPI_E_NOT_FOUND;
}

bool StampItem(CSyncFolder& engine, IMessagePtr& message, const std::string& syncId) {
    if (!engine.SetSyncID(message, syncId, false)) return false;
    engine.SetSyncID(message, syncId, false);
    return true;
}

void StampUnfinished(CSyncFolder& engine, IMessagePtr& copy, const IMAPIFolderPtr& folder,
                     const std::string& syncId, const CItemKeyView& original) {
    const CSyncTags& tags = engine.TagsOf(copy.RawProp());
    const CMapiBinary place = folder.GetBinProp(PR_ENTRYID);
    SPropValue stamp[3] = {};
    stamp[0].ulPropTag = tags.larchEid;
    stamp[0].Value.bin = original;
    stamp[1].ulPropTag = tags.larchParentEid;
    stamp[1].Value.bin = place;
    stamp[2].ulPropTag = tags.larchId;
    stamp[2].Value.lpszA = const_cast<char*>(syncId.c_str());
    THROW_ON_FAILURE_FOR(copy.SetPropsHr(stamp, 3), copy.RawProp());
}

void RequirePlaceForOld(const CSyncFolder& engine, const IMAPIFolderPtr& folder) {
    if (!engine.m_overwriteFolder)
        throw CMAPIException(MAPI_E_UNABLE_TO_COMPLETE, "RequirePlaceForOld", folder.RawProp());
}

bool IsGone(HRESULT hr) {
    return hr == MAPI_E_OBJECT_DELETED || hr == MAPI_E_NOT_FOUND;
}

// A move that fails leaves a second item beside its new version for good, so one refusal is not the last
// word.
bool MoveAside(const IMAPIFolderPtr& folder, const CItemKeyView& item,
               const IMAPIFolderPtr& overwriteFolder) {
    if (!overwriteFolder) return false;
    SBinary entry = item;
    ENTRYLIST list = {1, &entry};
    for (int attempt = 0; attempt < 2; ++attempt)
        if (folder->CopyMessages(&list, nullptr, overwriteFolder.Get(), 0, nullptr, MESSAGE_MOVE) == S_OK)
            return true;
    return false;
}
