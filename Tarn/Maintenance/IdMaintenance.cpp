#include <MapiWrapper/NamedTags.h>
#include <MapiWrapper/TagArray.h>
#include <Platform/Clock.h>
#include <Platform/Machine.h>
#include <Platform/UserInterface.h>
#include <Tarn/Engine/StoreBatch.h>
#include <Tarn/Engine/SyncIdentity.h>
#include <Tarn/Engine/syncfolder.h>
#include <Tarn/Maintenance/IdMaintenance.h>

#include <algorithm>

namespace {

constexpr ULONG kRowsPerCount = 32;
constexpr char kMemoryClass[] = "IPM.Vellum.IDs";
constexpr char kSettingsClass[] = "IPM.VellumSettings";

// A phase whose failed calls are told and end it. False where that happened.
template <class Body>
bool Told(const char* context, Body body) {
    try {
        body();
        return true;
    } catch (const CMAPIException& e) {
        ReportException(e, context);
    } catch (const CNullAccess& e) {
        ShowMessageBox(std::string("Error in ") + context + ": " + e.what(), "Vellum");
    }
    return false;
}

IMessagePtr OpenForChange(const IMAPIFolderPtr& folder, const SBinary& item) {
    IMessagePtr message = folder.OpenEntryv(item, MAPI_MODIFY).As<IMessagePtr>();
    NotNull(message.Get(), "OpenForChange");
    return message;
}

// --- marks ------------------------------------------------------------------------------------------

enum MarkColumn : ULONG { MARK_ENTRYID, MARK_LONGTERM_ENTRYID, MARK_FIRST, MARK_SECOND };

class CMarks {
public:
    explicit CMarks(const CMaintainedFolder& folder) : m_folder(folder) {}

    // The rows of marked items; throws.
    std::vector<CItemKey> Find();
    void RemoveFrom(const CItemKeyView& item);

private:
    const CMaintainedFolder& m_folder;
    std::vector<ULONG> m_tags;  // those of its names that the store knows
};

// Nothing bears a name that its store does not know, and none is created by looking.
std::vector<CItemKey> CMarks::Find() {
    CNamedTags names;
    names.Add(SyncIdName().c_str(), PT_STRING8);
    names.Add(L"LarchEid", PT_BINARY);
    names.Add(L"LarchParentEid", PT_BINARY);
    names.Resolve(m_folder.folder, 0);
    m_tags.clear();
    for (size_t i = 0; i < names.Count(); ++i)
        if (names.Tag(i)) m_tags.push_back(names.Tag(i));
    if (m_tags.empty()) return {};
    std::vector<ULONG> columns = {PR_ENTRYID, PR_LONGTERM_ENTRYID_FROM_TABLE};
    columns.insert(columns.end(), m_tags.begin(), m_tags.end());
    const CMapiRowSet rows = m_folder.folder._rawContentsTable().QueryRows(columns);
    std::vector<CItemKey> marked;
    for (ULONG row = 0; row < rows.Count(); ++row) {
        bool isMarked = false;
        for (ULONG i = 0; i < m_tags.size(); ++i)
            isMarked |= rows.Cell(row, MARK_FIRST + i).Tag() == m_tags[i];
        const CItemKeyView item = KeyOfRow(rows, row, MARK_ENTRYID, MARK_LONGTERM_ENTRYID);
        if (isMarked && !item.IsEmpty()) marked.emplace_back(item);
    }
    return marked;
}

void CMarks::RemoveFrom(const CItemKeyView& item) {
    IMessagePtr message = OpenForChange(m_folder.folder, item);
    CTagArray tags(m_tags, message.Text());
    THROW_ON_FAILURE_FOR(message->DeleteProps(tags.Get(), nullptr), message.Get());
    message.SaveChanges(0);
}

// Gathers saves, and knows what of them the disk has taken in the end.
class CMarkRemoval {
public:
    CMarkRemoval(const CMaintainedFolder& folder, CMarks& marks, IMaintenanceWatch* watch,
                 CMaintenanceOutcome& outcome)
        : m_folder(folder), m_marks(marks), m_watch(watch), m_outcome(outcome) {}

