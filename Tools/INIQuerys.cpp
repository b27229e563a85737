#include <Platform/CodePage.h>
#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Tools/CharClasses.h>
#include <Tools/CompileRestriction.h>
#include <Tools/INIQuerys.h>
#include <Tools/QueryLiteral.h>
#include <Tools/QueryText.h>

#include <algorithm>
#include <string_view>

namespace {

constexpr const char* kWhite = " \t\r\n";

std::string Trim(const std::string& text) {
    const size_t first = text.find_first_not_of(kWhite);
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(kWhite) - first + 1);
}

LONG FlagOf(const std::string& value) {
    const std::string lower = LowerCase(value);
    if (lower == "true") return 1;
    if (lower == "false") return 0;
    return LongFromText(value);
}

// The items of a list parted by ";"; empty ones do not count.
std::vector<std::string> ListItems(const std::string& list) {
    std::vector<std::string> items;
    for (size_t start = 0; start < list.size();) {
        const size_t end = std::min(list.find(';', start), list.size());
        if (end > start) items.push_back(list.substr(start, end - start));
        start = end + 1;
    }
    return items;
}

}  // namespace

// --- one query --------------------------------------------------------------------------------------

CINIQueryParamter& CINIQuery::Parameter(const std::string& parameterName) {
    const auto [known, isNew] = m_index.try_emplace(parameterName, nullptr);
    if (isNew) {
        auto parameter = std::make_unique<CINIQueryParamter>();
        parameter->name = parameterName;
        known->second = parameter.get();
        parameters.push_back(std::move(parameter));
    }
    return *known->second;
}

std::string CINIQuery::Substitute(const std::string& text, const std::string& parameterName,
                                  const std::string& value) {
    const std::string key = parameterName.compare(0, 1, "$") == 0 ? parameterName : "$" + parameterName;
    const std::string quoted = "\"" + value + "\"";
    // A replacement is looked at again, as it may complete a key with what stands before it; but one that
    // brings a mark of its own would never come to an end.
    const bool again = value.find('$') == std::string::npos;
    std::string result = text;
    for (size_t at = result.find(key); at != std::string::npos;) {
        result.replace(at, key.size(), quoted);
        at = result.find(key, again ? 0 : at + quoted.size());
    }
    return result;
}

// Appends the part in brackets, once for each item of the parameter's list.
bool CINIQuery::AppendItems(std::string& result, const std::string& part,
                            const CINIQueryParamter& parameter) {
    const size_t marks = static_cast<size_t>(std::count(part.begin(), part.end(), '$'));
    bool first = true;
    for (const std::string& item : ListItems(parameter.value)) {
        const size_t cbAtMost = part.size() + marks * (item.size() + 2) + parameter.expression.size() + 4;
        if (result.size() + cbAtMost > kMaxText) return false;
        if (!first) result += "\r\n " + parameter.expression + " ";
        result += Substitute(part, parameter.name, Trim(item));
        first = false;
    }
    return true;
}

bool CINIQuery::Expand(std::string& result) {
    result.clear();
    size_t open = std::string::npos;  // behind the open bracket
    for (size_t i = 0; i < query.size(); ++i) {
        const char c = query[i];
        if (c == '$') {
            size_t end = i + 1;
            while (end < query.size() && IsAlnum(query[end]))
                ++end;
            const CINIQueryParamter& parameter = Parameter(query.substr(i + 1, end - i - 1));
            if (open == std::string::npos) result += parameter.value;
            i = end - 1;
        } else if (c == '[') {
            open = i + 1;
        } else if (c == ']') {
            if (open == std::string::npos || parameters.empty()) continue;
            const std::string part = query.substr(open, i - open);
            open = std::string::npos;
            for (const auto& parameter : parameters)
                if (!AppendItems(result, part, *parameter)) return false;
        } else if (open == std::string::npos) {
            result += c;
        }
        if (result.size() > kMaxText) return false;
    }
    return true;
}

// --- the file ---------------------------------------------------------------------------------------

