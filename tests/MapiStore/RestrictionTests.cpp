#include <MapiStore/Tables/Restriction.h>
#include <MapiStore/Values/PropertyBag.h>
#include <MapiStore/Values/PropertyCodec.h>
#include <MapiStore/Values/StoreError.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <map>
#include <random>

#include "TableFixture.h"

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
    SPropValue* Time(ULONG tag, std::uint64_t ticks) {
        SPropValue* value = Value(tag);
        value->Value.ft = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
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
    // What texts are made of; from times on, conditions on the two times of a message are made too.
    std::vector<std::string> pieces = {"a", "b", "A", "B"};
    std::vector<std::uint64_t> times;

    unsigned Below(unsigned limit) { return m_engine() % limit; }
    std::string Text() {
        std::string text;
        for (unsigned i = Below(5); i > 0; --i)
            text += pieces[Below(static_cast<unsigned>(pieces.size()))];
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
        if (!times.empty() && Below(4) == 0) {
            const ULONG tag = Below(2) ? PR_CREATION_TIME : PR_LAST_MODIFICATION_TIME;
            return tree.Relation(relop, tag,
                                 tree.Time(tag, times[Below(static_cast<unsigned>(times.size()))]));
        }
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

void FillBag(const Item& item, CPropertyBag& bag) {
    for (const auto& [tag, number] : item.numbers)
        bag.SetLong(static_cast<PropId>(PROP_ID(tag)), static_cast<std::uint32_t>(number));
    for (const auto& [tag, text] : item.texts)
        bag.SetText(static_cast<PropId>(PROP_ID(tag)), text);
    if (!item.words.empty())
        bag.Set(PROP_ID(kWords), PT_MV_STRING8, JoinElements({item.words.begin(), item.words.end()}));
}

std::string BlockOf(const Item& item) {
    CPropertyBag bag;
    FillBag(item, bag);
    return bag.Build({}).small;
}

// A row outside a bound must not match; the bounds may let others through.
bool KeepsBounds(const CRestriction& restriction, const IRow& row) {
    const auto isWithin = [&row](const LookupRange& range) {
        CStoredValue value;
        bool within = false;
        if (row.Find(range.property, value))
            ForEachLookupKey(value,
                             [&](std::string_view key) { within |= range.first <= key && key < range.last; });
        return within;
    };
    return std::all_of(restriction.Bounds().begin(), restriction.Bounds().end(),
                       [&](const RestrictionBound& bound) {
                           return std::any_of(bound.ranges.begin(), bound.ranges.end(), isWithin);
                       });
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

// The same law for a folder so large that its store looks messages up by their values, whatever has been
// written since it began to.
class LookupLaw : public TableFixture {
protected:
    void AddItem() {
        CPropertyBag bag;
        FillBag(random.MakeItem(), bag);
        if (random.Below(10) == 0) bag.SetText(PROP_ID(kText1), random.Text() + std::string(2000, 'b'));
        ids.push_back(Add(bag));
    }
    void Change() {
        const std::size_t at = random.Below(static_cast<unsigned>(ids.size()));
        switch (random.Below(3)) {
            case 0:
                return AddItem();
            case 1:
                Delete(ids[at]);
                ids.erase(ids.begin() + static_cast<std::ptrdiff_t>(at));
                return;
            default:
                ChangeSubject(ids[at], random.Text());
        }
    }
    CBatchHolder m_batch;
    void Gather(bool begin) {
        const CQuietCall call(*core);
        begin ? core->BeginBatch(m_batch) : core->EndBatch(m_batch);
    }
    // The numbers of the rows that the table shows, and those that match when each is looked at.
    std::vector<ObjectId> Shown(const SRestriction& plain) {
        const auto table = Contents();
        CTagList tags{PR_INSTANCE_KEY};
        SRowSet* rows = nullptr;
        EXPECT_EQ(S_OK,
                  HrQueryAllRows(table.Get(), tags, const_cast<SRestriction*>(&plain), nullptr, 0, &rows));
        const RowsPtr owner(rows);
        std::vector<ObjectId> shown(rows ? rows->cRows : 0);
        for (std::size_t i = 0; i < shown.size(); ++i)
            std::memcpy(&shown[i], rows->aRow[i].lpProps[0].Value.bin.lpb, sizeof shown[i]);
        return shown;
    }
    std::vector<ObjectId> Matching(const SRestriction& plain) {
        const CRestriction restriction(plain);
        const CQuietCall call(*core);
        std::vector<ObjectId> matching;
        core->Storage().ScanMessages(kInboxFolder, false,
                                     [&](const MessageHead& head, std::string_view block) {
                                         if (restriction.Matches(CMessageRow(*core, head, block)))
                                             matching.push_back(head.id);
                                         return true;
                                     });
        return matching;
    }
    CRandom random;
    std::vector<ObjectId> ids;
};

TEST_F(LookupLaw, TablesShowWhatAScanWouldFind) {
    random.pieces = {"a", "A", "b", "\xC3\x84", "\xC3\xA4", "e\xCC\x81", "\xC3\x89", "\xC3", "\xA4", " "};
    Gather(true);
    for (int i = 0; i < 700; ++i)
        AddItem();
    Gather(false);
    std::size_t selected = 0;
    for (int round = 0; round < 800; ++round) {
        const bool gathered = round % 4 != 0;
        if (gathered) Gather(true);
        for (unsigned i = round % 100 == 99 ? 300 : random.Below(3); i > 0; --i)
            Change();
        random.times.clear();
        for (int i = 0; i < 5; ++i) {
            MessageHead head;
            const CQuietCall call(*core);
            core->Storage().ReadMessageHead(ids[random.Below(static_cast<unsigned>(ids.size()))], head);
            random.times.push_back(i % 2 ? head.created : head.modified);
        }
        CTree tree;
        const SRestriction* plain = random.MakeTree(tree, 2);
        const auto expected = Matching(*plain);
        ASSERT_EQ(expected, Shown(*plain)) << "round " << round;
        selected += !CRestriction(*plain).Bounds().empty() && !expected.empty();
        if (gathered) Gather(false);
    }
    EXPECT_GT(selected, 100u);
    // And the store did look them up: by a time that nothing reaches it finds next to nothing.
    const CQuietCall call(*core);
    CStoredValue never;
    never.OwnTime(PROP_ID(PR_CREATION_TIME), ~std::uint64_t{0});
    std::vector<ObjectId> found;
    const auto latest = RangeOfRelation(RELOP_GE, never);
    EXPECT_TRUE(core->Storage().FindMessages(kInboxFolder, false, {*latest}, found));
    EXPECT_LT(found.size(), ids.size() / 2);
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

TEST(Restriction, PatternsThatEndWithinACharacterKeepWhatGoesOn) {
    CStoredValue pattern, whole;
    pattern.View(PROP_ID(kText1), PT_STRING8, "a\xC5");
    whole.View(PROP_ID(kText1), PT_STRING8, "a\xC5\xA1");
    ASSERT_TRUE(CContentPattern(pattern, FL_PREFIX).Matches(whole));
    const auto range = RangeOfContent(pattern, FL_PREFIX);
    ASSERT_TRUE(range);
    ForEachLookupKey(whole,
                     [&](std::string_view key) { EXPECT_TRUE(range->first <= key && key < range->last); });
}

// Keys are folded by case and accents whatever a restriction folds, so what is equal under less folding
// must be equal under more.
TEST(Restriction, FoldingMoreNeverTellsApartWhatFoldingLessDoesNot) {
    std::map<std::u32string, std::u32string> byCase;
    std::u32string lower, both;
    for (char32_t c = 1; c < 0x3000; ++c) {
        const wchar_t wide[] = {static_cast<wchar_t>(c), 0};
        const std::string text = Utf8FromWide(wide);
        FoldUtf8(text, kFoldCase, lower);
        FoldUtf8(text, kFoldCase | kFoldAccents, both);
        EXPECT_EQ(both, byCase.try_emplace(lower, both).first->second) << static_cast<unsigned>(c);
    }
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
