// Stored queries: the file, the expansion, the call out of a query text.
#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Tools/INIQuerys.h>

#include "QueryFixture.h"

namespace {

CINIQuerys FileOf(const std::string& bytes) {
    CINIQuerys querys;
    querys.Parse(bytes, "test.ini");
    return querys;
}

TEST(QueryFile, ReadsQueriesAndTheirParameters) {
    const CINIQuerys querys = FileOf(
        "; all mail from one sender\r\n"
        "name=FromSender\r\n"
        "comment=Messages by sender\r\n"
        "QUERY=[SenderName = $who]\r\n"
        "visible=TRUE\r\n"
        "recursiv=2x\r\n"
        "msgClass=IPM.Note\r\n"
        "  ; indented comment with a=b\r\n"
        "who.text=Sender\r\n"
        "Who.Expression=or\r\n"
        "who.options=False\r\n"
        "who.editor=list\r\n"
        "who.field=SenderName\r\n"
        "name=Second\r\n");
    ASSERT_EQ(querys.Queries().size(), 2u);
    const CINIQuery* query = querys.Find("FromSender");
    ASSERT_NE(query, nullptr);
    EXPECT_EQ(query->file, "test.ini");
    EXPECT_EQ(query->comment, "Messages by sender");
    EXPECT_EQ(query->query, "[SenderName = $who]");
    EXPECT_EQ(query->visible, 1);
    EXPECT_EQ(query->recursive, 2);
    EXPECT_EQ(query->msgClass, "") << "the key is lower-cased before it is compared";
    ASSERT_EQ(query->parameters.size(), 1u);
    const CINIQueryParamter& who = *query->parameters[0];
    EXPECT_EQ(who.name + "|" + who.text + "|" + who.expression + "|" + who.editor + "|" + who.field,
              "who|Sender|or|list|SenderName");
    EXPECT_EQ(who.options, 0);
    EXPECT_EQ(querys.Find("fromsender"), nullptr) << "names compare byte for byte";
}

TEST(QueryFile, OddLinesKeepTheirMeaning) {
    EXPECT_TRUE(FileOf("query=a=1\nwho.text=x\n").Queries().empty()) << "nothing before the first name";
    EXPECT_EQ(FileOf("name=Q\nname\n").Queries().size(), 2u) << "a line without = repeats the line before";
    EXPECT_EQ(FileOf("name=Q\n\n").Queries().size(), 2u) << "an empty line too";
    EXPECT_EQ(FileOf("name=Q\n;x\n").Queries().size(), 1u) << "a comment does not";
    EXPECT_EQ(FileOf("name=Q\nquery=a=1").Find("Q")->query, "a=") << "the last byte is taken for the newline";
    EXPECT_EQ(FileOf("name =Q\n").Queries().size(), 0u) << "blanks belong to the key";

    const CINIQuerys both = FileOf("name=Q\nquery.text=b=2\n");
    EXPECT_EQ(both.Find("Q")->query, "b=2") << "a line may be a key and a parameter's part";
    EXPECT_EQ(both.Find("Q")->parameters.at(0)->text, "b=2");

    const CINIQuerys twice = FileOf("name=Q\nquery=a=1\nname=Q\nquery=a=2\n");
    EXPECT_EQ(twice.Find("Q")->query, "a=1") << "the first of a name counts";

    // 1,023 bytes are a line, of which the last is cut off; the rest is the next line.
    const std::string head = "name=Q\nquery=";
    const std::string fill(1023 - 6, 'x');
    const CINIQuerys chopped = FileOf(head + fill + "comment=c\n");
    EXPECT_EQ(chopped.Find("Q")->query, fill.substr(1));
    EXPECT_EQ(chopped.Find("Q")->comment, "c");
}

TEST(QueryFile, LiesBesideTheConfiguration) {
    const std::string path = JoinPath(ModuleDirectory(), kStoredQueryFile);
    RemoveFile(path);
    EXPECT_TRUE(LoadStoredQueries().Queries().empty()) << "a file that isn't there is no error";
    ASSERT_TRUE(WriteFileDurably(path, "name=Mine\nquery=a=1\n"));
    const CINIQuerys querys = LoadStoredQueries();
    RemoveFile(path);
    ASSERT_NE(querys.Find("Mine"), nullptr);
    EXPECT_EQ(querys.Find("Mine")->file, path);
}

struct ExpandCase {
    const char* query;
    const char* value;  // of the parameter "who"
    const char* text;
    const char* reason;
};

TEST(QueryExpansion, PutsValuesIn) {
    static const ExpandCase cases[] = {
        {"a = $who", "1", "a = 1", "raw outside brackets"},
        {"a = $who.", "1", "a = 1.", "a name ends at what is no letter or digit"},
        {"a = $whom", "1", "a = ", "an unknown name has no value"},
        {"[SenderName = $who]", "a", "SenderName = \"a\"", "quoted inside"},
        {"[x = $who]", "a;b", "x = \"a\"\r\n or x = \"b\"", "once for each item"},
        {"[x = $who]", " a ;; b ", "x = \"a\"\r\n or x = \"b\"", "blanks and empty items don't count"},
        {"[x = $who]", "", "", "no items, no text"},
        {"([x = $who]) and y", "a", "(x = \"a\") and y", "the rest stands as it is"},
        {"[x = $who or y = $who]", "a", "x = \"a\" or y = \"a\"", "everywhere"},
        {"[x = $who]", "$who", "x = \"$who\"", "a value that holds its own name comes to an end"},
        {"[x = $who$who]", "-$who-", "x = \"-$who-\"\"-$who-\"", "once for each place"},
        {"a]=1", "", "a=1", "a bracket that closes nothing"},
        {"a[=1", "x", "a", "a bracket that isn't closed"},
    };
    for (const ExpandCase& c : cases) {
        CINIQuery query;
        query.query = c.query;
        query.Parameter("who").expression = "or";
        query.SetParameter("who", c.value);
        std::string text;
        EXPECT_TRUE(query.Expand(text)) << c.query;
        EXPECT_EQ(text, c.text) << c.query << " with " << c.value << "\n" << c.reason;
    }
}

TEST(QueryExpansion, EachParameterRepeatsABracket) {
    CINIQuery query;
    query.query = "[x = $p]";
    query.Parameter("p").expression = "or";
    query.SetParameter("p", "1;2");
    query.SetParameter("q", "3");
    std::string text;
    EXPECT_TRUE(query.Expand(text));
    EXPECT_EQ(text, "x = \"1\"\r\n or x = \"2\"x = $p");
    EXPECT_EQ(query.parameters.size(), 2u);
    query.query = "$new";
    EXPECT_TRUE(query.Expand(text));
    EXPECT_EQ(query.parameters.size(), 3u) << "an unknown name becomes a parameter";
}

TEST(QueryExpansion, SubstituteTakesTheNameWithOrWithoutItsMark) {
    EXPECT_EQ(CINIQuery::Substitute("$a $ab", "a", "1"), "\"1\" \"1\"b") << "the longest name doesn't win";
    EXPECT_EQ(CINIQuery::Substitute("$a", "$a", "1"), "\"1\"");
    EXPECT_EQ(CINIQuery::Substitute("$$a", "a", "a"), "$\"a\"");
}

class QueryCall : public QueryFixture {
protected:
    std::string Compiled(const std::string& file, const std::string& text) {
        m_querys = FileOf(file);
        PrepareQueryCompiler(m_compiler, &m_folder, nullptr, &m_querys);
        return QueryFixture::Compiled(text);
    }

