#include "Subject.h"

std::size_t SubjectPrefixLength(std::string_view subject) {
    const std::size_t colon = subject.find(": ");
    if (colon == std::string_view::npos || colon == 0) return 0;
    std::size_t characters = 0;
    for (const char c : subject.substr(0, colon)) {
        if ((c >= '0' && c <= '9') || c == ' ') return 0;
        if ((static_cast<unsigned char>(c) & 0xC0) != 0x80)
            ++characters;  // a character of several bytes counts once
    }
    return characters <= 3 ? colon + 2 : 0;
}
