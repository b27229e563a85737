// What lies on the evaluation stack of the query compiler, and how the compiler gives up.
#pragma once
#include <Platform/Clock.h>
#include <Platform/MapiHeaders.h>

#include <string>

// A date-time value of the language. Local wall-clock time, which is compared as it stands.
struct CQueryDate {
    std::uint64_t ticks = 0;  // as a FILETIME
    bool valid = false;       // false: no such date, or none that a FILETIME can hold
};

struct CLiteral {
    SRestriction* restriction = nullptr;  // when set, a finished condition, and the rest does not count
    int type = 0;                         // TOK_WORD, TOK_STRING, TOK_FUZZYVALUE, TOK_DATE or TOK_SIZE
    ULONG flag = 0;                       // 0, a fuzzy level, or TOK_BIT to mark a bit mask
    std::string text;
    CQueryDate date;
    unsigned depth = 0;  // levels of the condition's tree
    size_t spare = 0;    // free nodes before the first child of an AND or OR
};

// Ends a compilation that runs into a limit of our own, with the message alone.
struct CQueryLimit {
    const char* message;
};

// Ends a compilation for want of an operand; `missing` tells a person which.
struct CQueryGap {
    const char* missing;
};

template <class T>
T* Needed(T* operand, const char* missing) {
    if (!operand) throw CQueryGap{missing};
    return operand;
}

// The number at the beginning of a text, 0 without one, at the ends of the range beyond it.
LONG LongFromText(const std::string& text);
