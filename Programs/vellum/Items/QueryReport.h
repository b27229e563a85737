// Queries and what they name, for a person and for scripts.
#pragma once
#include <Programs/vellum/Console/Listing.h>
#include <Programs/vellum/Session/ProfileSession.h>
#include <Tools/CompileRestriction.h>
#include <Tools/INIQuerys.h>

#include <optional>
#include <string>
#include <vector>

// The path behind "select ... from", if the text itself says which folder it is about.
std::optional<std::string> FolderInQuery(const std::string& text);

// A compiler with the stored queries that a text may call. The folder numbers the named properties; an
// empty one leaves words for them unknown. Names that its store does not have are not made in it.
struct CQueryCompiler {
    CQueryCompiler(const IMAPIFolderPtr& folder, const CMapiSession& session);
    // Throws CCommandError (Usage) that shows the text and the place where the parser stood.
    void Compile(const std::string& text);
    // The compiler's messages on one line.
    std::string Message() const;
    // What is seldom meant, and names that no item of the store can have; sentences without full stop.
    std::vector<std::string> Doubts() const;
    // Asks the folder for a row that fits, which not every condition that compiles is good for. Throws
    // CCommandError (NotOpen).
    void TryOn(const CGenMapiContPtr& folder, const std::string& path) const;

    CINIQuerys queries;
    CCompileRestriction compiler;
};

// {"tree": [lines], "columns": [{"word", "tag", "type"}], "order": [{"word", "tag", "direction"}]}
Json QueryToJson(const CCompileRestriction& compiler);
// That with the "text" in it.
void PrintQuery(CConsole& console, const Json& query);

// The rows of the compiler's folder that fit, with the columns of `select` or else the subject and what
// the condition names, in the query's order; by --json with "id". Throws CCommandError (NotOpen).
CListing RunQuery(const CCompileRestriction& compiler, const std::string& folderPath);

struct CFieldWord {
    std::string word;
    ULONG tag;  // 0 for a named property, which each store numbers itself
    ULONG type;
};
// Every word that names a field, in alphabetical order, those for named properties behind.
std::vector<CFieldWord> FieldWords();