    CINIQuerys m_querys;
};

TEST_F(QueryCall, StandsForItsExpansion) {
    const std::string sender = "name=Sent\nquery=[text = $who]\nwho.expression=or\n";
    EXPECT_EQ(Compiled(sender, "Sent(\"a;b\") and a=1"),
              "AND 2\n  PROPERTY 0x66010003 = 1\n  OR 2\n    PROPERTY 0x6604001e = \"b\"\n"
              "    PROPERTY 0x6604001e = \"a\"\n");
    EXPECT_EQ(Compiled(sender, "Sent(x y)"), "PROPERTY 0x6604001e = \"x y\"\n") << "words join with blanks";
    EXPECT_EQ(Compiled(sender, "sent(x)"), "(NULL)\n") << "case counts, so this is a word alone";
    EXPECT_EQ(Compiled("name=Two\nquery=a = $x and b = $y\nx.text=\ny.text=\n", "not Two(1, 2)"),
              "NOT\n  AND 2\n    PROPERTY 0x66020003 = 2\n    PROPERTY 0x66010003 = 1\n");
    EXPECT_EQ(Compiled("name=Low\nquery=a = $x\nx.text=\n", "Low(substring v)"),
              "CONTENT 0x66010003 level 0x1 0\n")
        << "a value outside brackets is read as it stands";
    EXPECT_EQ(Compiled("name=In\nquery=a=1\nname=Out\nquery=In() or b=2\n", "Out() and c=3"),
              "AND 2\n  PROPERTY 0x66030003 = 3\n  OR 2\n    PROPERTY 0x66020003 = 2\n"
              "    PROPERTY 0x66010003 = 1\n");
    EXPECT_EQ(Compiled("name=In\nquery=a=1\n", "In() and In()"),
              "AND 2\n  PROPERTY 0x66010003 = 1\n  PROPERTY 0x66010003 = 1\n")
        << "twice in a row is no loop";
}

TEST_F(QueryCall, ErrorsSayWhereTheCallStands) {
    EXPECT_EQ(Compiled("name=Q\nquery=Q()\n", "a=1 and Q()"),
              "error: Loop in Query execution Crash in Compile");
    EXPECT_EQ(m_compiler.ErrorOffset(), 8u);
    EXPECT_EQ(m_compiler.ErrorQuery(), "Q");
    EXPECT_EQ(Compiled("name=Q\nquery=Q()\n", "Q()"), "error: Loop in Query execution");
    EXPECT_EQ(Compiled("name=Q\nquery=R()\nname=R\nquery=Q()\n", "Q()"), "error: Loop in Query execution");
    EXPECT_EQ(Compiled("name=Q\nquery=a=1\n", "Q"), "error: Expected '(' Expected ')'");
    EXPECT_EQ(Compiled("name=Q\nquery=a=1\n", "Q(1)"), "error: Expected ')'");
    EXPECT_EQ(m_compiler.ErrorOffset(), 2u);
    EXPECT_EQ(m_compiler.ErrorQuery(), "") << "the argument stands in the text itself";
    EXPECT_EQ(Compiled("name=Q\nquery=x=1\n", "Q()"), "error: Neither x nor 1 is a keyword");
    EXPECT_EQ(m_compiler.ErrorQuery(), "Q");
}

TEST_F(QueryCall, DoublingQueriesComeToAnEnd) {
    std::string file = "name=Q0\nquery=a=1 and a=1 and a=1 and a=1 and a=1 and a=1\n";
    for (int i = 1; i < 40; ++i) {
        const std::string inner = "Q" + std::to_string(i - 1) + "()";
        file += "name=Q" + std::to_string(i) + "\nquery=" + inner + " and " + inner + "\n";
    }
    EXPECT_EQ(Compiled(file, "Q39()"), "error: Stored queries expand to too much text");
    std::string nested = "name=A\nquery=[a = $x]$x\nx.expression=or\n";
    EXPECT_EQ(Compiled(nested, "A(\"" + std::string(2u << 20, ';') + "\")"),
              "error: Stored queries expand to too much text");
}

}  // namespace
