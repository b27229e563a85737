// Laws of the query language over random texts: what compiles means what the text says, and what is
// printed compiles to the same tree.
#include <Tools/CompileRestriction.h>
#include <Tools/RestrictionTree.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

#include "QueryFakes.h"

namespace {

struct CItem {
    LONG a, b, c;
    std::string text;
};

using CMeaning = std::function<bool(const CItem&)>;

struct CQuery {
    std::string text;
    CMeaning meaning;
};

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// Writes texts together with what they mean, term by term, as the language reads them.
class CQueryWriter {
public:
    CQueryWriter(unsigned seed, bool withNot) : m_random(seed), m_withNot(withNot) {}

    // Terms joined by "and" and "or" of equal weight, from left to right.
    CQuery Expression(unsigned depth) {
        CQuery query = Term(depth);
        for (unsigned terms = Number(4); terms > 0; --terms) {
            const CQuery next = Term(depth);
            const bool isAnd = Number(2) == 0;
            query.text += (isAnd ? " and " : " or ") + next.text;
            query.meaning = [left = query.meaning, right = next.meaning, isAnd](const CItem& item) {
                return isAnd ? left(item) && right(item) : left(item) || right(item);
            };
        }
        return query;
    }

    CItem Item() {
        static const char* texts[] = {"", "ab", "abc", "bcd", "x"};
        return {Value(), Value(), Value(), texts[Number(5)]};
    }

private:
    unsigned Number(unsigned below) {
        return std::uniform_int_distribution<unsigned>(0, below - 1)(m_random);
    }
    LONG Value() { return static_cast<LONG>(Number(4)); }

    CQuery Term(unsigned depth) {
        if (depth > 0 && Number(3) == 0) {
            CQuery inner = Expression(depth - 1);
            const bool negated = m_withNot && Number(2) == 0;
            inner.text = (negated ? "(not " : "(") + inner.text + ")";
            if (negated) inner.meaning = [m = inner.meaning](const CItem& item) { return !m(item); };
            return inner;
        }
        return Number(3) == 0 ? TextTerm() : NumberTerm();
    }

    CQuery TextTerm() {
        switch (Number(3)) {
            case 0:
                return {"text = prefix ab", [](const CItem& i) { return i.text.compare(0, 2, "ab") == 0; }};
            case 1:
                return {"text = substring \"bc\"", [](const CItem& i) { return Contains(i.text, "bc"); }};
            default:
                return {"text <> \"x\"", [](const CItem& i) { return i.text != "x"; }};
        }
    }

    CQuery NumberTerm() {
        static const char* names[] = {"a", "b", "c"};
        static LONG CItem::*const members[] = {&CItem::a, &CItem::b, &CItem::c};
        const unsigned field = Number(3);
        const auto member = members[field];
        const std::string name = names[field];
        const LONG value = Value();
        const std::string number = std::to_string(value);
        switch (Number(7)) {
            case 0:
                return {name + "=" + number, [=](const CItem& i) { return i.*member == value; }};
            case 1:
                return {name + "<>" + number, [=](const CItem& i) { return i.*member != value; }};
            case 2:
                return {name + " >= " + number, [=](const CItem& i) { return i.*member >= value; }};
            case 3:
                return {name + " <= " + number, [=](const CItem& i) { return i.*member <= value; }};
            case 4:
                return {name + " < " + number, [=](const CItem& i) { return i.*member > value; }};
            case 5:
                return {name + " = bit " + number, [=](const CItem& i) { return (i.*member & value) == 0; }};
            default:
                return {name + " <> bit " + number, [=](const CItem& i) { return (i.*member & value) != 0; }};
        }
    }

    std::mt19937 m_random;
    bool m_withNot;
};

// The published meaning of a restriction, as a store applies it to a row.
class CNaiveStore {
public:
    explicit CNaiveStore(const CItem& item) : m_item(item) {}

