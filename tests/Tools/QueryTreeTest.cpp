// What a text compiles to: the tree, or the error's words.
#include <Platform/Clock.h>

#include "QueryFixture.h"
#include "QueryWriter.h"

namespace {

struct TreeCase {
    const char* text;
    const char* tree;
    const char* reason;
};

struct ErrorCase {
    const char* text;
    const char* error;
    size_t offset;
    const char* reason;
};

class QueryTree : public QueryFixture {
protected:
    template <size_t N>
    void Check(const TreeCase (&cases)[N]) {
        for (const TreeCase& c : cases)
            EXPECT_EQ(Compiled(c.text), c.tree) << c.text << "\n" << c.reason;
    }
};

TEST_F(QueryTree, Comparisons) {
    static const TreeCase cases[] = {
        {"Subject = \"x\"", "PROPERTY 0x0037001e = \"x\"\n", "a published name gives its 8-bit tag"},
        {"subject = \"x\"", "error: Neither subject nor x is a keyword", "the first letter's case counts"},
        {"MessageClass <> IPM", "PROPERTY 0x001a001e <> \"IPM\"\n", "capitals part the name; a bare word"},
        {"Importance <= 2", "PROPERTY 0x00170003 <= 2\n", "less or equal"},
        {"Importance >= 2", "PROPERTY 0x00170003 >= 2\n", "greater or equal"},
        {"Importance > 2", "PROPERTY 0x00170003 > 2\n", "greater"},
        {"Importance < 2", "PROPERTY 0x00170003 > 2\n", "there is no less-than: both signs are greater"},
        {"Importance \">=\" 2", "PROPERTY 0x00170003 >= 2\n", "a quoted sign is the sign"},
        {"\"x\" = Subject", "PROPERTY 0x0037001e = \"x\"\n", "operands may be exchanged"},
        {"1 > a", "PROPERTY 0x66010003 > 1\n", "the relation isn't turned round with them"},
        {"Importance = Sensitivity", "COMPARE 0x00170003 = 0x00360003\n", "two fields"},
        {"a >= b", "COMPARE 0x66010003 >= 0x66020003\n", "two fields, another relation"},
        {"a=0x10", "COMPARE 0x66010003 = 0x00000010\n", "hexadecimal is a tag, not a number"},
        {"a=\"0x10\"", "COMPARE 0x66010003 = 0x00000010\n", "in quotes too"},
        {"a=0X10", "PROPERTY 0x66010003 = 0\n", "only with a small x"},
        {"0x0037001e = x", "PROPERTY 0x0037001e = \"x\"\n", "a field by its tag"},
        {"\"Subject\" = Subject", "PROPERTY 0x0037001e = \"Subject\"\n", "a quoted text names no field"},
        {"a=1 = a", "PROPERTY 0x66010003 = (none)\n", "a chain compares a field with a condition"},
        {"a = \"7\" b = 8", "PROPERTY 0x66010003 = 7\n", "text behind the expression is ignored"},
        {"a=1 ) x", "PROPERTY 0x66010003 = 1\n", "also a bracket too many"},
        {"Subject = ", "PROPERTY 0x0037001e = \"\"\n", "white space at the end is a word of no text"},
        {"a=7 ", "PROPERTY 0x66010003 = 7\n", "unless nothing waits for a word"},
        {"a=7\t\r\n", "PROPERTY 0x66010003 = 7\n", "any white space"},
        {"Subject = \"x", "PROPERTY 0x0037001e = \"x\"\n", "the end closes a quote"},
        {"Subject = \"x\\\"", "PROPERTY 0x0037001e = \"x\\\"\n", "there is no escape in a quote"},
        {"Subject = substring", "CONTENT 0x0037001e level 0x1 \"substring\"\n",
         "with nothing behind, the word is its own value"},
        {"", "(NULL)\n", "an empty text restricts nothing"},
        {"Subject", "(NULL)\n", "a word alone is no condition"},
        {"field 37001e", "(NULL)\n", "a field's number adds nothing"},
    };
    Check(cases);
}

TEST_F(QueryTree, FuzzyAndBitComparisons) {
    static const TreeCase cases[] = {
        {"Subject = substring ignorecase \"x\"", "CONTENT 0x0037001e level 0x10001 \"x\"\n", "levels add up"},
        {"Subject = prefix x", "CONTENT 0x0037001e level 0x2 \"x\"\n", "prefix"},
        {"Subject = loose ignorespace \"x\"", "CONTENT 0x0037001e level 0x60000 \"x\"\n", "both others"},
        {"Subject = prefix fullstring", "CONTENT 0x0037001e level 0x2 \"fullstring\"\n",
         "fullstring is no level, so it is the value"},
        {"Subject = substring bit x", "CONTENT 0x0037001e level 0x80000001 \"x\"\n",
         "bit has a level of its own"},
        {"substring x = Subject", "CONTENT 0x0037001e level 0x1 \"x\"\n", "on the left as well"},
        {"MessageFlags = bit 4", "BITMASK 0x0e070003 & 0x4 = 0\n", "= asks for zero bits"},
        {"MessageFlags <> bitmask 4", "BITMASK 0x0e070003 & 0x4 <> 0\n", "<> for one that is set"},
        {"MessageFlags = bit 0x10", "COMPARE 0x0e070003 = 0x00000010\n", "hexadecimal is a tag here too"},
        {"MessageFlags = bit and", "BITMASK 0x0e070003 & 0x0 = 0\n", "any token is the mask"},
    };
    Check(cases);
}

TEST_F(QueryTree, ValuesTakeTheTypeOfTheField) {
    const CClockOverride clock(FileTimeOf(129800000000000000ull));
    static const TreeCase cases[] = {
        {"a = 2147483647", "PROPERTY 0x66010003 = 2147483647\n", "the greatest number"},
        {"a = abc", "PROPERTY 0x66010003 = 0\n", "no number at all is 0"},
        {"yes = 1", "PROPERTY 0x660a000b = 1\n", "a truth value is a number"},
        {"yes = 65537", "PROPERTY 0x660a000b = 1\n", "of 16 bits"},
        {"list = x", "PROPERTY 0x6608101e = \"x\"\n", "a list's tag stays, its value is a single one"},
        {"Categories = Red", "PROPERTY 0x8000101e = \"Red\"\n", "a word for a named list"},
        {"huge = 1", "PROPERTY 0x66070014 = (none)\n", "a type without values is no error"},
        {"bytes = \"0AFF\"", "PROPERTY 0x66050102 = 0AFF\n", "bytes in hexadecimal"},
        {"bytes = \"0AF\"", "PROPERTY 0x66050102 = 0A\n", "half a byte is dropped"},
        {"bytes = \"\"", "PROPERTY 0x66050102 = \n", "no bytes"},
        {"guid = 0102030405060708090A0B0C0D0E0F10",
         "PROPERTY 0x66060048 = 0102030405060708090A0B0C0D0E0F10\n", "16 bytes as they stand"},
        {"text = today", "PROPERTY 0x6604001e = \"\"\n", "a date has no text"},
        {"text = \"today\"", "PROPERTY 0x6604001e = \"\"\n", "and a quoted keyword is the keyword"},
        {"when > date(3,7,2011)", "PROPERTY 0x66090040 > 2011-07-03 00:00:00.000\n", "day, month, year"},
        {"when > date(31,6,2011)", "PROPERTY 0x66090040 > 2011-07-01 00:00:00.000\n", "June runs on"},
        {"when > date(0,3,2012)", "PROPERTY 0x66090040 > 2012-02-29 00:00:00.000\n",
         "the day before the first"},
        {"when <= now", "PROPERTY 0x66090040 <= 2012-04-27 11:33:20.000\n", "now keeps the clock time"},
        {"when <= today", "PROPERTY 0x66090040 <= 2012-04-27 00:00:00.000\n", "today is midnight"},
        {"when <= daysfromnow(0)", "PROPERTY 0x66090040 <= 2012-04-27 00:00:00.000\n", "no day back"},
        {"when >= daysfromnow(28)", "PROPERTY 0x66090040 >= 2012-03-30 00:00:00.000\n",
         "days count into the past"},
    };
    Check(cases);
}

TEST_F(QueryTree, CombinedConditions) {
    static const TreeCase cases[] = {
        {"a=1 or b=2 or c=3",
         "OR 3\n  PROPERTY 0x66030003 = 3\n  PROPERTY 0x66020003 = 2\n  PROPERTY 0x66010003 = 1\n",
         "one list, the later first"},
        {"a=1 + b=2", "AND 2\n  PROPERTY 0x66020003 = 2\n  PROPERTY 0x66010003 = 1\n", "+ is and"},
        {"a=1 or b=2 and c=3",
         "AND 2\n  PROPERTY 0x66030003 = 3\n  OR 2\n    PROPERTY 0x66020003 = 2\n    PROPERTY 0x66010003 = "
         "1\n",
         "both bind alike, to the left"},
        {"a=1 and (b=2 and c=3)",
         "AND 3\n  PROPERTY 0x66030003 = 3\n  PROPERTY 0x66020003 = 2\n  PROPERTY 0x66010003 = 1\n",
         "brackets of the same kind dissolve"},
        {"(a=1 or b=2) or (c=3 or a=4)",
         "OR 4\n  PROPERTY 0x66010003 = 4\n  PROPERTY 0x66030003 = 3\n  PROPERTY 0x66020003 = 2\n"
         "  PROPERTY 0x66010003 = 1\n",
         "on both sides"},
        {"not a=1 and b=2", "NOT\n  AND 2\n    PROPERTY 0x66020003 = 2\n    PROPERTY 0x66010003 = 1\n",
         "not governs all that follows"},
        {"(not a=1) and b=2", "AND 2\n  PROPERTY 0x66020003 = 2\n  NOT\n    PROPERTY 0x66010003 = 1\n",
         "up to its bracket"},
        {"not Subject", "NOT\n  (NULL)\n", "a word alone is nothing to negate, and no error"},
        {"recipient(EmailAddress = x)", "SUB 0x0e12000d\n  PROPERTY 0x3003001e = \"x\"\n",
         "of the recipients"},
        {"attachment(exists AttachFilename)", "SUB 0x0e13000d\n  EXIST 0x3704001e\n", "of the attachments"},
        {"exist Subject", "EXIST 0x0037001e\n", "both spellings"},
        {"exists \"Subject\"", "EXIST 0x0037001e\n", "quoted as well"},
        {"size Subject > 10", "SIZE 0x0037001e relop(62) 10\n", "the sign's own code is the relation"},
        {"size a = 1", "SIZE 0x66010003 relop(61) 1\n", "also of ="},
        {"size a + 1", "SIZE 0x66010003 relop(43) 1\n", "and of signs that compare nothing"},
        {"size 1 >= a", "SIZE 0x66010003 relop(306) 1\n", "a sign of two letters has a token's code"},
        {"order by a", "(NULL)\n", "an order alone restricts nothing"},
    };
    Check(cases);
}

TEST_F(QueryTree, NamedProperties) {
    static const TreeCase cases[] = {
        {"Private=1", "PROPERTY 0x8000000b = 1\n", "the first name of the store"},
        {"userfield(Colour) = red", "PROPERTY 0x8001001e = \"red\"\n", "a text unless told otherwise"},
        {"userfield(Colour, string) = red", "PROPERTY 0x8001001e = \"red\"\n",
         "the same name, the same number"},
        {"userfield(\"Price of it\", long) = 3", "PROPERTY 0x80020003 = 3\n", "a name in quotes"},
        {"userfield(Sold, bool) = 1", "PROPERTY 0x8003000b = 1\n", "a truth value"},
        {"\"string:Colour\" = red", "PROPERTY 0x8001001e = \"red\"\n", "its long form"},
        {"\"LONG:Price of it\" = 3", "PROPERTY 0x80020003 = 3\n", "in any case"},
        {"userfield(When, date) = 3", "error: Neither date:When nor 3 is a keyword",
         "dates have no such form"},
        {"private=1", "error: Neither private nor 1 is a keyword", "case counts"},
        {"not (Private=1 or Sensitivity=2)",
         "NOT\n  OR 2\n    PROPERTY 0x00360003 = 2\n    PROPERTY 0x8000000b = 1\n",
         "the filter of private items"},
    };
    Check(cases);
    m_compiler.SetFolder(nullptr);
    EXPECT_EQ(Compiled("Private=1"), "error: Neither Private nor 1 is a keyword");
    EXPECT_EQ(Compiled("userfield(Colour) = red"), "error: Crash in Compile");
}

TEST_F(QueryTree, ErrorsNameTheirCauseAndPlace) {
    static const ErrorCase cases[] = {
        {"x = y", " Neither x nor y is a keyword", 4, "two unknown words"},
        {"a=1 = 2", " Neither  nor 2 is a keyword", 6, "a condition has no text"},
        {"a=1 and", " Crash in Compile", 7, "an operand is missing"},
        {"a=1 and b", " Crash in Compile", 9, "a word is no condition"},
        {"and a=1", " Crash in Compile", 7, "nothing before the and"},
        {"a =", " Crash in Compile", 3, "nothing to compare with"},
        {"a = 2147483648", " The number 2147483648 is out of range", 4, "it would ask for another one"},
        {"=", " Crash in Compile", 1, "nothing on both sides"},
        {"not", " Crash in Compile", 3, "nothing to negate"},
        {"recipient()", " Crash in Compile", 10, "nothing about recipients"},
        {"x=1 and a=1", " Neither x nor 1 is a keyword", 2, "the loop ends at once"},
        {"a=1 and x=1", " Neither x nor 1 is a keyword Crash in Compile", 10, "a fault follows the error"},
        {"x=1=2", " Neither x nor 1 is a keyword Crash in Compile", 2, "also within a chain"},
        {"(a=1", " Syntax error expeced ')'\n", 4, "a bracket left open"},
        {"((a=1", " Syntax error expeced ')'\n Syntax error expeced ')'\n", 5, "each one is told"},
        {"when > date 1", " Expected '(' Expected ',' Expected ',' Expected ')' No such date", 12,
         "all at once"},
        {"date(1,2", " Expected ',' Expected ')'", 8, "the end is met twice"},
        {"when > date(1 2,2011)", " Expected ',' Expected ',' Expected ')'", 14, "a comma too few"},
        {"when > date(1,13,2011)", " No such date", 21, "no thirteenth month"},
        {"when > date(1,1,1600)", " No such date", 20, "before all file times"},
        {"when > daysfromnow(200000)", " No such date", 25, "also by counting back"},
        {"when > daysfromnow(99999999999)", " No such date", 30, "even if there are that many"},
        {"when > daysfromnow 3", " Expected '(' Expected integer Expeced ')'", 19, "its own spelling"},
        {"when > daysfromnow(\"3\")", " Expected integer", 19, "a number is a word"},
        {"when = 3", " Wrong type: Expeced time", 7, "a number is no time"},
        {"guid = 0102", " GUID has have 16 byte", 7, "too short"},
        {"recipient a=1)", " Expeced '('\n Expeced ')'\n Crash in Compile", 10, "goes on regardless"},
        {"recipient(a=1", " Expeced ')'\n", 13, "left open"},
        {"attachment(Subject)", " Expected expression", 18, "a word is no condition"},
        {"userfield Colour", " Expected '(' Expected '('", 10, "both brackets have one message"},
        {"userfield(Colour, date) = 1", " Neither date:Colour nor 1 is a keyword", 26,
         "a type without fields"},
        {"exists x", " Expected Fieldname", 7, "no such field"},
        {"size = 1", " Expected field Exptected relop Expected constant Neither size nor 1 is a keyword", 5,
         "the word opens the size form"},
        {"size a b 1", " Exptected relop", 7, "no sign"},
        {"size a > (", " Expected constant", 9, "no number"},
        {"a > bit 4", " Bitmask works only with = and <>", 8, "bits have no order"},
        {"a=1 order a", " Expeced by", 10, "order without by"},
        {"order by x, b", " Expected fieldname", 9, "no such field"},
        {"order by x, y", " Expected fieldname Expected fieldname", 9, "each one is told"},
        {"order by \"a\"", " Expected fieldname", 9, "a quoted text names no key"},
        {"select = from", " Expeced field name", 7, "no field"},
        {"select x", " x is not a field", 8, "no such field"},
        {"select a from b where", " For selecting a table, Session must be set", 9, "no session"},
    };
    for (const ErrorCase& c : cases) {
        EXPECT_FALSE(m_compiler.Compile(c.text)) << c.text;
        EXPECT_EQ(m_compiler.ErrorText(), c.error) << c.text << "\n" << c.reason;
        EXPECT_EQ(m_compiler.ErrorOffset(), c.offset) << c.text << "\n" << c.reason;
        EXPECT_EQ(m_compiler.Restriction(), nullptr) << c.text;
    }
}

TEST_F(QueryTree, TellsWhereTheExpressionEnded) {
    static const struct {
        const char* text;
        size_t offset;
    } cases[] = {{"", 0},        {"a=1", 3},      {"a=1 \n", 5},
                 {"a=1 ) x", 4}, {"a=1  b=2", 5}, {"(a=1) order by b c", 17}};
    for (const auto& c : cases) {
        ASSERT_TRUE(m_compiler.Compile(c.text)) << c.text;
        EXPECT_EQ(m_compiler.EndOffset(), c.offset) << c.text;
    }
}

TEST_F(QueryTree, AStoreThatRefusesANameIsACrash) {
    m_folder.idResult = MAPI_E_NO_ACCESS;
    EXPECT_EQ(Compiled("Private=1"), "error: Crash in Compile");
    m_folder.idResult = S_OK;
    EXPECT_EQ(Compiled("Private=1"), "PROPERTY 0x8000000b = 1\n");
}

std::vector<ULONG> TagsOf(const SPropTagArray* array) {
    return array ? std::vector<ULONG>(array->aulPropTag, array->aulPropTag + array->cValues)
                 : std::vector<ULONG>();
}

TEST_F(QueryTree, OrderClauseMakesASortOrder) {
    ASSERT_TRUE(m_compiler.Compile("a=1 order by Subject, descending b, combine c and text=x"));
    const SSortOrderSet* order = m_compiler.SortOrder();
    ASSERT_NE(order, nullptr);
    ASSERT_EQ(order->cSorts, 3u);
    EXPECT_EQ(order->cCategories, 1u);
    EXPECT_EQ(order->cExpanded, 0u);
    const SSortOrder expected[] = {
        {PR_SUBJECT_A, TABLE_SORT_ASCEND}, {kTagB, TABLE_SORT_DESCEND}, {kTagC, TABLE_SORT_COMBINE}};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(order->aSort[i].ulPropTag, expected[i].ulPropTag) << i;
        EXPECT_EQ(order->aSort[i].ulOrder, expected[i].ulOrder) << i;
    }
    EXPECT_EQ(RestrictionTree(m_compiler.Restriction()),
              "AND 2\n  PROPERTY 0x6604001e = \"x\"\n  PROPERTY 0x66010003 = 1\n")
        << "the expression goes on behind the order";

