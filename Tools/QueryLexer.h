// The scanner of the query language. Token codes are those of stored trees and diagnostics and are not
// renumbered; an operator of one character is its own code.
#pragma once
#include <cstddef>
#include <string>

enum QueryToken : int {
    TOK_END = 0,
    TOK_WORD = 301,  // a word or number
    TOK_AND = 302,
    TOK_OR = 303,
    TOK_NOT = 304,
    TOK_LE = 305,
    TOK_GE = 306,
    TOK_SUBSTRING = 307,
    TOK_PREFIX = 308,
    TOK_IGNORECASE = 309,
    TOK_LOOSE = 310,
    TOK_IGNORESPACE = 311,
    TOK_FULLSTRING = 312,
    TOK_FUZZYVALUE = 313,  // type of a literal only
    TOK_STRING = 314,      // a quoted text
    TOK_DATE = 315,
    TOK_FIELD = 316,
    TOK_NOW = 317,
    TOK_DAYSFROMNOW = 318,
    TOK_TODAY = 319,
    TOK_BIT = 320,
    TOK_RECIPIENT = 321,
    TOK_ATTACHMENT = 322,
    TOK_USERFIELD = 324,
    TOK_NE = 325,
    TOK_EXISTS = 326,
    TOK_FIELDTAG = 327,  // type of a literal only
    TOK_ORDER = 328,
    TOK_BY = 329,
    TOK_ASCENDING = 330,
    TOK_DESCENDING = 331,
    TOK_FROM = 332,
    TOK_SELECT = 333,
    TOK_COMBINE = 334,
    TOK_WHERE = 335,
    TOK_SIZE = 336,
    TOK_HIERARCHY = 337,
    TOK_ASSOCIATED = 338,
    TOK_TYPESTRING = 339,
    TOK_TYPELONG = 340,
    TOK_TYPEBOOL = 341,
};

// Reads a text token by token. Never fails: whatever the bytes, the text ends in TOK_END, and each
// further call answers TOK_END again. A token is as long as the text makes it.
class CQueryLexer {
public:
    // Starts at the beginning of a copy of `text`, which ends at its first zero byte.
    void SetText(const std::string& text);

    // The code of the next token. White space behind the last token is once the word of empty text.
    int NextToken();
    // The next call of NextToken reads the current token again.
    void UngetToken() { m_cursor = m_tokenStart; }

    // The text of the last word, keyword or quoted text, in its own case, without quotes. Operators and
    // the end leave it as it was.
    const std::string& TokenText() const { return m_tokenText; }
    void SetTokenText(const std::string& text) { m_tokenText = text; }

    // Whether a quoted text ran into the end without its closing quote.
    bool HasOpenQuote() const { return m_hasOpenQuote; }

    // Byte offset of the current token (white space before it skipped), at most the text's length.
    size_t TokenOffset() const;

    // Another text in between, as a call of a stored query: Exchange(other) and again with the same
    // object to return. The token text goes with neither.
    struct State {
        std::string text;
        size_t cursor = 0;
        size_t tokenStart = 0;
    };
    void Exchange(State& state);

private:
    char At(size_t i) const { return i < m_text.size() ? m_text[i] : '\0'; }
    int Quoted();
    int Word(char first);

    std::string m_text;
    size_t m_cursor = 0;  // may stand one behind the end, when the end itself was consumed
    size_t m_tokenStart = 0;
    std::string m_tokenText;
    bool m_hasOpenQuote = false;
};

// Whether a quoted text of the query lacks its closing quote.
bool HasOpenQuote(const std::string& query);

// The keyword's code for a text in any case, also ">=", "<=" and "<>"; 0 for any other text.
int QueryKeyword(const std::string& text);