    void Run(const std::vector<CItemKey>& items) {
        m_batch.Begin(m_folder.store);
        for (size_t i = 0; i < items.size() && !IsCancelled(i, items.size()); ++i)
            Remove(items[i]);
        if (m_batch.End() < 0) CountAfterLoss(items.size());
    }

private:
    bool IsCancelled(size_t item, size_t count) {
        if (item % kRowsPerCount != 0 || !m_watch) return m_outcome.cancelled;
        m_watch->ShowRow(static_cast<unsigned>(item), static_cast<unsigned>(count));
        m_outcome.cancelled = m_watch->IsCancelled();
        return m_outcome.cancelled;
    }
    void Remove(const CItemKey& item) {
        const bool done = Told("CDlgRemoveDuplicates::RemoveIDs", [&] { m_marks.RemoveFrom(item); });
        ++(done ? m_outcome.changed : m_outcome.failed);
    }
    // Confirmed saves were taken back. The folder tells which marks are there.
    void CountAfterLoss(size_t before) {
        const CMAPIException loss = *m_batch.Loss();
        ReportException(loss, "CDlgRemoveDuplicates::RemoveIDs");
        size_t left = before;
        Told("CDlgRemoveDuplicates::RemoveIDs", [&] { left = m_marks.Find().size(); });
        m_outcome.changed = static_cast<unsigned>(before - std::min(left, before));
        m_outcome.failed = static_cast<unsigned>(before) - m_outcome.changed;
    }

    const CMaintainedFolder& m_folder;
    CMarks& m_marks;
    IMaintenanceWatch* m_watch;
    CMaintenanceOutcome& m_outcome;
    CStoreBatch m_batch;
};

// --- hidden messages --------------------------------------------------------------------------------

enum HiddenColumn : ULONG { HIDDEN_ENTRYID, HIDDEN_LONGTERM_ENTRYID, HIDDEN_CLASS, HIDDEN_SUBJECT };

std::vector<CItemKey> FindHidden(const IMAPIFolderPtr& folder, const std::string& messageClass,
                                 const std::vector<std::string>& subjects) {
    const CMapiRowSet rows = folder._rawAssociatedTable().QueryRows(
        {PR_ENTRYID, PR_LONGTERM_ENTRYID_FROM_TABLE, PR_MESSAGE_CLASS_A, PR_SUBJECT_A});
    std::vector<CItemKey> found;
    for (ULONG row = 0; row < rows.Count(); ++row) {
        if (rows.Cell(row, HIDDEN_CLASS).Str() != messageClass) continue;
        const std::string subject = rows.Cell(row, HIDDEN_SUBJECT).Str();
        if (!subjects.empty() && std::find(subjects.begin(), subjects.end(), subject) == subjects.end())
            continue;
        found.emplace_back(KeyOfRow(rows, row, HIDDEN_ENTRYID, HIDDEN_LONGTERM_ENTRYID));
    }
    return found;
}

// Of each target with which the folder is paired there is one of either name.
std::vector<CItemKey> FindMemories(const IMAPIFolderPtr& folder) {
    const std::string computer = "." + ComputerName();
    return FindHidden(folder, kMemoryClass,
                      {"SourceID", "SourceID" + computer, "TargetID" + computer, "TargetID"});
}

// --- times ------------------------------------------------------------------------------------------

// Of names that the store knows.
std::vector<ULONG> KnownTimes(const IMAPIFolderPtr& folder, const std::vector<const wchar_t*>& names) {
    CNamedTags known;
    for (const wchar_t* name : names)
        known.Add(name, PT_SYSTIME);
    known.Resolve(folder, 0);
    std::vector<ULONG> tags;
    for (size_t i = 0; i < known.Count(); ++i)
        tags.push_back(known.Tag(i));
    return tags;
}

// Zero: not there.
FILETIME TimeOf(const IMessagePtr& message, ULONG tag) {
    CMapiPropValue value;
    const HRESULT hr = tag ? message.GetOneProp(tag, value) : MAPI_E_NOT_FOUND;
    if (hr == MAPI_E_NOT_FOUND) return {};
    THROW_ON_FAILURE_FOR(hr, message.Get());
    return value.Time();
}

IMessagePtr OpenHidden(const IMAPIFolderPtr& folder, const SBinary& item) {
    IMessagePtr message = folder.OpenEntryv(item, 0).As<IMessagePtr>();
    NotNull(message.Get(), "OpenHidden");
    return message;
}

constexpr const wchar_t* kLastTimes[] = {L"VellumTimeSource", L"VellumTimeTarget"};
constexpr wchar_t kLookTime[] = L"SyncTime";

CLastSyncTimes TimesIn(const IMAPIFolderPtr& folder) {
    CLastSyncTimes times;
    const std::vector<ULONG> tags = KnownTimes(folder, {kLastTimes[0], kLastTimes[1], kLookTime});
    for (const CItemKey& item : FindHidden(folder, kSettingsClass, {})) {
        const IMessagePtr message = OpenHidden(folder, item);
        times.source = TimeOf(message, tags[0]);
        times.target = TimeOf(message, tags[1]);
    }
    for (const CItemKey& item : FindMemories(folder))
        if (TicksOf(TimeOf(OpenHidden(folder, item), tags[2])) != 0) ++times.looks;
    return times;
}

// Answers how many times were there.
unsigned TakeTimesOff(const IMAPIFolderPtr& folder, const SBinary& item, std::vector<ULONG> tags) {
    const IMessagePtr present = OpenHidden(folder, item);
    std::erase_if(tags, [&](ULONG tag) { return TicksOf(TimeOf(present, tag)) == 0; });
    if (tags.empty()) return 0;
    IMessagePtr message = OpenForChange(folder, item);
    CTagArray array(tags, message.Text());
    THROW_ON_FAILURE_FOR(message->DeleteProps(array.Get(), nullptr), message.Get());
    message.SaveChanges(FORCE_SAVE);
    return static_cast<unsigned>(tags.size());
}

}  // namespace

