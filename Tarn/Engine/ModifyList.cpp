// What changed on one side since the last run.
#include <MapiWrapper/HexText.h>
#include <Platform/CodePage.h>
#include <Tarn/Engine/syncfolder.h>

#include <vector>

namespace {
constexpr ULONG RowsPerPoll = 128;

// Which rule made a record; the numbers are known from the traces of installations.
enum Origin : LONG {
    ORIGIN_NEW_WITHOUT_ID = 5076,
    ORIGIN_NEW = 5122,
    ORIGIN_OTHER_TIME = 5144,
    ORIGIN_CHANGED = 5201,
    ORIGIN_DELETED = 5242,
};

// A row as the rules look at it. Views into the row set: most rows are unchanged, and nothing is copied
// for those.
struct RowFacts {
    ULONG index = 0;
    CItemKeyView key;
    SBinary stamp{};
    std::string_view syncId;  // empty if the row's stamp is not its own
    FILETIME modified{};
    FILETIME created{};

    bool IsStale() const { return stamp.cb != 0 && !EqualBinary(key, stamp); }
};

std::string NameOfRow(const CMapiRowSet& rows, ULONG row) {
    const CMapiPropValue subject = rows.Cell(row, COL_SUBJECT);
    return (subject.Type() == PT_STRING8 ? subject : rows.Cell(row, COL_DISPLAY_NAME)).Str();
}
}  // namespace

// The comparison of one side, taken apart by the questions it asks.
class CModifyListBuilder {
public:
    CModifyListBuilder(CSyncFolder& run, CSyncMessages& result, CSyncFileMap& ownData,
                       const IMAPIFolderPtr& ownFolder, const IMAPIFolderPtr& otherFolder,
                       CMapiRowSet& ownRows, const CMapiRowSet& otherRows, CSyncFileMap& otherData)
        : m_run(run),
          m_result(result),
          m_ownData(ownData),
          m_otherData(otherData),
          m_ownFolder(ownFolder),
          m_otherFolder(otherFolder),
          m_ownRows(ownRows),
          m_otherRows(otherRows),
          m_tracing(run.IsTracing()) {}

    void Row(ULONG index, const FILETIME& lastSyncTime) {
        MARK_POSITION();
        if (m_run.HasFlag(SYNC_NEW_ONLY) &&
            CompareFileTimes(lastSyncTime, m_ownRows.Cell(index, COL_MODIFIED).Time()) > 0)
            return;
        const RowFacts row = Facts(index);
        MARK_POSITION();
        if (m_tracing) TraceRow(row);
        const bool handled = row.syncId.empty() ? WithoutSyncId(row) : WithSyncId(row);
        if (handled || !m_run.m_checkTarget || !m_otherFolder) return;
        MARK_POSITION();
        m_run.CheckIfTargetExists(row.key, m_otherData, m_otherRows, m_ownFolder, m_otherFolder);
    }

    void Deletions() {
        for (const CSyncFileEntry* entry : m_ownData.UnseenInKeyOrder()) {
            try {
                // A run that renewed the item and died has left it here under another entry ID.
                if (!entry->SyncId().empty() && FindLink(m_ownRows, std::string(entry->SyncId())) >= 0)
                    continue;
                auto record = std::make_unique<CSyncMessage>();
                record->m_syncId = entry->SyncId();
                record->m_name = NameOfGone(*entry);
                record->m_state = STATE_DELETED;
                record->m_origin = ORIGIN_DELETED;
                Trace("Deleted %s\n", record->m_name.c_str());
                m_result.Add(std::move(record));
            } catch (...) {
                const CSourcePosition at = CurrentPosition();
                ServerTraceWrite(m_run.m_traceFile, "Error position %s(%d)", at.file, at.line);
                TraceText(m_run.m_traceFile, " Exception in Delete entry\n");
            }
        }
    }

private:
    // A memory that lies in the other store does not tell names that are private here.
    std::string NameOfGone(const CSyncFileEntry& entry) const {
        const std::string name = Utf8FromFile(entry.Name());
        if (!name.empty() || entry.SyncId().empty() || !m_otherRows.Get()) return name;
        const int row = FindLink(m_otherRows, std::string(entry.SyncId()));
        return row < 0 ? name : NameOfRow(m_otherRows, static_cast<ULONG>(row));
    }
    RowFacts Facts(ULONG index) {
        MARK_POSITION();
        RowFacts row;
        row.index = index;
        row.modified = m_ownRows.Cell(index, COL_MODIFIED).Time();
        const CMapiPropValue created = m_ownRows.Cell(index, COL_CREATED);
        row.created = created.Time();
        row.key = KeyOfRow(m_ownRows, index);
        const CMapiPropValue stamp = m_ownRows.Cell(index, COL_STAMP);
        if (stamp.Type() == PT_BINARY) {
            row.stamp = stamp.Binary();
            const CMapiPropValue syncId = m_ownRows.Cell(index, COL_SYNC_ID);
            if (syncId.Type() == PT_STRING8 && syncId.Get()->Value.lpszA)
                row.syncId = syncId.Get()->Value.lpszA;
            else
                Trace(" moved entry, removing sync id \n");
        }
        if (!EqualBinary(row.key, row.stamp)) row.syncId = {};
        // Nobody after this may take the creation time from the row.
        if (!created.IsNull()) created.Get()->ulPropTag = PR_NULL;
        return row;
    }

