#include <Platform/Files.h>
#include <Platform/UserInterface.h>
#include <Tarn/Engine/SyncTrace.h>
#include <Tarn/Engine/syncfolder.h>
#include <Tarn/Maintenance/DuplicateHolding.h>
#include <Tarn/Maintenance/DuplicateRows.h>
#include <Tarn/Maintenance/Duplicates.h>
#include <Tarn/Maintenance/FieldCompare.h>

#include <set>

namespace {

constexpr ULONG kRowsPerCount = 8;
constexpr size_t kMovedTogether = 256;

// The pass over one folder.
class CDuplicatePass {
public:
    CDuplicatePass(const CMaintainedFolder& folder, const CDuplicateOptions& options,
                   IMaintenanceWatch* watch)
        : m_folder(folder), m_options(options), m_watch(watch), m_holding(folder) {}

    // False where the folder cannot be read, which is told.
    bool Look(bool links);
    CDuplicateRows& Rows() { return m_rows; }
    bool HasDuplicates() const;
    // False where one of them cannot be read, which is told.
    bool HeedPartners(const std::vector<CMaintainedFolder>& partners);
    // Whether what is found has somewhere to go. Told where it has not.
    bool HasPlace();
    void RefuseForWantOfPlace();
    void Walk();
    CDuplicateOutcome& Outcome() { return m_outcome; }

private:
    bool IsCancelled();
    void WalkRows();
    void WalkGroup(ULONG first, ULONG end);
    void Take(ULONG row, ULONG kept);
    void CompareAndTake(ULONG row, ULONG kept);
    bool IsSame(ULONG row, ULONG kept);
    void Log(const std::string& kept, const std::string& removed);
    void Flush();
    HRESULT Remove(ENTRYLIST* list);
    void RemoveOneByOne();
    bool ReadPresent(std::set<std::string>& present);

