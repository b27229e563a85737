#include <MapiWrapper/HexText.h>
#include <MapiWrapper/PropValue.h>
#include <Platform/Clock.h>
#include <Tools/CompileRestriction.h>
#include <Tools/QueryText.h>
#include <Tools/RestrictionTree.h>

namespace {

std::string Hex(ULONG value) {
    return FormatText("0x%x", static_cast<unsigned>(value));
}

std::string Tag(ULONG tag) {
    return FormatText("0x%08x", static_cast<unsigned>(tag));
}

std::string Relop(ULONG relop) {
    const std::string text = CCompileRestriction::PrintRelop(relop);
    return text.empty() ? FormatText("relop(%u)", static_cast<unsigned>(relop)) : text;
}

std::string Guid(const GUID* guid) {
    if (!guid) return "(none)";
    const SBinary bytes{sizeof *guid, reinterpret_cast<BYTE*>(const_cast<GUID*>(guid))};
    return HexFromBinary(bytes);
}

std::string Value(const SPropValue* value) {
    if (!value) return "(none)";
    switch (PROP_TYPE(value->ulPropTag)) {
        case PT_SYSTIME: {
            SYSTEMTIME st{};
            SplitFileTime(value->Value.ft, st);
            return FormatText("%04d-%02d-%02d %02d:%02d:%02d.%03d", st.wYear, st.wMonth, st.wDay, st.wHour,
                              st.wMinute, st.wSecond, st.wMilliseconds);
        }
        case PT_BOOLEAN:
            return std::to_string(value->Value.b);
        case PT_CLSID:
            return Guid(value->Value.lpguid);
        default:
            return CCompileRestriction::PrintValue(value);
    }
}

class CTreePrinter {
public:
    std::string Print(const SRestriction* node) {
        Node(node, 0);
        return m_text;
    }

private:
    void Line(unsigned level, const std::string& text) {
        m_text.append(2 * size_t{level}, ' ');
        m_text += text;
        m_text += '\n';
    }

    void List(const char* kind, const SRestriction* children, ULONG count, unsigned level) {
        Line(level, FormatText("%s %u", kind, static_cast<unsigned>(count)));
        for (ULONG i = 0; i < count; ++i)
            Node(children + i, level + 1);
    }

    void Nested(const std::string& kind, const SRestriction* child, unsigned level) {
        Line(level, kind);
        Node(child, level + 1);
    }

    void Node(const SRestriction* node, unsigned level) {
        if (!node) return Line(level, "(NULL)");
        const auto& res = node->res;
        switch (node->rt) {
            case RES_AND:
                return List("AND", res.resAnd.lpRes, res.resAnd.cRes, level);
            case RES_OR:
                return List("OR", res.resOr.lpRes, res.resOr.cRes, level);
            case RES_NOT:
                return Nested("NOT", res.resNot.lpRes, level);
            case RES_SUBRESTRICTION:
                return Nested("SUB " + Tag(res.resSub.ulSubObject), res.resSub.lpRes, level);
            default:
                return Line(level, Leaf(*node));
        }
    }

    static std::string Leaf(const SRestriction& node) {
        const auto& res = node.res;
        switch (node.rt) {
            case RES_CONTENT:
                return "CONTENT " + Tag(res.resContent.ulPropTag) + " level " +
                       Hex(res.resContent.ulFuzzyLevel) + " " + Value(res.resContent.lpProp);
            case RES_PROPERTY:
                return "PROPERTY " + Tag(res.resProperty.ulPropTag) + " " + Relop(res.resProperty.relop) +
                       " " + Value(res.resProperty.lpProp);
            case RES_COMPAREPROPS:
                return "COMPARE " + Tag(res.resCompareProps.ulPropTag1) + " " +
                       Relop(res.resCompareProps.relop) + " " + Tag(res.resCompareProps.ulPropTag2);
            case RES_BITMASK:
                return "BITMASK " + Tag(res.resBitMask.ulPropTag) + " & " + Hex(res.resBitMask.ulMask) +
                       (res.resBitMask.relBMR == BMR_EQZ ? " = 0" : " <> 0");
            case RES_SIZE:
                return "SIZE " + Tag(res.resSize.ulPropTag) + " " + Relop(res.resSize.relop) + " " +
                       std::to_string(res.resSize.cb);
            case RES_EXIST:
                return "EXIST " + Tag(res.resExist.ulPropTag);
            default:
                return FormatText("UNKNOWN %u", static_cast<unsigned>(node.rt));
        }
    }

    std::string m_text;
};

}  // namespace

std::string RestrictionTree(const SRestriction* node) {
    return CTreePrinter().Print(node);
}
