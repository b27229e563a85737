// select fields from path where condition: the form in which a query names its folder and its columns.
#include <MapiWrapper/MapiException.h>
#include <MapiWrapper/MapiRowSet.h>
#include <MapiWrapper/MapiTable.h>
#include <MapiWrapper/MsgStore.h>
#include <Tools/CompileRestriction.h>
#include <Tools/QueryLiteral.h>
#include <Tools/QueryText.h>

#include <cstring>

namespace {

// The columns of the store table and of a folder's hierarchy.
enum { colEntryId, colDisplayName };
const std::vector<ULONG> kNameColumns = {PR_ENTRYID, PR_DISPLAY_NAME_A};

// A published entry ID: four bytes of flags, then the provider's UID.
constexpr ULONG kUidOffset = 4;
constexpr ULONG kcbUid = 16;

bool SameUid(const SBinary& a, const SBinary& b) {
    if (a.cb < kUidOffset + kcbUid || b.cb < kUidOffset + kcbUid) return false;
    return std::memcmp(a.lpb + kUidOffset, b.lpb + kUidOffset, kcbUid) == 0;
}

// The parts of a path; separators that follow each other count as one.
std::vector<std::string> PathParts(const std::string& path) {
    std::vector<std::string> parts;
    for (size_t start = 0; start < path.size();) {
        const size_t end = std::min(path.find('\\', start), path.size());
        if (end > start) parts.push_back(path.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

// The entry ID of the first subfolder of that name in a row set; no rows if there is none.
CMapiRowSet FindSubfolderRows(const CGenMapiContPtr& folder, const std::string& name) {
    std::string text = name;
    SPropValue value{};
    value.ulPropTag = PR_DISPLAY_NAME_A;
    value.Value.lpszA = text.data();
    SRestriction byName{};
    byName.rt = RES_CONTENT;
    byName.res.resContent.ulFuzzyLevel = FL_IGNORECASE;
    byName.res.resContent.ulPropTag = PR_DISPLAY_NAME_A;
    byName.res.resContent.lpProp = &value;
    CMapiRowSet rows;
    THROW_ON_FAILURE(
        folder._rawHierrarchyTable().QueryAllWithRestriction(&byName, nullptr, rows, kNameColumns));
    return rows;
}

}  // namespace

void CCompileRestriction::SelectClause() {
    std::vector<std::string> fields;
    int token = TOK_END;
    if (!SelectFields(fields, token)) return;
    // Any other word behind the fields is used up.
    if (token == TOK_FROM && !SelectFrom()) return;
    SelectColumns(fields);
}

// Leaves the token behind the list in `token`.
bool CCompileRestriction::SelectFields(std::vector<std::string>& fields, int& token) {
    do {
        token = NextToken();
        std::string text = m_lexer.TokenText();
        if (token != TOK_WORD && token != TOK_STRING) {
            Error("Expeced field name");
            return false;
        }
        // A quoted name carries marks of its own: two characters before it and one behind.
        if (token == TOK_STRING) text = text.size() > 3 ? text.substr(2, text.size() - 3) : std::string();
        fields.push_back(text);
        token = NextToken();
    } while (token == ',');
    return true;
}

bool CCompileRestriction::SelectFrom() {
    if (!m_session.IsValid()) {
        m_errorHint = "The folder is given already here; leave out \"from ...\"";
        Error("For selecting a table, Session must be set");
        return false;
    }
    const int token = NextToken();
    if (token != TOK_WORD && token != TOK_STRING) {
        Error("Expected a table path");
        return false;
    }
    OpenTable(m_lexer.TokenText());
    Expect(TOK_WHERE, "Expected WHERE");
    return true;
}

void CCompileRestriction::SelectColumns(const std::vector<std::string>& fields) {
    if (m_columns) MAPIFreeBuffer(m_columns);
    m_columns = nullptr;
    void* block = nullptr;
    if (MAPIAllocateBuffer(static_cast<ULONG>(sizeof(ULONG) * fields.size() + 8), &block) < 0 || !block)
        throw std::bad_alloc();
    m_columns = static_cast<SPropTagArray*>(block);
    m_columns->cValues = 0;
    for (const std::string& field : fields) {
        const ULONG tag = TagOfWord(field);
        if (!tag) return Error(field + " is not a field");
        m_columns->aulPropTag[m_columns->cValues++] = tag;
    }
}

void CCompileRestriction::OpenTable(const std::string& path) {
    try {
        IMAPITablePtr table;
        THROW_ON_FAILURE(m_session->GetMsgStoresTable(0, table.Out()));
        const CMapiRowSet stores = table.QueryRows(kNameColumns);
        if (path.find('\\') != std::string::npos)
            OpenTableByPath(stores, path);
        else
            OpenTableByEntryId(stores, path);
    } catch (const CMAPIException& exception) {
        Error(exception.GetErrorText());
    } catch (...) {
        Error("Fatal Error in OpenTable");
    }
}

void CCompileRestriction::OpenTableByPath(const CMapiRowSet& stores, const std::string& path) {
    const std::vector<std::string> parts = PathParts(path);
    if (parts.empty()) throw CNullAccess("OpenTable");
    ULONG row = 0;
    while (row < stores.Count() && !EqualNoCase(stores.Cell(row, colDisplayName).Text(), parts[0]))
        ++row;
    if (row == stores.Count()) return Error("MsgStore " + parts[0] + " not found");
    const IMsgStorePtr store = m_session.OpenStore(stores.Cell(row, colEntryId).Binary());
    SetFolder(store._getIPMRoot().Get());
    for (size_t i = 1; i < parts.size(); ++i) {
        const CMapiRowSet found = FindSubfolderRows(m_folder, parts[i]);
        if (found.Count() == 0) return Error("Folder " + parts[i] + " not found");
        ReplaceFolder(m_folder.OpenEntryv(found.Cell(0, colEntryId)));
    }
}

// The last store of the same provider UID wins. Without any the folder stays what it was.
void CCompileRestriction::OpenTableByEntryId(const CMapiRowSet& stores, const std::string& hex) {
    const CMapiBinary entryId = BinaryFromHex(hex);
    for (ULONG row = 0; row < stores.Count(); ++row) {
        const SBinary storeId = stores.Cell(row, colEntryId).Binary();
        if (!SameUid(storeId, entryId.Bin())) continue;
        ReplaceFolder(m_session.OpenStore(storeId).OpenEntry(storeId));
    }
}

void CCompileRestriction::ReplaceFolder(const IMAPIPropPtr& opened) {
    const auto folder = opened.As<IMAPIContainerPtr>();
    if (!folder.IsValid()) throw CMAPIException(MAPI_E_INVALID_OBJECT, "OpenTable", nullptr);
    SetFolder(folder.Get());
}
