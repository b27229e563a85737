// Words of the query language for properties that have no fixed tag.
#pragma once
#include <MapiWrapper/GenMapiProp.h>

#include <memory>
#include <string>
#include <vector>

struct CUserField {
    std::string name;  // the word
    ULONG tag = 0;     // 0 when it has to be resolved
    USHORT id = 0;     // the numeric name
    USHORT type = 0;
    GUID guid{};
    std::string stringName;  // the string name; empty for a numeric one
};

// Owns its rows; their order matters, since the first of several rows of a name counts.
class CUserFields {
public:
    void AddTag(const std::string& name, ULONG tag);
    // A null set means PS_PUBLIC_STRINGS; otherwise a text as for GuidFromText.
    void AddNamed(const std::string& name, USHORT id, USHORT type, const char* guid);
    void AddStringNamed(const std::string& name, const std::string& stringName, USHORT type,
                        const char* guid);
    void AddDefaults();

    // The tag of the first row of exactly that name in the store of `raw`, 0 if there is no such row. A row
    // with a tag needs no store. Throws as GetIDFromName.
    ULONG Resolve(IMAPIProp* raw, const std::string& name) const;
    const CUserField* Find(const std::string& name) const;

    // The words for the query dialog: the property names of the main table in their query form, without
    // those of PT_BINARY, then the names of the rows.
    void FillNames(std::vector<std::string>& list) const;

    size_t Count() const { return m_rows.size(); }
    const CUserField& Row(size_t index) const { return *m_rows.at(index); }

private:
    std::vector<std::unique_ptr<CUserField>> m_rows;
};
