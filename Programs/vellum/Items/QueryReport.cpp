#include <Programs/vellum/Items/QueryReport.h>

#include <MapiWrapper/HexText.h>
#include <Programs/vellum/Console/Console.h>
#include <Programs/vellum/Console/ExitCode.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Items/ItemReport.h>
#include <Programs/vellum/Items/PropertyReport.h>
#include <Programs/vellum/Session/Explain.h>
#include <Tools/QueryLexer.h>
#include <Tools/RestrictionTree.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <ostream>
#include <sstream>

namespace {

std::string HexTag(ULONG tag) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(tag));
    return text;
}

constexpr std::size_t kMarkedBytes = 100;  // of a long text, on either side of the mark

bool IsInsideCharacter(const std::string& text, std::size_t at) {
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
}

// The text, or what of it lies near, on one line with a mark below the byte `offset`.
std::string MarkedText(const std::string& text, std::size_t offset) {
    std::string before = OneLine(Utf8FromNarrow(text.substr(0, offset)));
    std::string behind = OneLine(Utf8FromNarrow(text.substr(offset)));
    if (before.size() > kMarkedBytes) {
        std::size_t cut = before.size() - kMarkedBytes;
        while (IsInsideCharacter(before, cut))
            ++cut;
        before = "..." + before.substr(cut);
    }
    if (behind.size() > kMarkedBytes) {
        std::size_t cut = kMarkedBytes;
        while (IsInsideCharacter(behind, cut))
            --cut;
        behind = behind.substr(0, cut) + "...";
    }
    return before + behind + "\n  " + std::string(Utf8Length(before), ' ') + "^";
}

std::vector<ULONG> TagsOf(const SPropTagArray& array) {
    return {array.aulPropTag, array.aulPropTag + array.cValues};
}

const char* DirectionName(ULONG order) {
    switch (order) {
        case TABLE_SORT_DESCEND:
            return "descending";
        case TABLE_SORT_COMBINE:
            return "combine";
        default:
            return "ascending";
    }
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(Utf8FromNarrow(line));
    return lines;
}

bool HasSize(const SRestriction* restriction) {
    for (const std::string& line : Lines(RestrictionTree(restriction)))
        if (line.find("SIZE ") == line.find_first_not_of(' ') && !line.empty()) return true;
    return false;
}

void CheckSearch(HRESULT hr, const CCompileRestriction& compiler, const std::string& path) {
    const std::string failure = "The folder \"" + path + "\" cannot be searched with this query";
    if (hr == MAPI_E_INVALID_PARAMETER && HasSize(compiler.Restriction()))
        throw CCommandError(ExitCode::NotOpen, failure + ": " + Explain(hr),
                            "The word size makes a condition that no store takes; the size of an item is "
                            "MessageSize.");
    CheckCall(hr, failure, ExitCode::NotOpen);
}

std::vector<ULONG> ListedTags(const CCompileRestriction& compiler) {
    if (const SPropTagArray* columns = compiler.Columns()) return TagsOf(*columns);
    std::vector<ULONG> tags = {PR_SUBJECT_A};
    for (const ULONG tag : compiler.UsedTags())
        if (tag != PR_SUBJECT_A) tags.push_back(tag);
    return tags;
}

CListing::Cell CellOf(const CMapiPropValue& value) {
    if (value.IsNull() || value.IsError()) return Json();
    if (value.Type() == PT_SYSTIME) return {ValueToJson(*value.Get()), ShortTime(value.Time())};
    return ValueToJson(*value.Get());
}

// Words that the scanner takes for something else can't name a field.
void AddPublishedWords(const CNameTable& names, CCompileRestriction& compiler,
                       std::vector<CFieldWord>& words) {
    for (const CNameRow& row : NameRows(names)) {
        std::string name = row.name;
        if (name.ends_with("_A") || name.ends_with("_W")) name.resize(name.size() - 2);
        const std::string word = QueryWordFromName(name);
        if (QueryKeyword(word)) continue;
        if (const ULONG tag = compiler.TagOfWord(word)) words.push_back({word, tag, PROP_TYPE(tag)});
    }
}

}  // namespace

std::optional<std::string> FolderInQuery(const std::string& text) {
    CQueryLexer lexer;
    lexer.SetText(text);
    bool selects = false;
    for (int token = lexer.NextToken(); token != TOK_END; token = lexer.NextToken()) {
        if (token == TOK_SELECT) selects = true;
        if (!selects || token != TOK_FROM) continue;
        lexer.NextToken();
        return Utf8FromNarrow(lexer.TokenText());
    }
    return {};
}

CQueryCompiler::CQueryCompiler(const IMAPIFolderPtr& folder, const CMapiSession& session)
    : queries(LoadStoredQueries()) {
    PrepareQueryCompiler(compiler, folder.Get(), session.Raw(), &queries);
    compiler.SetCreateNames(false);
}

std::string CQueryCompiler::Message() const {
    std::string message = OneLine(Utf8FromNarrow(compiler.ErrorText()));
    message.erase(0, message.find_first_not_of(' '));
    message.erase(message.find_last_not_of(' ') + 1);
    if (!compiler.ErrorQuery().empty())
        message += " (in the stored query \"" + Utf8FromNarrow(compiler.ErrorQuery()) + "\")";
    return message;
}

