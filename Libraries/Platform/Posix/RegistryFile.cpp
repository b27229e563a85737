#include "RegistryFile.h"

#include <strings.h>

#include <algorithm>
#include <cstdio>

namespace {

bool SameName(const std::string& left, const std::string& right) {
    return left.size() == right.size() && ::strncasecmp(left.data(), right.data(), left.size()) == 0;
}

bool IsBelow(const std::string& key, const std::string& parent) {
    return key.size() > parent.size() && key[parent.size()] == '\\' &&
           SameName(key.substr(0, parent.size()), parent);
}

std::string Hex(const char* format, unsigned value) {
    char text[16];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string Quoted(const std::string& text) {
    std::string result = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\\' || c == '"') {
            result += '\\';
            result += c;
        } else if (c == '\n') {
            result += "\\n";
        } else if (c == '\r') {
            result += "\\r";
        } else if (byte < 0x20 || byte == 0x7F) {
            result += Hex("\\x%02x", byte);
        } else {
            result += c;
        }
    }
    return result + '"';
}

// Reads up to `maxDigits` hexadecimal digits at `at`; false if there is not even one.
bool TakeHex(const std::string& text, size_t& at, unsigned maxDigits, unsigned& value) {
    value = 0;
    const size_t start = at;
    while (at < text.size() && at - start < maxDigits) {
        const char c = text[at];
        const char lower = static_cast<char>(c | 0x20);
        if (c >= '0' && c <= '9') {
            value = value * 16 + static_cast<unsigned>(c - '0');
        } else if (lower >= 'a' && lower <= 'f') {
            value = value * 16 + static_cast<unsigned>(lower - 'a' + 10);
        } else {
            break;
        }
        ++at;
    }
    return at > start;
}

bool TakeEscape(const std::string& text, size_t& at, std::string& result) {
    if (at >= text.size()) return false;
    const char c = text[at++];
    unsigned byte = 0;
    switch (c) {
        case 'n':
            result += '\n';
            return true;
        case 'r':
            result += '\r';
            return true;
        case '\\':
        case '"':
            result += c;
            return true;
        case 'x':
            if (!TakeHex(text, at, 2, byte)) return false;
            result += static_cast<char>(byte);
            return true;
        default:
            return false;
    }
}

// Reads a quoted text at `at` and moves behind it.
bool TakeQuoted(const std::string& text, size_t& at, std::string& result) {
    if (at >= text.size() || text[at] != '"') return false;
    ++at;
    while (at < text.size()) {
        const char c = text[at++];
        if (c == '"') return true;
        if (c != '\\') {
            result += c;
        } else if (!TakeEscape(text, at, result)) {
            return false;
        }
    }
    return false;
}

}  // namespace

CRegistryFile::Line CRegistryFile::ParseLine(const std::string& text) {
    const Line kept{text, std::nullopt};
    size_t at = 0;
    Line line;
    if (!TakeQuoted(text, at, line.name) || at >= text.size() || text[at++] != '=') return kept;

    constexpr char dword[] = "dword:";
    if (text.compare(at, sizeof dword - 1, dword) == 0) {
        at += sizeof dword - 1;
        unsigned value = 0;
        if (!TakeHex(text, at, 8, value) || at != text.size()) return kept;
        line.value = static_cast<DWORD>(value);
        return line;
    }
    std::string value;
    if (!TakeQuoted(text, at, value) || at != text.size()) return kept;
    line.value = std::move(value);
    return line;
}

CRegistryFile CRegistryFile::Parse(const std::string& bytes) {
    CRegistryFile file;
    file.m_sections.emplace_back();
    for (size_t at = 0; at < bytes.size();) {
        const size_t end = std::min(bytes.find('\n', at), bytes.size());
        std::string line = bytes.substr(at, end - at);
        at = end + 1;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.size() > 2 && line.front() == '[' && line.back() == ']') {
            file.m_sections.push_back({line.substr(1, line.size() - 2), {}});
        } else if (!line.empty()) {
            file.m_sections.back().lines.push_back(ParseLine(line));
        }
    }
    return file;
}

std::string CRegistryFile::Print() const {
    std::string text;
    for (const auto& section : m_sections) {
        if (!section.key.empty()) text += (text.empty() ? "[" : "\n[") + section.key + "]\n";
        for (const auto& line : section.lines) {
            if (!line.value) {
                text += line.name;
            } else if (const DWORD* number = std::get_if<DWORD>(&*line.value)) {
                text += Quoted(line.name) + "=dword:" + Hex("%08x", *number);
            } else {
                text += Quoted(line.name) + "=" + Quoted(std::get<std::string>(*line.value));
            }
            text += '\n';
        }
    }
    return text;
}

bool CRegistryFile::HasKey(const std::string& key) const {
    return std::any_of(m_sections.begin(), m_sections.end(), [&](const Section& section) {
        return SameName(section.key, key) || IsBelow(section.key, key);
    });
}

void CRegistryFile::AddKey(const std::string& key) {
    if (!HasKey(key)) m_sections.push_back({key, {}});
}

bool CRegistryFile::RemoveTree(const std::string& key) {
    return std::erase_if(m_sections, [&](const Section& section) {
               return SameName(section.key, key) || IsBelow(section.key, key);
           }) > 0;
}

std::optional<CRegistryFile::Value> CRegistryFile::Find(const std::string& key,
                                                        const std::string& name) const {
    for (const auto& section : m_sections) {
        if (!SameName(section.key, key)) continue;
        for (const auto& line : section.lines) {
            if (line.value && SameName(line.name, name)) return line.value;
        }
    }
    return std::nullopt;
}

void CRegistryFile::Set(const std::string& key, const std::string& name, const Value& value) {
    Section* home = nullptr;
    for (auto& section : m_sections) {
        if (!SameName(section.key, key)) continue;
        if (!home) home = &section;
        for (auto& line : section.lines) {
            if (!line.value || !SameName(line.name, name)) continue;
            line.value = value;
            return;
        }
    }
    if (!home) {
        m_sections.push_back({key, {}});
        home = &m_sections.back();
    }
    home->lines.push_back({name, value});
}

bool CRegistryFile::RemoveValue(const std::string& key, const std::string& name) {
    size_t removed = 0;
    for (auto& section : m_sections) {
        if (!SameName(section.key, key)) continue;
        removed += std::erase_if(section.lines,
                                 [&](const Line& line) { return line.value && SameName(line.name, name); });
    }
    return removed > 0;
}
