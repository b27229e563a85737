#include <MapiWrapper/HexText.h>
#include <Tarn/Engine/MemoryImage.h>
#include <Tarn/Engine/SyncFile.h>
#include <Tarn/Engine/SyncIdentity.h>
#include <Tarn/Engine/SyncTrace.h>

#include <algorithm>

namespace {
constexpr size_t cbUsualEntry = 160;

enum FileColumn : ULONG {
    FILE_ENTRYID,
    FILE_SYNC_ID,
    FILE_MODIFIED,
    FILE_SUBJECT,
    FILE_LONGTERM_ENTRYID,
    FILE_DISPLAY_NAME,
    FILE_SEARCH_KEY,
};

// Where a row set has what an entry is made of.
struct CEntryColumns {
    ULONG entryId, longTermEntryId, syncId, modified, subject, displayName, searchKey;
};
constexpr CEntryColumns OfFolder{FILE_ENTRYID, FILE_LONGTERM_ENTRYID, FILE_SYNC_ID,   FILE_MODIFIED,
                                 FILE_SUBJECT, FILE_DISPLAY_NAME,     FILE_SEARCH_KEY};
constexpr CEntryColumns OfRun{COL_ENTRYID, COL_LONGTERM_ENTRYID, COL_SYNC_ID,   COL_MODIFIED,
                              COL_SUBJECT, COL_DISPLAY_NAME,     COL_SEARCH_KEY};

std::string_view TextOf(const CMapiPropValue& value) {
    if (value.Type() != PT_STRING8 || !value.Get()->Value.lpszA) return {};
    return value.Get()->Value.lpszA;
}

class CImageBuilder {
public:
    CImageBuilder(const CMapiRowSet& rows, const CEntryColumns& columns, ULONG syncIdTag)
        : m_rows(rows), m_columns(columns), m_syncIdTag(syncIdTag), m_writer(0) {
        m_writer.Reserve(rows.Count() * cbUsualEntry);
    }

    CItemKeyView KeyOf(ULONG row) const {
        return KeyOfRow(m_rows, row, m_columns.entryId, m_columns.longTermEntryId);
    }
    FILETIME TimeOf(ULONG row) const { return m_rows.Cell(row, m_columns.modified).Time(); }
    // The link of the item, null where it has none.
    std::optional<std::string_view> SyncIdOf(ULONG row) const {
        const CMapiPropValue syncId = m_rows.Cell(row, m_columns.syncId);
        if (syncId.Tag() != m_syncIdTag) return {};
        return TextOf(syncId);
    }

    void AddRow(ULONG row, const FILETIME& time) {
        const auto syncId = SyncIdOf(row);
        if (!syncId) HexInto(m_searchKey, m_rows.Cell(row, m_columns.searchKey).Binary());
        const CMapiPropValue subject = m_rows.Cell(row, m_columns.subject);
        Add(KeyOf(row), time, syncId ? *syncId : m_searchKey,
            TextOf(subject.IsError() ? m_rows.Cell(row, m_columns.displayName) : subject));
    }
    void Add(const CItemKeyView& key, const FILETIME& time, std::string_view syncId, std::string_view name) {
        m_writer.Add(key, time, syncId, name);
        ++m_count;
    }
    std::string TakeBytes() {
        m_writer.SetCount(m_count);
        return m_writer.TakeBytes();
    }

private:
    const CMapiRowSet& m_rows;
    const CEntryColumns& m_columns;
    const ULONG m_syncIdTag;
    CSyncFileWriter m_writer;
    std::uint32_t m_count = 0;
    std::string m_searchKey;
};

// The rows of before and those written since, newest first as a table has them.
class CMerge {
public:
    CMerge(CImageBuilder& builder, CSyncFileImage& image) : m_builder(builder), m_image(image) {}

