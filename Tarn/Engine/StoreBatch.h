// Gathers the saves of a run on one store, where the store offers it.
#pragma once
#include <MapiWrapper/MapiWrapper.h>
#include <Platform/StoreExtensions.h>

#include <optional>

// Ends the batch when it dies; whoever must know what became of the saves has called End before. A store that
// does not know batches, or refuses one, is used without: then each save stands for itself, which is slower
// and just as safe.
//
// Flush, FlushToDisk and End answer S_OK, also without a batch, or the code of a commit that took back what
// was saved here: each of them from then on, whoever was told first.
class CStoreBatch {
public:
    CStoreBatch() = default;
    CStoreBatch(const CStoreBatch&) = delete;
    CStoreBatch& operator=(const CStoreBatch&) = delete;
    ~CStoreBatch() { End(); }

    void Begin(const IMsgStorePtr& store) {
        End();
        m_loss.reset();
        if (!store || store->QueryInterface(IID_IStoreBatch, reinterpret_cast<void**>(m_batch.Out())) < 0)
            return;
        if (m_batch->BeginBatch() < 0) m_batch.Free();
    }
    HRESULT Flush() { return Keep(m_batch ? m_batch->FlushBatch() : S_OK); }
    HRESULT FlushToDisk() { return Keep(m_batch ? m_batch->FlushToDisk() : S_OK); }
    HRESULT End() {
        const HRESULT hr = Keep(m_batch ? m_batch->EndBatch() : S_OK);
        m_batch.Free();
        return hr;
    }
    bool IsOpen() const { return static_cast<bool>(m_batch); }
    // Something was taken back already; nothing may be built on what was saved here.
    bool HasLost() const { return m_loss || (m_batch && m_batch->BatchState() < 0); }
    // What was answered, with the store's words; empty as long as nothing was lost.
    const std::optional<CMAPIException>& Loss() const { return m_loss; }

private:
    HRESULT Keep(HRESULT hr) {
        if (hr < 0 && !m_loss) m_loss.emplace(hr, "CStoreBatch", m_batch.Get());
        return m_loss ? m_loss->Hr() : S_OK;
    }

    CComPtr<IStoreBatch> m_batch;
    std::optional<CMAPIException> m_loss;
};
