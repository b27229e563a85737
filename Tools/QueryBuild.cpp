// How the query compiler makes nodes and values out of what lies on its stack.
#include <MapiWrapper/HexText.h>
#include <MapiWrapper/MapiException.h>
#include <MapiWrapper/NameTables.h>
#include <MapiWrapper/TextConvert.h>
#include <MapiWrapper/UserFields.h>
#include <Tools/CompileRestriction.h>
#include <Tools/QueryLiteral.h>
#include <Tools/QueryText.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>

LONG LongFromText(const std::string& text) {
    const long long value = std::strtoll(text.c_str(), nullptr, 10);
    return static_cast<LONG>(
        std::clamp<long long>(value, std::numeric_limits<LONG>::min(), std::numeric_limits<LONG>::max()));
}

// --- the stack --------------------------------------------------------------------------------------

void CCompileRestriction::Push(std::unique_ptr<CLiteral> literal) {
    m_literalStack.push_back(std::move(literal));
}

std::unique_ptr<CLiteral> CCompileRestriction::Pop() {
    if (m_literalStack.empty()) return nullptr;
    auto top = std::move(m_literalStack.back());
    m_literalStack.pop_back();
    return top;
}

void CCompileRestriction::PushRestriction(SRestriction* node, unsigned depth, size_t spare) {
    // Whoever walks the tree later, a store included, does so by recursion.
    if (depth > kMaxDepth) throw CQueryLimit{"Query is nested too deeply"};
    auto literal = std::make_unique<CLiteral>();
    literal->restriction = node;
    literal->depth = depth;
    literal->spare = spare;
    Push(std::move(literal));
}

void CCompileRestriction::PushText(const std::string& text, int type, ULONG flag) {
    auto literal = std::make_unique<CLiteral>();
    literal->type = type;
    literal->flag = flag;
    literal->text = text;
    Push(std::move(literal));
}

// --- dates ------------------------------------------------------------------------------------------

namespace {

constexpr std::uint64_t kTicksPerDay = 864000000000ull;

std::unique_ptr<CLiteral> DateLiteral(const CQueryDate& date) {
    auto literal = std::make_unique<CLiteral>();
    literal->type = TOK_DATE;
    literal->date = date;
    return literal;
}

CQueryDate DateOf(const SYSTEMTIME& st) {
    FILETIME ft{};
    CQueryDate date;
    date.valid = JoinFileTime(st, ft);
    if (date.valid) date.ticks = TicksOf(ft);
    return date;
}

// Midnight of the first of a month, plus days: a day behind the end of its month (31 June) runs on into
// the next one, and day 0 is the last of the month before, as the system's own date values have it.
CQueryDate DateOfDay(LONG day, LONG month, LONG year) {
    if (day < 0 || day > 31 || month < 1 || month > 12 || year < 1601 || year > 9999) return {};
    SYSTEMTIME first{};
    first.wYear = static_cast<WORD>(year);
    first.wMonth = static_cast<WORD>(month);
    first.wDay = 1;
    CQueryDate date = DateOf(first);
    date.ticks += static_cast<std::uint64_t>(day) * kTicksPerDay;
    date.valid = date.valid && date.ticks >= kTicksPerDay;
    date.ticks -= kTicksPerDay;
    return date;
}

}  // namespace

void CCompileRestriction::PushDay(LONG day, LONG month, LONG year) {
    Push(DateLiteral(DateOfDay(day, month, year)));
}

void CCompileRestriction::PushToday(LONG daysBack) {
    const SYSTEMTIME now = LocalNow();
    CQueryDate date = DateOfDay(now.wDay, now.wMonth, now.wYear);
    const auto days = static_cast<std::uint64_t>(std::max<LONG>(daysBack, 0));
    date.valid = date.valid && days <= date.ticks / kTicksPerDay;
    if (date.valid) date.ticks -= days * kTicksPerDay;
    Push(DateLiteral(date));
}

void CCompileRestriction::PushNow() {
    Push(DateLiteral(DateOf(LocalNow())));
}

// --- fields -----------------------------------------------------------------------------------------

namespace {

bool StartsWithNoCase(const std::string& text, std::string_view prefix) {
    return EqualNoCase(std::string_view(text).substr(0, prefix.size()), prefix);
}

// "MessageClass" is PR_MESSAGE_CLASS. Every byte that is no lower-case letter starts a part, so digits do.
std::string PropertyNameOfWord(const std::string& word) {
    std::string name = "PR";
    for (const char c : word) {
        if (c >= 'a' && c <= 'z') {
            name += static_cast<char>(c - 'a' + 'A');
        } else {
            name += '_';
            name += c;
        }
    }
    return name;
}

}  // namespace