    void AddRow(ULONG row) {
        const FILETIME time = m_builder.TimeOf(row);
        if (Comes(time)) m_builder.AddRow(row, time);
    }
    void AddWritten(const CWrittenRow& row) {
        if (Comes(row.time)) m_builder.Add(CItemKeyView::OfKept(row.key), row.time, row.syncId, row.name);
        m_writtenLast = true;
    }
    bool IsInOrder() const { return m_isInOrder; }

private:
    // Of two equal times a table decides by what is not known here, unless it has just done so.
    bool Comes(const FILETIME& time) {
        if (!m_image.newest) m_image.newest = time;
        const int order = m_hasLast ? CompareFileTimes(m_last, time) : 1;
        m_isInOrder = m_isInOrder && order >= 0 && !(order == 0 && m_writtenLast);
        m_last = time;
        m_hasLast = true;
        m_writtenLast = false;
        return m_isInOrder;
    }

    CImageBuilder& m_builder;
    CSyncFileImage& m_image;
    FILETIME m_last{};
    bool m_hasLast = false;
    bool m_writtenLast = false;
    bool m_isInOrder = true;
};

std::vector<const CWrittenRow*> WrittenNewestFirst(const CWrittenRows& written, bool ofSource) {
    std::vector<const CWrittenRow*> newest;
    for (const CWrittenRow& row : written.Rows())
        if (row.inSource == ofSource && !row.isGone) newest.push_back(&row);
    std::sort(newest.begin(), newest.end(), [](const CWrittenRow* a, const CWrittenRow* b) {
        return CompareFileTimes(a->time, b->time) > 0;
    });
    return newest;
}
}  // namespace

std::vector<ULONG> FileColumns(ULONG syncIdTag) {
    return {PR_ENTRYID,
            syncIdTag,
            PR_LAST_MODIFICATION_TIME,
            PR_SUBJECT_A,
            PR_LONGTERM_ENTRYID_FROM_TABLE,
            PR_DISPLAY_NAME_A,
            PR_SEARCH_KEY};
}

CSyncFileImage ImageOfFolder(const CMapiRowSet& rows, ULONG syncIdTag, CSeenRows* seen) {
    CImageBuilder builder(rows, OfFolder, syncIdTag);
    CSyncFileImage image;
    if (rows.Count() > 0) image.newest = builder.TimeOf(0);
    if (seen) seen->StartAnew();
    for (ULONG row = 0; row < rows.Count(); ++row) {
        FILETIME time = builder.TimeOf(row);
        if (seen) time = seen->TimeOf(builder.KeyOf(row), time);
        if (const auto syncId = builder.SyncIdOf(row); seen && syncId) seen->NoteStillThere(*syncId);
        builder.AddRow(row, time);
    }
    if (seen)
        seen->ForEachGone(
            [&](const CSeenRows::Gone& gone) { builder.Add(gone.key, gone.time, gone.syncId, gone.name); });
    image.bytes = builder.TakeBytes();
    return image;
}

std::optional<CSyncFileImage> ImageOfRun(const CMapiRowSet& rows, const CWrittenRows& written,
                                         bool ofSource) {
    if (!written.IsSure()) return {};
    CImageBuilder builder(rows, OfRun, written.SyncIdTag(ofSource));
    CSyncFileImage image;
    CMerge merge(builder, image);
    const std::vector<const CWrittenRow*> newest = WrittenNewestFirst(written, ofSource);
    auto next = newest.begin();
    for (ULONG row = 0; row < rows.Count() && merge.IsInOrder(); ++row) {
        if (written.Holds(builder.KeyOf(row))) continue;
        while (next != newest.end() && CompareFileTimes((*next)->time, builder.TimeOf(row)) >= 0)
            merge.AddWritten(**next++);
        merge.AddRow(row);
    }
    while (next != newest.end())
        merge.AddWritten(**next++);
    if (!merge.IsInOrder()) return {};
    image.bytes = builder.TakeBytes();
    return image;
}
