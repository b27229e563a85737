#include "RtfText.h"

#include <Platform/CodePage.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace {

constexpr unsigned kDefaultCodePage = 1252;
// Deeper groups are read as if they belonged to this level.
constexpr std::size_t kDeepestGroup = 4096;

// Destinations whose text nobody sees. Those marked with \* are passed over without being listed.
constexpr std::string_view kHidden[] = {
    "author",     "buptim",        "colortbl",   "comment",   "company",      "creatim",
    "datastore",  "doccomm",       "filetbl",    "fldinst",   "footer",       "footerf",
    "footerl",    "footerr",       "footnote",   "generator", "header",       "headerf",
    "headerl",    "headerr",       "info",       "keywords",  "latentstyles", "listoverridetable",
    "listtable",  "manager",       "nonshppict", "object",    "operator",     "pict",
    "printim",    "private1",      "revtbl",     "revtim",    "rsidtbl",      "rxe",
    "stylesheet", "subject",       "tc",         "themedata", "title",        "txe",
    "userprops",  "wgrffmtfilter", "xe",         "xmlnstbl"};

bool IsHidden(std::string_view word) {
    return std::binary_search(std::begin(kHidden), std::end(kHidden), word);
}

unsigned CodePageOfCharset(int charset) {
    switch (charset) {
        case 77:
            return 10000;
        case 128:
            return 932;
        case 129:
            return 949;
        case 134:
            return 936;
        case 136:
            return 950;
        case 161:
            return 1253;
        case 162:
            return 1254;
        case 163:
            return 1258;
        case 177:
            return 1255;
        case 178:
            return 1256;
        case 186:
            return 1257;
        case 204:
            return 1251;
        case 222:
            return 874;
        case 238:
            return 1250;
        default:
            return 0;  // the document's own
    }
}

struct Symbol {
    std::string_view word, text;
};
constexpr Symbol kSymbols[] = {{"bullet", "\xE2\x80\xA2"},
                               {"cell", "\t"},
                               {"emdash", "\xE2\x80\x94"},
                               {"emspace", "\xE2\x80\x83"},
                               {"endash", "\xE2\x80\x93"},
                               {"enspace", "\xE2\x80\x82"},
                               {"ldblquote", "\xE2\x80\x9C"},
                               {"line", "\r\n"},
                               {"lquote", "\xE2\x80\x98"},
                               {"nestcell", "\t"},
                               {"nestrow", "\r\n"},
                               {"page", "\r\n"},
                               {"par", "\r\n"},
                               {"rdblquote", "\xE2\x80\x9D"},
                               {"row", "\r\n"},
                               {"rquote", "\xE2\x80\x99"},
                               {"sect", "\r\n"},
                               {"tab", "\t"}};

const Symbol* FindSymbol(std::string_view word) {
    const auto found =
        std::lower_bound(std::begin(kSymbols), std::end(kSymbols), word,
                         [](const Symbol& symbol, std::string_view w) { return symbol.word < w; });
    return found != std::end(kSymbols) && found->word == word ? found : nullptr;
}

