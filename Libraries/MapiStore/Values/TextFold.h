// Text made comparable without regard to case or to marks above letters. Independent of the locale of
// the process: a restriction must select the same rows for everybody.
#pragma once
#include <Platform/MapiHeaders.h>

#include <string>
#include <string_view>

enum TextFoldFlags : unsigned {
    kFoldNothing = 0,
    kFoldCase = 1,    // upper to lower case: Latin, Greek, Cyrillic, Armenian
    kFoldAccents = 2  // drops combining marks and takes the base letter of accented Latin letters
};

// What the fuzzy level of a content restriction asks for.
unsigned FoldFlagsOf(ULONG fuzzyLevel);

// Code points of UTF-8 text, folded. Bytes that are not UTF-8 stand for themselves. `out` is overwritten
// and keeps its capacity, so that a scan over many rows does not allocate.
void FoldUtf8(std::string_view text, unsigned flags, std::u32string& out);
