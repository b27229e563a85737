// Restrictions as text for a person.
#include <MapiWrapper/NameTables.h>
#include <MapiWrapper/PropValue.h>
#include <Platform/Clock.h>
#include <Tools/CharClasses.h>
#include <Tools/CompileRestriction.h>
#include <Tools/QueryText.h>

#include <algorithm>

namespace {

constexpr ULONG kLastUnnamedTag = 0x7FFFFFFF;

}  // namespace

std::string CCompileRestriction::PrintRestriction(const SRestriction* node) const {
    if (!node) return "(NULL)";
    const auto list = [this](const SRestriction* children, ULONG count, const char* between) {
        std::string text = "(";
        for (ULONG i = 0; i < count; ++i) {
            if (i > 0) text += between;
            text += PrintRestriction(children + i);
        }
        return text + ")";
    };
    const auto& res = node->res;
    switch (node->rt) {
        case RES_AND:
            return list(res.resAnd.lpRes, res.resAnd.cRes, " and ");
        case RES_OR:
            return list(res.resOr.lpRes, res.resOr.cRes, " or ");
        case RES_NOT:
            return "not (" + PrintRestriction(res.resNot.lpRes) + ")";
        case RES_CONTENT:
            return PrintTag(res.resContent.ulPropTag) + "=" + PrintFuzzy(res.resContent.ulFuzzyLevel) +
                   PrintValue(res.resContent.lpProp) + " ";
        case RES_PROPERTY:
            return PrintTag(res.resProperty.ulPropTag) + " " + PrintRelop(res.resProperty.relop) + " " +
                   PrintValue(res.resProperty.lpProp) + " ";
        case RES_COMPAREPROPS: {
            // The first tag stands on both sides: readers of old protocols know it so.
            const std::string tag = PrintTag(res.resCompareProps.ulPropTag1);
            return tag + " " + PrintRelop(res.resCompareProps.relop) + " " + tag + " ";
        }
        case RES_BITMASK:
            return PrintTag(res.resBitMask.ulPropTag) +
                   (res.resBitMask.relBMR == BMR_EQZ ? " = bitmask " : " <> bitmask ") +
                   std::to_string(static_cast<int>(res.resBitMask.ulMask)) + " ";
        case RES_EXIST:
            return "exist " + PrintTag(res.resExist.ulPropTag) + " ";
        case RES_SUBRESTRICTION:
            return (res.resSub.ulSubObject == PR_MESSAGE_RECIPIENTS ? "Recipient(" : "Attachment(") +
                   PrintRestriction(res.resSub.lpRes) + ")";
        default:
            return {};  // RES_SIZE too: the language cannot say one that a store takes
    }
}

std::string CCompileRestriction::PrintTag(ULONG tag) const {
    return PrintTagIn(m_folder.Get(), tag);
}

// Named properties print as hexadecimal, so the store is not asked for their names.
std::string CCompileRestriction::PrintTagIn(IMAPIProp*, ULONG tag) const {
    if (tag <= kLastUnnamedTag) {
        const std::string name = NameFromTag(tag);
        if (name.compare(0, 3, "PR_") == 0) {
            const std::string word = QueryWordFromName(name);
            if (!word.empty()) return word;
        }
    }
    return FormatText("0x%x", static_cast<unsigned>(tag));
}

std::string CCompileRestriction::PrintFuzzy(ULONG level) {
    std::string text;
    if (level & FL_PREFIX) text += "prefix ";
    if (level & FL_SUBSTRING) text += "substring ";
    if (level & FL_IGNORECASE) text += "ignorecase ";
    if (level & FL_LOOSE) text += "loose ";
    return text;
}

std::string CCompileRestriction::PrintRelop(ULONG relop) {
    static constexpr const char* texts[] = {"<", "<=", ">", ">=", "=", "<>"};
    return relop < std::size(texts) ? texts[relop] : "";
}

std::string CCompileRestriction::PrintValue(const SPropValue* value) {
    if (!value) return {};
    switch (PROP_TYPE(value->ulPropTag)) {
        case PT_SYSTIME: {
            SYSTEMTIME st{};
            SplitFileTime(value->Value.ft, st);
            return FormatText("Date(%d,%d,%d)", st.wDay, st.wMonth, st.wYear);
        }
        case PT_STRING8:
        case PT_UNICODE:
            return "\"" + ValueText(value) + "\"";
        default:
            return ValueText(value);
    }
}

std::string CCompileRestriction::WrapText(const std::string& text, size_t length) {
    // A piece starts at the white space that ended the one before, so a length of zero would stand still.
    length = std::max<size_t>(length, 1);
    std::string lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.size();
        if (length <= text.size() - start)
            end = static_cast<size_t>(std::find_if(text.begin() + static_cast<std::ptrdiff_t>(start + length),
                                                   text.end(), IsSpace) -
                                      text.begin());
        lines.append(text, start, end - start);
        lines += "\r\n";
        start = end;
    }
    return lines;
}
