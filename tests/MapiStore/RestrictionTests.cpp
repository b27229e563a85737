#include <MapiStore/PropertyBag.h>
#include <MapiStore/PropertyCodec.h>
#include <MapiStore/Restriction.h>
#include <MapiStore/StoreError.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <map>
#include <random>

namespace {

// Owns the nodes and values of a restriction as a caller would build it.
class CTree {
public:
    SRestriction* Node(ULONG kind) {
        m_nodes.emplace_back(1);
        m_nodes.back()[0].rt = kind;
        return m_nodes.back().data();
    }
    SRestriction* Group(ULONG kind, const std::vector<SRestriction*>& children) {
        SRestriction* node = Node(kind);
        m_nodes.emplace_back();
        for (SRestriction* child : children)
            m_nodes.back().push_back(*child);
        node->res.resAnd = {static_cast<ULONG>(children.size()), m_nodes.back().data()};
        return node;
    }
    SRestriction* Not(SRestriction* child) {
        SRestriction* node = Node(RES_NOT);
        node->res.resNot.lpRes = child;
        return node;
    }
    SPropValue* Long(ULONG tag, LONG number) {
        SPropValue* value = Value(tag);
        value->Value.l = number;
        return value;
    }
    SPropValue* Text(ULONG tag, const std::string& text) {
        m_texts.push_back(text);
        SPropValue* value = Value(tag);
        value->Value.lpszA = m_texts.back().data();
        return value;
    }
    SRestriction* Relation(ULONG relop, ULONG tag, SPropValue* value) {
        SRestriction* node = Node(RES_PROPERTY);
        node->res.resProperty = {relop, tag, value};
        return node;
    }
    SRestriction* Content(ULONG level, ULONG tag, SPropValue* value) {
        SRestriction* node = Node(RES_CONTENT);
        node->res.resContent = {level, tag, value};
        return node;
    }

private:
    SPropValue* Value(ULONG tag) {
        m_values.emplace_back();
        m_values.back().ulPropTag = tag;
        return &m_values.back();
    }
    std::deque<std::vector<SRestriction>> m_nodes;
    std::deque<SPropValue> m_values;
    std::deque<std::string> m_texts;
};

constexpr ULONG kText1 = PROP_TAG(PT_STRING8, 0x0037), kText2 = PROP_TAG(PT_STRING8, 0x0070);
constexpr ULONG kNumber1 = PROP_TAG(PT_LONG, 0x0017), kNumber2 = PROP_TAG(PT_LONG, 0x0036);
constexpr ULONG kWords = PROP_TAG(PT_MV_STRING8, 0x8001);

// --- the law: what a plain reading of the definition says -------------------------------------------

struct Item {
    std::map<ULONG, LONG> numbers;
    std::map<ULONG, std::string> texts;
    std::vector<std::string> words;
};

bool Holds(ULONG relop, int order) {
    const bool answers[] = {order<0, order <= 0, order> 0, order >= 0, order == 0, order != 0};
    return answers[relop];
}

std::string Lower(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    return text;
}

bool Contains(std::string text, std::string pattern, ULONG level) {
    if (level & (FL_IGNORECASE | FL_LOOSE)) {
        text = Lower(text);
        pattern = Lower(pattern);
    }
    if ((level & 0xFFFF) == FL_SUBSTRING) return text.find(pattern) != std::string::npos;
    if ((level & 0xFFFF) == FL_PREFIX) return text.compare(0, pattern.size(), pattern) == 0;
    return text == pattern;
}

bool NaiveProperty(const Item& item, const SPropertyRestriction& r) {
    if (r.ulPropTag == kWords)
        return std::any_of(item.words.begin(), item.words.end(), [&](const std::string& word) {
            return Holds(r.relop, word.compare(r.lpProp->Value.lpszA));
        });
    if (PROP_TYPE(r.ulPropTag) == PT_LONG) {
        const auto at = item.numbers.find(r.ulPropTag);
        if (at == item.numbers.end()) return false;
        const LONG value = r.lpProp->Value.l;
        return Holds(r.relop, at->second < value ? -1 : at->second > value);
    }
    const auto at = item.texts.find(r.ulPropTag);
    return at != item.texts.end() && Holds(r.relop, at->second.compare(r.lpProp->Value.lpszA));
}

bool Naive(const Item& item, const SRestriction& r) {
    switch (r.rt) {
        case RES_AND:
            return std::all_of(r.res.resAnd.lpRes, r.res.resAnd.lpRes + r.res.resAnd.cRes,
                               [&](const SRestriction& child) { return Naive(item, child); });
        case RES_OR:
            return std::any_of(r.res.resOr.lpRes, r.res.resOr.lpRes + r.res.resOr.cRes,
                               [&](const SRestriction& child) { return Naive(item, child); });
        case RES_NOT:
            return !Naive(item, *r.res.resNot.lpRes);
        case RES_PROPERTY:
            return NaiveProperty(item, r.res.resProperty);
        case RES_CONTENT: {
            const auto at = item.texts.find(r.res.resContent.ulPropTag);
            return at != item.texts.end() &&
                   Contains(at->second, r.res.resContent.lpProp->Value.lpszA, r.res.resContent.ulFuzzyLevel);
        }
        case RES_COMPAREPROPS: {
            const auto a = item.numbers.find(kNumber1), b = item.numbers.find(kNumber2);
            if (a == item.numbers.end() || b == item.numbers.end()) return false;
            return Holds(r.res.resCompareProps.relop, a->second < b->second ? -1 : a->second > b->second);
        }
        case RES_BITMASK: {
            const auto at = item.numbers.find(r.res.resBitMask.ulPropTag);
            if (at == item.numbers.end()) return false;
            const bool none = (static_cast<ULONG>(at->second) & r.res.resBitMask.ulMask) == 0;
            return none == (r.res.resBitMask.relBMR == BMR_EQZ);
        }
        case RES_SIZE: {
            const auto at = item.texts.find(r.res.resSize.ulPropTag);
            if (at == item.texts.end()) return false;
            const ULONG cb = static_cast<ULONG>(at->second.size() + 1);
            return Holds(r.res.resSize.relop, cb < r.res.resSize.cb ? -1 : cb > r.res.resSize.cb);
        }
        case RES_EXIST:
            return item.texts.count(r.res.resExist.ulPropTag) || item.numbers.count(r.res.resExist.ulPropTag);
        default:
            return false;
    }
}

class CRandom {
public:
    unsigned Below(unsigned limit) { return m_engine() % limit; }
    std::string Text() {
        std::string text;
        for (unsigned i = Below(5); i > 0; --i)
            text.push_back("abAB"[Below(4)]);
        return text;
    }
    Item MakeItem() {
        Item item;
        for (ULONG tag : {kNumber1, kNumber2})
            if (Below(4)) item.numbers[tag] = static_cast<LONG>(Below(7)) - 3;
        for (ULONG tag : {kText1, kText2})
            if (Below(4)) item.texts[tag] = Text();
        for (unsigned i = Below(4); i > 0; --i)
            item.words.push_back(Text());
        return item;
    }
    SRestriction* MakeTree(CTree& tree, int depth) {
        const unsigned kind = Below(depth > 0 ? 9 : 6);
        if (kind == 8) return tree.Not(MakeTree(tree, depth - 1));
        if (kind >= 6) {
            std::vector<SRestriction*> children;
            for (unsigned i = Below(4); i > 0; --i)
                children.push_back(MakeTree(tree, depth - 1));
            return tree.Group(kind == 6 ? RES_AND : RES_OR, children);
        }
        return MakeLeaf(tree, kind);
    }

private:
    SRestriction* MakeLeaf(CTree& tree, unsigned kind) {
        const ULONG text = Below(2) ? kText1 : kText2, number = Below(2) ? kNumber1 : kNumber2;
        const ULONG relop = Below(6);
        SRestriction* node = nullptr;
        switch (kind) {
            case 0:
                if (Below(3) == 0)
                    return tree.Relation(relop, kWords,
                                         tree.Text(kWords & ~static_cast<ULONG>(MV_FLAG), Text()));
                if (Below(2)) return tree.Relation(relop, text, tree.Text(text, Text()));
                return tree.Relation(relop, number, tree.Long(number, static_cast<LONG>(Below(7)) - 3));
            case 1: {
                const ULONG how[] = {FL_FULLSTRING, FL_SUBSTRING, FL_PREFIX};
                const ULONG fold[] = {0, FL_IGNORECASE, FL_LOOSE, FL_IGNORENONSPACE};
                return tree.Content(how[Below(3)] | fold[Below(4)], text, tree.Text(text, Text()));
            }
            case 2:
                node = tree.Node(RES_COMPAREPROPS);
                node->res.resCompareProps = {relop, kNumber1, kNumber2};
                return node;
            case 3:
                node = tree.Node(RES_BITMASK);
                node->res.resBitMask = {Below(2) ? BMR_EQZ : BMR_NEZ, number, Below(8)};
                return node;
            case 4:
                node = tree.Node(RES_SIZE);
                node->res.resSize = {relop, text, Below(6)};
                return node;
            default:
                node = tree.Node(RES_EXIST);
                node->res.resExist.ulPropTag = Below(2) ? text : number;
                return node;
        }
    }
    std::mt19937 m_engine{42};
};

std::string BlockOf(const Item& item) {
    CPropertyBag bag;
    for (const auto& [tag, number] : item.numbers)
        bag.SetLong(static_cast<PropId>(PROP_ID(tag)), static_cast<std::uint32_t>(number));
    for (const auto& [tag, text] : item.texts)
        bag.SetText(static_cast<PropId>(PROP_ID(tag)), text);
    if (!item.words.empty())
        bag.Set(PROP_ID(kWords), PT_MV_STRING8, JoinElements({item.words.begin(), item.words.end()}));
    return bag.Build({}).small;
}

// A row outside a bound must not match; the bounds may let others through.
bool KeepsBounds(const CRestriction& restriction, const IRow& row) {
    for (const RestrictionBound& bound : restriction.Bounds()) {
        CStoredValue value, wanted;
        wanted.View(bound.id, bound.type, bound.bytes);
        if (!row.Find(bound.id, value)) return false;
        if (bound.kind == RestrictionBound::Kind::Prefix) {
            if (value.Bytes().substr(0, bound.bytes.size()) != bound.bytes) return false;
            continue;
        }
        const auto order = CompareStored(value, wanted);
        if (!order || !RelationHolds(bound.relop, *order)) return false;
    }
    return true;
}

TEST(Restriction, SelectsWhatAPlainReadingSelects) {
    CRandom random;
    std::vector<Item> items;
    std::vector<std::string> blocks;
    for (int i = 0; i < 60; ++i) {
        items.push_back(random.MakeItem());
        blocks.push_back(BlockOf(items.back()));
    }
    std::size_t matched = 0;
    for (int round = 0; round < 3000; ++round) {
        CTree tree;
        const SRestriction* plain = random.MakeTree(tree, 4);
        const CRestriction restriction(*plain);
        for (std::size_t i = 0; i < items.size(); ++i) {
            const CBlockRow row(blocks[i]);
            const bool matches = restriction.Matches(row);
            ASSERT_EQ(Naive(items[i], *plain), matches) << "round " << round << " item " << i;
            if (matches) {
                EXPECT_TRUE(KeepsBounds(restriction, row));
            }
            matched += matches;
        }
    }
    EXPECT_GT(matched, 10000u);
}

bool MatchesText(const wchar_t* text, const wchar_t* pattern, ULONG level) {
    CPropertyBag bag;
    bag.SetText(PROP_ID(kText1), Utf8FromWide(text));
    const std::string block = bag.Build({}).small;
    SPropValue value{};
    value.ulPropTag = CHANGE_PROP_TYPE(kText1, PT_UNICODE);
    value.Value.lpszW = const_cast<wchar_t*>(pattern);
    CTree tree;
    return CRestriction(*tree.Content(level, kText1, &value)).Matches(CBlockRow(block));
}

TEST(Restriction, FuzzyLevelsFoldCaseAndMarks) {
    EXPECT_TRUE(MatchesText(L"GR\u00dcSSE", L"gr\u00fcsse", FL_FULLSTRING | FL_IGNORECASE));
    EXPECT_FALSE(MatchesText(L"GR\u00dcSSE", L"grusse", FL_FULLSTRING | FL_IGNORECASE));
    EXPECT_TRUE(MatchesText(L"Gr\u00fcsse", L"Grusse", FL_FULLSTRING | FL_IGNORENONSPACE));
    EXPECT_TRUE(MatchesText(L"xx GR\u00dcSSE", L"grusse", FL_SUBSTRING | FL_LOOSE));
    EXPECT_TRUE(MatchesText(L"Gru\u0308sse", L"gr\u00fc", FL_PREFIX | FL_LOOSE));
    EXPECT_TRUE(MatchesText(L"\u041f\u0440\u0438", L"\u043f\u0440", FL_PREFIX | FL_IGNORECASE));
    EXPECT_TRUE(MatchesText(L"anything", L"", FL_SUBSTRING));
    EXPECT_FALSE(MatchesText(L"", L"x", FL_PREFIX | FL_IGNORECASE));
}

SCODE Refusal(const SRestriction& restriction) {
    try {
        const CRestriction compiled(restriction);
        return S_OK;
    } catch (const CStoreError& error) {
        return error.Code();
    }
}

TEST(Restriction, WhatNoRowCanAnswerIsRefusedAtOnce) {
    CTree tree;
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, Refusal(*tree.Relation(RELOP_EQ, kText1, nullptr)));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, Refusal(*tree.Content(FL_PREFIX, kText1, nullptr)));
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, Refusal(*tree.Relation(RELOP_RE, kText1, tree.Text(kText1, "a"))));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, Refusal(*tree.Relation(99, kText1, tree.Text(kText1, "a"))));
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, Refusal(*tree.Relation(RELOP_EQ, kText1, tree.Long(kNumber1, 1))));
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, Refusal(*tree.Content(FL_PREFIX, kNumber1, tree.Long(kNumber1, 1))));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, Refusal(*tree.Content(7, kText1, tree.Text(kText1, "a"))));
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, Refusal(*tree.Node(77)));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, Refusal(*tree.Not(nullptr)));
    SRestriction* group = tree.Node(RES_AND);
    group->res.resAnd = {2, nullptr};
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, Refusal(*group));
    SRestriction* sub = tree.Node(RES_SUBRESTRICTION);
    sub->res.resSub = {PR_BODY_A, tree.Node(RES_AND)};
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, Refusal(*sub));
    EXPECT_EQ(S_OK, Refusal(*tree.Relation(RELOP_EQ, kWords, tree.Text(kText1, "a"))));

    SRestriction* deep = tree.Relation(RELOP_EQ, kText1, tree.Text(kText1, "a"));
    for (unsigned i = 0; i < 100000; ++i)
        deep = tree.Not(deep);
    EXPECT_EQ(MAPI_E_TOO_COMPLEX, Refusal(*deep));
}

TEST(Restriction, CopyOutlivesWhatItWasMadeFrom) {
    auto tree = std::make_unique<CTree>();
    const CRestriction restriction(*tree->Relation(RELOP_EQ, kText1, tree->Text(kText1, "kept")));
    tree.reset();
    CPropertyBag bag;
    bag.SetText(PROP_ID(kText1), "kept");
    const std::string block = bag.Build({}).small;
    EXPECT_TRUE(restriction.Matches(CBlockRow(block)));
}

}  // namespace
