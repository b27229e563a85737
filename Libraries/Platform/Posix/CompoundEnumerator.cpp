#include "CompoundObjects.h"

#include <cstring>
#include <vector>

namespace compound {

HRESULT FillStat(const Element& element, const std::wstring& name, DWORD flags, STATSTG& stat) {
    stat = STATSTG{};
    stat.type = element.isStorage ? STGTY_STORAGE : STGTY_STREAM;
    if (!element.isStorage) stat.cbSize.QuadPart = element.bytes->size();
    stat.ctime = element.created;
    stat.mtime = element.modified;
    stat.clsid = element.clsid;
    stat.grfStateBits = element.stateBits;
    if (flags & STATFLAG_NONAME) return S_OK;
    const size_t cb = (name.size() + 1) * sizeof(OLECHAR);
    stat.pwcsName = static_cast<OLECHAR*>(CoTaskMemAlloc(cb));
    if (!stat.pwcsName) return STG_E_INSUFFICIENTMEMORY;
    std::memcpy(stat.pwcsName, name.c_str(), cb);
    return S_OK;
}

namespace {

// Walks the elements that were there when it was made.
class CEnumerator : public CComObject<IEnumSTATSTG> {
public:
    using Snapshot = std::shared_ptr<const std::vector<ElementRef>>;
    CEnumerator(Snapshot elements, size_t at) : m_elements(std::move(elements)), m_at(at) {}

    HRESULT Next(ULONG celt, STATSTG* rgelt, ULONG* pceltFetched) override {
        if (pceltFetched) *pceltFetched = 0;
        if (!rgelt) return STG_E_INVALIDPOINTER;
        if (!pceltFetched && celt != 1) return STG_E_INVALIDPARAMETER;
        ULONG fetched = 0;
        const HRESULT hr = Guarded([&] {
            while (fetched < celt && m_at < m_elements->size()) {
                const Element& element = *(*m_elements)[m_at];
                const HRESULT filled = FillStat(element, WideOf(element.name), 0, rgelt[fetched]);
                if (filled != S_OK) return filled;
                ++fetched;
                ++m_at;
            }
            return S_OK;
        });
        if (pceltFetched) *pceltFetched = fetched;
        return hr != S_OK ? hr : fetched == celt ? S_OK : S_FALSE;
    }

    HRESULT Skip(ULONG celt) override {
        const size_t left = m_elements->size() - m_at;
        m_at += celt < left ? celt : left;
        return celt <= left ? S_OK : S_FALSE;
    }

    HRESULT Reset() override {
        m_at = 0;
        return S_OK;
    }

    HRESULT Clone(IEnumSTATSTG** ppenum) override {
        if (!ppenum) return STG_E_INVALIDPOINTER;
        *ppenum = nullptr;
        return Guarded([&] {
            *ppenum = new CEnumerator(m_elements, m_at);
            return S_OK;
        });
    }

private:
    bool Answers(REFIID riid) const override { return riid == IID_IEnumSTATSTG; }

    Snapshot m_elements;
    size_t m_at;
};

}  // namespace

IEnumSTATSTG* NewElementEnumerator(const Element& storage) {
    auto elements = std::make_shared<std::vector<ElementRef>>();
    for (const auto& [name, element] : storage.children) {
        elements->push_back(element);
    }
    return new CEnumerator(std::move(elements), 0);
}

}  // namespace compound
