// The text of the registry file: sections named by a key path in brackets, below them one value a
// line, `"name"="text"` or `"name"=dword:hexadecimal`.
//
//   [HKEY_CURRENT_USER\Software\Ostrand\Vellum]
//   "Profil"="Outlook"
//   "HardDelete"=dword:00000001
//
// Inside quotes \\ \" \n \r and \xHH stand for what cannot stand there itself. Names of keys and
// values are compared without regard to the case of ASCII letters. A line that is none of these is
// kept where it stands and means nothing, so that a hand-edited or damaged file loses nothing.
#pragma once
#include <windows.h>
#include <optional>
#include <string>
#include <variant>
#include <vector>

class CRegistryFile {
public:
    // Parse accepts any bytes.
    static CRegistryFile Parse(const std::string& bytes);
    std::string Print() const;

    // A key exists if it or a key below it has a section.
    bool HasKey(const std::string& key) const;
    void AddKey(const std::string& key);
    // With all keys below; false if there was none.
    bool RemoveTree(const std::string& key);

    using Value = std::variant<DWORD, std::string>;
    std::optional<Value> Find(const std::string& key, const std::string& name) const;
    void Set(const std::string& key, const std::string& name, const Value& value);
    bool RemoveValue(const std::string& key, const std::string& name);

private:
    struct Line {
        std::string name;
        std::optional<Value> value;  // none: `name` is the whole line, kept as it is
    };
    struct Section {
        std::string key;  // empty for what stands above the first section
        std::vector<Line> lines;
    };
    static Line ParseLine(const std::string& text);

    std::vector<Section> m_sections;
};
