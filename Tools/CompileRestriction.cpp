#include <MapiWrapper/MapiException.h>
#include <MapiWrapper/UserFields.h>
#include <Tools/CompileRestriction.h>
#include <Tools/INIQuerys.h>
#include <Tools/QueryLiteral.h>

#include <algorithm>

CCompileRestriction::CCompileRestriction() : m_userFields(std::make_unique<CUserFields>()) {
    m_userFields->AddDefaults();
}

CCompileRestriction::~CCompileRestriction() {
    Reset();
}

void CCompileRestriction::SetFolder(IMAPIContainer* folder) {
    m_folder = IMAPIContainerPtr(folder);
    m_namedTags.clear();
}

void CCompileRestriction::SetSession(IMAPISession* session) {
    m_session = CMapiSession(session);
}

void CCompileRestriction::Reset() {
    m_literalStack.clear();
    m_callStack.clear();
    m_textOf = nullptr;
    m_callOffset = 0;
    m_cbExpanded = 0;
    m_depth = 0;
    m_hasError = false;
    m_errorText.clear();
    m_errorHint.clear();
    m_storeError = S_OK;
    m_warnings.clear();
    m_errorOffset = 0;
    m_endOffset = 0;
    m_isLoneValue = false;
    m_errorQuery.clear();
    if (m_columns) MAPIFreeBuffer(m_columns);
    if (m_sortOrder) MAPIFreeBuffer(m_sortOrder);
    m_columns = nullptr;
    m_sortOrder = nullptr;
    m_restriction = nullptr;
    m_memory.Free();
}

bool CCompileRestriction::Compile(const std::string& text) {
    Reset();
    m_lexer.SetText(text);
    try {
        Run();
    } catch (const CQueryLimit& limit) {
        Error(limit.message);
    } catch (const CQueryGap& gap) {
        Crash(gap.missing);
    } catch (const CMAPIException& refused) {
        m_storeError = refused.Hr();
        Crash("The store refuses to number the named properties: " + refused.GetErrorText());
    } catch (...) {
        Crash({});
    }
    if (m_lexer.HasOpenQuote()) Warn("A quote is not closed; what follows it, up to the end, is one text");
    if (m_columns) {
        if (SPropTagArray* merged = MergeUsedTags(m_columns)) {
            MAPIFreeBuffer(m_columns);
            m_columns = merged;
        }
    }
    return !m_hasError;
}

void CCompileRestriction::Run() {
    Expression();
    if (m_hasError) return;
    m_endOffset = m_lexer.TokenOffset();
    const auto top = Pop();
    if (!top) return;
    m_restriction = top->restriction;
    m_isLoneValue = !m_restriction;
}

// Neither an operand that is not there nor a store that refuses a name has a message of its own.
void CCompileRestriction::Crash(const std::string& hint) {
    if (m_errorHint.empty()) m_errorHint = hint;
    Error("Crash in Compile");
}

void CCompileRestriction::Warn(const std::string& warning) {
    if (std::find(m_warnings.begin(), m_warnings.end(), warning) == m_warnings.end())
        m_warnings.push_back(warning);
}

void CCompileRestriction::Error(const std::string& message) {
    if (!m_hasError) {
        m_errorOffset = m_textOf ? m_callOffset : m_lexer.TokenOffset();
        if (m_textOf) m_errorQuery = *m_textOf;
    }
    m_hasError = true;
    m_errorText += ' ';
    m_errorText += message;
}

// Reads a token that must be there. The parse goes on either way, so that one slip may show several
// messages.
void CCompileRestriction::Expect(int token, const char* message) {
    if (NextToken() != token) Error(message);
}

namespace {

// Counts the levels of the descent, so that a text cannot use up the stack.
class CDepth {
public:
    explicit CDepth(unsigned& depth) : m_depth(depth) {
        if (depth >= CCompileRestriction::kMaxDepth) throw CQueryLimit{"Query is nested too deeply"};
        ++m_depth;
    }
    ~CDepth() { --m_depth; }
    CDepth(const CDepth&) = delete;
    CDepth& operator=(const CDepth&) = delete;

private:
    unsigned& m_depth;
};

// The published relation of an operator, or -1.
int RelopOfToken(int token) {
    switch (token) {
        case '=':
            return RELOP_EQ;
        case TOK_LE:
            return RELOP_LE;
        case TOK_GE:
            return RELOP_GE;
        case TOK_NE:
            return RELOP_NE;
        case '>':
            return RELOP_GT;
        default:
            return -1;
    }
}

// The share of a word in a fuzzy level; 0 for one that has none and so is the value itself.
ULONG FuzzyLevelOf(int token) {
    switch (token) {
        case TOK_SUBSTRING:
            return FL_SUBSTRING;
        case TOK_PREFIX:
            return FL_PREFIX;
        case TOK_IGNORECASE:
            return FL_IGNORECASE;
        case TOK_LOOSE:
            return FL_LOOSE;
        case TOK_IGNORESPACE:
            return FL_IGNORENONSPACE;
        case TOK_BIT:
            return 0x80000000;
        default:
            return 0;
    }
}

}  // namespace

