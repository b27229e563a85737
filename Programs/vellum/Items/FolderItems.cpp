#include <Programs/vellum/Items/FolderItems.h>

#include <MapiWrapper/MapiWrapper_std.h>
#include <Platform/Clock.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Items/ItemReport.h>
#include <Programs/vellum/Items/PropertyReport.h>
#include <Programs/vellum/Items/QueryReport.h>
#include <Programs/vellum/Session/Explain.h>

#include <algorithm>
#include <set>

namespace {

constexpr std::size_t leastIdDigits = 40;

const std::vector<ULONG> columns = {PR_ENTRYID,
                                    PR_SUBJECT_A,
                                    PR_SENDER_NAME_A,
                                    PR_MESSAGE_CLASS_A,
                                    PR_CLIENT_SUBMIT_TIME,
                                    PR_MESSAGE_DELIVERY_TIME,
                                    PR_CREATION_TIME,
                                    PR_LAST_MODIFICATION_TIME,
                                    PR_MESSAGE_SIZE,
                                    PR_DISPLAY_NAME_A};

enum Column : ULONG {
    ITEM_ENTRYID,
    ITEM_SUBJECT,
    ITEM_SENDER,
    ITEM_CLASS,
    ITEM_SENT,
    ITEM_RECEIVED,
    ITEM_CREATED,
    ITEM_MODIFIED,
    ITEM_SIZE,
    ITEM_NAME,
};

CItemRow RowOf(const CMapiRowSet& rows, ULONG i) {
    CItemRow row;
    row.entryId.Assign(rows.Cell(i, ITEM_ENTRYID).Binary());
    row.subject = Utf8FromNarrow(rows.Cell(i, ITEM_SUBJECT).Str());
    if (row.subject.empty()) row.subject = Utf8FromNarrow(rows.Cell(i, ITEM_NAME).Str());
    row.from = Utf8FromNarrow(rows.Cell(i, ITEM_SENDER).Str());
    row.messageClass = rows.Cell(i, ITEM_CLASS).Str();
    row.created = rows.Cell(i, ITEM_CREATED).Time();
    row.modified = rows.Cell(i, ITEM_MODIFIED).Time();
    row.size = rows.Cell(i, ITEM_SIZE).Long();
    for (const Column column : {ITEM_SENT, ITEM_RECEIVED, ITEM_CREATED})
        if (TicksOf(row.date) == 0) row.date = rows.Cell(i, column).Time();
    return row;
}

std::vector<CItemRow> ReadItems(const CFolderRef& folder) {
    const CMapiRowSet rows = folder.folder._rawContentsTable().QueryRows(columns);
    std::vector<CItemRow> items;
    items.reserve(rows.Count());
    for (ULONG i = 0; i < rows.Count(); ++i)
        items.push_back(RowOf(rows, i));
    std::sort(items.begin(), items.end(), [](const CItemRow& a, const CItemRow& b) {
        const auto ta = TicksOf(a.created);
        const auto tb = TicksOf(b.created);
        return ta != tb ? ta < tb : a.entryId < b.entryId;
    });
    for (std::size_t i = 0; i < items.size(); ++i)
        items[i].number = static_cast<unsigned>(i + 1);
    return items;
}

std::set<std::string> FittingIds(const CFolderRef& folder, const std::string& query) {
    CQueryCompiler compiled(folder.folder, {});
    compiled.Compile(query);
    const IMAPITablePtr table = folder.folder._rawContentsTable();
    if (SRestriction* restriction = compiled.compiler.Restriction()) {
        try {
            table.Restrict(restriction, TBL_BATCH);
        } catch (const CMAPIException& e) {
            throw CCommandError(
                ExitCode::NotOpen,
                "The folder \"" + folder.path + "\" cannot be searched with this query: " + Explain(e));
        }
    }
    const CMapiRowSet rows = table.QueryRows({PR_ENTRYID});
    std::set<std::string> ids;
    for (ULONG i = 0; i < rows.Count(); ++i)
        ids.insert(HexFromBinary(rows.Cell(i, 0).Binary()));
    return ids;
}

bool IsDigits(const std::string& word, const char* digits) {
    return !word.empty() && word.find_first_not_of(digits) == std::string::npos;
}

std::string Upper(std::string text) {
    for (char& c : text)
        if (c >= 'a' && c <= 'f') c = static_cast<char>(c - 'a' + 'A');
    return text;
}

}  // namespace

