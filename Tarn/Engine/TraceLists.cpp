// The long lists of the trace: what a run sees and what it is about to do.
#include <Platform/UserInterface.h>
#include <Tarn/Engine/syncfolder.h>

namespace {
constexpr char Rule[] = "----------------------------------------------------------------";

const char* StateWord(LONG state, const char* previous) {
    switch (state) {
        case STATE_NEW:
            return "New";
        case STATE_MODIFIED:
            return "Mod";
        case STATE_CONFLICT:
            return "Con";
        case STATE_DELETED:
            return "Del";
        default:
            return previous;
    }
}
}  // namespace

// No trace file at present: the window takes its place, and a file that nobody deletes would grow with
// every run. The member and its closing stay for callers that open one themselves.
void CSyncFolder::OpenTraceFile() {}

void CSyncFolder::CloseTraceFile() {
    if (m_traceFile) std::fclose(m_traceFile);
    m_traceFile = nullptr;
}

void CSyncFolder::TraceModifications(CSyncMessages& list) {
    if (!IsTracing()) return;
    const char* word = "";
    for (size_t i = 0; i < list.Count(); ++i) {
        const CSyncMessage& message = list.At(i);
        word = StateWord(message.m_state, word);
        TraceFormat(m_traceFile, "%s %-20s %-50s %-50s\n", word, message.m_name.c_str(),
                    message.m_item.Hex().c_str(), message.m_syncId.c_str());
    }
}

void CSyncFolder::TraceRows(const char* name, const CMapiRowSet& rows) {
    if (!IsTracing()) return;
    TraceFormat(m_traceFile, "%s\n", Rule);
    TraceFormat(m_traceFile, "--\tFolder contents from %s\n", name);
    TraceText(m_traceFile, Rule);
    for (ULONG row = 0; row < rows.Count(); ++row) {
        const CMapiPropValue subject = rows.Cell(row, COL_SUBJECT);
        const CMapiPropValue label = subject.IsError() ? rows.Cell(row, COL_DISPLAY_NAME) : subject;
        TraceFormat(m_traceFile, "%s %s %s %s %s %s %s\n", HexFromBinary(KeyOfRow(rows, row)).c_str(),
                    FormatFileTime(rows.Cell(row, COL_MODIFIED).Time()).c_str(),
                    rows.Cell(row, COL_STAMP).Text().c_str(),
                    rows.Cell(row, COL_LONGTERM_ENTRYID).Text().c_str(),
                    FormatFileTime(rows.Cell(row, COL_CREATED).Time()).c_str(),
                    rows.Cell(row, COL_SYNC_ID).Text().c_str(), label.Text().c_str());
    }
}

void CSyncFolder::TraceSyncFile(const char* name, CSyncFileMap& syncData) {
    if (!IsTracing()) return;
    TraceText(m_traceFile, Rule);
    TraceFormat(m_traceFile, "Syncfile for %s\n", name);
    TraceText(m_traceFile, Rule);
    for (const CSyncFileEntry* entry : syncData.InKeyOrder())
        TraceFormat(m_traceFile, "%s, %s, %s, %s\n", std::string(entry->Identifier()).c_str(),
                    FormatFileTime(entry->time).c_str(), std::string(entry->SyncId()).c_str(),
                    std::string(entry->Name()).c_str());
    TraceText(m_traceFile, Rule);
    TraceFormat(m_traceFile, "End Syncfile %s\n", name);
    TraceText(m_traceFile, Rule);
}

void CSyncFolder::TraceFolder(const IMAPIFolderPtr& folder, const char* name) {
    if (!IsTraceWindowThere()) return;
    const CMapiRowSet rows =
        folder._rawContentsTable().QueryRows({PR_ENTRYID, TagsOf(folder.RawProp()).larchId, PR_SUBJECT_A});
    TraceFormat(m_traceFile, "-------------------------- %s ---------------------------\n", name);
    for (ULONG row = 0; row < rows.Count(); ++row) {
        const std::string line =
            FormatText("%-50s, %-30s, %s", rows.Cell(row, 2).Text().c_str(), rows.Cell(row, 1).Text().c_str(),
                       rows.Cell(row, 0).Text().c_str());
        TraceFormat(m_traceFile, "%s\n", line.c_str());
    }
    TraceFormat(m_traceFile, "-------------------------- End %s ---------------------------\n", name);
}
