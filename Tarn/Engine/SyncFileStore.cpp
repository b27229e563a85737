// Hidden messages of a folder, and the sync files that lie in them.
#include <MapiWrapper/StreamTools.h>
#include <MapiWrapper/TagArray.h>
#include <Platform/Clock.h>
#include <Platform/Machine.h>
#include <Tarn/Engine/syncfolder.h>
#include <Tools/MessageTools.h>

namespace {
constexpr char ConfigClass[] = "IPM.Vellum.IDs";
constexpr char SettingsClass[] = "IPM.VellumSettings";
constexpr char SyncFileName[] = "SYNCFILE";
constexpr wchar_t UncarriedName[] = L"VellumUncarried";  // sync IDs, each with a zero byte behind it
constexpr wchar_t MarkName[] = L"VellumMark";            // zero: the target's store bears none
constexpr ULONG cbBehindStat = 4096;  // a stream that grows while it is read does so by little
constexpr char Rule[] = "----------------------------------------------------------------";

std::string SubjectOf(const char* name) {
    return std::string(name) + '.' + ComputerName();
}

// One property that must be there with this value. Some stores take what is absent for equal.
class CValueRestriction {
public:
    explicit CValueRestriction(const SPropValue& value) : m_value(value) {
        m_parts[0].rt = RES_EXIST;
        m_parts[0].res.resExist.ulPropTag = value.ulPropTag;
        m_parts[1].rt = RES_PROPERTY;
        m_parts[1].res.resProperty = {RELOP_EQ, value.ulPropTag, &m_value};
        m_restriction.rt = RES_AND;
        m_restriction.res.resAnd = {2, m_parts};
    }
    CValueRestriction(const CValueRestriction&) = delete;
    CValueRestriction& operator=(const CValueRestriction&) = delete;
    SRestriction* Get() { return &m_restriction; }

private:
    SPropValue m_value;
    SRestriction m_parts[2] = {};
    SRestriction m_restriction{};
};

// Both view what they are given.
SPropValue ValueOf(ULONG tag, const std::string& text) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.lpszA = const_cast<char*>(text.c_str());
    return value;
}

SPropValue KeyValueOf(ULONG tag, const std::string& bytes) {
    SPropValue value{};
    value.ulPropTag = tag;
    value.Value.bin = {static_cast<ULONG>(bytes.size()),
                       reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()))};
    return value;
}

// Whose memory a hidden message is: that of the pair with this target, or of no pair in particular.
enum class Owner { ThisPair, Nobody, Anybody };

// S_OK with the table standing on the row, MAPI_E_NOT_FOUND, or the store's code after a second try.
HRESULT FindHidden(const IMAPITablePtr& table, const std::string& subject, const std::string& messageClass,
                   Owner owner, ULONG ownerTag, const std::string& ownerKey) {
    CValueRestriction ofSubject(ValueOf(PR_SUBJECT_A, subject));
    CValueRestriction ofClass(ValueOf(PR_MESSAGE_CLASS_A, messageClass));
    CValueRestriction ofOwner(KeyValueOf(ownerTag, ownerKey));
    SRestriction parts[3] = {*ofSubject.Get(), *ofClass.Get(), {}};
    SRestriction exists{};
    exists.rt = RES_EXIST;
    exists.res.resExist.ulPropTag = ownerTag;
    if (owner == Owner::ThisPair) {
        parts[2] = *ofOwner.Get();
    } else {
        parts[2].rt = RES_NOT;
        parts[2].res.resNot.lpRes = &exists;
    }
    SRestriction all{};
    all.rt = RES_AND;
    all.res.resAnd = {owner == Owner::Anybody ? 2u : 3u, parts};
    const HRESULT hr = table.FindRow(&all, BOOKMARK_BEGINNING);
    if (hr >= 0 || hr == MAPI_E_NOT_FOUND) return hr;
    return table.FindRow(&all, BOOKMARK_BEGINNING);
}

IMessagePtr CreateHidden(const IMAPIFolderPtr& folder, const std::string& subject,
                         const std::string& messageClass) {
    IMessagePtr message = folder.CreateMessage(nullptr, MAPI_ASSOCIATED);
    if (!subject.empty()) message.SetStrProp(PR_SUBJECT_A, subject);
    message.SetStrProp(PR_MESSAGE_CLASS_A, messageClass);
    return message;
}

