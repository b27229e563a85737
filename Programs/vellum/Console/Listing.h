// The one form of all listings: a table for a person, or an array of objects for a script.
#pragma once
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

class CConsole;
using Json = nlohmann::ordered_json;

// JSON text, indented, with a line break; broken UTF-8 becomes U+FFFD.
std::string JsonText(const Json& value);

class CListing {
public:
    struct Column {
        std::string key;    // name in JSON; never changes once it is out
        std::string title;  // heading of the table; empty: the column is for JSON alone
    };
    // One value, and its words in the table where they differ from the value.
    struct Cell {
        template <class T>
        requires(!std::is_same_v<std::remove_cvref_t<T>, Cell>) Cell(T&& v) : value(std::forward<T>(v)) {}
        template <class T>
        Cell(T&& v, std::string t) : value(std::forward<T>(v)), text(std::move(t)), hasText(true) {}
        Json value;
        std::string text;
        bool hasText = false;
    };

    // `empty` is what a person reads where there are no rows.
    CListing(std::vector<Column> columns, std::string empty)
        : m_columns(std::move(columns)), m_empty(std::move(empty)) {}

    void AddRow(std::vector<Cell> cells);  // as many as columns
    Json ToJson() const;
    // Numbers stand at the right; on a terminal the table keeps to its width by shortening the widest
    // column.
    void Print(CConsole& console, bool json) const;
    void PrintTable(CConsole& console) const;

private:
    std::vector<Column> m_columns;
    std::string m_empty;
    std::vector<std::vector<Cell>> m_rows;
};
