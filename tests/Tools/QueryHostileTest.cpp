// Texts that nobody means well with: no fault, no endless work, an error or a result.
#include <Tools/INIQuerys.h>

#include <random>

#include "QueryFixture.h"

namespace {

std::string Repeat(const std::string& part, size_t times) {
    std::string text;
    text.reserve(part.size() * times);
    for (size_t i = 0; i < times; ++i)
        text += part;
    return text;
}

class QueryHostile : public QueryFixture {
protected:
    std::string Error(const std::string& text) {
        m_compiler.Compile(text);
        return m_compiler.ErrorText();
    }
};

TEST_F(QueryHostile, NestingHasALimitWithItsOwnMessage) {
    const size_t many = 300000;
    EXPECT_EQ(Error(Repeat("(", many)), " Query is nested too deeply");
    EXPECT_EQ(Error(Repeat("not ", many)), " Query is nested too deeply");
    EXPECT_EQ(Error(Repeat("recipient(", many)), " Query is nested too deeply");
    EXPECT_EQ(Error("a=1" + Repeat(" and a=1 or a=1", many)), " Query is nested too deeply")
        << "a tree grows deep without brackets too";

    const size_t fits = CCompileRestriction::kMaxDepth - 1;
    EXPECT_EQ(Error(Repeat("(", fits) + "a=1" + Repeat(")", fits)), "");
    EXPECT_EQ(Error(Repeat("not ", fits) + "a=1"), "");
    EXPECT_FALSE(RestrictionTree(m_compiler.Restriction()).empty());
    EXPECT_EQ(Error("a=1"), "") << "the next text starts afresh";
}

TEST_F(QueryHostile, LongTextsTakeTimeInProportion) {
    const size_t terms = 120000;
    ASSERT_EQ(Error("a=1" + Repeat(" or a=1", terms)), "");
    EXPECT_EQ(m_compiler.Restriction()->res.resOr.cRes, terms + 1);
    ASSERT_EQ(Error("Subject = \"" + std::string(1u << 20, 'x') + "\""), "");
    EXPECT_EQ(std::string(m_compiler.Restriction()->res.resProperty.lpProp->Value.lpszA).size(), 1u << 20)
        << "a word is as long as the text makes it";
    EXPECT_EQ(Error("Subject = " + std::string(1u << 20, 'y')), "");
    EXPECT_EQ(Error("order by a" + Repeat(",a", terms)), "");
    EXPECT_EQ(m_compiler.SortOrder()->cSorts, terms + 1);
    EXPECT_EQ(Error("select a" + Repeat(",a", terms)), "");
    EXPECT_EQ(m_compiler.Columns()->cValues, terms + 2) << "with the tag that an earlier text used";
    EXPECT_EQ(Error(Repeat("select a b ", terms)), "");
    EXPECT_EQ(Error("a=1" + Repeat("=a", terms)), "");
    EXPECT_EQ(Error("substring " + Repeat("prefix ", terms)), "");
    EXPECT_EQ(Error(std::string(1u << 20, ' ')), "");
}

// Behind the end of a text each parameter that is left takes the last word once more.
TEST_F(QueryHostile, ArgumentsCountAsTextToo) {
    std::string file = "name=Q\nquery=a=1\n";
    for (int i = 0; i < 20000; ++i)
        file += "p" + std::to_string(i) + ".text=x\n";
    CINIQuerys querys;
    querys.Parse(file, "");
    m_compiler.SetStoredQueries(&querys);
    EXPECT_EQ(Error("Q(" + std::string(100000, 'x')), " Stored queries expand to too much text");
    EXPECT_EQ(Error("Q(x)"), "") << "many parameters are none too much";
}

TEST_F(QueryHostile, ATextEndsAtItsFirstZeroByte) {
    EXPECT_EQ(Error(std::string("a=1\0 and x=2", 12)), "");
    EXPECT_EQ(Error(std::string("\0a", 2)), "");
    EXPECT_EQ(Error(std::string("a=1 \0and", 8)), "");
    EXPECT_EQ(RestrictionTree(m_compiler.Restriction()), "PROPERTY 0x66010003 = 1\n");
}

TEST_F(QueryHostile, EveryBeginningOfATextIsHarmless) {
    const std::string text =
        "select a, \"xxSubjectx\" where not (a=1 or recipient(text = substring ignorecase \"x\")) and "
        "when > date(1,2,2011) and size b >= 3 and userfield(q, long) = 1 and daysfromnow(3) < when and "
        "exists c and guid = 00 order by descending a, combine b";
    size_t errors = 0;
    for (size_t length = 0; length <= text.size(); ++length)
        for (const char* tail : {"", " ", "\"", "("})
            errors += !m_compiler.Compile(text.substr(0, length) + tail);
    EXPECT_GT(errors, 100u);
}

// Any order of the language's own words and signs; under the sanitizers this walks every short cut of the
// grammar with operands missing and surplus.
TEST_F(QueryHostile, RandomTokensEndInAResultOrAnError) {
    static const char* words[] = {
        "and",   "or",    "not", "<=",        ">=",   "substring",  "prefix", "ignorecase",
        "date",  "field", "now", "today",     "bit",  "exists",     "size",   "recipient",
        "order", "by",    "a",   "b",         "from", "select",     "x",      "1",
        "(",     ")",     "=",   ">",         ",",    "where",      "\"t\"",  "when",
        "text",  "guid",  "+",   "userfield", "list", "attachment", "Q",      "daysfromnow"};
    CINIQuerys querys;
    querys.Parse("name=Q\nquery=[text = $p] and $p\np.expression=or\n", "");
    m_compiler.SetStoredQueries(&querys);
    std::mt19937 random(7);
    const auto below = [&random](size_t n) {
        return std::uniform_int_distribution<size_t>(0, n - 1)(random);
    };
    size_t compiled = 0;
    for (int i = 0; i < 40000; ++i) {
        std::string text;
        for (size_t n = below(14); n > 0; --n)
            text += std::string(words[below(std::size(words))]) + " ";
        if (m_compiler.Compile(text)) {
            ++compiled;
            RestrictionTree(m_compiler.Restriction());
            m_compiler.PrintRestriction(m_compiler.Restriction());
        } else {
            ASSERT_FALSE(m_compiler.ErrorText().empty());
            ASSERT_LE(m_compiler.ErrorOffset(), text.size());
            ASSERT_EQ(m_compiler.Restriction(), nullptr);
        }
    }
    EXPECT_GT(compiled, 1000u);
    EXPECT_EQ(m_folder.References(), 2u) << "ours and the compiler's";
}

}  // namespace