    const CMaintainedFolder& m_folder;
    const CDuplicateOptions& m_options;
    IMaintenanceWatch* m_watch;
    CDuplicateRows m_rows;
    CDuplicateHolding m_holding;
    CEntryIdBatch m_waiting;
    CDuplicateOutcome m_outcome;
    std::string m_keptSubject, m_removedSubject;  // of the items compared last
};

bool CDuplicatePass::Look(bool links) {
    try {
        m_rows.Read(m_folder.folder, links);
        m_outcome.rows = m_rows.Count();
        return true;
    } catch (const CMAPIException& e) {
        ReportException(e, "CDlgRemoveDuplicates::FindDuplicates");
    }
    m_outcome.notRead = true;
    return false;
}

bool CDuplicatePass::HasDuplicates() const {
    for (ULONG first = 0, end; first < m_rows.Count(); first = end) {
        end = m_rows.EndOfGroup(first);
        if (end - first > 1) return true;
    }
    return false;
}

// Without them what stays may be what the next run deletes, so nothing is done then.
bool CDuplicatePass::HeedPartners(const std::vector<CMaintainedFolder>& partners) {
    for (const CMaintainedFolder& partner : partners) {
        CDuplicatePass other(partner, m_options, m_watch);
        if (!other.Look(true)) {
            m_outcome.notRead = true;
            return false;
        }
        KeepLinked(m_rows, other.m_rows);
    }
    return true;
}

bool CDuplicatePass::HasPlace() {
    return m_options.destroyWithoutHolding || (m_options.dryRun ? m_holding.IsPossible() : m_holding.Open());
}

void CDuplicatePass::RefuseForWantOfPlace() {
    m_outcome.noHolding = true;
    ShowMessageBox("The duplicates in \"" + m_folder.Name() +
                       "\" stay where they are: there is no wastebasket with a folder that they could be "
                       "moved to, and they would be deleted for good.",
                   "Vellum");
}

bool CDuplicatePass::IsCancelled() {
    if (m_watch && m_watch->IsCancelled()) m_outcome.cancelled = true;
    return m_outcome.cancelled;
}

void CDuplicatePass::Walk() {
    try {
        WalkRows();
        Flush();
    } catch (const CMAPIException& e) {
        ++m_outcome.failed;
        ReportException(e, "CDlgRemoveDuplicates::FindDuplicates");
    } catch (...) {
        ++m_outcome.failed;
        ShowMessageBox(FormatText("Fatal Error in FindDuplicates in Line %d", CurrentPosition().line),
                       "Vellum");
    }
}

void CDuplicatePass::WalkRows() {
    const ULONG count = m_rows.Count();
    for (ULONG first = 0, end; first < count && !m_outcome.cancelled; first = end) {
        MARK_POSITION();
        if (first % kRowsPerCount == 0 && m_watch) m_watch->ShowRow(first, count);
        end = m_rows.EndOfGroup(first);
        if (end - first == 1) continue;
        if (IsCancelled()) return;
        ++m_outcome.groups;
        try {
            WalkGroup(first, end);
        } catch (const CMAPIException&) {
            throw;
        } catch (...) {
            ++m_outcome.failed;
            ShowMessageBox(FormatText("Crash in Element %d", static_cast<int>(first)), "Vellum");
        }
    }
}

// Each is compared with the row that stays, and never with another one.
void CDuplicatePass::WalkGroup(ULONG first, ULONG end) {
    const ULONG kept = m_rows.KeptOf(first, end);
    for (ULONG row = first; row < end && !m_outcome.cancelled; ++row) {
        if (row == kept) continue;
        try {
            Take(row, kept);
        } catch (const CMAPIException&) {
            throw;
        } catch (...) {
            ++m_outcome.failed;
            ShowMessageBox(FormatText("Crash in Line %d in element %d %s", CurrentPosition().line,
                                      static_cast<int>(row), m_rows.NameOf(row).c_str()),
                           "Vellum");
        }
    }
}

void CDuplicatePass::Take(ULONG row, ULONG kept) {
    MARK_POSITION();
    if (m_options.fieldCompare) return CompareAndTake(row, kept);
    ++m_outcome.duplicates;
    if (m_options.dryRun) return;
    m_waiting.Add(m_rows.ItemOf(row));
    if (m_waiting.Count() >= kMovedTogether) Flush();
}

// One at a time, so that what the log says of an item is what has become of it.
void CDuplicatePass::CompareAndTake(ULONG row, ULONG kept) {
    if (m_rows.ItemOf(row).IsEmpty() || m_rows.ItemOf(kept).IsEmpty()) return;
    if (IsCancelled()) return;
    try {
        if (!IsSame(row, kept)) {
            ++m_outcome.different;
            return;
        }
        ++m_outcome.duplicates;
        if (m_options.dryRun) return;
        MARK_POSITION();
        const unsigned before = m_outcome.removed;
        m_waiting.Add(m_rows.ItemOf(row));
        Flush();
        if (m_outcome.removed == before) return;
        m_rows.Forget(row);
        Log(m_keptSubject, m_removedSubject);
    } catch (const CMAPIException& e) {
        ++m_outcome.failed;
        ReportException(e, "CDlgRemoveDuplicates::DeleteMessage");
    }
}

bool CDuplicatePass::IsSame(ULONG row, ULONG kept) {
    const auto open = [&](ULONG which) {
        IMessagePtr message = m_folder.folder.OpenEntryv(m_rows.ItemOf(which), 0).As<IMessagePtr>();
        NotNull(message.Get(), "DeleteMessage");
        return message;
    };
    MARK_POSITION();
    const IMessagePtr first = open(kept), second = open(row);
    m_keptSubject = first.GetStrPropOrEmpty(PR_SUBJECT_A);
    m_removedSubject = second.GetStrPropOrEmpty(PR_SUBJECT_A);
    MARK_POSITION();
    const CComparedFields fields = FieldsOfClass(second.ReadText(PR_MESSAGE_CLASS_A));
    return fields.count > 0 && FieldCompare(first, second, fields);
}

// Subjects are nobody else's business, so the file is the owner's alone.
void CDuplicatePass::Log(const std::string& kept, const std::string& removed) {
    if (m_options.logFile.empty()) return;
    CreatePrivateFile(m_options.logFile);
    std::FILE* file = OpenFile(m_options.logFile, "a+");
    if (!file) return;
    std::fprintf(file, "Deleting \"%s\" and \"%s\" \n", kept.c_str(), removed.c_str());
    std::fclose(file);
}

// --- moving -----------------------------------------------------------------------------------------

HRESULT CDuplicatePass::Remove(ENTRYLIST* list) {
    IMAPIFolder* folder = m_folder.folder.Get();
    if (!m_holding.Open()) return folder->DeleteMessages(list, 0, nullptr, 0);
    return folder->CopyMessages(list, nullptr, m_holding.Folder().Get(), 0, nullptr, MESSAGE_MOVE);
}

void CDuplicatePass::Flush() {
    if (m_waiting.IsEmpty()) return;
    if (!IsCancelled()) {
        MARK_POSITION();
        if (Remove(m_waiting.List()) == S_OK)
            m_outcome.removed += static_cast<unsigned>(m_waiting.Count());
        else
            RemoveOneByOne();
    }
    m_waiting.Clear();
}

bool CDuplicatePass::ReadPresent(std::set<std::string>& present) {
    CMapiRowSet rows;
    const std::vector<ULONG> columns = {PR_ENTRYID, PR_LONGTERM_ENTRYID_FROM_TABLE};
    try {
        rows = m_folder.folder._rawContentsTable().QueryRows(columns);
    } catch (const CMAPIException&) {
        return false;
    }
    for (ULONG row = 0; row < rows.Count(); ++row)
        present.emplace(KeyOfRow(rows, row, 0, 1).Bytes());
    return true;
}

// A store that did not take all of a list does not say which it left. What has gone is not named to it again:
// it may keep its name at a move, and be found in its new place.
void CDuplicatePass::RemoveOneByOne() {
    std::set<std::string> present;
    const bool isKnown = ReadPresent(present) || ReadPresent(present);
    for (size_t i = 0; i < m_waiting.Count(); ++i) {
        const CItemKeyView item = m_waiting.At(i);
        CEntryIdBatch one;
        one.Add(item);
        if ((isKnown && !present.count(std::string(item.Bytes()))) || Remove(one.List()) == S_OK) {
            ++m_outcome.removed;
            continue;
        }
        ++m_outcome.failed;
        ShowMessageBox("Can not delete message", "Vellum");
    }
}

}  // namespace