SSortOrderSet NewestFirst() {
    SSortOrderSet order{};
    order.cSorts = 1;
    order.aSort[0] = {PR_LAST_MODIFICATION_TIME, TABLE_SORT_DESCEND};
    return order;
}
}  // namespace

// --- hidden messages -----------------------------------------------------------------------------

// Two pairs may have the same source folder, and their memories then lie side by side in it. To take one
// for the other would show every item of one target as deleted from the other. A message without an
// owner was written before there were owners; the first pair that comes takes it over.
HRESULT CSyncFolder::FindConfigRow(const IMAPIFolderPtr& folder, const IMAPITablePtr& table,
                                   const std::string& subject, const std::string& messageClass) {
    if (m_pairKey.empty()) return FindHidden(table, subject, messageClass, Owner::Anybody, 0, m_pairKey);
    const ULONG ownerTag = TagsOf(folder.RawProp()).pairKey;
    const HRESULT hr = FindHidden(table, subject, messageClass, Owner::ThisPair, ownerTag, m_pairKey);
    if (hr != MAPI_E_NOT_FOUND || !m_takesNobodys) return hr;
    return FindHidden(table, subject, messageClass, Owner::Nobody, ownerTag, m_pairKey);
}

// The store by its record key and the folder by the end of its entry ID: the front of an entry ID may
// change from one open of a store to the next.
std::string CSyncFolder::PairKeyOf(const IMAPIFolderPtr& folder) {
    constexpr ULONG cbFront = 20;
    if (!folder) return {};
    const CMapiPropValues values = folder.GetProps({PR_STORE_RECORD_KEY, PR_ENTRYID});
    const SBinary store = values[0].Binary();
    const SBinary id = values[1].Binary();
    if (store.cb == 0 || id.cb <= cbFront) return {};
    std::string key(reinterpret_cast<const char*>(store.lpb), store.cb);
    return key.append(reinterpret_cast<const char*>(id.lpb) + cbFront, id.cb - cbFront);
}

void CSyncFolder::SetPairTarget(const IMAPIFolderPtr& targetFolder) {
    m_pairKey.clear();
    m_pairKey = PairKeyOf(targetFolder);
}

IMessagePtr CSyncFolder::OpenConfigMessage(const IMAPIFolderPtr& folder, const std::string& subject,
                                           const std::string& messageClass, bool create) {
    const IMAPITablePtr table = folder._rawAssociatedTable();
    TraceText(m_traceFile, "In Opening config message");
    const HRESULT found = FindConfigRow(folder, table, subject, messageClass);
    // A search that failed says nothing about what is there. A second message of the same subject
    // would hide the first one's state from later runs, and a memory that is there is not to be overlooked.
    if (found != MAPI_E_NOT_FOUND) THROW_ON_FAILURE_FOR(found, table.Get());
    if (found < 0) {
        TraceText(m_traceFile, "Config message not found (probably this is first sync)");
        if (!create) return {};
        TraceText(m_traceFile, "Creating config messages");
        return CreateHidden(folder, subject, messageClass);
    }
    CMapiRowSet row;
    THROW_ON_FAILURE_FOR(table.SetColumnsAndQuery(row, 1, 0, {PR_ENTRYID}), table.Get());
    TraceText(m_traceFile, "Config message found");
    IMessagePtr message = folder.OpenEntryv(row.Cell(0, 0)).As<IMessagePtr>();
    TraceText(m_traceFile, "Config message opened");
    return message;
}

IMessagePtr CSyncFolder::GetConfigMsg(const IMAPIFolderPtr& folder) {
    try {
        const IMAPITablePtr table = folder._rawAssociatedTable();
        const std::string settingsClass = SettingsClass;
        CValueRestriction ofClass(ValueOf(PR_MESSAGE_CLASS_A, settingsClass));
        table.Restrict(ofClass.Get(), TBL_BATCH);
        const CMapiRowSet rows = table.QueryRows({PR_ENTRYID});
        if (rows.Count() > 0) return folder.OpenEntryv(rows.Cell(0, 0)).As<IMessagePtr>();
        return CreateHidden(folder, {}, SettingsClass);
    } catch (const CMAPIException& e) {
        ++m_outcome.phasesFailed;
        ReportException(e, "GetConfigMsg");
        return {};
    }
}

// --- reading -------------------------------------------------------------------------------------

