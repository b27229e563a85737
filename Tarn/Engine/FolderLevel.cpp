#include <Tarn/Engine/FolderLevel.h>

#include <unordered_map>
#include <unordered_set>

void CFolderLevel::ReadSource(const IMAPIFolderPtr& of) {
    folder = of;
    children = folder._rawHierrarchyTable();
    rows = children.QueryRows({PR_ENTRYID, PR_DISPLAY_NAME_A, PR_CONTAINER_CLASS_A});
}

void CFolderLevel::ReadTarget(const IMAPIFolderPtr& of) {
    folder = of;
    children = folder._rawHierrarchyTable();
    SSortOrderSet order{};
    order.cSorts = 1;
    order.aSort[0] = {PR_DISPLAY_NAME_A, TABLE_SORT_DESCEND};
    THROW_ON_FAILURE_FOR(children->SortTable(&order, TBL_BATCH), children.Get());
    rows = children.QueryRows({PR_ENTRYID, PR_DISPLAY_NAME_A});
}

SBinary CFolderLevel::ChildId(ULONG row) const {
    const CMapiPropValue id = rows.Cell(row, CHILD_ENTRYID);
    return id.Type() == PT_BINARY ? id.Binary() : SBinary{};
}

namespace {
// The row of a name that differs by case alone, which is the same name to most stores; -1 for none or more.
int RowWithoutCase(const CFolderLevel& level, const std::string& name) {
    SPropValue value{};
    value.ulPropTag = PR_DISPLAY_NAME_A;
    value.Value.lpszA = const_cast<char*>(name.c_str());
    SRestriction equal{};
    equal.rt = RES_CONTENT;
    equal.res.resContent = {FL_FULLSTRING | FL_IGNORECASE, PR_DISPLAY_NAME_A, &value};
    try {
        level.children.Restrict(&equal, TBL_BATCH);
        const CMapiRowSet found = level.children.QueryRows({PR_DISPLAY_NAME_A});
        return found.Count() == 1 ? level.rows.FindRow(CHILD_NAME, found.Cell(0, 0).Str()) : -1;
    } catch (const CMAPIException& e) {
        NoteException(e, "CSyncFolder::SyncFolder");
        return -1;
    }
}

class CMatcher {
public:
    CMatcher(const CFolderLevel& source, const CFolderLevel& target, CLevelMatch& match)
        : m_source(source),
          m_target(target),
          m_match(match),
          m_sourceDone(Done(source)),
          m_targetDone(Done(target)) {}

    // By a map, so that a thousand folders on each side do not cost a million comparisons.
    void ByName() {
        std::unordered_map<std::string, std::vector<ULONG>> named;
        for (ULONG j = 0; j < m_target.Count(); ++j)
            named[m_target.ChildName(j)].push_back(j);
        for (ULONG i = 0; i < m_source.Count(); ++i) {
            const auto equal = named.find(m_source.ChildName(i));
            if (equal == named.end()) continue;
            for (const ULONG j : equal->second) {
                if (!m_sourceDone[i] && !m_targetDone[j])
                    m_match.pairs.emplace_back(i, j);
                else
                    m_match.namesakes.push_back({!m_sourceDone[i], equal->first});
                m_sourceDone[i] = m_targetDone[j] = true;
            }
        }
    }

    void ByNameWithoutCase() {
        if (m_target.Count() == 0) return;
        for (ULONG i = 0; i < m_source.Count(); ++i) {
            if (m_sourceDone[i]) continue;
            const int j = RowWithoutCase(m_target, m_source.ChildName(i));
            if (j < 0 || m_targetDone[static_cast<size_t>(j)]) continue;
            m_match.pairs.emplace_back(i, static_cast<ULONG>(j));
            m_sourceDone[i] = m_targetDone[static_cast<size_t>(j)] = true;
        }
    }

    void Rest() {
        TakeRest(m_source, m_sourceDone, true, m_match.inSourceAlone);
        TakeRest(m_target, m_targetDone, false, m_match.inTargetAlone);
    }

private:
    static std::vector<bool> Done(const CFolderLevel& level) {
        std::vector<bool> done(level.Count());
        for (ULONG row = 0; row < level.Count(); ++row)
            done[row] = level.ChildId(row).cb == 0;
        return done;
    }

    void TakeRest(const CFolderLevel& level, const std::vector<bool>& done, bool inSource,
                  std::vector<ULONG>& alone) {
        std::unordered_set<std::string> names;
        for (ULONG row = 0; row < level.Count(); ++row) {
            if (done[row]) continue;
            const std::string name = level.ChildName(row);
            if (names.insert(name).second)
                alone.push_back(row);
            else
                m_match.namesakes.push_back({inSource, name});
        }
    }

    const CFolderLevel& m_source;
    const CFolderLevel& m_target;
    CLevelMatch& m_match;
    std::vector<bool> m_sourceDone;
    std::vector<bool> m_targetDone;
};
}  // namespace

CLevelMatch::CLevelMatch(const CFolderLevel& source, const CFolderLevel& target) {
    CMatcher matcher(source, target, *this);
    matcher.ByName();
    matcher.ByNameWithoutCase();
    matcher.Rest();
}
