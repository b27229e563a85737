#include "CompoundTree.h"

#include <Platform/Clock.h>

#include <algorithm>

namespace compound {

namespace {

// Letters beyond Latin-1 do not occur in the names that programs give.
char16_t Upper(char16_t c) {
    const bool ascii = c >= u'a' && c <= u'z';
    const bool latin = c >= 0xE0 && c <= 0xFE && c != 0xF7;
    return ascii || latin ? static_cast<char16_t>(c - 0x20) : c;
}

}  // namespace

bool NameLess::operator()(const std::u16string& left, const std::u16string& right) const {
    if (left.size() != right.size()) return left.size() < right.size();
    return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                        [](char16_t a, char16_t b) { return Upper(a) < Upper(b); });
}

std::u16string Utf16Of(const std::wstring& name) {
    std::u16string result;
    for (const wchar_t wide : name) {
        const auto c = static_cast<char32_t>(wide);
        if (c < 0x10000) {
            result += static_cast<char16_t>(c);
        } else {
            result += static_cast<char16_t>(0xD7C0 + (c >> 10));
            result += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
        }
    }
    return result;
}

std::wstring WideOf(const std::u16string& name) {
    std::wstring result;
    for (size_t i = 0; i < name.size(); ++i) {
        const char32_t c = name[i];
        const bool pair =
            c >= 0xD800 && c < 0xDC00 && i + 1 < name.size() && name[i + 1] >= 0xDC00 && name[i + 1] < 0xE000;
        result += static_cast<wchar_t>(pair ? ((c - 0xD7C0) << 10) + (name[++i] - 0xDC00) : c);
    }
    return result;
}

ElementRef NewElement(bool isStorage, const std::u16string& name) {
    auto element = std::make_shared<Element>();
    element->isStorage = isStorage;
    element->name = name;
    // A stream's entry has no times in a compound file.
    if (isStorage) element->created = element->modified = UtcNow();
    return element;
}

ElementRef CopyTree(const Element& from) {
    auto copy = std::make_shared<Element>();
    copy->name = from.name;
    copy->isStorage = from.isStorage;
    copy->created = from.created;
    copy->damaged = from.damaged;
    ReplaceContents(*copy, from);
    return copy;
}

void ReplaceContents(Element& to, const Element& from) {
    for (auto& [name, child] : to.children) {
        MarkGone(*child);
    }
    to.children.clear();
    for (const auto& [name, child] : from.children) {
        to.children.emplace(name, CopyTree(*child));
    }
    to.bytes = from.bytes;
    to.clsid = from.clsid;
    to.stateBits = from.stateBits;
    to.modified = from.modified;
}

void MarkGone(Element& element) {
    element.gone = true;
    for (auto& [name, child] : element.children) {
        MarkGone(*child);
    }
}

}  // namespace compound