void CQueryCompiler::Compile(const std::string& text) {
    if (compiler.Compile(text)) return;
    const std::string hint = OneLine(Utf8FromNarrow(compiler.ErrorHint()));
    throw CCommandError(ExitCode::Usage, "The query cannot be understood: " + Message(),
                        MarkedText(text, compiler.ErrorOffset()) + (hint.empty() ? "" : "\n  " + hint + "."));
}

std::vector<std::string> CQueryCompiler::Doubts() const {
    std::vector<std::string> doubts;
    for (const std::string& warning : compiler.Warnings())
        doubts.push_back(OneLine(Utf8FromNarrow(warning)));
    for (const std::string& name : compiler.AbsentNames())
        doubts.push_back("No item of this store has a field \"" + OneLine(Utf8FromNarrow(name)) +
                         "\": the store does not know the name yet");
    return doubts;
}

void CQueryCompiler::TryOn(const CGenMapiContPtr& folder, const std::string& path) const {
    const IMAPITablePtr table = folder._rawContentsTable();
    const std::vector<ULONG> columns = {PR_ENTRYID};
    HRESULT hr = S_OK;
    CStoreText text(table.Text());
    if (SRestriction* restriction = compiler.Restriction())
        hr = table->Restrict(text.Restriction(restriction), 0);
    if (hr >= 0 && compiler.SortOrder()) hr = table->SortTable(text.Order(compiler.SortOrder()), 0);
    CMapiRowSet row;
    if (hr >= 0) hr = table.SetColumnsAndQuery(row, 1, 0, columns);
    CheckSearch(hr, compiler, path);
}

Json QueryToJson(const CCompileRestriction& compiler) {
    Json columns = Json::array();
    if (compiler.Columns())
        for (const ULONG tag : TagsOf(*compiler.Columns()))
            columns.push_back({{"word", Utf8FromNarrow(compiler.WordOfTag(tag))},
                               {"tag", HexTag(tag)},
                               {"type", TypeName(tag)}});
    Json order = Json::array();
    if (const SSortOrderSet* sort = compiler.SortOrder())
        for (const SSortOrder* key = sort->aSort; key != sort->aSort + sort->cSorts; ++key)
            order.push_back({{"word", Utf8FromNarrow(compiler.WordOfTag(key->ulPropTag))},
                             {"tag", HexTag(key->ulPropTag)},
                             {"direction", DirectionName(key->ulOrder)}});
    return {{"tree", Lines(RestrictionTree(compiler.Restriction()))}, {"columns", columns}, {"order", order}};
}

void PrintQuery(CConsole& console, const Json& query) {
    std::ostream& out = console.Out();
    out << OneLine(query["text"].get<std::string>()) << "\n\n";
    for (const Json& line : query["tree"])
        out << OneLine(line.get<std::string>()) << '\n';
    for (const Json& column : query["columns"])
        out << "column " << column["word"].get<std::string>() << ' ' << column["tag"].get<std::string>()
            << '\n';
    for (const Json& key : query["order"])
        out << "order by " << key["direction"].get<std::string>() << ' ' << key["word"].get<std::string>()
            << ' ' << key["tag"].get<std::string>() << '\n';
}

CListing RunQuery(const CCompileRestriction& compiler, const std::string& folderPath) {
    const std::vector<ULONG> tags = ListedTags(compiler);
    std::vector<CListing::Column> columns = {{"id", ""}};
    std::vector<ULONG> asked = {PR_ENTRYID};
    for (const ULONG tag : tags) {
        const std::string word = Utf8FromNarrow(compiler.WordOfTag(tag));
        columns.push_back({word, word});
        asked.push_back(tag);
    }
    CMapiRowSet rows;
    const IMAPIContainerPtr folder(compiler.Folder());
    const HRESULT hr = folder._rawContentsTable().QueryAllWithRestriction(compiler.Restriction(),
                                                                          compiler.SortOrder(), rows, asked);
    CheckSearch(hr, compiler, folderPath);
    CListing listing(columns, "No item fits the query.");
    for (ULONG row = 0; row < rows.Count(); ++row) {
        std::vector<CListing::Cell> cells = {Json(HexFromBinary(rows.Cell(row, 0).Binary()))};
        for (ULONG column = 1; column <= tags.size(); ++column)
            cells.push_back(CellOf(rows.Cell(row, column)));
        listing.AddRow(std::move(cells));
    }
    return listing;
}

std::vector<CFieldWord> FieldWords() {
    CCompileRestriction compiler;
    std::vector<CFieldWord> words;
    AddPublishedWords(MainNameTable(), compiler, words);
    AddPublishedWords(SecondaryNameTable(), compiler, words);
    const auto byWord = [](const CFieldWord& a, const CFieldWord& b) { return a.word < b.word; };
    const auto sameWord = [](const CFieldWord& a, const CFieldWord& b) { return a.word == b.word; };
    std::sort(words.begin(), words.end(), byWord);
    words.erase(std::unique(words.begin(), words.end(), sameWord), words.end());

    const CUserFields& named = compiler.UserFields();
    const std::size_t published = words.size();
    for (std::size_t i = 0; i < named.Count(); ++i) {
        const CFieldWord word{named.Row(i).name, 0, named.Row(i).type};
        const auto taken = [&](const CFieldWord& known) { return sameWord(known, word); };
        // A published name goes before a named property, and the first row of a name before the second.
        if (std::none_of(words.begin(), words.end(), taken)) words.push_back(word);
    }
    std::sort(words.begin() + static_cast<std::ptrdiff_t>(published), words.end(), byWord);
    return words;
}
