#include <Tarn/Engine/SyncTrace.h>
#include <Tarn/Engine/syncfolder.h>
#include <Tarn/Maintenance/Duplicates.h>
#include <Tarn/Maintenance/DuplicatesOfRuns.h>

namespace {

class CWatchOfRun : public IMaintenanceWatch {
public:
    explicit CWatchOfRun(CSyncFolder& run) : m_run(run) {}
    void ShowRow(unsigned, unsigned) override {}
    bool IsCancelled() override { return m_run.PollCancelled(); }

private:
    CSyncFolder& m_run;
};

class CDuplicatesOfRuns : public IRunPreparation {
public:
    void Prepare(CSyncFolder& run, const IMsgStorePtr& sourceStore, const IMAPIFolderPtr& source,
                 const IMsgStorePtr& targetStore, const IMAPIFolderPtr& target) override {
        CWatchOfRun watch(run);
        for (const CDuplicateOutcome& outcome :
             RemoveDuplicatesOfPair({sourceStore, source}, {targetStore, target}, {}, &watch)) {
            TraceFormat(run.m_traceFile, "%d dups deleted", static_cast<int>(outcome.removed));
            run.m_outcome.duplicatesMoved += outcome.removed;
            if (outcome.notRead || outcome.noHolding || outcome.failed) ++run.m_outcome.phasesFailed;
        }
    }
};

}  // namespace

IRunPreparation& DuplicatesOfRuns() {
    static CDuplicatesOfRuns removal;
    return removal;
}