    ASSERT_TRUE(m_compiler.Compile("order by a order by ascending b"));
    EXPECT_EQ(m_compiler.SortOrder()->cSorts, 1u);
    EXPECT_EQ(m_compiler.SortOrder()->aSort[0].ulPropTag, kTagB) << "the last clause counts";
    EXPECT_FALSE(m_compiler.Compile("order by a, x"));
    EXPECT_EQ(m_compiler.SortOrder(), nullptr);
}

TEST_F(QueryTree, SelectSetsColumnsWithTheUsedTagsBehind) {
    // A quoted name has two marks before it and one behind; the word behind the names is used up.
    ASSERT_TRUE(m_compiler.Compile("select a, \"xxSubjectX\" where b=1")) << m_compiler.ErrorText();
    EXPECT_EQ(TagsOf(m_compiler.Columns()), (std::vector<ULONG>{kTagA, PR_SUBJECT_A, kTagB}));
    EXPECT_EQ(RestrictionTree(m_compiler.Restriction()), "PROPERTY 0x66020003 = 1\n");

    ASSERT_TRUE(m_compiler.Compile("select Importance"));
    EXPECT_EQ(TagsOf(m_compiler.Columns()), (std::vector<ULONG>{PR_IMPORTANCE, kTagA, PR_SUBJECT_A, kTagB}))
        << "tags of earlier texts stay";
    EXPECT_FALSE(m_compiler.Compile("select \"ab\""));
    EXPECT_EQ(m_compiler.ErrorText(), "  is not a field");
    ASSERT_TRUE(m_compiler.Compile("a=1"));
    EXPECT_EQ(m_compiler.Columns(), nullptr);
}