std::vector<std::string> CheckQuery(const CFolderRef& folder, const std::string& query) {
    if (FolderInQuery(query))
        throw CCommandError(ExitCode::Usage, "The query names a folder, and the folder is given already",
                            "Here leave out \"from ...\"; the condition behind \"where\" is enough.");
    CQueryCompiler compiled(folder.folder, {});
    compiled.Compile(query);
    // Both would quietly let more through than was meant.
    const char* hint = "Look how it is understood:  vellum query print TEXT";
    if (!compiled.compiler.Restriction())
        throw CCommandError(ExitCode::Usage, "The query holds no condition: " + Utf8FromNarrow(query), hint);
    const std::string rest = query.substr(compiled.compiler.EndOffset());
    if (rest.find_first_not_of(" \t\r\n") != std::string::npos)
        throw CCommandError(ExitCode::Usage,
                            "The query ends before \"" + OneLine(Utf8FromNarrow(rest)) + "\".", hint);
    compiled.TryOn(folder.folder, folder.path);
    return compiled.Doubts();
}

std::vector<CItemRow> ListItems(const CFolderRef& folder, const std::string& query) {
    auto items = ReadItems(folder);
    if (query.empty()) return items;
    CheckQuery(folder, query);
    const auto ids = FittingIds(folder, query);
    std::erase_if(items, [&](const CItemRow& row) { return ids.count(row.entryId.Hex()) == 0; });
    return items;
}

std::string ItemLabel(const CItemRow& row) {
    const std::string date = ShortTime(row.date);
    return (row.subject.empty() ? std::string("an item without subject") : "\"" + row.subject + "\"") +
           (date.empty() ? "" : " of " + date);
}

CItemRow FindItem(const CFolderRef& folder, const std::string& word) {
    const auto items = ListItems(folder, "");
    const bool isNumber = IsDigits(word, "0123456789") && word.size() < 10;
    const bool isId = word.size() >= leastIdDigits && IsDigits(word, "0123456789ABCDEFabcdef");
    const std::string subject = Utf8FromNarrow(word);
    std::vector<const CItemRow*> found;
    for (const CItemRow& row : items) {
        const bool fits = isId ? row.entryId.Hex() == Upper(word)
                               : (isNumber && std::to_string(row.number) == word) || row.subject == subject;
        if (fits) found.push_back(&row);
    }
    // A number beats an item whose subject is that number.
    for (const CItemRow* row : found)
        if (isNumber && std::to_string(row->number) == word) return *row;
    if (found.size() == 1) return *found.front();
    if (found.empty())
        throw CCommandError(
            ExitCode::Usage, "There is no item \"" + word + "\" in \"" + folder.path + "\"",
            "An item is named by its number, subject or id; see:  vellum item list \"" + folder.path + "\"");
    std::string numbers;
    for (const CItemRow* row : found)
        numbers +=
            (numbers.empty() ? "" : ", ") + std::to_string(row->number) + " (" + ShortTime(row->date) + ")";
    throw CCommandError(
        ExitCode::Usage,
        std::to_string(found.size()) + " items in \"" + folder.path + "\" have the subject \"" + word + "\"",
        "Name one by its number: " + numbers);
}

IMessagePtr OpenItem(const CFolderRef& folder, const CItemRow& row, ULONG flags) {
    try {
        IMessagePtr message = folder.folder.OpenEntryv(row.entryId.Bin(), flags).As<IMessagePtr>();
        if (message) return message;
    } catch (const CMAPIException& e) {
        throw CCommandError(ExitCode::NotOpen, "The item " + ItemLabel(row) + " in \"" + folder.path +
                                                   "\" cannot be opened: " + Explain(e));
    }
    throw CCommandError(ExitCode::NotOpen,
                        "The item " + ItemLabel(row) + " in \"" + folder.path + "\" cannot be opened");
}
