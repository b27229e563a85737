#include <MapiWrapper/HexText.h>
#include <Platform/Clock.h>
#include <Tools/CharClasses.h>
#include <Tools/CompileRestriction.h>
#include <Tools/QueryText.h>
#include <Tools/QueryWrite.h>

#include <algorithm>
#include <iterator>

namespace {

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

std::string SignOfToken(ULONG token) {
    switch (token) {
        case TOK_LE:
            return "<=";
        case TOK_GE:
            return ">=";
        case TOK_NE:
            return "<>";
        default:
            return std::string(1, static_cast<char>(token));
    }
}

std::string Levels(ULONG level) {
    static constexpr struct {
        ULONG bit;
        const char* word;
    } levels[] = {{FL_SUBSTRING, "substring "},        {FL_PREFIX, "prefix "},
                  {FL_IGNORECASE, "ignorecase "},      {FL_LOOSE, "loose "},
                  {FL_IGNORENONSPACE, "ignorespace "}, {0x80000000, "bit "}};
    std::string words;
    for (const auto& one : levels)
        if (level & one.bit) words += one.word;
    return words;
}

std::string Value(const SPropValue* value) {
    if (!value) return "0";  // a type without values takes any
    switch (PROP_TYPE(value->ulPropTag)) {
        case PT_SYSTIME: {
            SYSTEMTIME st{};
            SplitFileTime(value->Value.ft, st);
            return FormatText("date(%d,%d,%d)", st.wDay, st.wMonth, st.wYear);
        }
        case PT_LONG:
            return std::to_string(value->Value.l);
        case PT_BOOLEAN:
            return std::to_string(value->Value.b);
        case PT_STRING8:
            return Quoted(value->Value.lpszA);
        case PT_CLSID:
            return Quoted(HexFromBinary(SBinary{sizeof(GUID), reinterpret_cast<BYTE*>(value->Value.lpguid)}));
        case PT_BINARY:
            return Quoted(HexFromBinary(value->Value.bin));
        default:
            return {};
    }
}

class CWriter {
public:
    explicit CWriter(const CCompileRestriction& compiler) : m_compiler(compiler) {}

    // `alone`: nothing stands behind the condition up to the end or a closing bracket.
    std::string Condition(const SRestriction* node, bool alone) const {
        if (!node) return {};
        const auto& res = node->res;
        switch (node->rt) {
            case RES_AND:
                return List(res.resAnd.lpRes, res.resAnd.cRes, " and ", alone);
            case RES_OR:
                return List(res.resOr.lpRes, res.resOr.cRes, " or ", alone);
            case RES_NOT: {
                // It governs all that follows.
                const std::string text = "not (" + Condition(res.resNot.lpRes, true) + ")";
                return alone ? text : "(" + text + ")";
            }
            case RES_SUBRESTRICTION:
                return (res.resSub.ulSubObject == PR_MESSAGE_RECIPIENTS ? "recipient(" : "attachment(") +
                       Condition(res.resSub.lpRes, true) + ")";
            default:
                return Leaf(*node);
        }
    }

private:
    // The later part of a text comes first in the tree.
    std::string List(const SRestriction* children, ULONG count, const char* between, bool alone) const {
        std::string text;
        for (ULONG i = count; i > 0; --i)
            text += (i < count ? between : "") + Condition(children + i - 1, false);
        return alone ? text : "(" + text + ")";
    }

    std::string Leaf(const SRestriction& node) const {
        const auto& res = node.res;
        switch (node.rt) {
            case RES_CONTENT:
                return Field(res.resContent.ulPropTag) + " = " + Levels(res.resContent.ulFuzzyLevel) +
                       Value(res.resContent.lpProp);
            case RES_PROPERTY:
                return Field(res.resProperty.ulPropTag) + Relop(res.resProperty.relop) +
                       Value(res.resProperty.lpProp);
            case RES_COMPAREPROPS:
                return Comparison(Field(res.resCompareProps.ulPropTag1), res.resCompareProps.relop,
                                  Field(res.resCompareProps.ulPropTag2));
            case RES_BITMASK:
                return Field(res.resBitMask.ulPropTag) +
                       (res.resBitMask.relBMR == BMR_EQZ ? " = bit " : " <> bit ") +
                       std::to_string(res.resBitMask.ulMask);
            case RES_SIZE:
                return Comparison(Field(res.resSize.ulPropTag), res.resSize.relop,
                                  std::to_string(res.resSize.cb));
            case RES_EXIST:
                return "exists " + Field(res.resExist.ulPropTag);
            default:
                return {};
        }
    }

    // A relation that no store knows is the sign's own code, which the word size leaves behind.
    static std::string Comparison(const std::string& left, ULONG relop, const std::string& right) {
        const bool isSize = CCompileRestriction::PrintRelop(relop).empty();
        return isSize ? "size " + left + " " + SignOfToken(relop) + " " + right : left + Relop(relop) + right;
    }

    static std::string Relop(ULONG relop) { return " " + CCompileRestriction::PrintRelop(relop) + " "; }

    // The word that named it, if it can stand alone; a field of one's own by its name and type.
    std::string Field(ULONG tag) const {
        const std::string word = m_compiler.WordOfTag(tag);
        const std::string type = LowerCase(word.substr(0, word.find(':')));
        if (type.size() < word.size() && (type == "string" || type == "long" || type == "bool"))
            return "userfield(" + Quoted(word.substr(type.size() + 1)) + ", " + type + ")";
        const bool isWord =
            !word.empty() && std::all_of(word.begin(), word.end(), IsAlnum) && !QueryKeyword(word);
        return isWord ? word : FormatText("0x%x", static_cast<unsigned>(tag));
    }

    const CCompileRestriction& m_compiler;
};

}  // namespace

std::string WriteQuery(const CCompileRestriction& compiler, const SRestriction* node) {
    return CWriter(compiler).Condition(node, true);
}
