// Stored queries: named, parameterised queries kept in a text file, which a query text calls by name.
#pragma once
#include <Platform/MapiHeaders.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

class CCompileRestriction;

// One parameter of a stored query.
struct CINIQueryParamter {
    std::string name;
    std::string text;        // the prompt
    std::string editor;      // the kind of input that fits
    std::string expression;  // the word that joins the terms of a list, "and" or "or"
    std::string field;
    std::string value;  // of the call under way or the last one
    LONG options = 0;
};

class CINIQuery {
public:
    // How long a text Expand answers at most, in bytes.
    static constexpr size_t kMaxText = 1u << 20;

    // The parameter of that name, created and appended if absent. Names compare byte for byte. The
    // reference stays valid as long as the query.
    CINIQueryParamter& Parameter(const std::string& parameterName);
    void SetParameter(const std::string& parameterName, const std::string& newValue) {
        Parameter(parameterName).value = newValue;
    }

    // The query's text with the parameters' values put in: raw for $name outside brackets; a part in
    // brackets once for each item of each parameter's list, items quoted. A $name that is no parameter
    // becomes one of empty value. False, with a part of the text, if it would be longer than kMaxText.
    bool Expand(std::string& result);

    // `text` with $name replaced by the value in double quotes, everywhere. A value that holds the key
    // itself is put in once for each key that `text` held before.
    static std::string Substitute(const std::string& text, const std::string& parameterName,
                                  const std::string& value);

    std::string file;  // the path it was read from
    std::string name;
    std::string query;  // with its $ and [...] marks
    std::string startFolder;
    std::string msgClass;
    LONG visible = 0;
    LONG recursive = 0;
    std::string comment;
    std::vector<std::unique_ptr<CINIQueryParamter>> parameters;  // appended by Parameter only

private:
    static bool AppendItems(std::string& result, const std::string& part, const CINIQueryParamter& parameter);

    std::unordered_map<std::string, CINIQueryParamter*> m_index;
};

class CINIQuerys {
public:
    // Reads the file of that name in ModuleDirectory(): beside the program on Windows, elsewhere in the
    // configuration directory.
    void LoadFromModuleDir(const std::string& fileName);
    // Adds the queries of a file behind those that are there. A file that does not open adds none.
    void Load(const std::string& path);
    // The same from bytes in memory; `path` is only noted in the queries.
    void Parse(const std::string& bytes, const std::string& path);

    // The first query of exactly that name, or null. Owned by this list.
    CINIQuery* Find(const std::string& name) const;
    const std::vector<std::unique_ptr<CINIQuery>>& Queries() const { return m_queries; }

private:
    class CReader;
    CINIQuery& Add(const std::string& path, const std::string& name);

    std::vector<std::unique_ptr<CINIQuery>> m_queries;
    std::unordered_map<std::string, CINIQuery*> m_byName;  // the first of each name
};

// The file that LoadStoredQueries reads.
inline constexpr const char* kStoredQueryFile = "queries.ini";

// Reads the user's stored queries anew. Call it once for a run or a command.
CINIQuerys LoadStoredQueries();

// Makes `compiler` ready for texts that users write: names are resolved in `folder`, `select ... from`
// finds the stores of `session` (both may be null), and `queries` (may be null, must outlive the
// compiler's use) can be called by name.
void PrepareQueryCompiler(CCompileRestriction& compiler, IMAPIContainer* folder, IMAPISession* session,
                          CINIQuerys* queries);