ULONG CCompileRestriction::ResolveField(const CLiteral* literal) {
    if (!literal || literal->restriction) return 0;
    const ULONG tag = LookUpField(*literal);
    if (tag) m_words.try_emplace(tag, literal->text);
    return tag;
}

std::string CCompileRestriction::WordOfTag(ULONG tag) const {
    const auto named = m_words.find(tag);
    return named == m_words.end() ? PrintTag(tag) : named->second;
}

ULONG CCompileRestriction::LookUpField(const CLiteral& literal) {
    const std::string& text = literal.text;
    if (StartsWithNoCase(text, "string:")) return ResolveTyped(text.substr(7), PT_STRING8);
    if (StartsWithNoCase(text, "bool:")) return ResolveTyped(text.substr(5), PT_BOOLEAN);
    if (StartsWithNoCase(text, "long:")) return ResolveTyped(text.substr(5), PT_LONG);
    if (text.compare(0, 2, "0x") == 0) return HexToLong(text.c_str() + 2);
    if (literal.type == TOK_DATE || literal.type == TOK_STRING) return 0;
    if (const ULONG tag = TagFromName(PropertyNameOfWord(text))) {
        AddUsedTag(tag);
        return tag;
    }
    return m_folder.IsValid() ? ResolveUserField(text) : 0;
}

ULONG CCompileRestriction::TagOfWord(const std::string& word) {
    CLiteral literal;
    literal.type = TOK_WORD;
    literal.text = word;
    return ResolveField(&literal);
}

template <class Name>
ULONG CCompileRestriction::NamedTag(const GUID& guid, Name name, ULONG type, const std::string& word) {
    if (m_createNames) return m_folder.GetIDFromName(guid, name, type);
    try {
        const ULONG tag = m_folder.GetIDFromName(guid, name, type, 0);
        if (PROP_ID(tag) != 0) return tag;
    } catch (const CMAPIException& refused) {
        if (refused.Hr() != MAPI_E_NOT_FOUND) throw;
    }
    if (!word.empty()) m_absentNames.push_back(word);
    return PROP_TAG(type, --m_absentId);
}

// The store is asked once for a name, however often a text repeats it.
ULONG CCompileRestriction::ResolveTyped(const std::string& name, ULONG type) {
    const std::string key = name + '\0' + std::to_string(type);
    if (const auto known = m_namedTags.find(key); known != m_namedTags.end()) return known->second;
    const ULONG tag = NamedTag(PS_PUBLIC_STRINGS, WideFromUtf8(name).c_str(), type, name);
    m_namedTags.emplace(key, tag);
    return tag;
}

ULONG CCompileRestriction::ResolveUserField(const std::string& name) {
    const CUserField* row = m_userFields->Find(name);
    if (!row) return 0;
    ULONG tag = row->tag;
    if (!tag) {
        const auto known = m_namedTags.find(name);
        if (known != m_namedTags.end()) return known->second;
        tag = row->stringName.empty() ? NamedTag(row->guid, static_cast<LONG>(row->id), 0, {})
                                      : NamedTag(row->guid, WideFromUtf8(row->stringName).c_str(), 0, {});
        tag |= row->type;
        m_namedTags.emplace(name, tag);
    }
    AddUsedTag(tag);
    return tag;
}

void CCompileRestriction::AddUsedTag(ULONG tag) {
    if (std::find(m_usedTags.begin(), m_usedTags.end(), tag) == m_usedTags.end()) m_usedTags.push_back(tag);
}

// --- values -----------------------------------------------------------------------------------------

// A number that is clipped would select what nobody asked for.
LONG CCompileRestriction::NumberOf(const CLiteral& literal) {
    const LONG number = LongFromText(literal.text);
    if (std::strtoll(literal.text.c_str(), nullptr, 10) != number) {
        if (m_errorHint.empty()) m_errorHint = "The number nearest to it is " + std::to_string(number);
        Error("The number " + literal.text + " is out of range");
    }
    if (literal.text.empty() || literal.text.find_first_not_of("0123456789") != std::string::npos)
        Warn("\"" + literal.text + "\" is no number and counts as " + std::to_string(number) +
             "; yes is written 1, no is 0");
    return number;
}

