#include "Table.h"

#include <MapiStore/Core/Notifier.h>
#include "TableWatch.h"

#include <algorithm>

namespace {

void CheckFlags(ULONG flags, ULONG known) {
    Require((flags & ~known) == 0, MAPI_E_UNKNOWN_FLAGS);
}

// The calls that a caller may ask to be deferred or done in the background; here they are done at once.
constexpr ULONG kLater = TBL_ASYNC | TBL_BATCH;

HRESULT PositionCode(bool moved) {
    return moved ? MAPI_W_POSITION_CHANGED : S_OK;
}

}  // namespace

CTable::CTable(std::shared_ptr<CStoreCore> core, std::unique_ptr<ITableSource> source, ULONG flags)
    : m_core(std::move(core)),
      m_view(std::make_shared<CTableView>(std::move(source), (flags & MAPI_UNICODE) != 0)) {}

CTable::~CTable() {
    for (ULONG connection : m_connections)
        RemoveConnection(connection);
}

void* CTable::FindInterface(REFIID riid) {
    if (IsEqualGUID(riid, IID_IUnknown) || IsEqualGUID(riid, IID_IMAPITable))
        return static_cast<IMAPITable*>(this);
    return nullptr;
}

HRESULT CTable::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) {
    return GiveLastError(hResult, ulFlags, lppMAPIError);
}

// --- notifications ----------------------------------------------------------------------------------

HRESULT CTable::Advise(ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink, ULONG* lpulConnection) {
    return Guarded([&] {
        Require(lpAdviseSink && lpulConnection, MAPI_E_INVALID_PARAMETER);
        Require((ulEventMask & fnevTableModified) != 0, MAPI_E_NO_SUPPORT);
        Require(m_core && m_view->Source().Core(), MAPI_E_NO_SUPPORT);
        const auto watch = std::make_shared<CTableWatch>(m_core, m_view, lpAdviseSink);
        const ULONG number = AddConnection(m_core, watch);
        const std::lock_guard lock(m_connectionsMutex);
        m_connections.push_back(number);
        *lpulConnection = number;
        return S_OK;
    });
}

// Without the store's lock, which the sink that is waited for may need.
HRESULT CTable::Unadvise(ULONG ulConnection) {
    return GuardedCall([&] {
        {
            const std::lock_guard lock(m_connectionsMutex);
            Require(std::erase(m_connections, ulConnection) == 1, MAPI_E_NOT_FOUND);
        }
        RemoveConnection(ulConnection);
        return S_OK;
    });
}

// --- columns ----------------------------------------------------------------------------------------

HRESULT CTable::SetColumns(LPSPropTagArray lpPropTagArray, ULONG ulFlags) {
    return Guarded([&] {
        Require(lpPropTagArray != nullptr, MAPI_E_INVALID_PARAMETER);
        CheckFlags(ulFlags, kLater);
        m_view->SetColumns(*lpPropTagArray);
        return S_OK;
    });
}

HRESULT CTable::QueryColumns(ULONG ulFlags, LPSPropTagArray* lpPropTagArray) {
    return Guarded([&] {
        Require(lpPropTagArray != nullptr, MAPI_E_INVALID_PARAMETER);
        CheckFlags(ulFlags, TBL_ALL_COLUMNS);
        const auto columns = (ulFlags & TBL_ALL_COLUMNS) ? m_view->AllColumns() : m_view->Columns();
        void* block = nullptr;
        Require(SUCCEEDED(AllocateRoot(CbNewSPropTagArray(columns.size()), &block)),
                MAPI_E_NOT_ENOUGH_MEMORY);
        auto* tags = static_cast<SPropTagArray*>(block);
        tags->cValues = static_cast<ULONG>(columns.size());
        std::copy(columns.begin(), columns.end(), tags->aulPropTag);
        *lpPropTagArray = tags;
        return S_OK;
    });
}

// --- cursor -----------------------------------------------------------------------------------------

HRESULT CTable::GetRowCount(ULONG ulFlags, ULONG* lpulCount) {
    return Guarded([&] {
        Require(lpulCount != nullptr, MAPI_E_INVALID_PARAMETER);
        CheckFlags(ulFlags, TBL_NOWAIT);
        *lpulCount = static_cast<ULONG>(m_view->RowCount());
        return S_OK;
    });
}

HRESULT CTable::SeekRow(BOOKMARK bkOrigin, LONG lRowCount, LONG* lplRowsSought) {
    return Guarded([&] {
        bool moved = false;
        const LONG sought = m_view->Seek(bkOrigin, lRowCount, moved);
        if (lplRowsSought) *lplRowsSought = sought;
        return PositionCode(moved);
    });
}

HRESULT CTable::SeekRowApprox(ULONG ulNumerator, ULONG ulDenominator) {
    return Guarded([&] {
        m_view->SeekApprox(ulNumerator, ulDenominator);
        return S_OK;
    });
}