void CSyncFolder::ReadSyncFiles(const IMAPIFolderPtr& sourceFolder, const IMAPIFolderPtr& targetFolder) {
    m_sourceData.Clear();
    m_targetData.Clear();
    m_sourceRun = m_targetRun = m_rememberedMark = {};
    m_sourceUncarried.clear();
    m_targetUncarried.clear();
    m_foundMemory = false;
    const HRESULT ofSource = ReadSyncFile(sourceFolder, "SourceID", m_sourceData, &m_sourceSyncTime);
    const HRESULT ofTarget = ReadSyncFile(sourceFolder, "TargetID", m_targetData, &m_targetSyncTime);
    if (!m_foundMemory && ofSource >= 0 && ofTarget >= 0 && targetFolder && !m_pairKey.empty())
        ReadSwappedSyncFiles(sourceFolder, targetFolder);
    m_hasNoMemory = !m_foundMemory && ofSource >= 0 && ofTarget >= 0;
    if (!IsTracing()) return;
    TraceText(m_traceFile, Rule);
    TraceText(m_traceFile, "-- Synchonization                                             --\n");
    TraceText(m_traceFile, Rule);
    TraceSyncFile("Source", m_sourceData);
    TraceSyncFile("Target", m_targetData);
}

// The folder is made by one run and met under its name by the next, as part of the tree; without a memory
// each of its items would count as changed on both sides.
void CSyncFolder::ReadSwappedSyncFiles(const IMAPIFolderPtr& sourceFolder,
                                       const IMAPIFolderPtr& targetFolder) {
    const std::string pairKey = m_pairKey;
    m_takesNobodys = false;
    try {
        SetPairTarget(sourceFolder);
        if (!m_pairKey.empty()) {
            ReadSyncFile(targetFolder, "SourceID", m_targetData, &m_targetSyncTime);
            ReadSyncFile(targetFolder, "TargetID", m_sourceData, &m_sourceSyncTime);
            std::swap(m_sourceRun, m_targetRun);
            std::swap(m_sourceUncarried, m_targetUncarried);
            m_rememberedMark = {};  // that of the other store
        }
    } catch (const CMAPIException& e) {
        NoteException(e, "CSyncFolder::ReadSyncFiles");
        ++m_outcome.phasesFailed;
    }
    m_takesNobodys = true;
    m_pairKey = pairKey;
}

namespace {
void TraceFolderName(FILE* traceFile, const IMAPIFolderPtr& folder) {
    if (!IsTraceActive(traceFile)) return;
    try {
        TraceFormat(traceFile, "Reading sync file from folder %s\n",
                    folder.GetStrProp(PR_DISPLAY_NAME_A).c_str());
    } catch (const CMAPIException&) {
        TraceText(traceFile, "Error getting name from folder\n");
    }
}

void ReadSyncTime(const IMessagePtr& message, FILETIME& syncTime) {
    const ULONG tag = NamedTag(message.RawProp(), L"SyncTime", PT_SYSTIME, true);
    CMapiPropValue value;
    syncTime = {};
    if (HrGetOneProp(message.Get(), tag, value.Out()) >= 0) syncTime = value.Time();
}

FILETIME ReadRunTime(const IMessagePtr& message, ULONG tag) {
    CMapiPropValue value;
    return message.GetOneProp(tag, value) >= 0 ? value.Time() : FILETIME{};
}

// The whole stream in as few reads as it takes; what stands in it is judged by the parser. After a failure
// `bytes` holds what came before it.
HRESULT ReadWholeStream(IStream* stream, std::string& bytes) {
    STATSTG stat{};
    HRESULT hr = stream->Stat(&stat, STATFLAG_NONAME);
    if (hr < 0) return hr;
    if (stat.cbSize.QuadPart > kStreamLimit) return MAPI_E_TOO_BIG;
    bytes.resize(static_cast<size_t>(stat.cbSize.QuadPart));
    size_t done = 0;
    while (done < bytes.size()) {
        const auto left = static_cast<ULONG>(bytes.size() - done);
        ULONG read = 0;
        hr = stream->Read(bytes.data() + done, left, &read);
        if (hr < 0 || read == 0 || read > left) break;
        done += read;
    }
    bytes.resize(done);
    return hr < 0 ? hr : ReadToEnd(stream, bytes, cbBehindStat);
}

ULONG TagOfUncarried(const IMessagePtr& message) {
    return NamedTag(message.RawProp(), UncarriedName, PT_BINARY, true);
}

void ReadUncarried(const IMessagePtr& message, CSyncFolder::CSyncIds& syncIds) {
    syncIds.clear();
    CComPtr<IStream> stream;
    const HRESULT opened = message.OpenStream(TagOfUncarried(message), 0, 0, stream);
    if (opened == MAPI_E_NOT_FOUND) return;
    THROW_ON_FAILURE_FOR(opened, message.RawProp());
    std::string bytes;
    THROW_ON_FAILURE_FOR(ReadWholeStream(stream.Get(), bytes), message.RawProp());
    for (size_t begin = 0, end; (end = bytes.find('\0', begin)) != std::string::npos; begin = end + 1)
        syncIds.emplace(bytes, begin, end - begin);
}
}  // namespace

