// Text between UTF-8 and the 8-bit code page (declared in PropertyCodec.h).
#include <Platform/CodePage.h>

#include "PropertyCodec.h"

bool IsSameNarrow(std::string_view utf8) {
    return AnsiCodePage() == Utf8CodePage || IsAscii(utf8);
}

std::string Utf8FromNarrow(std::string_view text) {
    return IsSameNarrow(text) ? std::string(text) : Utf8FromCodePage(text, AnsiCodePage());
}

std::string NarrowFromUtf8(std::string_view utf8) {
    return IsSameNarrow(utf8) ? std::string(utf8) : CodePageFromUtf8(utf8, AnsiCodePage());
}

std::string Utf8FromArgument(const void* text, ULONG flags) {
    if (!text) return {};
    if (flags & MAPI_UNICODE) return Utf8FromWide(static_cast<const WCHAR*>(text));
    return Utf8FromNarrow(static_cast<const char*>(text));
}