// Null where the literal can have no value of that type, which is no error.
SPropValue* CCompileRestriction::LiteralValue(ULONG tag, const CLiteral& literal) {
    if (literal.restriction) return nullptr;
    tag &= ~static_cast<ULONG>(MV_FLAG);
    auto* value = static_cast<SPropValue*>(m_memory.Allocate(sizeof(SPropValue)));
    value->ulPropTag = tag;
    switch (PROP_TYPE(tag)) {
        case PT_SYSTIME:
            if (literal.type != TOK_DATE)
                Error("Wrong type: Expeced time");
            else if (!literal.date.valid)
                Error("No such date");
            value->Value.ft = FileTimeOf(literal.date.ticks);
            return value;
        case PT_LONG:
            value->Value.l = NumberOf(literal);
            return value;
        case PT_BOOLEAN:
            value->Value.b = static_cast<unsigned short>(NumberOf(literal));
            return value;
        case PT_STRING8:
            value->Value.lpszA = m_memory.AllocateString(literal.text);
            return value;
        case PT_CLSID:
            FillGuid(*value, literal.text);
            return value;
        case PT_BINARY: {
            const CMapiBinary bytes = BinaryFromHex(literal.text);
            value->Value.bin.cb = bytes.Count();
            value->Value.bin.lpb = static_cast<BYTE*>(m_memory.Allocate(bytes.Count()));
            if (bytes.Count()) std::memcpy(value->Value.bin.lpb, bytes.Data(), bytes.Count());
            return value;
        }
        default:
            return nullptr;
    }
}

void CCompileRestriction::FillGuid(SPropValue& value, const std::string& text) {
    value.Value.lpguid = static_cast<GUID*>(m_memory.Allocate(sizeof(GUID)));
    const CMapiBinary bytes = BinaryFromHex(text);
    if (text.size() != 2 * sizeof(GUID) || bytes.Count() != sizeof(GUID))
        return Error("GUID has have 16 byte");
    std::memcpy(value.Value.lpguid, bytes.Data(), sizeof(GUID));
}

// --- nodes ------------------------------------------------------------------------------------------

namespace {
constexpr char kNoSide[] = "Nothing stands on one side of a comparison";
}

void CCompileRestriction::BuildRelation(ULONG relop) {
    const auto right = Pop();
    const auto left = Pop();
    const ULONG tagL = ResolveField(left.get());
    const ULONG tagR = ResolveField(right.get());
    if (!tagL && !tagR) {
        Needed(left.get(), kNoSide);
        Needed(right.get(), kNoSide);
        return Error("Neither " + left->text + " nor " + right->text + " is a keyword");
    }
    SRestriction* node = m_memory.AllocateNodes(1);
    if (tagL && tagR) {
        // A word with a level was meant as a part of a text, or as a mask; none of that is left.
        for (const CLiteral* side : {left.get(), right.get()})
            if (side->flag != 0)
                Warn("\"" + side->text +
                     "\" is the name of a field, so two fields are compared and the words before it do not "
                     "count; a text is told apart by small letters, with ignorecase");
        node->rt = RES_COMPAREPROPS;
        node->res.resCompareProps.relop = relop;
        node->res.resCompareProps.ulPropTag1 = tagL;
        node->res.resCompareProps.ulPropTag2 = tagR;
    } else {
        // The relation is not turned round when the field stands on the right.
        const CLiteral* value = Needed(tagL ? right.get() : left.get(), kNoSide);
        if (!FillRelation(*node, relop, tagL ? tagL : tagR, *value)) return;
    }
    PushRestriction(node, 1);
}

// False where nothing is to be pushed.
bool CCompileRestriction::FillRelation(SRestriction& node, ULONG relop, ULONG tag, const CLiteral& value) {
    if (value.type == TOK_SIZE) {
        node.rt = RES_SIZE;
        node.res.resSize.relop = relop;
        node.res.resSize.ulPropTag = tag;
        node.res.resSize.cb = static_cast<ULONG>(LongFromText(value.text));
    } else if (value.flag == TOK_BIT) {
        return FillBitmask(node, relop, tag, value);
    } else if (value.flag != 0) {
        node.rt = RES_CONTENT;
        node.res.resContent.ulFuzzyLevel = value.flag;
        node.res.resContent.ulPropTag = tag;
        node.res.resContent.lpProp = LiteralValue(tag, value);
    } else {
        node.rt = RES_PROPERTY;
        node.res.resProperty.relop = relop;
        node.res.resProperty.ulPropTag = tag;
        node.res.resProperty.lpProp = LiteralValue(tag, value);
    }
    return true;
}

// "=" asks for the masked bits to be zero, and "<>" for one of them to be set.
bool CCompileRestriction::FillBitmask(SRestriction& node, ULONG relop, ULONG tag, const CLiteral& value) {
    const SPropValue* mask = LiteralValue(PT_LONG, value);
    if (!mask) {
        Error("No value to compare");
        return false;
    }
    if (relop != RELOP_EQ && relop != RELOP_NE) Error("Bitmask works only with = and <>");
    node.rt = RES_BITMASK;
    node.res.resBitMask.relBMR = relop == RELOP_NE ? BMR_NEZ : BMR_EQZ;
    node.res.resBitMask.ulPropTag = tag;
    node.res.resBitMask.ulMask = static_cast<ULONG>(mask->Value.l);
    return true;
}