// A sync file that cannot be read makes everything look as on the first day, which costs the run what it
// knows of deletions. So a failure that passes is not taken for an answer.
HRESULT CSyncFolder::ReadSyncFile(const IMAPIFolderPtr& folder, const char* name, CSyncFileMap& syncData,
                                  FILETIME* syncTime) {
    syncData.Clear();
    if (!folder) return S_OK;
    try {
        const HRESULT hr = ReadSyncFileOnce(folder, name, syncData, syncTime);
        if (hr >= 0) return hr;
    } catch (...) {
        ServerTraceWrite(m_traceFile, "Error reading sync file, second try, Line %d\n",
                         CurrentPosition().line);
    }
    syncData.Clear();
    try {
        const HRESULT hr = ReadSyncFileOnce(folder, name, syncData, syncTime);
        if (hr < 0) ++m_outcome.phasesFailed;
        return hr;
    } catch (const CMAPIException& e) {
        ServerTraceWrite(m_traceFile, "Error %s reading sync file (Line %d)\n", e.GetErrorText().c_str(),
                         CurrentPosition().line);
        ReportException(e, "ReadSyncFile");
        ++m_outcome.phasesFailed;
        return e.Hr();
    } catch (...) {
        ServerTraceWrite(m_traceFile, "Fatal error reading sync file, Line %d\n", CurrentPosition().line);
        ++m_outcome.phasesFailed;
        return E_FAIL;
    }
}

HRESULT CSyncFolder::ReadSyncFileOnce(const IMAPIFolderPtr& folder, const char* name, CSyncFileMap& syncData,
                                      FILETIME* syncTime) {
    MARK_POSITION();
    TraceFolderName(m_traceFile, folder);
    MARK_POSITION();
    const IMessagePtr message = OpenConfigMessage(folder, SubjectOf(name), ConfigClass, false);
    TraceText(m_traceFile, "OpenConfig Message returned");
    if (!message) {
        ServerTraceWrite(m_traceFile, "Config message could not be opened, Error line %d\n", __LINE__);
        return S_OK;
    }
    TraceText(m_traceFile, "OpenConfigMessage is != NULL");
    m_foundMemory = true;
    MARK_POSITION();
    if (syncTime) ReadSyncTime(message, *syncTime);
    RunOf(name) = ReadRunTime(message, TagsOf(message.RawProp()).runTime);
    if (&RunOf(name) == &m_targetRun)
        m_rememberedMark = ReadRunTime(message, NamedTag(message.RawProp(), MarkName, PT_SYSTIME, true));
    MARK_POSITION();
    ReadUncarried(message, UncarriedOf(name));
    return ReadSyncAttachment(message, syncData);
}

FILETIME& CSyncFolder::RunOf(const char* name) {
    return std::string_view(name) == "SourceID" ? m_sourceRun : m_targetRun;
}

CSyncFolder::CSyncIds& CSyncFolder::UncarriedOf(const char* name) {
    return std::string_view(name) == "SourceID" ? m_sourceUncarried : m_targetUncarried;
}

