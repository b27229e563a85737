#include <Platform/CodePage.h>
#include <iconv.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

namespace {

const char* NameOf(unsigned codePage, std::string& room) {
    switch (codePage) {
        case 65001:
            return "UTF-8";
        case 20127:
            return "US-ASCII";
        case 932:
            return "CP932";
        case 936:
            return "CP936";
        case 949:
            return "UHC";
        case 950:
            return "CP950";
        case 20866:
            return "KOI8-R";
        case 21866:
            return "KOI8-U";
        case 50220:
        case 50221:
        case 50222:
            return "ISO-2022-JP";
        case 51932:
            return "EUC-JP";
        case 51949:
            return "EUC-KR";
        case 52936:
            return "HZ";
        case 54936:
            return "GB18030";
        case 10000:
            return "MACINTOSH";
        default:
            break;
    }
    if (codePage >= 28591 && codePage <= 28605)
        room = "ISO-8859-" + std::to_string(codePage - 28590);
    else
        room = "CP" + std::to_string(codePage);
    return room.c_str();
}

class CConverter {
public:
    CConverter(const char* to, const char* from) : m_handle(iconv_open(to, from)) {}
    ~CConverter() {
        if (IsOpen()) iconv_close(m_handle);
    }
    CConverter(const CConverter&) = delete;
    CConverter& operator=(const CConverter&) = delete;
    bool IsOpen() const { return m_handle != reinterpret_cast<iconv_t>(-1); }

    // Puts `substitute` for each input unit that does not convert; `unitOf` tells how long such a one is.
    template <class UnitOf>
    std::string Run(std::string_view bytes, std::string_view substitute, UnitOf&& unitOf) {
        std::string out;
        char* in = const_cast<char*>(bytes.data());
        std::size_t left = bytes.size();
        char room[1024];
        while (left > 0) {
            char* to = room;
            std::size_t free = sizeof room;
            const std::size_t result = iconv(m_handle, &in, &left, &to, &free);
            out.append(room, sizeof room - free);
            if (result != static_cast<std::size_t>(-1) || errno == E2BIG) continue;
            const std::size_t unit = std::min<std::size_t>(left, unitOf(in, left));
            out += substitute;
            in += unit;
            left -= unit;
        }
        return out;
    }

private:
    iconv_t m_handle;
};

std::atomic<unsigned> g_codePage{Utf8CodePage};

}  // namespace

unsigned AnsiCodePage() {
    return g_codePage.load(std::memory_order_relaxed);
}

void ChooseAnsiCodePage(unsigned codePage) {
    g_codePage = codePage ? codePage : Utf8CodePage;
}

std::string Utf8FromCodePage(std::string_view bytes, unsigned codePage) {
    std::string room;
    CConverter converter("UTF-8", NameOf(codePage, room));
    if (!converter.IsOpen()) return codePage == 1252 ? std::string(bytes) : Utf8FromCodePage(bytes, 1252);
    return converter.Run(bytes, "\xEF\xBF\xBD", [](const char*, std::size_t) { return std::size_t{1}; });
}

std::string CodePageFromUtf8(std::string_view utf8, unsigned codePage) {
    std::string room;
    CConverter converter(NameOf(codePage, room), "UTF-8");
    if (!converter.IsOpen()) return codePage == 1252 ? std::string(utf8) : CodePageFromUtf8(utf8, 1252);
    return converter.Run(utf8, "?", [](const char* in, std::size_t left) {
        std::size_t unit = 1;
        while (unit < left && (static_cast<unsigned char>(in[unit]) & 0xC0) == 0x80)
            ++unit;
        return unit;
    });
}