HRESULT CTable::QueryPosition(ULONG* lpulRow, ULONG* lpulNumerator, ULONG* lpulDenominator) {
    return Guarded([&] {
        Require(lpulRow && lpulNumerator && lpulDenominator, MAPI_E_INVALID_PARAMETER);
        const std::size_t count = m_view->RowCount();
        const std::size_t position = m_view->Position();
        *lpulRow = static_cast<ULONG>(position);
        *lpulNumerator = static_cast<ULONG>(position);
        *lpulDenominator = static_cast<ULONG>(count ? count : 1);
        return S_OK;
    });
}

HRESULT CTable::FindRow(LPSRestriction lpRestriction, BOOKMARK bkOrigin, ULONG ulFlags) {
    return Guarded([&] {
        Require(lpRestriction != nullptr, MAPI_E_INVALID_PARAMETER);
        CheckFlags(ulFlags, DIR_BACKWARD);
        bool moved = false;
        const bool found = m_view->Find(*lpRestriction, bkOrigin, (ulFlags & DIR_BACKWARD) != 0, moved);
        return found ? PositionCode(moved) : MAPI_E_NOT_FOUND;
    });
}

HRESULT CTable::CreateBookmark(BOOKMARK* lpbkPosition) {
    return Guarded([&] {
        Require(lpbkPosition != nullptr, MAPI_E_INVALID_PARAMETER);
        *lpbkPosition = m_view->CreateBookmark();
        return S_OK;
    });
}

HRESULT CTable::FreeBookmark(BOOKMARK bkPosition) {
    return Guarded([&] {
        m_view->FreeBookmark(bkPosition);
        return S_OK;
    });
}

// --- restriction and order --------------------------------------------------------------------------

HRESULT CTable::Restrict(LPSRestriction lpRestriction, ULONG ulFlags) {
    return Guarded([&] {
        CheckFlags(ulFlags, kLater);
        m_view->Restrict(lpRestriction);
        return S_OK;
    });
}

HRESULT CTable::SortTable(LPSSortOrderSet lpSortCriteria, ULONG ulFlags) {
    return Guarded([&] {
        CheckFlags(ulFlags, kLater);
        m_view->SetSort(lpSortCriteria);
        return S_OK;
    });
}

HRESULT CTable::QuerySortOrder(LPSSortOrderSet* lppSortCriteria) {
    return Guarded([&] {
        Require(lppSortCriteria != nullptr, MAPI_E_INVALID_PARAMETER);
        const auto& sort = m_view->Sort();
        void* block = nullptr;
        Require(SUCCEEDED(AllocateRoot(CbNewSSortOrderSet(sort.size() + 1), &block)),
                MAPI_E_NOT_ENOUGH_MEMORY);
        auto* order = static_cast<SSortOrderSet*>(block);
        order->cSorts = static_cast<ULONG>(sort.size());
        order->cCategories = order->cExpanded = 0;
        for (std::size_t i = 0; i < sort.size(); ++i)
            order->aSort[i] = {sort[i].tag, sort[i].descending ? TABLE_SORT_DESCEND : TABLE_SORT_ASCEND};
        *lppSortCriteria = order;
        return S_OK;
    });
}

// --- rows -------------------------------------------------------------------------------------------

HRESULT CTable::QueryRows(LONG lRowCount, ULONG ulFlags, LPSRowSet* lppRows) {
    return Guarded([&] {
        Require(lppRows != nullptr, MAPI_E_INVALID_PARAMETER);
        *lppRows = nullptr;
        CheckFlags(ulFlags, TBL_NOADVANCE);
        *lppRows = m_view->QueryRows(lRowCount, (ulFlags & TBL_NOADVANCE) == 0);
        return S_OK;
    });
}

// --- what runs in the background elsewhere ----------------------------------------------------------

HRESULT CTable::GetStatus(ULONG* lpulTableStatus, ULONG* lpulTableType) {
    return Guarded([&] {
        Require(lpulTableStatus && lpulTableType, MAPI_E_INVALID_PARAMETER);
        *lpulTableStatus = TBLSTAT_COMPLETE;
        *lpulTableType = m_view->Source().Core() ? TBLTYPE_DYNAMIC : TBLTYPE_SNAPSHOT;
        return S_OK;
    });
}

HRESULT CTable::Abort() {
    return Guarded([] { return S_OK; });
}

HRESULT CTable::WaitForCompletion(ULONG, ULONG, ULONG* lpulTableStatus) {
    return Guarded([&] {
        if (lpulTableStatus) *lpulTableStatus = TBLSTAT_COMPLETE;
        return S_OK;
    });
}

// --- categories, which these tables do not have -----------------------------------------------------

HRESULT CTable::ExpandRow(ULONG, LPBYTE, ULONG, ULONG, LPSRowSet*, ULONG*) {
    return MAPI_E_NO_SUPPORT;
}
HRESULT CTable::CollapseRow(ULONG, LPBYTE, ULONG, ULONG*) {
    return MAPI_E_NO_SUPPORT;
}
HRESULT CTable::GetCollapseState(ULONG, ULONG, LPBYTE, ULONG*, LPBYTE*) {
    return MAPI_E_NO_SUPPORT;
}
HRESULT CTable::SetCollapseState(ULONG, ULONG, LPBYTE, BOOKMARK*) {
    return MAPI_E_NO_SUPPORT;
}
