// Gathers the saves of many items into few transactions, where the store offers that.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Platform/StoreExtensions.h>

class CStoreBatch {
public:
    explicit CStoreBatch(const IMsgStorePtr& store) {
        void* batch = nullptr;
        if (store.Get() && store->QueryInterface(IID_IStoreBatch, &batch) >= 0)
            m_batch.Attach(static_cast<IStoreBatch*>(batch));
        if (m_batch && m_batch->BeginBatch() < 0) m_batch.Free();
    }
    ~CStoreBatch() {
        if (m_batch) m_batch->EndBatch();
    }
    CStoreBatch(const CStoreBatch&) = delete;
    CStoreBatch& operator=(const CStoreBatch&) = delete;

private:
    CComPtr<IStoreBatch> m_batch;
};
