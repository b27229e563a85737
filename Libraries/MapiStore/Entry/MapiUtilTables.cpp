// The published utilities on row sets and whole tables.
#include <MapiStore/Core/StoreCall.h>
#include <MapiStore/Values/MapiMemory.h>
#include <MapiStore/Values/UnknownImpl.h>

#include <cstring>
#include <memory>
#include <vector>

namespace {

struct RowSetDeleter {
    void operator()(SRowSet* rows) const { FreeProws(rows); }
};
using RowSetPtr = std::unique_ptr<SRowSet, RowSetDeleter>;

// One set out of several; their rows change hands.
RowSetPtr Merge(std::vector<RowSetPtr>& parts, ULONG count) {
    void* block = nullptr;
    Require(SUCCEEDED(AllocateRoot(CbNewSRowSet(count ? count : 1), &block)), MAPI_E_NOT_ENOUGH_MEMORY);
    RowSetPtr all(static_cast<SRowSet*>(block));
    all->cRows = 0;
    for (RowSetPtr& part : parts) {
        std::memcpy(all->aRow + all->cRows, part->aRow, part->cRows * sizeof(SRow));
        all->cRows += part->cRows;
        part->cRows = 0;
    }
    return all;
}

HRESULT Prepare(IMAPITable& table, LPSPropTagArray tags, LPSRestriction restriction, LPSSortOrderSet order) {
    HRESULT hr = S_OK;
    if (tags) hr = table.SetColumns(tags, TBL_BATCH);
    if (SUCCEEDED(hr) && restriction) hr = table.Restrict(restriction, TBL_BATCH);
    if (SUCCEEDED(hr) && order) hr = table.SortTable(order, TBL_BATCH);
    if (SUCCEEDED(hr)) hr = table.SeekRow(BOOKMARK_BEGINNING, 0, nullptr);
    return hr;
}

// A table may answer with fewer rows than asked for, so it is asked until it gives none.
HRESULT ReadAll(IMAPITable& table, ULONG most, LPSRowSet* rows) {
    constexpr LONG kAll = 0x7FFFFFFF;
    std::vector<RowSetPtr> parts;
    ULONG count = 0;
    for (;;) {
        SRowSet* part = nullptr;
        const HRESULT hr = table.QueryRows(most ? static_cast<LONG>(most - count + 1) : kAll, 0, &part);
        RowSetPtr held(part);
        if (FAILED(hr)) return hr;
        if (!part || part->cRows == 0) {
            if (parts.empty() && held) parts.push_back(std::move(held));
            break;
        }
        count += part->cRows;
        if (most && count > most) return MAPI_E_TABLE_TOO_BIG;
        parts.push_back(std::move(held));
    }
    *rows = parts.size() == 1 ? parts.front().release() : Merge(parts, count).release();
    return S_OK;
}

}  // namespace

STDAPI HrQueryAllRows(LPMAPITABLE lpTable, LPSPropTagArray lpPropTags, LPSRestriction lpRestriction,
                      LPSSortOrderSet lpSortOrderSet, LONG crowsMax, LPSRowSet* lppRows) {
    if (!lpTable || !lppRows || crowsMax < 0 || crowsMax == 0x7FFFFFFF) return MAPI_E_INVALID_PARAMETER;
    *lppRows = nullptr;
    return GuardedCall([&] {
        const HRESULT hr = Prepare(*lpTable, lpPropTags, lpRestriction, lpSortOrderSet);
        return FAILED(hr) ? hr : ReadAll(*lpTable, static_cast<ULONG>(crowsMax), lppRows);
    });
}

STDAPI_(void) FreeProws(LPSRowSet lpRows) {
    if (!lpRows) return;
    for (ULONG i = 0; i < lpRows->cRows; ++i)
        MAPIFreeBuffer(lpRows->aRow[i].lpProps);
    MAPIFreeBuffer(lpRows);
}

STDAPI_(void) FreePadrlist(LPADRLIST lpAdrlist) {
    if (!lpAdrlist) return;
    for (ULONG i = 0; i < lpAdrlist->cEntries; ++i)
        MAPIFreeBuffer(lpAdrlist->aEntries[i].rgPropVals);
    MAPIFreeBuffer(lpAdrlist);
}

STDAPI_(HRESULT)
HrAddColumnsEx(LPMAPITABLE lptbl, LPSPropTagArray lpproptagColumnsNew, LPALLOCATEBUFFER lpAllocateBuffer,
               LPFREEBUFFER lpFreeBuffer, void (*lpfnFilterColumns)(LPSPropTagArray ptaga)) {
    if (!lptbl || !lpproptagColumnsNew || !lpAllocateBuffer || !lpFreeBuffer) return MAPI_E_INVALID_PARAMETER;
    LPSPropTagArray present = nullptr;
    HRESULT hr = lptbl->QueryColumns(0, &present);
    if (FAILED(hr)) return hr;
    if (lpfnFilterColumns) lpfnFilterColumns(present);
    void* block = nullptr;
    hr = lpAllocateBuffer(CbNewSPropTagArray(present->cValues + lpproptagColumnsNew->cValues + 1), &block);
    if (SUCCEEDED(hr)) {
        // The new columns first, as callers address them by position, then those not among them.
        auto* merged = static_cast<LPSPropTagArray>(block);
        merged->cValues = lpproptagColumnsNew->cValues;
        std::memcpy(merged->aulPropTag, lpproptagColumnsNew->aulPropTag, merged->cValues * sizeof(ULONG));
        for (ULONG i = 0; i < present->cValues; ++i) {
            bool known = false;
            for (ULONG k = 0; k < lpproptagColumnsNew->cValues && !known; ++k)
                known = lpproptagColumnsNew->aulPropTag[k] == present->aulPropTag[i];
            if (!known) merged->aulPropTag[merged->cValues++] = present->aulPropTag[i];
        }
        hr = lptbl->SetColumns(merged, 0);
        lpFreeBuffer(merged);
    }
    lpFreeBuffer(present);
    return hr;
}

STDAPI_(HRESULT)
HrAddColumns(LPMAPITABLE lptbl, LPSPropTagArray lpproptagColumnsNew, LPALLOCATEBUFFER lpAllocateBuffer,
             LPFREEBUFFER lpFreeBuffer) {
    return HrAddColumnsEx(lptbl, lpproptagColumnsNew, lpAllocateBuffer, lpFreeBuffer, nullptr);
}
