#include <Tarn/Engine/ItemTransfer.h>
#include <Tarn/Engine/MessageComparison.h>

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

void PutLinksBack(IMessagePtr& message, const CContactLinks& links) {
    CContactLinks arrived;
    if (links.empty()) ReadContactLinks(arrived, message);
    if (!links.empty() || !arrived.empty()) WriteContactLinks(links, message);
}

enum FactCell : ULONG {
    FACT_SYNC_ID,
    FACT_CLASS,
    FACT_SENSITIVITY,
    FACT_SEARCH_KEY,
    FACT_CREATED,
    FACT_SUBJECT,
    FACT_MARK,
};
}  // namespace

bool CItemFacts::IsAppointment() const {
    return messageClass.compare(0, sizeof AppointmentPrefix - 1, AppointmentPrefix) == 0;
}

bool CItemFacts::IsPrivateAppointment() const {
    return sensitivity == static_cast<LONG>(SENSITIVITY_PRIVATE) && IsAppointment();
}

CItemFacts ReadItemFacts(CSyncFolder& engine, IMessagePtr& message) {
    const CSyncTags& tags = engine.TagsOf(message.RawProp());
    const CMapiPropValues values =
        message.GetProps({tags.larchId, PR_MESSAGE_CLASS_A, PR_SENSITIVITY, PR_SEARCH_KEY, PR_CREATION_TIME,
                          PR_SUBJECT_A, tags.privateMark});

    CItemFacts facts;
    if (!IsAbsent(values[FACT_SYNC_ID], message)) facts.syncId = values[FACT_SYNC_ID].Str();
    if (!IsAbsent(values[FACT_CLASS], message)) facts.messageClass = values[FACT_CLASS].Str();
    if (!IsAbsent(values[FACT_SENSITIVITY], message)) facts.sensitivity = values[FACT_SENSITIVITY].Long();
    if (!IsAbsent(values[FACT_SEARCH_KEY], message)) facts.searchKey = values[FACT_SEARCH_KEY].Binary();
    facts.markedPrivate = !IsAbsent(values[FACT_MARK], message) && values[FACT_MARK].Long() == 1;
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
    return message;
}

SPropTagArray* ExcludeBodyTags() {
    static SizedSPropTagArray(9, tags) = {
        9,
        {PR_BODY_A, PR_RTF_COMPRESSED, PR_RTF_IN_SYNC, PR_RTF_SYNC_BODY_COUNT, PR_RTF_SYNC_BODY_CRC,
         PR_RTF_SYNC_PREFIX_COUNT, PR_RTF_SYNC_TRAILING_COUNT, HtmlTextTag, PR_SUBJECT_A}};
    return reinterpret_cast<SPropTagArray*>(&tags);
}

HRESULT CopyContents(IMessagePtr& source, IMessagePtr& target, bool withoutText, bool retry) {
    SPropTagArray* exclude = withoutText ? ExcludeBodyTags() : nullptr;
    const HRESULT hr =
        source->CopyTo(0, nullptr, exclude, 0, nullptr, &IID_IMessage, target.Get(), 0, nullptr);
    if (hr >= 0 || !retry) return hr;
    return source->CopyTo(0, nullptr, exclude, 0, nullptr, &IID_IMAPIProp,
                          static_cast<IMAPIProp*>(target.Get()), 0, nullptr);
}

namespace {
// A text property in full. Absent gives the empty text; a read that fails throws.
std::string ReadTextOrThrow(const IMessagePtr& message, ULONG tag) {
    CMapiPropValue value;
    const HRESULT hr = message.GetOneProp(tag, value);
    if (hr == MAPI_E_NOT_FOUND) return {};
    if (hr >= 0) return value.Str();
    if (hr != MAPI_E_NOT_ENOUGH_MEMORY) THROW_ON_FAILURE_FOR(hr, message.RawProp());
    // Too long for a single value.
    std::string text = message.GetLongText(tag);
    if (text.empty()) throw CMAPIException(hr, "IMessagePtr::GetLongText", message.RawProp());
    return text;
}

std::string ReadRtfOrThrow(const IMessagePtr& message) {
    try {
        return message.GetRtf();
    } catch (const CMAPIException& e) {
        if (e.Hr() != MAPI_E_NOT_FOUND) throw;
        return {};
    }
}

std::string ReadSubjectOrThrow(const IMessagePtr& message) {
    std::string subject = ReadTextOrThrow(message, PR_SUBJECT_A);
    return subject.empty() ? ReadTextOrThrow(message, PR_DISPLAY_NAME_A) : subject;
}

ULONG LocationTag(const IMessagePtr& message) {
    return message.GetIDFromName(SetAppointment, LocationId, PT_STRING8);
}

void RequireArrived(bool arrived, const char* part, const IMessagePtr& message) {
    if (!arrived) throw CMAPIException(MAPI_E_UNABLE_TO_COMPLETE, part, message.RawProp());
}

void PutRtfBack(IMessagePtr& message, const std::string& rtf) {
    if (rtf.empty()) return;
    message.SetRtf(rtf, true);
    // SetRtf is silent where the stream does not open.
    RequireArrived(!message.GetRtf().empty(), "IMessagePtr::SetRtf", message);
}
}  // namespace