    std::unique_ptr<CSyncMessage> NewRecord(const RowFacts& row, LONG state, LONG origin) const {
        auto record = std::make_unique<CSyncMessage>();
        record->m_item = row.key;
        record->m_syncId = row.syncId;
        record->m_modified = row.modified;
        record->m_created = row.created;
        record->m_name = NameOfRow(m_ownRows, row.index);
        record->m_state = state;
        record->m_origin = origin;
        return record;
    }

    // True if the row is dealt with; false if it is unchanged.
    bool WithSyncId(const RowFacts& row) {
        MARK_POSITION();
        CSyncFileEntry* entry = m_ownData.FindByItem(row.key);
        if (!entry) return NotInSyncFile(row);
        entry->seen = 1;
        if (CompareFileTimes(entry->time, row.modified) == 0) return false;
        TraceModified(*entry, row);
        m_result.Add(NewRecord(row, STATE_MODIFIED, ORIGIN_CHANGED));
        return true;
    }

    // A first sync, or an item that came in from outside.
    bool NotInSyncFile(const RowFacts& row) {
        MARK_POSITION();
        if (m_tracing) {
            Trace("  --> eid %s not found in syncfile->new object\n", HexFromBinary(row.key).c_str());
            Trace("New object\n");
        }
        // Without another side to look at, the item counts as having no single counterpart.
        int hits = 2;
        std::vector<ULONG> found;
        if (m_otherFolder) hits = OtherRows().FindRows(COL_SYNC_ID, std::string(row.syncId), found);
        if (hits != 1) {
            m_result.Add(NewRecord(row, STATE_NEW, ORIGIN_NEW));
        } else if (CompareFileTimes(row.modified, m_otherRows.Cell(found[0], COL_MODIFIED).Time()) == 0) {
            Trace("equal");
        } else {
            m_result.Add(NewRecord(row, STATE_MODIFIED, ORIGIN_OTHER_TIME));
        }
        return true;
    }

    bool WithoutSyncId(const RowFacts& row) {
        MARK_POSITION();
        MARK_INNER_POSITION();
        Trace(" --> New Element because syncIDSource is empty\n");
        const SBinary searchKey = m_ownRows.Cell(row.index, COL_SEARCH_KEY).Binary();
        // Remembered as it is, by its key and without a link: it has not gone, though the other side has
        // none.
        CSyncFileEntry* entry = m_ownData.FindByItem(row.key);
        if (entry && entry->SyncId() == HexFromBinary(searchKey)) entry->seen = 1;
        LONG comparison = 0;
        if (m_otherFolder && m_run.FindBySearchKey(m_ownData, row.key, OtherRows(), row.modified, searchKey,
                                                   m_ownRows, comparison))
            return true;
        auto record = NewRecord(row, row.IsStale() ? STATE_MOVED : STATE_NEW, ORIGIN_NEW_WITHOUT_ID);
        record->m_syncId = HexFromBinary(searchKey);
        record->m_searchKey = searchKey;
        Trace("New object");
        m_result.Add(std::move(record));
        return true;
    }

    // Rows that could not be had are not the same as none: every item would look new.
    const CMapiRowSet& OtherRows() const {
        NotNull(m_otherRows.Get(), "CreateModifyList");
        return m_otherRows;
    }

    template <class... Arguments>
    void Trace(const char* format, Arguments... arguments) {
        if (m_tracing) TraceFormat(m_run.m_traceFile, format, arguments...);
    }
    void Trace(const char* text) {
        if (m_tracing) TraceText(m_run.m_traceFile, text);
    }