std::string DuplicateLogBeside(const std::string& modulePath) {
    return modulePath.substr(0, modulePath.rfind('.')) + "_delete.log";
}

CDuplicateOutcome RemoveDuplicates(const CMaintainedFolder& folder, const CDuplicateOptions& options,
                                   IMaintenanceWatch* watch, const std::vector<CMaintainedFolder>& partners) {
    CDuplicatePass pass(folder, options, watch);
    if (!folder.IsValid() || !pass.Look(!partners.empty()) || !pass.HasDuplicates()) return pass.Outcome();
    if (!pass.HeedPartners(partners)) return pass.Outcome();
    const bool hasPlace = pass.HasPlace();
    if (!hasPlace) pass.RefuseForWantOfPlace();
    if (hasPlace || options.dryRun) pass.Walk();
    return pass.Outcome();
}

std::array<CDuplicateOutcome, 2> RemoveDuplicatesOfPair(const CMaintainedFolder& source,
                                                        const CMaintainedFolder& target,
                                                        const CDuplicateOptions& options,
                                                        IMaintenanceWatch* watch) {
    CDuplicatePass first(source, options, watch), second(target, options, watch);
    const auto outcomes = [&] { return std::array{first.Outcome(), second.Outcome()}; };
    if (!source.IsValid() || !target.IsValid()) return outcomes();
    // One side alone would leave items behind whose counterparts are gone.
    const bool isRead = first.Look(true) && second.Look(true);
    if (!isRead) return outcomes();
    AgreeOnKept(first.Rows(), second.Rows());
    // What goes on one side alone is deleted by the next run on the other, for good where nothing can be put
    // aside.
    bool hasPlace = true;
    for (CDuplicatePass* pass : {&first, &second}) {
        if (!pass->HasDuplicates() || pass->HasPlace()) continue;
        pass->RefuseForWantOfPlace();
        hasPlace = false;
    }
    if (!hasPlace && !options.dryRun) return outcomes();
    first.Walk();
    if (!first.Outcome().cancelled) second.Walk();
    return outcomes();
}
