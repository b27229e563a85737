#include <Programs/vellum/Sync/DryRun.h>

#include <Platform/UserInterface.h>
#include <Programs/vellum/Session/Explain.h>
#include <Tarn/Dispatch/PairPlan.h>
#include <Tarn/Dispatch/QueryGuard.h>

namespace {

std::string Intention(const CSyncMessage& change, const CMapiRowSet& otherRows) {
    if (change.m_settled != 0) return LoadText(change.m_settled);
    switch (change.m_state) {
        case STATE_NEW:
        case STATE_MOVED:
            return "would be copied";
        case STATE_MODIFIED:
            return "would be carried over";
        case STATE_DELETED:
            return change.m_syncId.empty() || !otherRows.IsValid() ||
                           otherRows.FindRow(COL_SYNC_ID, change.m_syncId) < 0
                       ? "is gone there as well"
                       : "would be deleted there";
        default:
            return "";
    }
}

void Report(CPairResult& result, const CPlannedFolders::Side& from, const CPlannedFolders::Side& to,
            bool toSource) {
    for (std::size_t i = 0; i < from.changes.Count(); ++i) {
        const CSyncMessage& change = from.changes.At(i);
        const std::string intention = Intention(change, to.rows);
        result.protocol.Add({to.name, from.name, change.m_name, intention, static_cast<int>(change.m_state),
                             change.m_syncId, intention, toSource});
        if (change.IsLostVersion()) ++result.outcome.conflicts;
    }
}

}  // namespace

void DryRunPair(CProfileSession& session, CSyncProgress& progress, bool ignoreBadQuery, CPairResult& result) {
    if (!CanOpenPair(session, result)) return;
    CQueryGuard guard;
    if (!ignoreBadQuery && !guard.PermitsPair(session.Mapi(), result.pair)) {
        result.badQuery = guard.Refused();
        return;
    }
    try {
        CPairPlan plan(session.Mapi(), result.pair, &progress);
        plan.Walk(
            [&](CPlannedFolders& folders) {
                Report(result, folders.source, folders.target, false);
                Report(result, folders.target, folders.source, true);
                ++result.outcome.pairsRun;
            },
            [&](const std::string& path) { result.missingFolders.push_back(path); });
        for (const std::string& path : plan.Namesakes()) {
            ShowMessageBox(NamesakeText(path), "Tarn");
            ++result.outcome.pairsNotOpened;
        }
    } catch (const CMAPIException& e) {
        result.problem = "it cannot be looked at: " + Explain(e);
    }
}