// "and" and "or" bind alike and to the left.
void CCompileRestriction::Expression() {
    if (m_hasError) return;
    const CDepth depth(m_depth);
    Relation();
    while (!m_hasError) {
        switch (NextToken()) {
            case '+':
            case TOK_AND:
                Relation();
                Combine(RES_AND);
                break;
            case TOK_OR:
                Relation();
                Combine(RES_OR);
                break;
            case TOK_ORDER:
                OrderClause();
                break;
            case TOK_SELECT:
                SelectClause();
                Relation();
                break;
            default:
                UngetToken();
                return;
        }
    }
}

void CCompileRestriction::Relation() {
    if (m_hasError) return;
    Primary();
    for (;;) {
        const int token = NextToken();
        if (token == TOK_END) return;
        const int relop = RelopOfToken(token);
        if (relop < 0) return UngetToken();
        Primary();
        BuildRelation(static_cast<ULONG>(relop));
    }
}

void CCompileRestriction::Primary() {
    if (m_hasError) return;
    const int token = NextToken();
    switch (token) {
        case TOK_WORD:
            return PrimaryWord();
        case '(':
            return PrimaryBracket();
        case TOK_NOT:
            return PrimaryNot();
        case TOK_SUBSTRING:
        case TOK_PREFIX:
        case TOK_IGNORECASE:
        case TOK_LOOSE:
            return FuzzyValue(token);
        case TOK_STRING:
            return PushText(m_lexer.TokenText(), TOK_STRING, 0);
        case TOK_DATE:
            return PrimaryDate();
        case TOK_FIELD:
            NextToken();  // a tag in hexadecimal, which adds nothing
            return;
        case TOK_NOW:
            return PushNow();
        case TOK_TODAY:
            return PushToday(0);
        case TOK_DAYSFROMNOW:
            return PrimaryDaysFromNow();
        case TOK_BIT:
            return PrimaryBit();
        case TOK_RECIPIENT:
            return PrimarySubObject(PR_MESSAGE_RECIPIENTS);
        case TOK_ATTACHMENT:
            return PrimarySubObject(PR_MESSAGE_ATTACHMENTS);
        case TOK_USERFIELD:
            return PrimaryUserField();
        case TOK_EXISTS:
            return PrimaryExists();
        case TOK_SIZE:
            return PrimarySize();
        default:
            return UngetToken();
    }
}

void CCompileRestriction::PrimaryWord() {
    CINIQuery* query = m_storedQueries ? m_storedQueries->Find(m_lexer.TokenText()) : nullptr;
    if (query) return ExpandQuery(*query);
    PushText(m_lexer.TokenText(), TOK_WORD, 0);
}

void CCompileRestriction::PrimaryBracket() {
    Expression();
    Expect(')', "Syntax error expeced ')'\n");
}

// "not" governs all that follows, up to the closing bracket or the end.
void CCompileRestriction::PrimaryNot() {
    Expression();
    if (m_hasError) return;
    const auto operand = Pop();
    Needed(operand.get(), "Nothing stands behind \"not\"");
    SRestriction* node = m_memory.AllocateNodes(1);
    node->rt = RES_NOT;
    node->res.resNot.lpRes = operand->restriction;
    PushRestriction(node, operand->depth + 1);
}

void CCompileRestriction::FuzzyValue(int token) {
    ULONG level = 0;
    for (ULONG share = FuzzyLevelOf(token); share != 0; share = FuzzyLevelOf(NextToken()))
        level |= share;
    PushText(m_lexer.TokenText(), TOK_FUZZYVALUE, level);
}

void CCompileRestriction::PrimaryDate() {
    Expect('(', "Expected '('");
    LONG numbers[3] = {};  // day, month, year
    for (int i = 0; i < 3; ++i) {
        if (i > 0) Expect(',', "Expected ','");
        NextToken();
        numbers[i] = LongFromText(m_lexer.TokenText());
    }
    Expect(')', "Expected ')'");
    PushDay(numbers[0], numbers[1], numbers[2]);
}

// Counts into the past, whatever the word suggests.
void CCompileRestriction::PrimaryDaysFromNow() {
    Expect('(', "Expected '('");
    Expect(TOK_WORD, "Expected integer");
    const LONG days = LongFromText(m_lexer.TokenText());
    Expect(')', "Expeced ')'");
    PushToday(days);
}

void CCompileRestriction::PrimaryBit() {
    NextToken();
    PushText(m_lexer.TokenText(), TOK_WORD, TOK_BIT);
}

void CCompileRestriction::PrimarySubObject(ULONG subObject) {
    Expect('(', "Expeced '('\n");
    Expression();
    Expect(')', "Expeced ')'\n");
    const auto operand = Pop();
    Needed(operand.get(), "Nothing stands in the brackets of recipient(...) or attachment(...)");
    if (!operand->restriction) return Error("Expected expression");
    SRestriction* node = m_memory.AllocateNodes(1);
    node->rt = RES_SUBRESTRICTION;
    node->res.resSub.ulSubObject = subObject;
    node->res.resSub.lpRes = operand->restriction;
    PushRestriction(node, operand->depth + 1);
}