CKeptText ReadKeptText(IMessagePtr& message, KeptParts parts) {
    CKeptText kept;
    kept.body = message.GetBody();
    if (kept.body.empty()) kept.body = ReadTextOrThrow(message, PR_BODY_A);
    kept.rtf = ReadRtfOrThrow(message);
    if (kept.rtf.empty()) kept.html = ReadTextOrThrow(message, HtmlTextTag);
    kept.subject = ReadSubjectOrThrow(message);
    if (parts == KeptParts::TextLocationAndLinks) {
        ReadContactLinks(kept.links, message);
        kept.location = ReadTextOrThrow(message, LocationTag(message));
    }
    return kept;
}

void PutKeptTextBack(IMessagePtr& message, const CKeptText& kept, KeptParts parts) {
    const bool all = parts == KeptParts::TextLocationAndLinks;
    if (all) message.SetStrProp(LocationTag(message), kept.location);
    message.SetStrProp(PR_DISPLAY_NAME_A, kept.subject);
    message.SetStrProp(PR_SUBJECT_A, kept.subject);
    message.SetBody(kept.body);
    RequireArrived(kept.body.empty() || !message.GetBody().empty(), "IMessagePtr::SetBody", message);
    if (all) PutLinksBack(message, kept.links);
    message.SetNamedValue(L"TarnPriv", PT_LONG, 0);
    PutRtfBack(message, kept.rtf);
    if (!kept.html.empty()) message.WriteStream(HtmlTextTag, kept.html);
}

void AnonymiseTarget(CSyncFolder& engine, const CItemFacts& facts, IMessagePtr& target) {
    engine.ModifyTarget(target);
    if (engine.m_stripPrivate && facts.IsPrivateAppointment())
        RequireArrived(engine.IsMarkedPrivate(target), "CSyncFolder::ModifyTarget", target);
}

namespace {
void SetTimes(IMessagePtr& message, const FILETIME& created, const FILETIME& modified) {
    message.SetProp(PR_CREATION_TIME, created);
    message.SetProp(PR_LAST_MODIFICATION_TIME, modified);
}
}  // namespace

CKeptVersion KeepVersion(CSyncFolder& engine, IMessagePtr& version) {
    if (!engine.m_overwriteFolder) throw CMAPIException(MAPI_E_NOT_FOUND, "KeepVersion", version.RawProp());
    const CMapiPropValues times = version.GetProps({PR_CREATION_TIME, PR_LAST_MODIFICATION_TIME});
    CKeptVersion kept;
    kept.created = times[0].Time();
    kept.modified = times[1].Time();
    IMessagePtr copy = engine.m_overwriteFolder.CreateMessage(nullptr, 0);
    THROW_ON_FAILURE_FOR(CopyContents(version, copy, false, true), version.RawProp());
    SetTimes(copy, kept.created, kept.modified);
    copy.SaveChanges(KEEP_OPEN_READWRITE);
    kept.entryId = copy.GetBinProp(PR_ENTRYID);
    return kept;
}

void RestoreVersion(CSyncFolder& engine, const IMAPIFolderPtr& folder, const SBinary& entryId,
                    const CKeptVersion& kept) {
    IMessagePtr version = OpenMessage(engine.m_overwriteFolder, kept.entryId);
    const std::string syncId = ReadItemFacts(engine, version).syncId;
    IMessagePtr target = OpenMessage(folder, entryId);
    engine.RemoveContents(target);
    THROW_ON_FAILURE_FOR(CopyContents(version, target, false, true), version.RawProp());
    SetTimes(target, kept.created, kept.modified);
    if (!syncId.empty()) StampItem(engine, target, syncId);
    target.SaveChanges(KEEP_OPEN_READWRITE);
    engine.NoteSaved(target, entryId, syncId);
}

namespace {
bool IsChangedSince(const IMessagePtr& message, const FILETIME& seen) {
    if (seen.dwLowDateTime == 0 && seen.dwHighDateTime == 0) return false;  // a store that tells no times
    CMapiPropValue time;
    return message.GetOneProp(PR_LAST_MODIFICATION_TIME, time) < 0 ||
           CompareFileTimes(time.Time(), seen) != 0;
}
}  // namespace

void KeepWhatMayBeMissed(CSyncFolder& engine, const CItemFacts& facts, IMessagePtr& source,
                         IMessagePtr& target, const FILETIME* seen) {
    if (engine.MemoriesDiffer() || (seen && IsChangedSince(target, *seen))) {
        KeepVersion(engine, target);
        return;
    }
    if (facts.hasSubject || !source.GetBody().empty()) return;
    CMapiPropValue subject;
    const HRESULT hr = target.GetOneProp(PR_SUBJECT_A, subject);
    const bool hasSubject = hr >= 0 ? !subject.Str().empty() : hr != MAPI_E_NOT_FOUND;
    if (hasSubject || !target.GetBody().empty()) KeepVersion(engine, target);
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

// A move that fails leaves a second item beside its new version for good, so one refusal is not the last
// word.
bool MoveAside(const IMAPIFolderPtr& folder, const SBinary& entryId, const IMAPIFolderPtr& overwriteFolder) {
    if (!overwriteFolder) return false;
    SBinary entry = entryId;
    ENTRYLIST list = {1, &entry};
    for (int attempt = 0; attempt < 2; ++attempt)
        if (folder->CopyMessages(&list, nullptr, overwriteFolder.Get(), 0, nullptr, MESSAGE_MOVE) == S_OK)
            return true;
    return false;
}
