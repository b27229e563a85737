// Restrictions printed for a person.
#include <iterator>

#include "QueryFixture.h"
#include "QueryWriter.h"

namespace {

struct PrintCase {
    const char* text;
    const char* printed;
    const char* reason;
};

using QueryPrint = QueryFixture;

TEST_F(QueryPrint, RestrictionsAsTextCloseToTheLanguage) {
    static const PrintCase cases[] = {
        {"", "(NULL)", "nothing"},
        {"Importance=1 and Sensitivity=2", "(Sensitivity = 2  and Importance = 1 )", "leaves end in a blank"},
        {"Importance>1 or not Subject=x", "(not (Subject = \"x\" ) or Importance > 1 )", "not in brackets"},
        {"Subject = ignorecase substring loose ignorespace x", "Subject=substring ignorecase loose \"x\" ",
         "one level has no word"},
        {"Subject = prefix x", "Subject=prefix \"x\" ", "no blanks round the sign"},
        {"Importance >= Sensitivity", "Importance >= Importance ", "the first tag on both sides"},
        {"MessageFlags = bit 4", "MessageFlags = bitmask 4 ", "zero bits"},
        {"MessageFlags <> bit 4", "MessageFlags <> bitmask 4 ", "a bit set"},
        {"size Subject > 3", "", "no text for sizes"},
        {"exists Subject", "exist Subject ", "exist"},
        {"recipient(exists Subject)", "Recipient(exist Subject )", "recipients"},
        {"attachment(exists Subject)", "Attachment(exist Subject )", "attachments"},
        {"CreationTime > date(3,7,2011)", "CreationTime > Date(3,7,2011) ", "day, month, year"},
        {"Private=1", "0x8000000b = -1 ", "named properties by number"},
        {"a=1", "0x66010003 = 1 ", "and those without a name"},
        {"huge=1", "0x66070014 =  ", "no value"},
        {"0x001a001f = x", "MessageClass =  ", "the type of a tag doesn't count"},
    };
    for (const PrintCase& c : cases) {
        ASSERT_TRUE(m_compiler.Compile(c.text)) << c.text << m_compiler.ErrorText();
        EXPECT_EQ(m_compiler.PrintRestriction(m_compiler.Restriction()), c.printed) << c.text << "\n"
                                                                                    << c.reason;
    }
    EXPECT_EQ(m_compiler.PrintTagIn(nullptr, 0x80120003), "0x80120003");
}

// The later term of a text comes first in a node, so each round of printing and compiling turns the
// children round and two rounds give the same tree. A "not" inside would swallow what is printed behind.
TEST_F(QueryPrint, WhatIsPrintedCompilesToTheSameTree) {
    for (unsigned seed = 0; seed < 500; ++seed) {
        CQueryWriter writer(seed, false);
        const std::string text = seed % 2 ? "not " + writer.Expression(4).text : writer.Expression(4).text;
        ASSERT_TRUE(m_compiler.Compile(text)) << text;
        const std::string tree = RestrictionTree(m_compiler.Restriction());
        std::string printed = text;
        for (int round = 0; round < 2; ++round) {
            printed = m_compiler.PrintRestriction(m_compiler.Restriction());
            ASSERT_TRUE(m_compiler.Compile(printed)) << text << "\n" << printed << m_compiler.ErrorText();
        }
        ASSERT_EQ(RestrictionTree(m_compiler.Restriction()), tree) << text << "\n" << printed;
    }
}

TEST_F(QueryPrint, RelationsOutsideTheKnownOnesAreEmpty) {
    const char* texts[] = {"<", "<=", ">", ">=", "=", "<>", "", ""};
    for (ULONG relop = 0; relop < std::size(texts); ++relop)
        EXPECT_EQ(CCompileRestriction::PrintRelop(relop), texts[relop]);
    EXPECT_EQ(CCompileRestriction::PrintRelop(0xFFFFFFFF), "");
}

TEST_F(QueryPrint, WrapTextBreaksAtWhiteSpaceBehindTheLength) {
    EXPECT_EQ(CCompileRestriction::WrapText("", 5), "");
    EXPECT_EQ(CCompileRestriction::WrapText("short", 10), "short\r\n");
    EXPECT_EQ(CCompileRestriction::WrapText("aaa bbb ccc", 5), "aaa bbb\r\n ccc\r\n");
    EXPECT_EQ(CCompileRestriction::WrapText("aaaaaa\tb", 2), "aaaaaa\r\n\tb\r\n");
    EXPECT_EQ(CCompileRestriction::WrapText("abc", 3), "abc\r\n");
    EXPECT_EQ(CCompileRestriction::WrapText("a b", 0), "a\r\n b\r\n") << "no length still moves on";
}

}  // namespace