// userfield(name) or userfield(name, type): a quoted text that ResolveField takes for a field by its
// prefix.
void CCompileRestriction::PrimaryUserField() {
    Expect('(', "Expected '('");
    std::string prefix = "string:";
    NextToken();
    const std::string name = m_lexer.TokenText();
    int token = NextToken();
    if (token == ',') {
        token = NextToken();
        const char* typed = token == TOK_TYPESTRING ? "string:"
                            : token == TOK_TYPELONG ? "long:"
                            : token == TOK_DATE     ? "date:"
                            : token == TOK_TYPEBOOL ? "bool:"
                                                    : nullptr;
        if (typed) {
            prefix = typed;
            token = NextToken();
        }
    }
    if (token != ')') Error("Expected '('");
    m_lexer.SetTokenText(prefix + name);
    PushText(m_lexer.TokenText(), TOK_STRING, 0);
}

void CCompileRestriction::PrimaryExists() {
    NextToken();
    CLiteral field;
    field.type = TOK_WORD;
    field.text = m_lexer.TokenText();
    const ULONG tag = ResolveField(&field);
    if (!tag) return Error("Expected Fieldname");
    SRestriction* node = m_memory.AllocateNodes(1);
    node->rt = RES_EXIST;
    node->res.resExist.ulPropTag = tag;
    PushRestriction(node, 1);
}

// The sign's own code goes into the node as its relation, which a store refuses when it is applied.
void CCompileRestriction::PrimarySize() {
    const auto constant = [this](const char* message) {
        const int token = NextToken();
        if (token != TOK_WORD && token != TOK_STRING) Error(message);
        PushText(m_lexer.TokenText(), TOK_SIZE, 0);
    };
    constant("Expected field");
    const int sign = NextToken();
    if (RelopOfToken(sign) < 0 && sign != '+' && sign != '-') Error("Exptected relop");
    constant("Expected constant");
    BuildRelation(static_cast<ULONG>(sign));
}

// order by [ascending|descending|combine] field, ...
void CCompileRestriction::OrderClause() {
    if (NextToken() != TOK_BY) return Error("Expeced by");
    std::vector<SSortOrder> keys;
    do {
        keys.push_back(OrderKey());
    } while (NextToken() == ',');
    UngetToken();
    if (!m_hasError) StoreSortOrder(keys);
}

SSortOrder CCompileRestriction::OrderKey() {
    SSortOrder key{0, TABLE_SORT_ASCEND};
    int token = NextToken();
    if (token == TOK_ASCENDING || token == TOK_DESCENDING || token == TOK_COMBINE) {
        key.ulOrder = token == TOK_ASCENDING    ? TABLE_SORT_ASCEND
                      : token == TOK_DESCENDING ? TABLE_SORT_DESCEND
                                                : TABLE_SORT_COMBINE;
        token = NextToken();
    }
    CLiteral field;
    field.type = TOK_WORD;
    field.text = m_lexer.TokenText();
    if (token == TOK_WORD) key.ulPropTag = ResolveField(&field);
    if (!key.ulPropTag) Error("Expected fieldname");
    return key;
}

// The arguments are read from the caller's text, then the scanner reads the query's text in its place.
void CCompileRestriction::ExpandQuery(CINIQuery& query) {
    if (std::find(m_callStack.begin(), m_callStack.end(), query.name) != m_callStack.end())
        Error("Loop in Query execution");
    const size_t offset = m_lexer.TokenOffset();
    m_callStack.push_back(query.name);
    Expect('(', "Expected '('");
    ReadArguments(query);

    CQueryLexer::State text;
    const bool whole = query.Expand(text.text);
    m_cbExpanded += text.text.size();
    if (!whole || m_cbExpanded > kMaxExpansion) throw CQueryLimit{"Stored queries expand to too much text"};

    if (!m_textOf) m_callOffset = offset;
    const std::string* caller = m_textOf;
    m_textOf = &query.name;
    m_lexer.Exchange(text);
    Expression();
    m_lexer.Exchange(text);
    m_textOf = caller;
    m_callStack.pop_back();
}

void CCompileRestriction::ReadArguments(CINIQuery& query) {
    if (query.parameters.empty()) return Expect(')', "Expected ')'");
    const auto goesOn = [](int token) {
        return token == TOK_WORD || token == TOK_STRING || token == TOK_SUBSTRING || token == TOK_PREFIX ||
               token == TOK_IGNORECASE || token == TOK_LOOSE || token == TOK_IGNORESPACE;
    };
    for (const auto& parameter : query.parameters) {
        std::string value;
        int token = 0;
        do {
            token = NextToken();
            if (token == ',' || token == ')') break;
            if (!value.empty()) value += ' ';
            value += m_lexer.TokenText();
        } while (goesOn(token));
        // Behind the end of the text every parameter left takes the last word once more.
        m_cbExpanded += value.size();
        if (m_cbExpanded > kMaxExpansion) throw CQueryLimit{"Stored queries expand to too much text"};
        parameter->value = value;
    }
}