HRESULT CSyncFolder::ReadSyncAttachment(const IMessagePtr& message, CSyncFileMap& syncData) {
    IAttachPtr attachment;
    FindAttachment(message, SyncFileName, attachment, false);
    if (!attachment) {
        ServerTraceWrite(m_traceFile, "Error opening sync file message Error code %s\n",
                         ErrorName(MAPI_E_NOT_FOUND).c_str());
        return MAPI_E_NOT_FOUND;
    }
    MARK_POSITION();
    CComPtr<IStream> stream;
    HRESULT hr = attachment.OpenStream(PR_ATTACH_DATA_BIN, 0, 0, stream);
    if (hr < 0) {
        ServerTraceWrite(m_traceFile, "Error %s Opening property\n", ErrorName(hr).c_str());
        return hr;
    }
    MARK_POSITION();
    std::string bytes;
    hr = ReadWholeStream(stream.Get(), bytes);
    if (hr < 0) ServerTraceWrite(m_traceFile, "Error %s Reading sync file message\n", ErrorName(hr).c_str());
    MARK_POSITION();
    std::uint32_t announced = 0;
    const bool whole = syncData.Parse(std::move(bytes), announced);
    ServerTraceWrite(m_traceFile, "Reading %d elements\n", static_cast<int>(announced));
    if (IsTracing()) ServerTraceWrite(m_traceFile, "%d Elements read\n", static_cast<int>(syncData.Count()));
    if (hr < 0) return hr;
    return whole ? S_OK : MAPI_E_CORRUPT_DATA;
}

// --- writing -------------------------------------------------------------------------------------

namespace {
// When the files were last written. Nothing reads it during a run, so a store that refuses is no reason
// to stop.
void StampWriteTime(const IMAPIFolderPtr& folder) {
    try {
        SPropValue value{};
        value.ulPropTag = NamedTag(folder.RawProp(), L"VellumTime", PT_SYSTIME, false);
        value.Value.ft = UtcNow();
        HrSetOneProp(folder.Get(), &value);
    } catch (const CMAPIException&) {
    }
}

void DropProp(const CGenMapiPropPtr& object, ULONG tag) {
    CTagArray data({tag});
    THROW_ON_FAILURE_FOR(object.RawProp()->DeleteProps(data.Get(), nullptr), object.RawProp());
}

void WriteStream(const CGenMapiPropPtr& object, ULONG tag, const std::string& bytes) {
    DropProp(object, tag);
    CComPtr<IStream> stream;
    THROW_ON_FAILURE_FOR(object.OpenStream(tag, STGM_WRITE | STGM_CREATE, MAPI_CREATE | MAPI_MODIFY, stream),
                         object.RawProp());
    THROW_ON_FAILURE(WriteAll(stream.Get(), bytes.data(), static_cast<ULONG>(bytes.size()),
                              static_cast<ULONG>(bytes.size())));
    THROW_ON_FAILURE(stream->Commit(0));
}

// What the target holds is remembered in the store of the source, where the names of private items have no
// place. People see them at a deletion alone, which finds the name in the item that is to go.
std::string WithoutNames(const std::string& bytes) {
    CSyncFileMap entries;
    std::uint32_t announced = 0;
    entries.Parse(bytes, announced);
    const std::vector<CSyncFileEntry*> all = entries.InKeyOrder();
    CSyncFileWriter writer(static_cast<std::uint32_t>(all.size()));
    for (const CSyncFileEntry* entry : all)
        writer.Add(entry->Identifier(), entry->time, entry->SyncId(), "");
    return writer.TakeBytes();
}

void WriteUncarried(const IMessagePtr& message, const CSyncFolder::CSyncIds& syncIds) {
    const ULONG tag = TagOfUncarried(message);
    if (syncIds.empty()) return DropProp(message, tag);
    std::string bytes;
    for (const std::string& syncId : syncIds)
        bytes.append(syncId.c_str(), syncId.size() + 1);
    WriteStream(message, tag, bytes);
}
}  // namespace

// Nothing would be remembered for one refusal.
void CSyncFolder::NamePairTarget(const IMAPIFolderPtr& targetFolder) {
    try {
        SetPairTarget(targetFolder);
    } catch (const CMAPIException&) {
        SetPairTarget(targetFolder);
    }
}

