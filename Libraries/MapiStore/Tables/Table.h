// IMAPITable over a CTableView.
#pragma once
#include <MapiStore/Core/StoreCall.h>
#include <MapiStore/Values/UnknownImpl.h>
#include "TableView.h"

class CTable final : public CUnknownImpl<IMAPITable> {
public:
    // `core`: for the lock and for counting the calls; null for tables of no store.
    CTable(std::shared_ptr<CStoreCore> core, std::unique_ptr<ITableSource> source, ULONG flags);
    ~CTable() override;

    HRESULT STDMETHODCALLTYPE GetLastError(HRESULT hResult, ULONG ulFlags,
                                           LPMAPIERROR* lppMAPIError) override;
    HRESULT STDMETHODCALLTYPE Advise(ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink,
                                     ULONG* lpulConnection) override;
    HRESULT STDMETHODCALLTYPE Unadvise(ULONG ulConnection) override;
    HRESULT STDMETHODCALLTYPE GetStatus(ULONG* lpulTableStatus, ULONG* lpulTableType) override;
    HRESULT STDMETHODCALLTYPE SetColumns(LPSPropTagArray lpPropTagArray, ULONG ulFlags) override;
    HRESULT STDMETHODCALLTYPE QueryColumns(ULONG ulFlags, LPSPropTagArray* lpPropTagArray) override;
    HRESULT STDMETHODCALLTYPE GetRowCount(ULONG ulFlags, ULONG* lpulCount) override;
    HRESULT STDMETHODCALLTYPE SeekRow(BOOKMARK bkOrigin, LONG lRowCount, LONG* lplRowsSought) override;
    HRESULT STDMETHODCALLTYPE SeekRowApprox(ULONG ulNumerator, ULONG ulDenominator) override;
    HRESULT STDMETHODCALLTYPE QueryPosition(ULONG* lpulRow, ULONG* lpulNumerator,
                                            ULONG* lpulDenominator) override;
    HRESULT STDMETHODCALLTYPE FindRow(LPSRestriction lpRestriction, BOOKMARK bkOrigin,
                                      ULONG ulFlags) override;
    HRESULT STDMETHODCALLTYPE Restrict(LPSRestriction lpRestriction, ULONG ulFlags) override;
    HRESULT STDMETHODCALLTYPE CreateBookmark(BOOKMARK* lpbkPosition) override;
    HRESULT STDMETHODCALLTYPE FreeBookmark(BOOKMARK bkPosition) override;
    HRESULT STDMETHODCALLTYPE SortTable(LPSSortOrderSet lpSortCriteria, ULONG ulFlags) override;
    HRESULT STDMETHODCALLTYPE QuerySortOrder(LPSSortOrderSet* lppSortCriteria) override;
    HRESULT STDMETHODCALLTYPE QueryRows(LONG lRowCount, ULONG ulFlags, LPSRowSet* lppRows) override;
    HRESULT STDMETHODCALLTYPE Abort() override;
    HRESULT STDMETHODCALLTYPE ExpandRow(ULONG cbInstanceKey, LPBYTE pbInstanceKey, ULONG ulRowCount,
                                        ULONG ulFlags, LPSRowSet* lppRows, ULONG* lpulMoreRows) override;
    HRESULT STDMETHODCALLTYPE CollapseRow(ULONG cbInstanceKey, LPBYTE pbInstanceKey, ULONG ulFlags,
                                          ULONG* lpulRowCount) override;
    HRESULT STDMETHODCALLTYPE WaitForCompletion(ULONG ulFlags, ULONG ulTimeout,
                                                ULONG* lpulTableStatus) override;
    HRESULT STDMETHODCALLTYPE GetCollapseState(ULONG ulFlags, ULONG cbInstanceKey, LPBYTE lpbInstanceKey,
                                               ULONG* lpcbCollapseState, LPBYTE* lppbCollapseState) override;
    HRESULT STDMETHODCALLTYPE SetCollapseState(ULONG ulFlags, ULONG cbCollapseState, LPBYTE pbCollapseState,
                                               BOOKMARK* lpbkLocation) override;

protected:
    void* FindInterface(REFIID riid) override;

private:
    template <class Body>
    HRESULT Guarded(Body&& body) noexcept {
        if (m_core) return GuardedCall(*m_core, body);
        return GuardedCall([&] {
            const std::lock_guard lock(m_mutex);
            return body();
        });
    }

    const std::shared_ptr<CStoreCore> m_core;
    std::mutex m_mutex;  // for tables without a store
    const std::shared_ptr<CTableView> m_view;
    std::mutex m_connectionsMutex;  // guards the numbers
    std::vector<ULONG> m_connections;
};
