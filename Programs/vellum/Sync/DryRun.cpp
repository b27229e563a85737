#include <Programs/vellum/Sync/DryRun.h>

#include <Programs/vellum/Session/Explain.h>
#include <Tarn/Settings/RunDispatch.h>

#include <algorithm>

namespace {

class CDryRun {
public:
    CDryRun(CProfileSession& session, CSyncProgress& progress, CPairResult& result)
        : m_session(session), m_result(result) {
        PrepareFolder(m_engine, result.pair, session.Mapi(), nullptr);
        m_engine.m_progress = &progress;
        m_engine.m_findDeletions = result.pair.Has(SYNC_DELETE_IN_TARGET);
    }
    void Walk(const CFolderRef& source, const CFolderRef& target);

private:
    struct Side {
        const CFolderRef& folder;
        CMapiRowSet rows;
        CSyncMessages changes;
    };
    void Compare(const CFolderRef& source, const CFolderRef& target);
    void ReadRows(Side& side, const FILETIME& time);
    void WalkSubfolders(const CFolderRef& source, const CFolderRef& target);
    void Report(CSyncMessages& changes, const CFolderRef& from, const CFolderRef& to, bool toSource);

    CProfileSession& m_session;
    CPairResult& m_result;
    CSyncFolder m_engine;
};

const char* Intention(LONG state) {
    switch (state) {
        case STATE_NEW:
        case STATE_MOVED:
            return "would be copied";
        case STATE_MODIFIED:
            return "would be carried over";
        case STATE_DELETED:
            return "would be deleted there";
        default:
            return "";
    }
}

void CDryRun::ReadRows(Side& side, const FILETIME& time) {
    const IMAPITablePtr table = side.folder.folder._rawContentsTable();
    m_engine.ApplyTableFilter(side.folder.folder, table, &time, true);
    SSortOrderSet order{};
    order.cSorts = 1;
    order.aSort[0] = {PR_LAST_MODIFICATION_TIME, TABLE_SORT_DESCEND};
    THROW_ON_FAILURE_FOR(table->SortTable(&order, TBL_BATCH), table.Get());
    m_engine.QuerySyncRows(side.rows, side.folder.folder, table);
}

void CDryRun::Report(CSyncMessages& changes, const CFolderRef& from, const CFolderRef& to, bool toSource) {
    const auto nameOf = [](const CFolderRef& folder) { return SplitFolderPath(folder.path).back(); };
    for (std::size_t i = 0; i < changes.Count(); ++i) {
        const CSyncMessage& change = changes.At(i);
        m_result.protocol.Add(nameOf(to), nameOf(from), change.m_name, change.m_state,
                              Intention(change.m_state), change.m_syncId);
        m_result.toSource.push_back(toSource);
        if (change.m_state == STATE_CONFLICT) ++m_result.outcome.conflicts;
    }
}

void CDryRun::Compare(const CFolderRef& sourceFolder, const CFolderRef& targetFolder) {
    Side source{sourceFolder, {}, {}};
    Side target{targetFolder, {}, {}};
    m_engine.SetPairTarget(targetFolder.folder);
    m_engine.ReadSyncFiles(sourceFolder.folder);
    ReadRows(source, m_engine.m_sourceSyncTime);
    ReadRows(target, m_engine.m_targetSyncTime);
    if (m_engine.HasFlag(SYNC_TO_TARGET))
        m_engine.CreateModifyList("Source", source.changes, m_engine.m_sourceData, m_engine.m_targetData,
                                  sourceFolder.folder, targetFolder.folder, source.rows, target.rows, {});
    if (m_engine.HasFlag(SYNC_FROM_TARGET))
        m_engine.CreateModifyList("Target", target.changes, m_engine.m_targetData, m_engine.m_sourceData,
                                  targetFolder.folder, sourceFolder.folder, target.rows, source.rows, {});
    m_engine.FindConflicts(source.changes, target.changes);
    Report(source.changes, sourceFolder, targetFolder, false);
    Report(target.changes, targetFolder, sourceFolder, true);
    ++m_result.outcome.pairsRun;
}

void CDryRun::WalkSubfolders(const CFolderRef& source, const CFolderRef& target) {
    const auto left = m_session.Subfolders(source.folder);
    const auto right = m_session.Subfolders(target.folder);
    const auto named = [](const std::vector<CFolderRow>& rows, const std::string& name) {
        return std::find_if(rows.begin(), rows.end(),
                            [&](const CFolderRow& row) { return row.name == name; });
    };
    for (const CFolderRow& row : left) {
        const auto other = named(right, row.name);
        if (other == right.end())
            m_result.missingFolders.push_back(source.path + "\\" + row.name);
        else
            Walk(m_session.OpenSubfolder(source, row), m_session.OpenSubfolder(target, *other));
    }
    for (const CFolderRow& row : right)
        if (named(left, row.name) == left.end())
            m_result.missingFolders.push_back(target.path + "\\" + row.name);
}

void CDryRun::Walk(const CFolderRef& source, const CFolderRef& target) {
    if (m_engine.PollCancelled()) return;
    if (m_engine.HasFlag(SYNC_SUBFOLDERS)) WalkSubfolders(source, target);
    Compare(source, target);
}

}  // namespace

void DryRunPair(CProfileSession& session, CSyncProgress& progress, CPairResult& result) {
    CFolderRef source;
    CFolderRef target;
    if (!OpenPairFolders(session, result, source, target)) return;
    try {
        CDryRun(session, progress, result).Walk(source, target);
    } catch (const CMAPIException& e) {
        result.problem = "it cannot be looked at: " + Explain(e.Hr());
    }
}
