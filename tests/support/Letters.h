// Text that no single 8-bit code page holds, and a code page that shows it.
#pragma once
#include <Platform/CodePage.h>
#include <Platform/Machine.h>

#include <string>
#include <vector>

// What 8-bit interfaces give and take while it lives. On Windows the store goes on with the system's own code
// page, which under Wine is 1252 as well.
class CCodePageChoice {
public:
    explicit CCodePageChoice(unsigned codePage = 1252) { ChooseAnsiCodePage(codePage); }
    ~CCodePageChoice() { ChooseAnsiCodePage(0); }
    CCodePageChoice(const CCodePageChoice&) = delete;
    CCodePageChoice& operator=(const CCodePageChoice&) = delete;
};

// A story's text in letters that the code page lacks, one for each of "A" to "z", and back. The text itself
// where the code page is UTF-8. So names that differ in a story would become equal where letters are lost.
inline const std::vector<std::string>& OtherLetters() {
    static const std::vector<std::string> letters = [] {
        std::vector<std::string> all;
        for (unsigned i = 0; i < 58; ++i)  // with the six signs between Z and a
            all.push_back(
                {static_cast<char>(0xD0 + (0x10 + i) / 64), static_cast<char>(0x80 + (0x10 + i) % 64)});
        all['B' - 'A'] = "\U0001F4C1";
        all['C' - 'A'] = "日";
        return all;
    }();
    return letters;
}

// Only where VELLUM_LETTERS is set: most tests look at subjects as they wrote them.
inline std::string Spelled(const std::string& text) {
    static const bool spells = !EnvironmentVariable("VELLUM_LETTERS").empty();
    if (!spells || AnsiCodePage() == Utf8CodePage) return text;
    std::string spelled;
    for (const char c : text)
        spelled += (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')
                       ? OtherLetters()[static_cast<size_t>(c - 'A')]
                       : std::string(1, c);
    return spelled;
}

inline std::string Unspelled(const std::string& text) {
    std::string plain = text;
    for (size_t i = 0; i < OtherLetters().size(); ++i)
        for (size_t at; (at = plain.find(OtherLetters()[i])) != std::string::npos;)
            plain.replace(at, OtherLetters()[i].size(), 1, static_cast<char>('A' + i));
    return plain;
}

// Two of a length that become equal in the western code page, several scripts, and beyond the basic plane.
inline const std::vector<std::string>& Letters() {
    static const std::vector<std::string> texts = {
        "Личное", "Работа", "Größe", "日本語の件名", "עברית", "\U0001F4C1 Пап\u0301ка", "ﬀ ½ \U00020000",
    };
    return texts;
}
