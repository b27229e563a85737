#include <Tools/CharClasses.h>
#include <Tools/QueryLexer.h>
#include <Tools/QueryText.h>

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace {

bool IsOperator(char c) {
    return c != 0 && std::string_view("+-()*/=,").find(c) != std::string_view::npos;
}

// The keywords, misspelt ones included: stored texts use them as they are.
const std::unordered_map<std::string, int>& Keywords() {
    static const std::unordered_map<std::string, int> keywords = {
        {"and", TOK_AND},
        {"or", TOK_OR},
        {"not", TOK_NOT},
        {"<=", TOK_LE},
        {">=", TOK_GE},
        {"<>", TOK_NE},
        {"substring", TOK_SUBSTRING},
        {"prefix", TOK_PREFIX},
        {"ignorecase", TOK_IGNORECASE},
        {"loose", TOK_LOOSE},
        {"ignorespace", TOK_IGNORESPACE},
        {"fullstring", TOK_FULLSTRING},
        {"date", TOK_DATE},
        {"field", TOK_FIELD},
        {"now", TOK_NOW},
        {"daysfromnow", TOK_DAYSFROMNOW},
        {"today", TOK_TODAY},
        {"bitmask", TOK_BIT},
        {"bit", TOK_BIT},
        {"recipient", TOK_RECIPIENT},
        {"attachment", TOK_ATTACHMENT},
        {"userfield", TOK_USERFIELD},
        {"exists", TOK_EXISTS},
        {"exist", TOK_EXISTS},
        {"order", TOK_ORDER},
        {"by", TOK_BY},
        {"ascending", TOK_ASCENDING},
        {"descending", TOK_DESCENDING},
        {"from", TOK_FROM},
        {"select", TOK_SELECT},
        {"combine", TOK_COMBINE},
        {"where", TOK_WHERE},
        {"size", TOK_SIZE},
        {"hierrarchy", TOK_HIERARCHY},
        {"accociated", TOK_ASSOCIATED},
        {"string", TOK_TYPESTRING},
        {"long", TOK_TYPELONG},
        {"bool", TOK_TYPEBOOL},
    };
    return keywords;
}

constexpr size_t kLongestKeyword = 11;

}  // namespace

int QueryKeyword(const std::string& text) {
    if (text.size() > kLongestKeyword) return 0;
    const auto found = Keywords().find(LowerCase(text));
    return found == Keywords().end() ? 0 : found->second;
}

bool HasOpenQuote(const std::string& query) {
    CQueryLexer lexer;
    lexer.SetText(query);
    while (lexer.NextToken() != TOK_END) {
    }
    return lexer.HasOpenQuote();
}

void CQueryLexer::SetText(const std::string& text) {
    m_text.assign(text, 0, text.find('\0'));
    m_cursor = 0;
    m_tokenStart = 0;
    m_tokenText.clear();
    m_hasOpenQuote = false;
}

void CQueryLexer::Exchange(State& state) {
    std::swap(m_text, state.text);
    std::swap(m_cursor, state.cursor);
    std::swap(m_tokenStart, state.tokenStart);
}

size_t CQueryLexer::TokenOffset() const {
    size_t i = m_tokenStart;
    while (i < m_text.size() && IsSpace(At(i)))
        ++i;
    return std::min(i, m_text.size());
}

int CQueryLexer::NextToken() {
    m_tokenStart = m_cursor;
    if (At(m_cursor) == 0) return TOK_END;
    char c = At(m_cursor++);
    while (IsSpace(c))
        c = At(m_cursor++);
    if (IsOperator(c)) return c;
    const char next = At(m_cursor);
    if (c == '>' && next == '=') {
        ++m_cursor;
        return TOK_GE;
    }
    if (c == '<' && next == '=') {
        ++m_cursor;
        return TOK_LE;
    }
    if (c == '<' && next == '>') {
        ++m_cursor;
        return TOK_NE;
    }
    // There is no less-than: queries that people have stored mean "greater" by either sign.
    if (c == '>' || c == '<') return '>';
    return c == '"' ? Quoted() : Word(c);
}

// A missing closing quote is closed by the end.
int CQueryLexer::Quoted() {
    const size_t start = m_cursor;
    while (At(m_cursor) != 0 && At(m_cursor) != '"')
        ++m_cursor;
    m_tokenText.assign(m_text, start, m_cursor - start);
    m_hasOpenQuote = m_hasOpenQuote || At(m_cursor) == 0;
    ++m_cursor;
    const int keyword = QueryKeyword(m_tokenText);
    return keyword ? keyword : TOK_STRING;
}

// `first` is any byte at all, also the end that white space ran into: the word is then empty and the
// cursor stands behind the end, where every further token is TOK_END.
int CQueryLexer::Word(char first) {
    if (first == '\0') {
        m_tokenText.clear();
        return TOK_WORD;
    }
    const size_t start = m_cursor - 1;
    while (IsAlnum(At(m_cursor)))
        ++m_cursor;
    m_tokenText.assign(m_text, start, m_cursor - start);
    const int keyword = QueryKeyword(m_tokenText);
    return keyword ? keyword : TOK_WORD;
}
