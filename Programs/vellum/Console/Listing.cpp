#include <Programs/vellum/Console/Listing.h>

#include <Programs/vellum/Console/Console.h>
#include <Programs/vellum/Console/Utf8.h>

#include <algorithm>
#include <ostream>

namespace {

constexpr std::size_t gap = 2;
constexpr std::size_t narrowest = 8;

std::string CellText(const CListing::Cell& cell) {
    if (cell.hasText) return OneLine(cell.text);
    const Json& value = cell.value;
    if (value.is_null()) return {};
    if (value.is_string()) return OneLine(value.get<std::string>());
    if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
    return OneLine(value.dump(-1, ' ', false, Json::error_handler_t::replace));
}

std::string Padded(const std::string& text, std::size_t width, bool right) {
    const std::size_t length = Utf8Width(text);
    const std::string blanks(width > length ? width - length : 0, ' ');
    return right ? blanks + text : text + blanks;
}

void DropTrailingBlanks(std::string& line) {
    line.erase(line.find_last_not_of(' ') + 1);
}

void FitIntoWidth(std::vector<std::size_t>& widths, std::size_t terminal) {
    std::size_t total = widths.empty() ? 0 : gap * (widths.size() - 1);
    for (const std::size_t width : widths)
        total += width;
    while (total > terminal) {
        const auto widest = std::max_element(widths.begin(), widths.end());
        if (*widest <= narrowest) return;
        const std::size_t cut = std::min(total - terminal, *widest - narrowest);
        *widest -= cut;
        total -= cut;
    }
}

}  // namespace

std::string JsonText(const Json& value) {
    return value.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

void CListing::AddRow(std::vector<Cell> cells) {
    m_rows.push_back(std::move(cells));
}

Json CListing::ToJson() const {
    Json rows = Json::array();
    for (const auto& row : m_rows) {
        Json object = Json::object();
        for (std::size_t i = 0; i < m_columns.size() && i < row.size(); ++i)
            object[m_columns[i].key] = row[i].value;
        rows.push_back(std::move(object));
    }
    return rows;
}

void CListing::Print(CConsole& console, bool json) const {
    if (json)
        console.Out() << JsonText(ToJson());
    else
        PrintTable(console);
}

void CListing::PrintTable(CConsole& console) const {
    if (m_rows.empty()) {
        console.Note(m_empty);
        return;
    }
    std::vector<std::size_t> shown;
    std::vector<std::size_t> widths;
    std::vector<bool> isNumber;
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        if (m_columns[i].title.empty()) continue;
        std::size_t width = Utf8Width(m_columns[i].title);
        for (const auto& row : m_rows)
            width = std::max(width, Utf8Width(CellText(row[i])));
        shown.push_back(i);
        widths.push_back(width);
        isNumber.push_back(std::all_of(m_rows.begin(), m_rows.end(), [&](const auto& row) {
            return row[i].value.is_number() || row[i].value.is_null();
        }));
    }
    if (console.Settings().outIsTerminal) FitIntoWidth(widths, console.Settings().width);

    const auto line = [&](auto&& textOf) {
        std::string text;
        for (std::size_t k = 0; k < shown.size(); ++k) {
            if (k > 0) text.append(gap, ' ');
            text += Padded(Utf8Shorten(textOf(shown[k]), widths[k]), widths[k], isNumber[k]);
        }
        DropTrailingBlanks(text);
        return text;
    };
    console.Out() << console.OnOut(CConsole::Style::Bold,
                                   line([&](std::size_t i) { return m_columns[i].title; }))
                  << '\n';
    for (const auto& row : m_rows)
        console.Out() << line([&](std::size_t i) { return CellText(row[i]); }) << '\n';
}
