#include <Programs/vellum/Sync/DryRun.h>

#include <Programs/vellum/Session/Explain.h>
#include <Tarn/Settings/PairPlan.h>

namespace {

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

void Report(CPairResult& result, const CPlannedFolders::Side& from, const CPlannedFolders::Side& to,
            bool toSource) {
    for (std::size_t i = 0; i < from.changes.Count(); ++i) {
        const CSyncMessage& change = from.changes.At(i);
        result.protocol.Add(to.name, from.name, change.m_name, change.m_state, Intention(change.m_state),
                            change.m_syncId);
        result.toSource.push_back(toSource);
        if (change.m_state == STATE_CONFLICT) ++result.outcome.conflicts;
    }
}

}  // namespace

void DryRunPair(CProfileSession& session, CSyncProgress& progress, CPairResult& result) {
    CFolderRef source;
    CFolderRef target;
    if (!OpenPairFolders(session, result, source, target)) return;
    try {
        CPairPlan plan(session.Mapi(), result.pair, &progress);
        plan.Walk(
            [&](CPlannedFolders& folders) {
                Report(result, folders.source, folders.target, false);
                Report(result, folders.target, folders.source, true);
                ++result.outcome.pairsRun;
            },
            [&](const std::string& path) { result.missingFolders.push_back(path); });
    } catch (const CMAPIException& e) {
        result.problem = "it cannot be looked at: " + Explain(e.Hr());
    }
}
