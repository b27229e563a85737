#include "PropCompare.h"

#include <algorithm>
#include <cstring>

namespace {

template <class T>
int Order(const T& a, const T& b) {
    return a < b ? -1 : (b < a ? 1 : 0);
}

template <class T>
int OrderAs(const CStoredValue& a, const CStoredValue& b) {
    return Order(a.As<T>(), b.As<T>());
}

// memcmp order, which for UTF-8 is the order of the code points.
int OrderOfBytes(std::string_view a, std::string_view b) {
    const int order = a.compare(b);
    return Order(order, 0);
}

std::optional<int> OrderOfElements(const CStoredValue& a, const CStoredValue& b) {
    std::vector<std::string_view> right;
    AnyElement(b, [&](const CStoredValue& element) {
        right.push_back(element.Bytes());
        return false;
    });
    std::size_t i = 0;
    std::optional<int> order = 0;
    CStoredValue other;
    AnyElement(a, [&](const CStoredValue& element) {
        if (i == right.size()) {
            order = 1;
            return true;
        }
        other.View(b.Id(), element.Type(), right[i++]);
        order = CompareStored(element, other);
        return !order || *order != 0;
    });
    if (order && *order == 0 && i < right.size()) order = -1;
    return order;
}

bool Relates(std::string_view text, std::string_view pattern, ULONG how) {
    if (how == FL_SUBSTRING) return text.find(pattern) != std::string_view::npos;
    if (how == FL_PREFIX) return text.substr(0, pattern.size()) == pattern;
    return text == pattern;
}

bool Relates(std::u32string_view text, std::u32string_view pattern, ULONG how) {
    if (how == FL_SUBSTRING) return text.find(pattern) != std::u32string_view::npos;
    if (how == FL_PREFIX) return text.substr(0, pattern.size()) == pattern;
    return text == pattern;
}

}  // namespace

std::size_t FixedSizeOf(PropType type) {
    switch (type & ~MV_FLAG) {
        case PT_I2:
        case PT_BOOLEAN:
            return 2;
        case PT_LONG:
        case PT_R4:
            return 4;
        case PT_DOUBLE:
        case PT_APPTIME:
        case PT_CURRENCY:
        case PT_I8:
        case PT_SYSTIME:
            return 8;
        case PT_CLSID:
            return 16;
        default:
            return 0;
    }
}

std::optional<int> CompareStored(const CStoredValue& a, const CStoredValue& b) {
    if (a.Type() != b.Type()) return std::nullopt;
    if (a.Type() & MV_FLAG) return OrderOfElements(a, b);
    switch (a.Type()) {
        case PT_STRING8:
        case PT_BINARY:
        case PT_CLSID:
            return OrderOfBytes(a.Bytes(), b.Bytes());
        case PT_I2:
            return OrderAs<std::int16_t>(a, b);
        case PT_LONG:
            return OrderAs<std::int32_t>(a, b);
        case PT_BOOLEAN:
            return Order(a.As<std::uint16_t>() != 0, b.As<std::uint16_t>() != 0);
        case PT_R4:
            return OrderAs<float>(a, b);
        case PT_DOUBLE:
        case PT_APPTIME:
            return OrderAs<double>(a, b);
        case PT_CURRENCY:
        case PT_I8:
            return OrderAs<std::int64_t>(a, b);
        case PT_SYSTIME:
            return OrderAs<std::uint64_t>(a, b);
        default:
            return std::nullopt;
    }
}

bool RelationHolds(ULONG relop, int order) {
    switch (relop) {
        case RELOP_LT:
            return order < 0;
        case RELOP_LE:
            return order <= 0;
        case RELOP_GT:
            return order > 0;
        case RELOP_GE:
            return order >= 0;
        case RELOP_EQ:
            return order == 0;
        case RELOP_NE:
            return order != 0;
        default:
            return false;
    }
}

CContentPattern::CContentPattern(const CStoredValue& value, ULONG fuzzyLevel)
    : m_type(value.Type()),
      m_how(fuzzyLevel & 0xFFFF),
      m_fold(value.Type() == PT_STRING8 ? FoldFlagsOf(fuzzyLevel) : kFoldNothing),
      m_bytes(value.Bytes()) {
    if (m_fold) FoldUtf8(m_bytes, m_fold, m_text);
}

bool CContentPattern::Matches(const CStoredValue& value) const {
    return AnyElement(value, [this](const CStoredValue& element) {
        if (element.Type() != m_type) return false;
        if (!m_fold) return Relates(element.Bytes(), std::string_view(m_bytes), m_how);
        FoldUtf8(element.Bytes(), m_fold, m_scratch);
        return Relates(std::u32string_view(m_scratch), std::u32string_view(m_text), m_how);
    });
}
