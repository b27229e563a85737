#include <Tarn/Dispatch/PairPlan.h>

#include <Tarn/Dispatch/PermanentSynchronization.h>
#include <Tarn/Dispatch/RunDispatch.h>

namespace {

// As the run has it: a store that names a folder as its own child ends somewhere.
constexpr int kMaxDepth = 500;

std::string LastName(const std::string& path) {
    const size_t cut = path.find_last_of('\\');
    return cut == std::string::npos ? path : path.substr(cut + 1);
}

}  // namespace

CPairPlan::CPairPlan(const CMapiSession& session, CTarnSetting& setting, CSyncProgress* progress)
    : m_setting(setting) {
    PrepareFolder(m_engine, setting, session, nullptr);
    m_engine.m_progress = progress;
    m_engine.m_findDeletions = setting.Has(SYNC_DELETE_IN_TARGET);
}

void CPairPlan::Walk(const std::function<void(CPlannedFolders&)>& onFolders,
                     const std::function<void(const std::string& path)>& onMissing) {
    m_onFolders = onFolders;
    m_onMissing = onMissing;
    CPlannedPlace source, target;
    source.folder = OpenFolderOfKey(m_engine.m_session, m_setting.m_sourceKey);
    source.path = m_setting.m_sourcePath;
    source.name = LastName(source.path);
    target.folder = OpenFolderOfKey(m_engine.m_session, m_setting.m_targetKey);
    target.path = m_setting.m_targetPath;
    target.name = LastName(target.path);
    WalkFolders(source, target, 0);
}

void CPairPlan::WalkFolders(const CPlannedPlace& source, const CPlannedPlace& target, int depth) {
    if (m_engine.PollCancelled()) return;
    if (m_setting.Has(SYNC_SUBFOLDERS) && depth < kMaxDepth) WalkChildren(source, target, depth);
    if (!m_engine.m_outcome.cancelled) Look(source, target);
}

CPlannedPlace CPairPlan::Below(const CPlannedPlace& parent, const CFolderLevel& level, ULONG row) {
    CPlannedPlace side;
    side.folder = parent.folder.OpenEntryv(level.ChildId(row)).As<IMAPIFolderPtr>();
    side.name = level.ChildName(row);
    side.path = parent.path + "\\" + side.name;
    return side;
}

// In the order of the run: what both have, what only the source has, what only the target has.
void CPairPlan::WalkChildren(const CPlannedPlace& source, const CPlannedPlace& target, int depth) {
    CFolderLevel left, right;
    left.ReadSource(source.folder);
    right.ReadTarget(target.folder);
    const CLevelMatch match(left, right);
    for (const auto& [i, j] : match.pairs)
        WalkFolders(Below(source, left, i), Below(target, right, j), depth + 1);
    for (const CLevelMatch::CNamesake& namesake : match.namesakes)
        m_namesakes.insert((namesake.inSource ? source : target).path + "\\" + namesake.name);
    if (!m_onMissing) return;
    for (const ULONG row : match.inSourceAlone)
        NoteMissing(Below(source, left, row), true, depth);
    for (const ULONG row : match.inTargetAlone)
        NoteMissing(Below(target, right, row), false, depth);
}

// Where folders are made, one from which nothing travels has no need of another.
void CPairPlan::NoteMissing(const CPlannedPlace& place, bool inSource, int depth) {
    const bool creates = m_setting.Has(SYNC_CREATE_SUBFOLDERS);
    if (creates && !m_setting.Has(inSource ? SYNC_TO_TARGET : SYNC_FROM_TARGET)) return;
    m_onMissing(place.path);
    if (creates) LookAtNew(place, inSource, depth + 1);
}

// A folder that the run would create on the other side: all that takes part in it would go there.
void CPairPlan::LookAtNew(const CPlannedPlace& place, bool inSource, int depth) {
    if (m_engine.PollCancelled()) return;
    if (depth < kMaxDepth) WalkNew(place, inSource, depth);
    CPlannedPlace created;
    created.name = place.name;
    CPlannedFolders folders{Side(inSource ? place : created), Side(inSource ? created : place)};
    Side& side = inSource ? folders.source : folders.target;
    m_engine.SettleQuery(side.folder, {});
    ReadRows(side, {});
    for (ULONG row = 0; row < side.rows.Count(); ++row) {
        auto change = std::make_unique<CSyncMessage>();
        const CMapiPropValue subject = side.rows.Cell(row, COL_SUBJECT);
        change->m_name = (subject.IsError() ? side.rows.Cell(row, COL_DISPLAY_NAME) : subject).Str();
        change->m_state = STATE_NEW;
        side.changes.Add(std::move(change));
    }
    m_onFolders(folders);
}

// Below a folder that is to be made there is nothing yet, so that everything is on one side alone.
void CPairPlan::WalkNew(const CPlannedPlace& place, bool inSource, int depth) {
    CFolderLevel level, none;
    level.ReadSource(place.folder);
    const CLevelMatch match(level, none);
    for (const CLevelMatch::CNamesake& namesake : match.namesakes)
        m_namesakes.insert(place.path + "\\" + namesake.name);
    for (const ULONG row : match.inSourceAlone)
        LookAtNew(Below(place, level, row), inSource, depth + 1);
}

void CPairPlan::ReadRows(Side& side, const FILETIME& time) {
    const IMAPITablePtr table = side.folder._rawContentsTable();
    m_engine.ApplyTableFilter(side.folder, table, &time, true);
    SSortOrderSet order{};
    order.cSorts = 1;
    order.aSort[0] = {PR_LAST_MODIFICATION_TIME, TABLE_SORT_DESCEND};
    THROW_ON_FAILURE_FOR(table->SortTable(&order, TBL_BATCH), table.Get());
    m_engine.QuerySyncRows(side.rows, side.folder, table);
    m_engine.PreviewSyncIDs(side.folder, side.rows, side.newIds);
}

void CPairPlan::Look(const CPlannedPlace& sourcePlace, const CPlannedPlace& targetPlace) {
    CPlannedFolders folders{Side(sourcePlace), Side(targetPlace)};
    Side& source = folders.source;
    Side& target = folders.target;
    m_engine.m_sourceSyncTime = m_engine.m_targetSyncTime = {};
    m_engine.m_lastSyncSource = m_engine.m_lastSyncTarget = {};
    if (m_setting.Has(SYNC_NEW_ONLY)) m_engine.ReadLastSyncTimes(source.folder);
    m_engine.m_sourceData.Clear();
    m_engine.m_targetData.Clear();
    m_engine.SetPairTarget(target.folder);
    m_engine.SettleQuery(source.folder, target.folder);
    m_engine.ReadSyncFiles(source.folder, target.folder);
    ReadRows(source, m_engine.m_sourceSyncTime);
    ReadRows(target, m_engine.m_targetSyncTime);
    if (m_setting.Has(SYNC_TO_TARGET))
        m_engine.CreateModifyList("Source", source.changes, m_engine.m_sourceData, m_engine.m_targetData,
                                  source.folder, target.folder, source.rows, target.rows,
                                  m_engine.m_lastSyncSource);
    if (m_setting.Has(SYNC_FROM_TARGET))
        m_engine.CreateModifyList("Target", target.changes, m_engine.m_targetData, m_engine.m_sourceData,
                                  target.folder, source.folder, target.rows, source.rows,
                                  m_engine.m_lastSyncTarget);
    m_engine.FindConflicts(source.changes, target.changes, &source.folder, &target.folder);
    if (!m_engine.PollCancelled()) m_onFolders(folders);
}
