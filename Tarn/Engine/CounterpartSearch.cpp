// Is a new item the same thing as one on the other side that it has no link to?
#include <MapiWrapper/HexText.h>
#include <Platform/UserInterface.h>
#include <Tarn/Engine/FindMsg.h>
#include <Tarn/Engine/ItemTransfer.h>
#include <Tarn/Engine/MessageCache.h>

#include <algorithm>
#include <iterator>
#include <vector>

int ChooseCandidate(const std::vector<CFindMsg>& candidates, const std::string& syncId) {
    int result = candidates.size() == 1 ? static_cast<int>(candidates.front().row) : -1;
    for (const CFindMsg& candidate : candidates) {
        if (!syncId.empty() && candidate.syncId == syncId) return static_cast<int>(candidate.row);
        if (candidate.syncId.empty()) result = static_cast<int>(candidate.row);
    }
    return result;
}

namespace {
// A caller takes this for a found row.
constexpr int GuardAnswer = 1;

int RefuseSearch(const char* reason) {
    ShowMessageBox(std::string("Find similar object: ") + reason, "");
    return GuardAnswer;
}

void TraceSeparators(FILE* file) {
    static const std::string line = std::string(75, '-') + "\n";
    TraceText(file, line);
    TraceText(file, line);
}

// A row goes by its subject, or by its display name where it has none.
CMapiPropValue TitleCell(const CMapiRowSet& rows, ULONG row) {
    const CMapiPropValue subject = rows.Cell(row, COL_SUBJECT);
    return subject.Type() == PT_STRING8 ? subject : rows.Cell(row, COL_DISPLAY_NAME);
}

bool HasTitle(const CMapiRowSet& rows, ULONG row, const std::string& subject) {
    const CMapiPropValue title = TitleCell(rows, row);
    return title.Type() == PT_STRING8 && title.Str() == subject;
}

// Rows of that subject or display name, ascending.
std::vector<ULONG> RowsOfTitle(const CMapiRowSet& rows, const std::string& subject) {
    std::vector<ULONG> bySubject;
    std::vector<ULONG> byName;
    rows.FindRows(COL_SUBJECT, subject, bySubject);
    rows.FindRows(COL_DISPLAY_NAME, subject, byName);
    std::vector<ULONG> all;
    std::set_union(bySubject.begin(), bySubject.end(), byName.begin(), byName.end(), std::back_inserter(all));
    return all;
}

std::string SubjectOf(const IMessagePtr& message) {
    CMapiPropValue subject;
    const HRESULT hr = message.GetOneProp(PR_SUBJECT_A, subject);
    if (hr >= 0) return subject.Str();
    if (hr != MAPI_E_NOT_FOUND && hr != MAPI_E_NOT_ENOUGH_MEMORY) return "no subject";
    return hr == MAPI_E_NOT_FOUND ? message.GetTitle() : message.GetLongText(PR_SUBJECT_A);
}

// One search by key, subject and contents.
class CSimilarSearch {
public:
    CSimilarSearch(CSyncFolder& engine, CSyncMessage& row, const CMapiRowSet& targetRows,
                   const CMapiRowSet* sourceRows, const IMAPIFolderPtr& sourceFolder,
                   const IMAPIFolderPtr& targetFolder)
        : m_engine(engine),
          m_row(row),
          m_targetRows(targetRows),
          m_sourceRows(sourceRows),
          m_sourceFolder(sourceFolder),
          m_targetFolder(targetFolder) {}

    int Find() {
        // Without a row of this key nothing has to be opened to know the answer.
        if (!m_row.m_searchKey.IsEmpty() && m_targetRows.FindRowBinary(COL_SEARCH_KEY, m_row.m_searchKey) < 0)
            return -1;
        if (!OpenSource()) return -1;
        if (m_engine.m_progress) m_engine.m_progress->SetDetail("find similar Object");
        Collect();
        if (m_engine.m_progress) m_engine.m_progress->SetDetail("");
        TraceSeparators(m_engine.m_traceFile);
        return ChooseCandidate(m_candidates, m_row.m_syncId);
    }

private:
    bool OpenSource() {
        try {
            m_source = OpenMessage(m_sourceFolder, m_row.m_item);
            m_subject = SubjectOf(m_source);
            CMapiPropValue key;
            if (m_source.GetOneProp(PR_SEARCH_KEY, key) >= 0) m_row.m_searchKey = key.Binary();
            return true;
        } catch (const CMAPIException& e) {
            ShowMessageBox(FormatText("Can not open source folder\nMessage:%s", e.GetErrorText().c_str()),
                           "Tarn");
        } catch (...) {
            ShowMessageBox("Find Similar Object Error opening source", "Tarn");
        }
        return false;
    }

