// Restrictions printed for a person.
#include <Tools/QueryWrite.h>

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

class QueryWrite : public QueryFixture {
protected:
    QueryWrite() {
        m_again.SetFolder(&m_folder);
        AddTestFields(m_again);
    }
    // The text of what `text` compiles to, if that compiles to the same.
    std::string Written(const std::string& text) {
        EXPECT_TRUE(m_compiler.Compile(text)) << text << m_compiler.ErrorText();
        const std::string written = WriteQuery(m_compiler, m_compiler.Restriction());
        const bool same = m_again.Compile(written) &&
                          RestrictionTree(m_again.Restriction()) == RestrictionTree(m_compiler.Restriction());
        return same ? written : "differs: " + written;
    }
    CCompileRestriction m_again;
};

TEST_F(QueryWrite, WhatIsWrittenCompilesToTheSameTree) {
    for (unsigned seed = 0; seed < 1500; ++seed) {
        const std::string text = CQueryWriter(seed, true).Expression(4).text;
        ASSERT_EQ(Written(text).find("differs"), std::string::npos) << text << "\n" << Written(text);
    }
    static const char* const cases[][2] = {
        {"", ""},
        {"a=1 and not b=2 or c=3", "a = 1 and (not (b = 2 or c = 3))"},
        {"Subject = ignorecase substring loose ignorespace x",
         "Subject = substring ignorecase loose ignorespace \"x\""},
        {"Subject = substring \"today\"", "Subject = substring \"today\""},
        {"Importance >= Sensitivity", "Importance >= Sensitivity"},
        {"size Subject <= 3", "size Subject <= 3"},
        {"recipient(exists Subject or a=1) and attachment(not a=1)",
         "recipient(exists Subject or a = 1) and attachment(not (a = 1))"},
        {"when > date(3,7,2011)", "when > date(3,7,2011)"},
        {"userfield(\"my own\", long) > 3 and userfield(b) = x and yes = 1",
         "userfield(\"my own\", long) > 3 and userfield(\"b\", string) = \"x\" and yes = 1"},
        {"guid = 00112233445566778899AABBCCDDEEFF and list = x",
         "guid = \"00112233445566778899AABBCCDDEEFF\" and list = \"x\""},
        {"bytes = 01FF", "bytes = \"01FF\""},
        {"huge=1 or a <> bit 6", "huge = 0 or a <> bit 6"},
    };
    for (const auto& one : cases)
        EXPECT_EQ(Written(one[0]), one[1]);
    EXPECT_EQ(Written("when > now").rfind("differs: ", 0), 0u) << "a time of day has no word";
}

// Any words in any order: what compiles is written, but for a lone word under "not" and a condition in a
// value's place, which no store takes.
TEST_F(QueryWrite, WhateverCompilesIsWritten) {
    static const char* words[] = {"and",
                                  "or",
                                  "not",
                                  "exists",
                                  "size",
                                  "recipient",
                                  "(",
                                  ")",
                                  "=",
                                  ">",
                                  "a",
                                  "b",
                                  "1",
                                  "text",
                                  "\"t\"",
                                  "when",
                                  "bit",
                                  "2",
                                  "<>",
                                  "substring",
                                  "yes",
                                  "list",
                                  "Subject",
                                  "date(1,2,2003)",
                                  "userfield(q)",
                                  "today"};
    std::mt19937 random(11);
    const auto below = [&](size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(random); };
    unsigned compiled = 0;
    for (int i = 0; i < 40000; ++i) {
        std::string text;
        for (size_t n = 3 + below(8); n > 0; --n)
            text += std::string(words[below(std::size(words))]) + " ";
        if (!m_compiler.Compile(text) || !m_compiler.Restriction()) continue;
        const std::string tree = RestrictionTree(m_compiler.Restriction());
        if (tree.find("(NULL)") != std::string::npos || tree.find("(none)") != std::string::npos) continue;
        ++compiled;
        ASSERT_NE(Written(text).rfind("differs: ", 0), 0u) << text << " is " << Written(text);
    }
    EXPECT_GT(compiled, 1000u);
}

TEST_F(QueryWrite, WhatIsSeldomMeantIsNamed) {
    static const char* const cases[][2] = {
        {"text = substring \"Subject\"", "\"Subject\" is the name of a field"},
        {"a = bit 0x10", "\"0x10\" is the name of a field"},
        {"yes = true", "\"true\" is no number and counts as 0"},
        {"a = 12b", "\"12b\" is no number and counts as 12"},
        {"text = \"open", "quote is not closed"}};
    for (const auto& one : cases) {
        ASSERT_TRUE(m_compiler.Compile(one[0]));
        ASSERT_EQ(m_compiler.Warnings().size(), 1u) << one[0];
        EXPECT_NE(m_compiler.Warnings()[0].find(one[1]), std::string::npos) << m_compiler.Warnings()[0];
    }
    ASSERT_TRUE(m_compiler.Compile("Subject = text and text = substring \"subject\" and yes = 1"));
    EXPECT_TRUE(m_compiler.Warnings().empty());
}

TEST_F(QueryWrite, ACrashSaysWhatIsMissing) {
    static const char* const cases[][2] = {{"a=1 and", "one side of \"and\""},
                                           {"= 1", "one side of a comparison"},
                                           {"not", "behind \"not\""},
                                           {"recipient()", "in the brackets"},
                                           {"yes and a=1", "lone word"}};
    for (const auto& one : cases) {
        EXPECT_EQ(Compiled(one[0]), "error: Crash in Compile") << one[0];
        EXPECT_NE(m_compiler.ErrorHint().find(one[1]), std::string::npos) << m_compiler.ErrorHint();
    }
    m_folder.idResult = MAPI_E_NO_ACCESS;
    EXPECT_EQ(Compiled("Private = 1"), "error: Crash in Compile");
    EXPECT_EQ(m_compiler.StoreError(), MAPI_E_NO_ACCESS) << "no fault of the text";
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
