// Which rows of a folder exist for a run.
#include <Platform/UserInterface.h>
#include <Tarn/Engine/syncfolder.h>
#include <Tools/CompileRestriction.h>
#include <Tools/INIQuerys.h>

namespace {
constexpr char NotPrivate[] = "not (Private=1 or Sensitivity=2)";

std::string QueryText(const CTarnSetting& setting) {
    if (!setting.Has(SYNC_SKIP_PRIVATE)) return setting.m_query;
    if (setting.m_query.empty()) return NotPrivate;
    return std::string(NotPrivate) + " and (" + setting.m_query + ")";
}

// The table shows what the query names, for those who look at the rows.
void AddQueryColumns(const CCompileRestriction& compiler, const IMAPITablePtr& table) {
    SPropTagArray* columns = nullptr;
    THROW_ON_FAILURE_FOR(table->QueryColumns(0, &columns), table.Get());
    SPropTagArray* merged = compiler.MergeUsedTags(columns);
    HRESULT hr = S_OK;
    if (merged && columns && merged->cValues != columns->cValues) hr = table->SetColumns(merged, TBL_BATCH);
    MAPIFreeBuffer(merged);
    MAPIFreeBuffer(columns);
    THROW_ON_FAILURE_FOR(hr, table.Get());
}

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
    return m_setting && (HasFlag(SYNC_NEW_ONLY) || !QueryText(*m_setting).empty());
}

void CSyncFolder::ApplyTableFilter(const IMAPIFolderPtr& folder, const IMAPITablePtr& table,
                                   const FILETIME* time, bool useTime) {
    table.Restrict(nullptr, TBL_BATCH);
    if (!m_setting) return;
    const std::string query = QueryText(*m_setting);
    CINIQuerys queries;
    CCompileRestriction compiler;
    if (!query.empty()) {
        queries = LoadStoredQueries();
        PrepareQueryCompiler(compiler, folder.Get(), nullptr, &queries);
        compiler.Compile(query);
    }
    SRestriction* restriction = compiler.Restriction();
    const bool failed = !restriction && compiler.HasError();

    CSinceRestriction since(time ? *time : FILETIME{});
    if (time && useTime && HasFlag(SYNC_NEW_ONLY)) restriction = since.And(restriction);
    if (!query.empty()) AddQueryColumns(compiler, table);
    if (restriction) table.Restrict(restriction, TBL_BATCH);
    if (failed) ShowMessageBox(compiler.ErrorText(), "Vellumware");
}