    void Collect() {
        try {
            MARK_POSITION();
            if (m_row.m_syncId.empty()) m_row.m_syncId = SyncIdOf(m_source);
            std::vector<ULONG> byKey;
            m_targetRows.FindRows(COL_SEARCH_KEY, m_row.m_searchKey.Hex(), byKey);
            const std::vector<ULONG> byTitle = RowsOfTitle(m_targetRows, m_subject);
            std::vector<ULONG> both;
            std::set_intersection(byKey.begin(), byKey.end(), byTitle.begin(), byTitle.end(),
                                  std::back_inserter(both));
            MARK_POSITION();
            for (const ULONG row : both)
                TryCandidate(row);
        } catch (const CMAPIException& e) {
            TraceFormat(m_engine.m_traceFile, "catch...%s\n", e.GetErrorText().c_str());
        } catch (...) {
            ShowMessageBox(FormatText("Error in %s (%d)", SyncFolderSource, CurrentPosition().line),
                           "Vellum");
        }
    }

    void TryCandidate(ULONG row) {
        if (!HasTitle(m_targetRows, row, m_subject)) return;
        const CItemKeyView item = KeyOfRow(m_targetRows, row);
        if (item.IsEmpty() || m_engine.IsTaken(item)) return;
        if (m_sourceRows && IsLinkedWithin(m_targetRows, row, *m_sourceRows)) return;
        const IMessagePtr candidate = OpenMessage(m_targetFolder, item);
        std::string syncId = SyncIdOf(candidate);
        if (CompareMessages(m_source, candidate) == 1) m_candidates.push_back({row, std::move(syncId)});
    }

    static std::string SyncIdOf(const IMessagePtr& message) {
        return message.GetNamedStr(SyncIdName().c_str(), &PS_PUBLIC_STRINGS);
    }

    CSyncFolder& m_engine;
    CSyncMessage& m_row;
    const CMapiRowSet& m_targetRows;
    const CMapiRowSet* m_sourceRows;
    const IMAPIFolderPtr& m_sourceFolder;
    const IMAPIFolderPtr& m_targetFolder;
    IMessagePtr m_source;
    std::string m_subject;
    std::vector<CFindMsg> m_candidates;
};
}  // namespace

int CSyncFolder::FindSimilarObject(CSyncMessage* row, const CMapiRowSet& targetRows,
                                   const IMAPIFolderPtr& sourceFolder, const IMAPIFolderPtr& targetFolder,
                                   const CMapiRowSet* sourceRows) {
    if (!sourceFolder) return RefuseSearch("Source folder is empty");
    if (!row) return RefuseSearch("Source message NULL");
    if (row->m_item.IsEmpty()) return RefuseSearch("Source message EntryID empty");
    const int found = CSimilarSearch(*this, *row, targetRows, sourceRows, sourceFolder, targetFolder).Find();
    row->m_message.Free();
    return found;
}

// ---- over the message cache -----------------------------------------------------------------------

namespace {
// The entry of a target row, or null: no text, another text, no entry ID, or it does not open.
CMessageCacheEntry* CachedCandidate(CSyncFolder& engine, const CMapiRowSet& rows, ULONG row,
                                    const std::string& subject) {
    if (!HasTitle(rows, row, subject)) return nullptr;
    const CItemKeyView item = KeyOfRow(rows, row);
    if (item.IsEmpty()) {
        TraceFormat(engine.m_traceFile, "%s entryid = 0\n", subject.c_str());
        return nullptr;
    }
    if (engine.IsTracing()) TraceFormat(engine.m_traceFile, "bin=%s\n", HexFromBinary(item).c_str());
    return engine.m_cache->Lookup(item);
}
}  // namespace