namespace {

struct CChildren {
    const SRestriction* nodes;
    size_t count;
};

// The children that an operand contributes to an AND or OR: its own where it is of the same kind.
CChildren ChildrenOf(const SRestriction* node, ULONG kind) {
    if (node->rt != kind) return {node, 1};
    return kind == RES_AND ? CChildren{node->res.resAnd.lpRes, node->res.resAnd.cRes}
                           : CChildren{node->res.resOr.lpRes, node->res.resOr.cRes};
}

void SetChildren(SRestriction& node, ULONG kind, SRestriction* children, size_t count) {
    node.rt = kind;
    if (kind == RES_AND) {
        node.res.resAnd.cRes = static_cast<ULONG>(count);
        node.res.resAnd.lpRes = children;
    } else {
        node.res.resOr.cRes = static_cast<ULONG>(count);
        node.res.resOr.lpRes = children;
    }
}

const SRestriction* ConditionOf(const CLiteral* literal) {
    return Needed(
        Needed(literal, "Nothing stands on one side of \"and\" or \"or\"")->restriction,
        "\"and\" and \"or\" join conditions, and one side is a lone word or value; a yes-or-no field is "
        "asked for with = 1");
}

}  // namespace

// Joins the two operands on top. The children of the later one come first. A long chain of terms would
// be copied anew for each of them, so an array gets room before its first node and grows to the front.
void CCompileRestriction::Combine(ULONG kind) {
    const auto right = Pop();
    const auto left = Pop();
    const CChildren later = ChildrenOf(ConditionOf(right.get()), kind);
    const CChildren earlier = ChildrenOf(ConditionOf(left.get()), kind);
    const size_t count = later.count + earlier.count;
    const bool grows = left->restriction->rt == kind;

    SRestriction* children = nullptr;
    size_t spare = 0;
    if (grows && left->spare >= later.count) {
        children = const_cast<SRestriction*>(earlier.nodes) - later.count;
        spare = left->spare - later.count;
    } else {
        spare = grows ? count : 0;
        children = m_memory.AllocateNodes(spare + count) + spare;
        std::copy_n(earlier.nodes, earlier.count, children + later.count);
    }
    std::copy_n(later.nodes, later.count, children);

    const unsigned depthR = right->restriction->rt == kind ? right->depth : right->depth + 1;
    const unsigned depthL = grows ? left->depth : left->depth + 1;
    SRestriction* node = grows ? left->restriction : m_memory.AllocateNodes(1);
    SetChildren(*node, kind, children, count);
    PushRestriction(node, std::max(depthL, depthR), spare);
}

// --- columns and order ------------------------------------------------------------------------------

void CCompileRestriction::StoreSortOrder(const std::vector<SSortOrder>& keys) {
    if (m_sortOrder) MAPIFreeBuffer(m_sortOrder);
    m_sortOrder = nullptr;
    void* block = nullptr;
    const size_t cb = sizeof(SSortOrder) * keys.size() + sizeof(SSortOrderSet);
    if (MAPIAllocateBuffer(static_cast<ULONG>(cb), &block) < 0 || !block) throw std::bad_alloc();
    m_sortOrder = static_cast<SSortOrderSet*>(block);
    m_sortOrder->cSorts = static_cast<ULONG>(keys.size());
    m_sortOrder->cCategories = static_cast<ULONG>(std::count_if(
        keys.begin(), keys.end(), [](const SSortOrder& key) { return key.ulOrder == TABLE_SORT_COMBINE; }));
    m_sortOrder->cExpanded = 0;
    std::copy(keys.begin(), keys.end(), m_sortOrder->aSort);
}

SPropTagArray* CCompileRestriction::MergeUsedTags(const SPropTagArray* array) const {
    const ULONG count = array ? array->cValues : 0;
    const size_t cb = sizeof(ULONG) * (size_t{count} + m_usedTags.size()) + 8;
    void* block = nullptr;
    if (cb > std::numeric_limits<ULONG>::max()) return nullptr;
    if (MAPIAllocateBuffer(static_cast<ULONG>(cb), &block) < 0 || !block) return nullptr;
    auto* merged = static_cast<SPropTagArray*>(block);
    const ULONG* known = array ? array->aulPropTag : nullptr;
    std::copy_n(known, count, merged->aulPropTag);
    merged->cValues = count;
    for (const ULONG tag : m_usedTags)
        if (std::find(known, known + count, tag) == known + count)
            merged->aulPropTag[merged->cValues++] = tag;
    return merged;
}
