// A restriction as a text of the query language that compiles to it again.
#pragma once
#include <Platform/MapiHeaders.h>

#include <string>

class CCompileRestriction;

// The text of a restriction that `compiler` has made, in the words that named its fields. Compiled by the
// same means it gives the same tree, but for what the language cannot say: negative numbers, a time of day, a
// text with a quote in it or one that is a word of the language, a property of no type that has values. To
// find out whether it does, compile it and compare RestrictionTree. A null node is the empty text.
std::string WriteQuery(const CCompileRestriction& compiler, const SRestriction* node);
