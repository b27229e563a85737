// Gathers the saves of a run on one store, where the store offers it.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Platform/StoreExtensions.h>

// Ends the batch when it dies. A store that does not know batches, or refuses one, is used without:
// then each save stands for itself, which is slower and just as safe.
class CStoreBatch {
public:
    CStoreBatch() = default;
    CStoreBatch(const CStoreBatch&) = delete;
    CStoreBatch& operator=(const CStoreBatch&) = delete;
    ~CStoreBatch() { End(); }

    void Begin(const IMsgStorePtr& store) {
        End();
        if (!store || store->QueryInterface(IID_IStoreBatch, reinterpret_cast<void**>(m_batch.Out())) < 0)
            return;
        if (m_batch->BeginBatch() < 0) m_batch.Free();
    }
    // What is gathered is on disk afterwards; S_OK without a batch, else the store's code.
    HRESULT Flush() { return m_batch ? m_batch->FlushBatch() : S_OK; }
    void End() {
        if (m_batch) m_batch->EndBatch();
        m_batch.Free();
    }

private:
    CComPtr<IStoreBatch> m_batch;
};