int HexOf(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

void AppendUtf8(std::uint32_t c, std::string& out) {
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | c >> 6));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | c >> 12));
        out.push_back(static_cast<char>(0x80 | (c >> 6 & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | c >> 18));
        out.push_back(static_cast<char>(0x80 | (c >> 12 & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c >> 6 & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

class CReader {
public:
    explicit CReader(std::string_view rtf) : m_in(rtf) { m_groups.emplace_back(); }

    std::string Run() {
        while (m_at < m_in.size())
            Step();
        Flush();
        return std::move(m_out);
    }

private:
    struct Group {
        bool hidden = false;
        bool fontTable = false;
        int unicodeSkip = 1;    // characters that stand behind \u for readers that do not know it
        unsigned codePage = 0;  // of the font; 0: the document's
    };

    Group& Now() { return m_groups.back(); }

    void Step() {
        const char c = m_in[m_at++];
        switch (c) {
            case '{':
                Open();
                break;
            case '}':
                Close();
                break;
            case '\\':
                Control();
                break;
            case '\r':
            case '\n':
                break;
            case '\0':
                m_at = m_in.size();  // the terminator that writers leave behind the text
                break;
            default:
                Byte(c);
        }
    }

    void Open() {
        m_starred = false;
        m_toSkip = 0;
        if (m_groups.size() < kDeepestGroup)
            m_groups.push_back(Group(Now()));
        else
            ++m_tooDeep;
    }

    void Close() {
        m_starred = false;
        m_toSkip = 0;
        Flush();
        if (m_tooDeep > 0)
            --m_tooDeep;
        else if (m_groups.size() > 1)
            m_groups.pop_back();
        else
            m_at = m_in.size();  // what stands behind the last group is no RTF
        if (m_groups.size() == 1 && m_tooDeep == 0) m_at = m_in.size();
    }

    void Control() {
        if (m_at >= m_in.size()) return;
        const char c = m_in[m_at];
        if (IsLetter(c)) return Word();
        ++m_at;
        switch (c) {
            case '\'':
                return HexByte();
            case '*':
                m_starred = true;
                return;
            case '~':
                return Text("\xC2\xA0");
            case '_':
                return Text("-");
            case '\r':
            case '\n':
                return Text("\r\n");
            case '\t':
                return Text("\t");
            case '\\':
            case '{':
            case '}':
                return Byte(c);
            default:
                return;
        }
    }

    void HexByte() {
        if (m_at + 2 > m_in.size()) {
            m_at = m_in.size();
            return;
        }
        const int high = HexOf(m_in[m_at]), low = HexOf(m_in[m_at + 1]);
        if (high < 0 || low < 0) return;
        m_at += 2;
        Byte(static_cast<char>(high << 4 | low));
    }

    void Word() {
        const std::size_t begin = m_at;
        while (m_at < m_in.size() && IsLetter(m_in[m_at]))
            ++m_at;
        const std::string_view word = m_in.substr(begin, m_at - begin);
        const bool negative = m_at < m_in.size() && m_in[m_at] == '-';
        if (negative) ++m_at;
        bool hasNumber = false;
        std::int64_t number = 0;
        while (m_at < m_in.size() && m_in[m_at] >= '0' && m_in[m_at] <= '9') {
            if (number < 0x100000000) number = number * 10 + (m_in[m_at] - '0');
            hasNumber = true;
            ++m_at;
        }
        if (m_at < m_in.size() && m_in[m_at] == ' ') ++m_at;
        Apply(word, hasNumber, negative ? -number : number);
    }

    void Apply(std::string_view word, bool hasNumber, std::int64_t number) {
        const bool starred = std::exchange(m_starred, false);
        if (word == "bin") {
            // Raw bytes, which may look like anything.
            const auto left = static_cast<std::int64_t>(m_in.size() - m_at);
            m_at += static_cast<std::size_t>(std::clamp<std::int64_t>(number, 0, left));
        } else if (word == "fonttbl") {
            Now().fontTable = Now().hidden = true;
        } else if ((starred && word != "shppict") || IsHidden(word)) {
            Now().hidden = true;
        } else if (word == "u" && hasNumber) {
            Unicode(number);
        } else if (const Symbol* symbol = FindSymbol(word)) {
            Text(symbol->text);
        } else {
            Setting(word, hasNumber, number);
        }
    }

    void Setting(std::string_view word, bool hasNumber, std::int64_t number) {
        if (word == "uc" && hasNumber) {
            Now().unicodeSkip = static_cast<int>(std::clamp<std::int64_t>(number, 0, 16));
        } else if (word == "ansicpg" && number > 0 && number < 65536) {
            m_codePage = static_cast<unsigned>(number);
        } else if (word == "f" && hasNumber) {
            Flush();
            m_font = number;
            const auto known = m_fonts.find(number);
            if (!Now().fontTable) Now().codePage = known != m_fonts.end() ? known->second : 0;
        } else if (word == "fcharset" && Now().fontTable && m_fonts.size() < 4096) {
            m_fonts[m_font] = CodePageOfCharset(static_cast<int>(number));
        } else if (word == "plain") {
            Flush();
            Now().codePage = 0;
        }
    }

    void Unicode(std::int64_t number) {
        Flush();
        const auto unit = static_cast<std::uint32_t>(number) & 0xFFFF;
        m_toSkip = Now().unicodeSkip;
        if (Now().hidden) return;
        if (unit >= 0xD800 && unit < 0xDC00) {
            m_highSurrogate = unit;
            return;
        }
        std::uint32_t c = unit;
        if (unit >= 0xDC00 && unit < 0xE000)
            c = m_highSurrogate ? 0x10000 + ((m_highSurrogate - 0xD800) << 10) + (unit - 0xDC00) : 0xFFFD;
        m_highSurrogate = 0;
        if (c != 0) AppendUtf8(c, m_out);
    }

    // A character of the document's or the font's code page. Two bytes may make one character, so
    // they are converted together.
    void Byte(char c) {
        m_starred = false;
        if (m_toSkip > 0) {
            --m_toSkip;
            return;
        }
        if (!Now().hidden) m_pending.push_back(c);
    }

    void Text(std::string_view utf8) {
        if (m_toSkip > 0) {
            --m_toSkip;
            return;
        }
        Flush();
        if (!Now().hidden) m_out += utf8;
    }

    void Flush() {
        if (m_pending.empty()) return;
        const bool ascii = std::all_of(m_pending.begin(), m_pending.end(), [](char c) { return c > 0; });
        if (ascii)
            m_out += m_pending;
        else
            m_out += Utf8FromCodePage(m_pending, Now().codePage ? Now().codePage : m_codePage);
        m_pending.clear();
    }

    std::string_view m_in;
    std::size_t m_at = 0;
    std::vector<Group> m_groups;
    std::size_t m_tooDeep = 0;
    bool m_starred = false;
    int m_toSkip = 0;
    unsigned m_codePage = kDefaultCodePage;
    std::int64_t m_font = 0;
    std::map<std::int64_t, unsigned> m_fonts;
    std::uint32_t m_highSurrogate = 0;
    std::string m_pending;
    std::string m_out;
};

void AppendEscape(std::uint32_t unit, std::string& rtf) {
    rtf += "\\u" + std::to_string(static_cast<int>(static_cast<std::int16_t>(unit))) + "?";
}

// The character at `i`, which moves behind it; bytes that are not UTF-8 stand for themselves.
std::uint32_t Decode(std::string_view text, std::size_t& i) {
    const auto lead = static_cast<unsigned char>(text[i++]);
    const int more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC2 ? 1 : 0;
    std::uint32_t c = more == 3 ? lead & 7u : more == 2 ? lead & 15u : more == 1 ? lead & 31u : lead;
    std::size_t at = i;
    for (int k = 0; k < more; ++k, ++at) {
        if (at >= text.size() || (static_cast<unsigned char>(text[at]) & 0xC0) != 0x80) return lead;
        c = c << 6 | (static_cast<unsigned char>(text[at]) & 0x3Fu);
    }
    i = at;
    return c;
}

void AppendCharacter(std::uint32_t c, std::string& rtf) {
    switch (c) {
        case '\\':
        case '{':
        case '}':
            rtf.push_back('\\');
            rtf.push_back(static_cast<char>(c));
            return;
        case '\t':
            rtf += "\\tab ";
            return;
        case '\n':
            rtf += "\\par\r\n";
            return;
        case '\r':
        case 0:
            return;
        default:
            break;
    }
    if (c < 0x80) {
        rtf.push_back(static_cast<char>(c));
    } else if (c < 0x10000) {
        AppendEscape(c, rtf);
    } else {
        AppendEscape(0xD800 + ((c - 0x10000) >> 10), rtf);
        AppendEscape(0xDC00 + ((c - 0x10000) & 0x3FF), rtf);
    }
}

}  // namespace

std::string TextFromRtf(std::string_view rtf) {
    return CReader(rtf).Run();
}

std::string RtfFromText(std::string_view utf8) {
    std::string rtf =
        "{\\rtf1\\ansi\\ansicpg1252\\fromtext \\deff0{\\fonttbl\r\n{\\f0\\fswiss Arial;}\r\n"
        "{\\f1\\fmodern Courier New;}}\r\n{\\colortbl\\red0\\green0\\blue0;\\red0\\green0\\blue255;}\r\n"
        "\\uc1\\pard\\plain\\deftab360 \\f0\\fs20 ";
    for (std::size_t i = 0; i < utf8.size();) {
        std::uint32_t c = Decode(utf8, i);
        // A CR on its own ends a line too.
        if (c == '\r' && !(i < utf8.size() && utf8[i] == '\n')) c = '\n';
        AppendCharacter(c, rtf);
    }
    rtf += "}";
    return rtf;
}
