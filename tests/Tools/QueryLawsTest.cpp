// Laws of the query language over random texts: what compiles means what the text says, and what is
// printed compiles to the same tree.
#include <Tools/CompileRestriction.h>
#include <Tools/RestrictionTree.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "QueryFakes.h"
#include "QueryWriter.h"

namespace {

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
