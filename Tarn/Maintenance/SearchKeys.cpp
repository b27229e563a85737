#include <Platform/Machine.h>
#include <Platform/UserInterface.h>
#include <Tarn/Engine/ItemKey.h>
#include <Tarn/Engine/SyncIdentity.h>
#include <Tarn/Engine/SyncTrace.h>
#include <Tarn/Maintenance/SearchKeys.h>

namespace {

enum Column : ULONG {
    KEYS_ENTRYID,
    KEYS_SEARCH_KEY,
    KEYS_DISPLAY_NAME,
    KEYS_SUBJECT,
};

CMapiRowSet ReadSorted(const IMAPIFolderPtr& folder) {
    SSortOrderSet order{};
    order.cSorts = 1;
    order.aSort[0] = {PR_SEARCH_KEY, TABLE_SORT_ASCEND};
    const IMAPITablePtr table = folder._rawContentsTable();
    CMapiRowSet rows;
    THROW_ON_FAILURE_FOR(
        table.QueryAllWithRestriction(nullptr, &order, rows,
                                      {PR_ENTRYID, PR_SEARCH_KEY, PR_DISPLAY_NAME_A, PR_SUBJECT_A}),
        table.Get());
    return rows;
}

bool SameKey(const CMapiRowSet& rows, ULONG row, ULONG other) {
    const SBinary key = rows.Cell(row, KEYS_SEARCH_KEY).Binary();
    return !BytesOf(key).empty() && EqualBinary(key, rows.Cell(other, KEYS_SEARCH_KEY).Binary());
}

CSharedKeyItem ItemOf(const CMapiRowSet& rows, ULONG row) {
    CSharedKeyItem item;
    item.entryId.Assign(rows.Cell(row, KEYS_ENTRYID).Binary());
    item.searchKey.Assign(rows.Cell(row, KEYS_SEARCH_KEY).Binary());
    const CMapiPropValue name = rows.Cell(row, KEYS_DISPLAY_NAME);
    item.name = (name.IsError() ? rows.Cell(row, KEYS_SUBJECT) : name).Str();
    return item;
}

void GiveNewKey(const IMAPIFolderPtr& folder, const SBinary& item) {
    IMessagePtr message = folder.OpenEntryv(item, MAPI_MODIFY).As<IMessagePtr>();
    NotNull(message.Get(), "GiveNewKey");
    GUID key = NewGuid();
    message.SetProp(PR_SEARCH_KEY, SBinary{sizeof key, reinterpret_cast<BYTE*>(&key)});
    message.SaveChanges(KEEP_OPEN_READWRITE);
}

}  // namespace

bool ListSharedKeys(const CMaintainedFolder& folder, std::vector<CSharedKeyItem>& items) {
    items.clear();
    if (!folder.IsValid()) return true;
    ULONG row = 0;
    try {
        const CMapiRowSet rows = ReadSorted(folder.folder);
        for (; row < rows.Count(); ++row)
            if ((row > 0 && SameKey(rows, row, row - 1)) || SameKey(rows, row, row + 1))
                items.push_back(ItemOf(rows, row));
        return true;
    } catch (const CMAPIException& e) {
        ReportException(e, "UpdateList");
    } catch (const CNullAccess&) {
        ShowMessageBox(FormatText("Error in UpdateList Element %d", static_cast<int>(row)), "Vellum");
    }
    items.clear();
    return false;
}

CMaintenanceOutcome GiveNewSearchKeys(const CMaintainedFolder& folder, const std::vector<CMapiBinary>& items,
                                      IMaintenanceWatch* watch) {
    CMaintenanceOutcome outcome;
    outcome.found = static_cast<unsigned>(items.size());
    for (const CMapiBinary& item : items) {
        if (watch) watch->ShowRow(outcome.changed + outcome.failed, outcome.found);
        outcome.cancelled = watch && watch->IsCancelled();
        if (outcome.cancelled) break;
        try {
            GiveNewKey(folder.folder, item);
            ++outcome.changed;
        } catch (const CMAPIException& e) {
            ++outcome.failed;
            ReportException(e, "UpdateList");
        } catch (const CNullAccess&) {
            ++outcome.failed;
            ShowMessageBox("Error in UpdateList", "Vellum");
        }
    }
    return outcome;
}
