#include <MapiWrapper/ExchangeTags.h>
#include <MapiWrapper/NameTables.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

static_assert(PT_TSTRING == PT_STRING8, "names without suffix are 8-bit");

namespace {

const CNameRow kMainRows[] = {
#define MAIN_ROW(symbol) {#symbol, static_cast<ULONG>(symbol), 0},
#define SECOND_ROW(symbol)
#include "PropertyRows.inc"
#undef MAIN_ROW
#undef SECOND_ROW
    {"0", 0, 0},
};

const CNameRow kSecondRows[] = {
#define MAIN_ROW(symbol)
#define SECOND_ROW(symbol) {#symbol, static_cast<ULONG>(symbol), 0},
#include "PropertyRows.inc"
#undef MAIN_ROW
#undef SECOND_ROW
    {"", 0, 0},
};

bool NameLess(const CNameRow* a, const CNameRow* b) {
    return std::strcmp(a->name, b->name) < 0;
}
bool IdLess(const CNameRow* a, const CNameRow* b) {
    return PROP_ID(a->tag) < PROP_ID(b->tag);
}

}  // namespace

// A table and two orders of its rows. The sorts are stable, so that the first row of a name or of an
// identifier is found first.
class CNameTable {
public:
    explicit CNameTable(std::span<const CNameRow> rows) : m_rows(rows) {
        for (const CNameRow& row : rows)
            m_byName.push_back(&row);
        m_byId = m_byName;
        std::stable_sort(m_byName.begin(), m_byName.end(), NameLess);
        std::stable_sort(m_byId.begin(), m_byId.end(), IdLess);
    }
    std::span<const CNameRow> Rows() const { return m_rows; }
    const CNameRow* FindName(const char* name) const {
        const CNameRow wanted{name, 0, 0};
        const auto found = std::lower_bound(m_byName.begin(), m_byName.end(), &wanted, NameLess);
        return found != m_byName.end() && std::strcmp((*found)->name, name) == 0 ? *found : nullptr;
    }
    const CNameRow* FindId(ULONG tag) const {
        const CNameRow wanted{"", tag, 0};
        const auto found = std::lower_bound(m_byId.begin(), m_byId.end(), &wanted, IdLess);
        return found != m_byId.end() && PROP_ID((*found)->tag) == PROP_ID(tag) ? *found : nullptr;
    }

private:
    std::span<const CNameRow> m_rows;
    std::vector<const CNameRow*> m_byName;
    std::vector<const CNameRow*> m_byId;
};

const CNameTable& MainNameTable() {
    static const CNameTable table(std::span<const CNameRow>(kMainRows).first(std::size(kMainRows) - 1));
    return table;
}

const CNameTable& SecondaryNameTable() {
    static const CNameTable table(std::span<const CNameRow>(kSecondRows).first(std::size(kSecondRows) - 1));
    return table;
}

std::span<const CNameRow> NameRows(const CNameTable& table) {
    return table.Rows();
}

ULONG TagFromName(const std::string& name, const CNameTable& table) {
    const CNameRow* row = table.FindName(name.c_str());
    if (!row) row = SecondaryNameTable().FindName(name.c_str());
    return row ? row->tag : 0;
}

std::string NameFromTag(ULONG tag) {
    const CNameRow* row = MainNameTable().FindId(tag);
    if (!row) row = SecondaryNameTable().FindId(tag);
    if (row) return row->name;
    char text[16];
    std::snprintf(text, sizeof text, "%x", static_cast<unsigned>(tag));
    return text;
}

std::string QueryWordFromName(const std::string& name) {
    std::string word;
    bool upper = false;
    for (size_t i = 2; i < name.size(); ++i) {
        char c = name[i];
        if (c == '_') {
            upper = true;
            continue;
        }
        if (upper && c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
        if (!upper && c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
        upper = false;
        word += c;
    }
    return word;
}

const std::array<const char*, 14> kCategoryLabels = {
    "NULL",      "Attachment", "Autoforward",     "Base",          "Folder",
    "General",   "Message",    "Original Author", "Original User", "Personal Information",
    "Recipient", "Schedule",   "Sender",          "Conversation"};
