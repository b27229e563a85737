// The edge of this room: every interface method runs its body in GuardedCall. It takes the store's
// lock, counts the call for the faults on request, and turns every exception into its code.
#pragma once
#include <MapiStore/Values/StoreError.h>
#include "StoreCore.h"

// The lock of a store for one call. The outermost one hands the events of the call to the watchers
// when the lock is free again. Throws the fault that was asked for, if this call is the one.
class CStoreCall {
public:
    explicit CStoreCall(CStoreCore& core);
    ~CStoreCall();
    CStoreCall(const CStoreCall&) = delete;
    CStoreCall& operator=(const CStoreCall&) = delete;

private:
    CStoreCore& m_core;
};

// The same for work that this room does by itself, such as collecting what to notify: it counts for
// nobody's faults.
class CQuietCall {
public:
    explicit CQuietCall(CStoreCore& core);
    ~CQuietCall();
    CQuietCall(const CQuietCall&) = delete;
    CQuietCall& operator=(const CQuietCall&) = delete;

private:
    CStoreCore& m_core;
};

// The lock alone, where a store works for itself: a release that still has something to write.
class CStoreLock {
public:
    explicit CStoreLock(CStoreCore& core) : m_core(core) { m_core.Lock(); }
    ~CStoreLock();
    CStoreLock(const CStoreLock&) = delete;
    CStoreLock& operator=(const CStoreLock&) = delete;

private:
    CStoreCore& m_core;
};

// A call on two stores, of which only the first counts the call; they may be one and the same.
// Locks in an order that is the same for every caller.
class CTwoStoreCall {
public:
    CTwoStoreCall(CStoreCore& counted, CStoreCore& other);
    ~CTwoStoreCall();
    CTwoStoreCall(const CTwoStoreCall&) = delete;
    CTwoStoreCall& operator=(const CTwoStoreCall&) = delete;

private:
    CStoreCore* m_first;
    CStoreCore* m_second;  // null if they are the same
};

template <class Body>
HRESULT GuardedCall(CStoreCore& core, Body&& body) noexcept {
    try {
        CStoreCall call(core);
        return body();
    } catch (...) {
        return CodeOfCurrentException();
    }
}

// For objects that belong to no store.
template <class Body>
HRESULT GuardedCall(Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        return CodeOfCurrentException();
    }
}