void CSyncFolder::WriteSyncFiles(const IMAPIFolderPtr& sourceFolder, const IMAPIFolderPtr& targetFolder,
                                 bool writeSource, bool writeTarget) {
    try {
        StampWriteTime(sourceFolder);
        NamePairTarget(targetFolder);
        if (TicksOf(m_thisRun) == 0) m_thisRun = UtcNow();
        if (m_progress) m_progress->SetMessageText(LoadText(TEXT_WRITING_SOURCE_STATE));
        if (writeSource) WriteSyncFile(sourceFolder, sourceFolder, "SourceID", m_lastSyncSource);
        if (m_progress) m_progress->SetMessageText(LoadText(TEXT_WRITING_TARGET_STATE));
        if (targetFolder && writeTarget)
            WriteSyncFile(targetFolder, sourceFolder, "TargetID", m_lastSyncTarget);
    } catch (const CMAPIException& e) {
        NoteException(e, "CSyncFolder::WriteSyncFiles");
        ++m_outcome.phasesFailed;
    }
}

// What stands in the folder now, but for what others have done since the run looked at it.
CSyncFileImage CSyncFolder::ReadImage(const IMAPIFolderPtr& folder, CSeenRows* seen) {
    const IMAPITablePtr table = folder._rawContentsTable();
    ApplyTableFilter(folder, table, nullptr, false);
    SSortOrderSet order = NewestFirst();
    THROW_ON_FAILURE_FOR(table->SortTable(&order, TBL_BATCH), table.Get());
    const ULONG syncIdTag = TagsOf(folder.RawProp()).larchId;
    return ImageOfFolder(table.QueryRows(FileColumns(syncIdTag)), syncIdTag, seen);
}

void CSyncFolder::WriteSyncFile(const IMAPIFolderPtr& folder, const IMAPIFolderPtr& configFolder,
                                const char* name, const FILETIME&) {
    // With one side's file new and the other's old, the next run would take what this one wrote for
    // changes by a person. So it is worth a second try.
    try {
        WriteSyncFileOnce(folder, configFolder, name);
        return;
    } catch (const CMAPIException& e) {
        NoteException(e, "CSyncFolder::WriteSyncFile");
    }
    try {
        WriteSyncFileOnce(folder, configFolder, name);
    } catch (const CMAPIException& e) {
        NoteException(e, "CSyncFolder::WriteSyncFile");
        ++m_outcome.phasesFailed;
    }
}

// Up to the last save nothing of the old file is lost: the stream, the attachment and the message
// become visible together.
void CSyncFolder::WriteSyncFileOnce(const IMAPIFolderPtr& folder, const IMAPIFolderPtr& configFolder,
                                    const char* name) {
    MARK_POSITION();
    IMessagePtr message =
        OpenConfigMessage(configFolder ? configFolder : folder, SubjectOf(name), ConfigClass, true);
    NotNull(message.Get(), "CSyncFolder::WriteSyncFile");
    MARK_POSITION();
    IAttachPtr attachment;
    FindAttachment(message, SyncFileName, attachment, true);
    if (!attachment) throw CMAPIException(MAPI_E_NOT_FOUND, "CSyncFolder::WriteSyncFile", nullptr);
    attachment.SetStrProp(PR_ATTACH_FILENAME_A, SyncFileName);
    MARK_POSITION();
    const bool ofSource = std::string_view(name) == "SourceID";
    CSideMemory* const side = ofSource ? m_sourceMemory : m_targetMemory;
    CSyncFileImage read;
    if (!side || !side->image) read = ReadImage(folder, side && side->seen ? &*side->seen : nullptr);
    const CSyncFileImage& image = side && side->image ? *side->image : read;
    MARK_POSITION();
    if (image.newest) {
        const bool later = side && CompareFileTimes(*image.newest, side->look) > 0;
        message.SetProp(NamedTag(message.RawProp(), L"SyncTime", PT_SYSTIME, true),
                        later ? side->look : *image.newest);
    }
    if (!m_pairKey.empty())
        message.SetProp(
            TagsOf(message.RawProp()).pairKey,
            SBinary{static_cast<ULONG>(m_pairKey.size()), reinterpret_cast<BYTE*>(m_pairKey.data())});
    message.SetProp(TagsOf(message.RawProp()).runTime, m_thisRun);
    if (&RunOf(name) == &m_targetRun)
        message.SetProp(NamedTag(message.RawProp(), MarkName, PT_SYSTIME, true), m_thisMark);
    if (side) WriteUncarried(message, UncarriedOf(name));
    WriteStream(attachment, PR_ATTACH_DATA_BIN,
                m_stripPrivate && !ofSource ? WithoutNames(image.bytes) : image.bytes);
    MARK_POSITION();
    attachment.SaveChanges(0);
    message.SaveChanges(FORCE_SAVE);
}
