// Which rows of a folder exist for a run.
#include <Platform/UserInterface.h>
#include <Tarn/Engine/PairQuery.h>
#include <Tarn/Engine/syncfolder.h>

namespace {
// Rows changed at `time` or later.
class CSinceRestriction {
public:
    explicit CSinceRestriction(const FILETIME& time) {
        m_value.ulPropTag = PR_LAST_MODIFICATION_TIME;
        m_value.Value.ft = time;
        m_both[0].rt = RES_PROPERTY;
        m_both[0].res.resProperty = {RELOP_GE, PR_LAST_MODIFICATION_TIME, &m_value};
    }
    CSinceRestriction(const CSinceRestriction&) = delete;
    CSinceRestriction& operator=(const CSinceRestriction&) = delete;

    // The time alone, or the time and then `other`; valid as long as this object and `other`.
    SRestriction* And(SRestriction* other) {
        if (!other) return &m_both[0];
        m_both[1] = *other;
        m_joined.rt = RES_AND;
        m_joined.res.resAnd = {2, m_both};
        return &m_joined;
    }

private:
    SPropValue m_value{};
    SRestriction m_both[2] = {};
    SRestriction m_joined{};
};
}  // namespace

bool CSyncFolder::IsFiltered() const {
    return m_setting && (HasFlag(SYNC_NEW_ONLY) || HasFlag(SYNC_SKIP_PRIVATE) || !m_setting->m_query.empty());
}

bool CSyncFolder::HasQuery() const {
    return m_setting && !m_leaveQueryOut && !m_setting->m_query.empty();
}

std::string CSyncFolder::SettleQuery(const IMAPIFolderPtr& source, const IMAPIFolderPtr& target) {
    m_leaveQueryOut = false;
    if (!m_setting || m_setting->m_query.empty()) return {};
    std::string problem;
    for (const IMAPIFolderPtr* folder : {&source, &target})
        if (folder->IsValid() && problem.empty()) problem = CPairQuery(*m_setting, *folder, false).Problem();
    m_leaveQueryOut = !problem.empty();
    return problem;
}

void CSyncFolder::ApplyTableFilter(const IMAPIFolderPtr& folder, const IMAPITablePtr& table,
                                   const FILETIME* time, bool useTime) {
    table.Restrict(nullptr, TBL_BATCH);
    if (!m_setting) return;
    CPairQuery query(*m_setting, folder, m_leaveQueryOut);
    // What was settled for both sides before they were looked at must not fall open for one of them now:
    // rows that the look did not have would count as new, or be remembered as seen.
    if (!query.Problem().empty()) throw CMAPIException(MAPI_E_CALL_FAILED, "ApplyTableFilter", nullptr);
    SRestriction* restriction = query.Restriction();
    if (restriction) query.AddColumns(table);
    CSinceRestriction since(time ? *time : FILETIME{});
    if (time && useTime && HasFlag(SYNC_NEW_ONLY)) restriction = since.And(restriction);
    if (restriction) table.Restrict(restriction, TBL_BATCH);
}