    void TraceRow(const RowFacts& row) {
        Trace("Row %d %s %s %s, mod: %x, %x\n", static_cast<int>(row.index),
              NameOfRow(m_ownRows, row.index).c_str(), HexFromBinary(row.key).c_str(),
              std::string(row.syncId).c_str(), static_cast<unsigned>(row.modified.dwLowDateTime),
              static_cast<unsigned>(row.modified.dwHighDateTime));
    }

    void TraceModified(const CSyncFileEntry& entry, const RowFacts& row) {
        if (!m_tracing) return;
        Trace("  --> Modified object Mod = %x, %x\n", static_cast<unsigned>(entry.time.dwLowDateTime),
              static_cast<unsigned>(entry.time.dwHighDateTime));
        Trace(" Timecodes: Syncfile: %s, Folder: %s\n", FormatFileTime(entry.time).c_str(),
              FormatFileTime(row.modified).c_str());
    }

    CSyncFolder& m_run;
    CSyncMessages& m_result;
    CSyncFileMap& m_ownData;
    CSyncFileMap& m_otherData;
    const IMAPIFolderPtr& m_ownFolder;
    const IMAPIFolderPtr& m_otherFolder;
    CMapiRowSet& m_ownRows;
    const CMapiRowSet& m_otherRows;
    const bool m_tracing;
};

void CSyncFolder::CreateModifyList(const char*, CSyncMessages& result, CSyncFileMap& ownData,
                                   CSyncFileMap& otherData, const IMAPIFolderPtr& ownFolder,
                                   const IMAPIFolderPtr& otherFolder, CMapiRowSet& ownRows,
                                   const CMapiRowSet& otherRows, const FILETIME& lastSyncTime) {
    try {
        MARK_POSITION();
        const bool tracing = IsTracing();
        TraceText(m_traceFile, "Entering CreateModifyLIst");
        ownData.SetSeen(0);
        result.Clear();
        m_cancelled = 0;
        const ULONG count = ownRows.Count();
        ServerTraceWrite(m_traceFile, "CreateModifyList %d rows\n", static_cast<int>(count));
        CModifyListBuilder builder(*this, result, ownData, ownFolder, otherFolder, ownRows, otherRows,
                                   otherData);
        for (ULONG row = 0; row < count; ++row) {
            if (tracing)
                ServerTraceWrite(m_traceFile, "Row %d from %d\n", static_cast<int>(row),
                                 static_cast<int>(count));
            if (row % RowsPerPoll == 0) PollCancelled();
            builder.Row(row, lastSyncTime);
        }
        if (m_findDeletions) {
            MARK_POSITION();
            TraceText(m_traceFile, "Finding deletions\n");
            if (m_progress) m_progress->SetMessageText("Deletions");
            builder.Deletions();
            if (m_progress) m_progress->SetMessageText("");
        }
        TraceText(m_traceFile, "\n");
    } catch (...) {
        const CSourcePosition at = CurrentPosition();
        ServerTraceWrite(m_traceFile, "Error position %s(%d)", at.file, at.line);
        ServerTraceWrite(m_traceFile, "Crash in CreateModifyList %d\n", at.line);
        ++m_outcome.phasesFailed;
    }
}

// An item that is linked with another one of this side is not the counterpart, whatever key and time say.
bool CSyncFolder::FindBySearchKey(CSyncFileMap& ownData, const CItemKeyView& item,
                                  const CMapiRowSet& otherRows, const FILETIME& rowTime,
                                  const SBinary& searchKey, const CMapiRowSet& ownRows, LONG& result) {
    result = -1;
    if (otherRows.FindRowBinary(COL_SEARCH_KEY, searchKey) < 0) return false;
    std::vector<ULONG> ofKey;
    otherRows.FindRows(COL_SEARCH_KEY, HexFromBinary(searchKey), ofKey);
    std::erase_if(ofKey, [&](ULONG other) { return IsLinkedWithin(otherRows, other, ownRows); });
    if (ofKey.empty()) return false;
    if (CSyncFileEntry* entry = ownData.FindByItem(item)) {
        entry->seen = 1;
        result = CompareFileTimes(entry->time, rowTime);
        return result == 0;
    }
    for (const ULONG other : ofKey) {
        result = CompareFileTimes(otherRows.Cell(other, COL_MODIFIED).Time(), rowTime);
        if (result == 0) return true;
    }
    return false;
}