TEST_F(QueryTree, UsedTagsAreMergedOnce) {
    ASSERT_TRUE(m_compiler.Compile("a=1 and Subject=x and a=2 and 0x1234001e=y and userfield(q)=1"));
    EXPECT_EQ(m_compiler.UsedTags(), (std::vector<ULONG>{kTagA, PR_SUBJECT_A}))
        << "tags by number and user fields by prefix are not remembered";
    SizedSPropTagArray(2, own) = {2, {PR_SUBJECT_A, PR_ENTRYID}};
    SPropTagArray* merged = m_compiler.MergeUsedTags(reinterpret_cast<SPropTagArray*>(&own));
    EXPECT_EQ(TagsOf(merged), (std::vector<ULONG>{PR_SUBJECT_A, PR_ENTRYID, kTagA}));
    MAPIFreeBuffer(merged);
    merged = m_compiler.MergeUsedTags(nullptr);
    EXPECT_EQ(TagsOf(merged), (std::vector<ULONG>{kTagA, PR_SUBJECT_A}));
    MAPIFreeBuffer(merged);
}

TEST_F(QueryTree, TheStoreIsAskedOnceForAName) {
    ASSERT_TRUE(m_compiler.Compile("Private=1 or Private=0 or userfield(q)=1 or userfield(q)=2"));
    EXPECT_EQ(m_folder.idCalls, 2u);
    CFakeFolder other;
    m_compiler.SetFolder(&other);
    ASSERT_TRUE(m_compiler.Compile("Private=1"));
    EXPECT_EQ(other.idCalls, 1u) << "another store numbers names in its own way";
    m_compiler.SetFolder(nullptr);
    EXPECT_EQ(other.References(), 1u);
    EXPECT_EQ(m_folder.References(), 1u);
}

// No node of a kind has a child of its kind, and every kind that combines has two children at least.
void CheckFlat(const SRestriction& node) {
    if (node.rt != RES_AND && node.rt != RES_OR) return;
    ASSERT_GE(node.res.resAnd.cRes, 2u);
    for (ULONG i = 0; i < node.res.resAnd.cRes; ++i) {
        ASSERT_NE(node.res.resAnd.lpRes[i].rt, node.rt);
        CheckFlat(node.res.resAnd.lpRes[i]);
    }
}

TEST_F(QueryTree, NestedNodesOfAKindDissolve) {
    for (unsigned seed = 0; seed < 200; ++seed) {
        const std::string text = CQueryWriter(seed, false).Expression(5).text;
        ASSERT_TRUE(m_compiler.Compile(text)) << text;
        CheckFlat(*m_compiler.Restriction());
    }
}

}  // namespace