int CSyncFolder::FindEqual(CSyncMessage* row, const CMapiRowSet& targetRows,
                           const IMAPIFolderPtr& sourceFolder, const IMAPIFolderPtr& targetFolder) {
    NotNull(row, "CSyncFolder::FindEqual");
    CMessageCacheEntry source;
    source.m_message = OpenMessage(sourceFolder, row->m_item);
    source.Fill();
    const std::string subject = source.m_message.GetTitle();
    if (row->m_syncId.empty()) row->m_syncId = source.m_syncId;
    TraceSeparators(m_traceFile);

    std::vector<CFindMsg> candidates;
    try {
        MARK_POSITION();
        if (!m_cache) m_cache = std::make_unique<CMessageCache>();
        m_cache->Bind(targetFolder);
        for (const ULONG number : RowsOfTitle(targetRows, subject)) {
            CMessageCacheEntry* candidate = CachedCandidate(*this, targetRows, number, subject);
            if (!candidate) continue;
            TraceFormat(m_traceFile, "Find equal for %s. Nr %d, syncid = %s srcsyncid=%s\n", subject.c_str(),
                        static_cast<int>(number), candidate->m_syncId.c_str(), row->m_syncId.c_str());
            if (CompareCacheEntries(source, *candidate, m_traceFile) == 1)
                candidates.push_back({number, candidate->m_syncId});
        }
    } catch (const CMAPIException& e) {
        TraceFormat(m_traceFile, "catch...%s\n", e.GetErrorText().c_str());
    } catch (...) {
        ShowMessageBox(FormatText("Error in %s (%d)", SyncFolderSource, CurrentPosition().line), "Vellum");
    }
    TraceSeparators(m_traceFile);
    return ChooseCandidate(candidates, row->m_syncId);
}

// ---- by sender and recipients ---------------------------------------------------------------------

namespace {
bool SameText(const IMessagePtr& a, const IMessagePtr& b, ULONG tag) {
    return a.GetStrPropOrEmpty(tag) == b.GetStrPropOrEmpty(tag);
}

bool IsSameMail(const IMessagePtr& source, const IMessagePtr& candidate) {
    return SameText(source, candidate, PR_SENDER_NAME_A) && SameText(source, candidate, PR_DISPLAY_TO_A) &&
           SameText(source, candidate, PR_DISPLAY_CC_A) &&
           source.GetBinProp(PR_SEARCH_KEY) == candidate.GetBinProp(PR_SEARCH_KEY);
}

IMessagePtr OpenReported(const IMAPIFolderPtr& folder, const SBinary& entryId, const char* context) {
    try {
        return OpenMessage(folder, entryId);
    } catch (const CMAPIException& e) {
        ReportException(e, context);
        return {};
    }
}

// True if the candidate is the source's counterpart; the row then knows it.
bool TakeCounterpart(CSyncMessage& row, const IMessagePtr& source, const IMessagePtr& candidate) {
    try {
        if (!IsSameMail(source, candidate)) return false;
        row.m_secondEntryId = candidate.GetBinProp(PR_ENTRYID);
        // Both times are the source's, so the counterpart never counts as the newer one.
        row.m_state = STATE_COUNTERPART_OLDER;
        return true;
    } catch (const CMAPIException& e) {
        ReportException(e, "CSyncFolder::FindCounterpart (targetmsg)");
        return false;
    }
}
}  // namespace

void CSyncFolder::FindCounterpart(CSyncMessage& row, const IMAPIFolderPtr& sourceFolder,
                                  const IMAPIFolderPtr& targetFolder, const CMapiRowSet& sourceRows,
                                  ULONG sourceRow, const CMapiRowSet& targetRows) {
    const IMessagePtr source =
        OpenReported(sourceFolder, row.m_item, "CSyncFolder::FindCounterpart (sourcemsg)");
    if (!source) return;
    const std::string subject = sourceRows.Cell(sourceRow, COL_SUBJECT).Text();
    for (ULONG i = 0; i < targetRows.Count(); ++i) {
        if (targetRows.Cell(i, COL_SUBJECT).Text() != subject) continue;
        const IMessagePtr candidate = OpenReported(targetFolder, KeyOfRow(targetRows, i),
                                                   "CSyncFolder::FindCounterpart (opening target msg)");
        if (candidate && TakeCounterpart(row, source, candidate)) return;
    }
}
