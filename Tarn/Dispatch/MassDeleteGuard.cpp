#include <Tarn/Dispatch/MassDeleteGuard.h>

#include <Tarn/Dispatch/PairPlan.h>

#include <cstdint>
#include <vector>

std::string MassDeletionText(const CPlannedDeletions& planned) {
    return std::to_string(planned.deletions) + " of the " + std::to_string(planned.items) + " items in \"" +
           planned.folder + "\" would be deleted";
}

bool CMassDeleteGuard::IsTooMany(const CPlannedDeletions& planned) const {
    return planned.deletions >= kMassDeleteLeast &&
           std::uint64_t{planned.deletions} * 100 > std::uint64_t{planned.items} * m_sharePercent;
}

bool CMassDeleteGuard::PermitsOne(const CPlannedDeletions& planned) {
    if (m_isMeant || !IsTooMany(planned)) return true;
    m_isMeant = m_question && m_question(planned);
    if (!m_isMeant) m_refused = planned;
    return m_isMeant;
}

bool CMassDeleteGuard::Permits(const CPlannedDeletions& inSource, const CPlannedDeletions& inTarget) {
    return PermitsOne(inSource) && PermitsOne(inTarget);
}

bool CMassDeleteGuard::PermitsPair(const CMapiSession& session, CTarnSetting& setting,
                                   CSyncProgress* progress) {
    m_isMeant = false;
    m_refused.reset();
    // A single folder is looked at once, by its run.
    if (!setting.Has(SYNC_SUBFOLDERS) || !setting.Has(SYNC_DELETE_IN_TARGET)) return true;
    std::vector<CPlannedDeletions> folders;
    CPlannedDeletions wholeSource{setting.m_sourcePath, 0, 0};
    CPlannedDeletions wholeTarget{setting.m_targetPath, 0, 0};
    const auto count = [&](CPlannedFolders::Side& side, const CSyncMessages& changes,
                           CPlannedDeletions& whole) {
        const CPlannedDeletions planned = CountDeletions(side.path, changes, side.rows);
        whole.items += planned.items;
        whole.deletions += planned.deletions;
        if (IsTooMany(planned)) folders.push_back(planned);
    };
    try {
        CPairPlan plan(session, setting, progress);
        plan.Walk(
            [&](CPlannedFolders& pair) {
                count(pair.source, pair.target.changes, wholeSource);
                count(pair.target, pair.source.changes, wholeTarget);
            },
            {});
        if (plan.Outcome().cancelled) return true;
    } catch (const CMAPIException&) {
        return true;
    }
    if (!Permits(wholeSource, wholeTarget)) return false;
    for (const CPlannedDeletions& planned : folders)
        if (!PermitsOne(planned)) return false;
    return true;
}
