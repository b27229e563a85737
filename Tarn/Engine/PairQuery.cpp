#include <Tarn/Engine/PairQuery.h>

#include <utility>

namespace {

// A text of its own: joined to a person's text it would be governed by the "not" in that, or be read as
// part of a quotation that was left open. Some stores take what is absent for equal to anything.
constexpr char NotPrivate[] =
    "not ((exists Private and Private=1) or (exists Sensitivity and Sensitivity=2))";

constexpr char White[] = " \t\r\n";

// A store that fails for a moment is a failed run; it says nothing about the text.
bool CompileIn(CCompileRestriction& compiler, const std::string& text) {
    const bool compiled = compiler.Compile(text);
    if (FAILED(compiler.StoreError()))
        throw CMAPIException(compiler.StoreError(), "CPairQuery", compiler.Folder());
    return compiled;
}

}  // namespace

CPairQuery::CPairQuery(const CTarnSetting& setting, const IMAPIFolderPtr& folder, bool leaveOutQuery) {
    if (!leaveOutQuery) m_text = setting.m_query;
    if (!m_text.empty()) {
        m_stored = LoadStoredQueries();
        PrepareQueryCompiler(m_query, folder.Get(), nullptr, &m_stored);
        CompileIn(m_query, m_text);
        m_restriction = m_query.Restriction();
    }
    if (!setting.Has(SYNC_SKIP_PRIVATE)) return;
    PrepareQueryCompiler(m_notPrivate, folder.Get(), nullptr, nullptr);
    if (!CompileIn(m_notPrivate, NotPrivate)) throw CMAPIException(MAPI_E_CALL_FAILED, "CPairQuery", nullptr);
    if (SRestriction* query = std::exchange(m_restriction, m_notPrivate.Restriction())) {
        m_children[0] = *query;
        m_children[1] = *m_notPrivate.Restriction();
        m_both.rt = RES_AND;
        m_both.res.resAnd = {2, m_children};
        m_restriction = &m_both;
    }
}

std::string CPairQuery::Problem() const {
    if (m_text.empty()) return {};
    const std::string query = "The query \"" + m_text + "\" ";
    if (m_query.HasError()) {
        const std::string hint = m_query.ErrorHint();
        return query + "cannot be understood:" + m_query.ErrorText() + (hint.empty() ? "" : ". " + hint);
    }
    const std::string rest = m_text.substr(m_query.EndOffset());
    if (rest.find_first_not_of(White) != std::string::npos)
        return query + "ends before \"" + rest + "\", which is not read" +
               (rest[0] == '(' ? "; a stored query that it calls is not there" : "");
    return m_query.Restriction() ? std::string() : query + "holds no condition";
}

void CPairQuery::AddColumns(const IMAPITablePtr& table) const {
    SPropTagArray* columns = nullptr;
    THROW_ON_FAILURE_FOR(table->QueryColumns(0, &columns), table.Get());
    SPropTagArray* ofQuery = m_query.MergeUsedTags(columns);
    SPropTagArray* merged = m_notPrivate.MergeUsedTags(ofQuery);
    HRESULT hr = S_OK;
    if (merged && columns && merged->cValues != columns->cValues) hr = table->SetColumns(merged, TBL_BATCH);
    MAPIFreeBuffer(merged);
    MAPIFreeBuffer(ofQuery);
    MAPIFreeBuffer(columns);
    THROW_ON_FAILURE_FOR(hr, table.Get());
}