// Takes the lines of one file. Key and value last from line to line, since a line without "=" repeats
// them.
class CINIQuerys::CReader {
public:
    CReader(CINIQuerys& querys, const std::string& path) : m_querys(querys), m_path(path) {}

    void Line(const std::string& line) {
        const size_t first = line.find_first_not_of(kWhite);
        if (first != std::string::npos && line[first] == ';') return;
        if (const size_t equals = line.find('='); equals != std::string::npos) {
            const std::string key = LowerCase(line.substr(0, equals));
            const size_t dot = key.find('.');
            m_word = key.substr(0, dot);
            m_subKey = dot == std::string::npos ? std::string() : key.substr(dot + 1);
            m_value = line.substr(equals + 1);
        }
        Apply();
    }

private:
    void Apply() {
        if (m_word == "name") m_latest = &m_querys.Add(m_path, m_value);
        if (!m_latest) return;
        if (m_word == "comment") m_latest->comment = m_value;
        if (m_word == "query") m_latest->query = m_value;
        if (m_word == "visible") m_latest->visible = FlagOf(m_value);
        if (m_word == "recursiv") m_latest->recursive = FlagOf(m_value);
        if (!m_subKey.empty()) ApplyTo(m_latest->Parameter(m_word));
    }

    void ApplyTo(CINIQueryParamter& parameter) {
        if (m_subKey == "text") parameter.text = m_value;
        if (m_subKey == "editor") parameter.editor = m_value;
        if (m_subKey == "field") parameter.field = m_value;
        if (m_subKey == "options") parameter.options = FlagOf(m_value);
        if (m_subKey == "expression") parameter.expression = m_value;
    }

    CINIQuerys& m_querys;
    const std::string& m_path;
    CINIQuery* m_latest = nullptr;
    std::string m_word;
    std::string m_subKey;
    std::string m_value;
};

CINIQuery& CINIQuerys::Add(const std::string& path, const std::string& name) {
    auto query = std::make_unique<CINIQuery>();
    query->file = path;
    query->name = name;
    m_byName.try_emplace(name, query.get());
    m_queries.push_back(std::move(query));
    return *m_queries.back();
}

CINIQuery* CINIQuerys::Find(const std::string& name) const {
    const auto found = m_byName.find(name);
    return found == m_byName.end() ? nullptr : found->second;
}

// Lines come as a C program reads them into 1,024 bytes: what is longer goes on as the next line, and the
// last byte of each is taken for its end.
void CINIQuerys::Parse(const std::string& bytes, const std::string& path) {
    constexpr size_t kLongestLine = 1023;
    CReader reader(*this, path);
    const auto take = [&reader](std::string_view raw) {
        std::string line(raw.substr(0, raw.find('\0')));
        if (!line.empty()) line.pop_back();
        reader.Line(line);
    };
    std::string line;
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (bytes[i] == '\r' && i + 1 < bytes.size() && bytes[i + 1] == '\n') continue;
        line += bytes[i];
        if (bytes[i] != '\n' && line.size() < kLongestLine) continue;
        take(line);
        line.clear();
    }
    if (!line.empty()) take(line);
}

void CINIQuerys::Load(const std::string& path) {
    std::string bytes;
    if (ReadFileBytes(path, bytes)) Parse(Utf8FromFile(bytes), path);
}

void CINIQuerys::LoadFromModuleDir(const std::string& fileName) {
    const std::string directory = ModuleDirectory();
    if (!directory.empty()) Load(JoinPath(directory, fileName));
}

CINIQuerys LoadStoredQueries() {
    CINIQuerys querys;
    querys.LoadFromModuleDir(kStoredQueryFile);
    return querys;
}

void PrepareQueryCompiler(CCompileRestriction& compiler, IMAPIContainer* folder, IMAPISession* session,
                          CINIQuerys* queries) {
    compiler.SetFolder(folder);
    compiler.SetSession(session);
    compiler.SetStoredQueries(queries);
}
