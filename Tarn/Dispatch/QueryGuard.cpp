#include <Tarn/Dispatch/QueryGuard.h>

#include <Tarn/Dispatch/PermanentSynchronization.h>
#include <Tarn/Engine/PairQuery.h>

bool CQueryGuard::PermitsQuery(const std::string& problem) {
    if (m_isMeant) return true;
    m_isMeant = m_question && m_question(problem);
    if (!m_isMeant) m_refused = problem;
    return m_isMeant;
}

bool CQueryGuard::PermitsPair(const CMapiSession& session, const CTarnSetting& setting) {
    m_isMeant = false;
    m_refused.clear();
    if (setting.m_query.empty()) return true;
    std::string problem;
    try {
        for (const std::string* key : {&setting.m_sourceKey, &setting.m_targetKey})
            if (problem.empty())
                problem = CPairQuery(setting, OpenFolderOfKey(session, *key), false).Problem();
    } catch (const CMAPIException&) {
        return true;
    }
    return problem.empty() || PermitsQuery(problem);
}