CMaintenanceOutcome RemoveSyncMarks(const CMaintainedFolder& folder, bool dryRun, IMaintenanceWatch* watch) {
    CMaintenanceOutcome outcome;
    if (!folder.IsValid()) return outcome;
    CMarks marks(folder);
    std::vector<CItemKey> items;
    outcome.notRead = !Told("CDlgRemoveDuplicates::RemoveIDs", [&] { items = marks.Find(); });
    outcome.found = static_cast<unsigned>(items.size());
    if (!dryRun && !items.empty()) CMarkRemoval(folder, marks, watch, outcome).Run(items);
    return outcome;
}

CMaintenanceOutcome RemoveSyncFiles(const CMaintainedFolder& folder, bool dryRun) {
    CMaintenanceOutcome outcome;
    if (!folder.IsValid()) return outcome;
    std::vector<CItemKey> memories;
    outcome.notRead =
        !Told("CDlgRemoveDuplicates::RemoveFiles", [&] { memories = FindMemories(folder.folder); });
    outcome.found = static_cast<unsigned>(memories.size());
    for (size_t i = 0; i < memories.size() && !dryRun; ++i) {
        const bool done = Told("CDlgRemoveDuplicates::RemoveFiles", [&] {
            SBinary id = memories[i];
            ENTRYLIST one{1, &id};
            const HRESULT hr = folder.folder->DeleteMessages(&one, 0, nullptr, 0);
            if (hr != S_OK) throw CMAPIException(hr, "DeleteMessages", folder.folder.Get());
        });
        ++(done ? outcome.changed : outcome.failed);
    }
    return outcome;
}

bool CLastSyncTimes::IsEmpty() const {
    return TicksOf(source) == 0 && TicksOf(target) == 0 && looks == 0;
}

HRESULT ReadLastSyncTimes(const CMaintainedFolder& source, CLastSyncTimes& times) {
    times = {};
    if (!source.IsValid()) return S_OK;
    try {
        times = TimesIn(source.folder);
        return S_OK;
    } catch (const CMAPIException& e) {
        ReportException(e, "HrGetConfigMsg");
        return e.Hr();
    }
}

CMaintenanceOutcome ResetLastSyncTimes(const CMaintainedFolder& source, bool dryRun) {
    CMaintenanceOutcome outcome;
    CLastSyncTimes times;
    outcome.notRead = ReadLastSyncTimes(source, times) < 0;
    outcome.found = times.looks + (TicksOf(times.source) != 0) + (TicksOf(times.target) != 0);
    if (dryRun || outcome.found == 0) return outcome;
    const bool done = Told("HrGetConfigMsg", [&] {
        const std::vector<ULONG> tags = KnownTimes(source.folder, {kLastTimes[0], kLastTimes[1], kLookTime});
        for (const CItemKey& item : FindHidden(source.folder, kSettingsClass, {}))
            outcome.changed += TakeTimesOff(source.folder, item, {tags[0], tags[1]});
        for (const CItemKey& item : FindMemories(source.folder))
            outcome.changed += TakeTimesOff(source.folder, item, {tags[2]});
    });
    if (!done) outcome.failed = outcome.found - std::min(outcome.found, outcome.changed);
    return outcome;
}
