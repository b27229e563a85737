// Random query texts together with what they mean.
#pragma once
#include <Platform/MapiHeaders.h>

#include <functional>
#include <random>
#include <string>

struct CItem {
    LONG a, b, c;
    std::string text;
};

using CMeaning = std::function<bool(const CItem&)>;

struct CQuery {
    std::string text;
    CMeaning meaning;
};

inline bool Contains(const std::string& text, const std::string& part) {
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
