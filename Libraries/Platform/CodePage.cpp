#include <Platform/CodePage.h>
#include <Platform/Utf8.h>

std::string Utf8FromFile(std::string_view bytes) {
    constexpr std::string_view mark = "\xEF\xBB\xBF";  // editors put it in front
    if (bytes.substr(0, mark.size()) == mark) bytes.remove_prefix(mark.size());
    const bool read = AnsiCodePage() == Utf8CodePage || IsUtf8(bytes);
    return read ? std::string(bytes) : Utf8FromCodePage(bytes, AnsiCodePage());
}