    bool Matches(const SRestriction& node) const {
        const auto& res = node.res;
        switch (node.rt) {
            case RES_AND:
                return std::all_of(res.resAnd.lpRes, res.resAnd.lpRes + res.resAnd.cRes,
                                   [this](const SRestriction& child) { return Matches(child); });
            case RES_OR:
                return std::any_of(res.resOr.lpRes, res.resOr.lpRes + res.resOr.cRes,
                                   [this](const SRestriction& child) { return Matches(child); });
            case RES_NOT:
                return !Matches(*res.resNot.lpRes);
            case RES_CONTENT:
                return res.resContent.ulFuzzyLevel & FL_PREFIX
                           ? m_item.text.rfind(res.resContent.lpProp->Value.lpszA, 0) == 0
                           : Contains(m_item.text, res.resContent.lpProp->Value.lpszA);
            case RES_PROPERTY:
                return Holds(res.resProperty.relop, Compare(*res.resProperty.lpProp));
            case RES_BITMASK:
                return ((static_cast<ULONG>(Long(res.resBitMask.ulPropTag)) & res.resBitMask.ulMask) == 0) ==
                       (res.resBitMask.relBMR == BMR_EQZ);
            default:
                ADD_FAILURE() << "a node that the texts don't make: " << node.rt;
                return false;
        }
    }

private:
    LONG Long(ULONG tag) const { return tag == kTagA ? m_item.a : tag == kTagB ? m_item.b : m_item.c; }
    int Compare(const SPropValue& value) const {
        if (value.ulPropTag == kTagText) return m_item.text.compare(value.Value.lpszA);
        return Long(value.ulPropTag) < value.Value.l ? -1 : Long(value.ulPropTag) > value.Value.l;
    }
    static bool Holds(ULONG relop, int order) {
        switch (relop) {
            case RELOP_LE:
                return order <= 0;
            case RELOP_GT:
                return order > 0;
            case RELOP_GE:
                return order >= 0;
            case RELOP_EQ:
                return order == 0;
            default:
                return order != 0;
        }
    }
    const CItem& m_item;
};

class QueryLaws : public ::testing::Test {
protected:
    QueryLaws() {
        m_compiler.SetFolder(&m_folder);
        AddTestFields(m_compiler);
    }
    CFakeFolder m_folder;
    CCompileRestriction m_compiler;
};

TEST_F(QueryLaws, ARestrictionMatchesWhatItsTextMeans) {
    size_t matched = 0, missed = 0;
    for (unsigned seed = 0; seed < 500; ++seed) {
        CQueryWriter writer(seed, true);
        const CQuery query = writer.Expression(4);
        ASSERT_TRUE(m_compiler.Compile(query.text)) << query.text << m_compiler.ErrorText();
        for (int i = 0; i < 30; ++i) {
            const CItem item = writer.Item();
            const bool expected = query.meaning(item);
            ++(expected ? matched : missed);
            ASSERT_EQ(CNaiveStore(item).Matches(*m_compiler.Restriction()), expected)
                << query.text << "\n"
                << RestrictionTree(m_compiler.Restriction()) << "a=" << item.a << " b=" << item.b
                << " c=" << item.c << " text=" << item.text;
        }
    }
    EXPECT_GT(matched, 1000u);
    EXPECT_GT(missed, 1000u);
}

// The later term of a text comes first in a node, so each round of printing and compiling turns the
// children round and two rounds give the same tree. A "not" inside would swallow what is printed behind.
TEST_F(QueryLaws, WhatIsPrintedCompilesToTheSameTree) {
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

// No node of a kind has a child of its kind, and every kind that combines has two children at least.
void CheckFlat(const SRestriction& node) {
    if (node.rt != RES_AND && node.rt != RES_OR) return;
    ASSERT_GE(node.res.resAnd.cRes, 2u);
    for (ULONG i = 0; i < node.res.resAnd.cRes; ++i) {
        ASSERT_NE(node.res.resAnd.lpRes[i].rt, node.rt);
        CheckFlat(node.res.resAnd.lpRes[i]);
    }
}

TEST_F(QueryLaws, NestedNodesOfAKindDissolve) {
    for (unsigned seed = 0; seed < 200; ++seed) {
        const std::string text = CQueryWriter(seed, false).Expression(5).text;
        ASSERT_TRUE(m_compiler.Compile(text)) << text;
        CheckFlat(*m_compiler.Restriction());
    }
}

}  // namespace
