#include "StoreCall.h"

#include <functional>

CStoreCall::CStoreCall(CStoreCore& core) : m_core(core) {
    m_core.LockAndCount();
}

CStoreCall::~CStoreCall() {
    auto events = m_core.Unlock();
    if (!events.empty()) m_core.Deliver(std::move(events), false);
}

CQuietCall::CQuietCall(CStoreCore& core) : m_core(core) {
    m_core.Lock();
}

CQuietCall::~CQuietCall() {
    auto events = m_core.Unlock();
    if (!events.empty()) m_core.Deliver(std::move(events), false);
}

CStoreLock::~CStoreLock() {
    auto events = m_core.Unlock();
    if (!events.empty()) m_core.Deliver(std::move(events), false);
}

CTwoStoreCall::CTwoStoreCall(CStoreCore& counted, CStoreCore& other) : m_first(&counted), m_second(nullptr) {
    if (&counted != &other) {
        m_second = &other;
        if (std::less<CStoreCore*>()(m_second, m_first)) std::swap(m_first, m_second);
    }
    m_first->Lock();
    if (m_second) m_second->Lock();
    try {
        counted.CountCall();
    } catch (...) {
        if (m_second) m_second->Unlock();
        m_first->Unlock();
        throw;
    }
}

CTwoStoreCall::~CTwoStoreCall() {
    std::vector<StoreEvent> second;
    if (m_second) second = m_second->Unlock();
    auto first = m_first->Unlock();
    if (!first.empty()) m_first->Deliver(std::move(first), false);
    if (!second.empty()) m_second->Deliver(std::move(second), false);
}
