#include "CompoundObjects.h"

#include <algorithm>
#include <vector>

namespace compound {

namespace {

bool IsValidName(const OLECHAR* name) {
    if (!name || !*name) return false;
    const std::wstring text = name;
    if (text.find_first_of(L"\\/:!") != std::wstring::npos) return false;
    return Utf16Of(text).size() <= MaxNameLength;
}

template <class Interface>
struct CReleased {
    Interface* p = nullptr;
    ~CReleased() {
        if (p) p->Release();
    }
};

bool IsListed(SNB names, const std::wstring& name) {
    for (; names && *names; ++names) {
        if (name == *names) return true;
    }
    return false;
}

class CStorage : public CComObject<IStorage> {
public:
    // A transacted storage works on a copy of `element` until Commit.
    CStorage(const DocumentRef& document, const ElementRef& element, const LifelineRef& parent,
             const std::shared_ptr<void>& token, DWORD mode, bool isRoot)
        : m_document(document),
          m_committed(element),
          m_working(mode & STGM_TRANSACTED ? CopyTree(*element) : element),
          m_lifeline(std::make_shared<Lifeline>(Lifeline{parent})),
          m_token(token),
          m_mode(mode),
          m_isRoot(isRoot) {}

    HRESULT CreateStream(const OLECHAR* pwcsName, DWORD grfMode, DWORD, DWORD, IStream** ppstm) override {
        if (!ppstm) return STG_E_INVALIDPOINTER;
        *ppstm = nullptr;
        return Guarded([&] {
            ElementRef element;
            HRESULT hr = grfMode & STGM_TRANSACTED ? STG_E_INVALIDFUNCTION : S_OK;
            if (hr == S_OK) hr = Create(pwcsName, grfMode, false, element);
            if (hr == S_OK) *ppstm = NewStream(m_document, element, m_lifeline, Hold(*element), grfMode);
            return hr;
        });
    }

    HRESULT OpenStream(const OLECHAR* pwcsName, void*, DWORD grfMode, DWORD, IStream** ppstm) override {
        if (!ppstm) return STG_E_INVALIDPOINTER;
        *ppstm = nullptr;
        return Guarded([&] {
            ElementRef element;
            HRESULT hr = grfMode & STGM_TRANSACTED ? STG_E_INVALIDFUNCTION : S_OK;
            if (hr == S_OK) hr = Find(pwcsName, grfMode, false, element);
            if (hr == S_OK) *ppstm = NewStream(m_document, element, m_lifeline, Hold(*element), grfMode);
            return hr;
        });
    }

    HRESULT CreateStorage(const OLECHAR* pwcsName, DWORD grfMode, DWORD, DWORD, IStorage** ppstg) override {
        if (!ppstg) return STG_E_INVALIDPOINTER;
        *ppstg = nullptr;
        return Guarded([&] {
            ElementRef element;
            const HRESULT hr = Create(pwcsName, grfMode, true, element);
            if (hr == S_OK) *ppstg = NewStorage(m_document, element, m_lifeline, Hold(*element), grfMode);
            return hr;
        });
    }

    HRESULT OpenStorage(const OLECHAR* pwcsName, IStorage* pstgPriority, DWORD grfMode, SNB snbExclude, DWORD,
                        IStorage** ppstg) override {
        if (!ppstg) return STG_E_INVALIDPOINTER;
        *ppstg = nullptr;
        if (pstgPriority || snbExclude) return STG_E_INVALIDPARAMETER;
        return Guarded([&] {
            ElementRef element;
            const HRESULT hr = Find(pwcsName, grfMode, true, element);
            if (hr == S_OK) *ppstg = NewStorage(m_document, element, m_lifeline, Hold(*element), grfMode);
            return hr;
        });
    }

    HRESULT CopyTo(DWORD ciidExclude, const IID* rgiidExclude, SNB snbExclude, IStorage* pstgDest) override {
        if (!pstgDest) return STG_E_INVALIDPOINTER;
        if (IsGone()) return STG_E_REVERTED;
        const auto excludes = [&](REFIID iid) {
            return rgiidExclude &&
                   std::find(rgiidExclude, rgiidExclude + ciidExclude, iid) != rgiidExclude + ciidExclude;
        };
        return Guarded([&] {
            // The elements as they stand now: the destination may be this storage or one below it.
            const ElementRef source = CopyTree(*m_working);
            HRESULT hr = pstgDest->SetClass(source->clsid);
            if (hr >= 0) hr = pstgDest->SetStateBits(source->stateBits, 0xFFFFFFFF);
            for (auto it = source->children.begin(); it != source->children.end() && hr >= 0; ++it) {
                const bool left = excludes(it->second->isStorage ? IID_IStorage : IID_IStream);
                if (left || IsListed(snbExclude, WideOf(it->first))) continue;
                hr = CopyElement(*it->second, it->first, *pstgDest);
            }
            return hr < 0 ? hr : S_OK;
        });
    }

    HRESULT MoveElementTo(const OLECHAR* pwcsName, IStorage* pstgDest, const OLECHAR* pwcsNewName,
                          DWORD grfFlags) override {
        if (!pstgDest) return STG_E_INVALIDPOINTER;
        if (!IsValidName(pwcsName) || !IsValidName(pwcsNewName)) return STG_E_INVALIDNAME;
        if (IsGone()) return STG_E_REVERTED;
        return Guarded([&] {
            const auto it = m_working->children.find(Utf16Of(pwcsName));
            if (it == m_working->children.end()) return STG_E_FILENOTFOUND;
            if (!it->second->openToken.expired()) return STG_E_ACCESSDENIED;
            const bool moves = (grfFlags & STGMOVE_COPY) == 0;
            if (moves && !IsWriter(m_mode)) return STG_E_ACCESSDENIED;
            const ElementRef source = CopyTree(*it->second);
            const HRESULT hr = CopyElement(*source, Utf16Of(pwcsNewName), *pstgDest);
            return hr >= 0 && moves ? DestroyElement(pwcsName) : hr;
        });
    }

    HRESULT Commit(DWORD) override {
        if (IsGone()) return STG_E_REVERTED;
        return Guarded([&] {
            if (m_mode & STGM_TRANSACTED) {
                if (!IsWriter(m_mode)) return STG_E_ACCESSDENIED;
                ReplaceContents(*m_committed, *m_working);
                m_document->dirty = true;
            }
            return m_isRoot ? m_document->Flush() : S_OK;
        });
    }

    HRESULT Revert() override {
        if (IsGone()) return STG_E_REVERTED;
        return Guarded([&] {
            if (m_mode & STGM_TRANSACTED) ReplaceContents(*m_working, *m_committed);
            return S_OK;
        });
    }

    HRESULT EnumElements(DWORD, void*, DWORD, IEnumSTATSTG** ppenum) override {
        if (!ppenum) return STG_E_INVALIDPOINTER;
        *ppenum = nullptr;
        if (IsGone()) return STG_E_REVERTED;
        return Guarded([&] {
            *ppenum = NewElementEnumerator(*m_working);
            return S_OK;
        });
    }

    HRESULT DestroyElement(const OLECHAR* pwcsName) override {
        return Guarded([&] {
            const HRESULT hr = MayChange(pwcsName);
            if (hr != S_OK) return hr;
            const auto it = m_working->children.find(Utf16Of(pwcsName));
            if (it == m_working->children.end()) return STG_E_FILENOTFOUND;
            MarkGone(*it->second);
            m_working->children.erase(it);
            m_document->dirty = true;
            return S_OK;
        });
    }

    HRESULT RenameElement(const OLECHAR* pwcsOldName, const OLECHAR* pwcsNewName) override {
        return Guarded([&] {
            HRESULT hr = MayChange(pwcsOldName);
            if (hr == S_OK) hr = MayChange(pwcsNewName);
            if (hr != S_OK) return hr;
            const auto it = m_working->children.find(Utf16Of(pwcsOldName));
            if (it == m_working->children.end()) return STG_E_FILENOTFOUND;
            const std::u16string name = Utf16Of(pwcsNewName);
            if (m_working->children.count(name)) return STG_E_FILEALREADYEXISTS;
            const ElementRef element = it->second;
            if (!element->openToken.expired()) return STG_E_ACCESSDENIED;
            m_working->children.emplace(name, element);
            m_working->children.erase(it);
            element->name = name;
            m_document->dirty = true;
            return S_OK;
        });
    }

    HRESULT SetElementTimes(const OLECHAR* pwcsName, const FILETIME* pctime, const FILETIME*,
                            const FILETIME* pmtime) override {
        return Guarded([&] {
            if (IsGone()) return STG_E_REVERTED;
            if (!IsWriter(m_mode)) return STG_E_ACCESSDENIED;
            ElementRef element = m_working;
            if (pwcsName) {
                const auto it = m_working->children.find(Utf16Of(pwcsName));
                if (it == m_working->children.end()) return STG_E_FILENOTFOUND;
                element = it->second;
            }
            if (pctime) element->created = *pctime;
            if (pmtime) element->modified = *pmtime;
            m_document->dirty = true;
            return S_OK;
        });
    }

    HRESULT SetClass(REFCLSID clsid) override {
        if (IsGone()) return STG_E_REVERTED;
        if (!IsWriter(m_mode)) return STG_E_ACCESSDENIED;
        m_working->clsid = clsid;
        m_document->dirty = true;
        return S_OK;
    }

    HRESULT SetStateBits(DWORD grfStateBits, DWORD grfMask) override {
        if (IsGone()) return STG_E_REVERTED;
        if (!IsWriter(m_mode)) return STG_E_ACCESSDENIED;
        m_working->stateBits = (m_working->stateBits & ~grfMask) | (grfStateBits & grfMask);
        m_document->dirty = true;
        return S_OK;
    }

    HRESULT Stat(STATSTG* pstatstg, DWORD grfStatFlag) override {
        if (!pstatstg) return STG_E_INVALIDPOINTER;
        if (IsGone()) return STG_E_REVERTED;
        return Guarded([&] {
            const std::wstring name = m_isRoot ? m_document->backing->Name() : WideOf(m_working->name);
            const HRESULT hr = FillStat(*m_working, name, grfStatFlag, *pstatstg);
            pstatstg->grfMode = m_mode;
            return hr;
        });
    }

protected:
    ~CStorage() override {
        m_lifeline->cut = true;
        if (!m_isRoot || (m_mode & STGM_TRANSACTED) || !IsWriter(m_mode)) return;
        // Nobody can be told of a failure here; who wants to know commits first.
        Guarded([&] { return m_document->Flush(); });
    }

private:
    bool Answers(REFIID riid) const override { return riid == IID_IStorage; }
    bool IsGone() const { return m_committed->gone || m_working->gone || m_lifeline->IsCut(); }

    static std::shared_ptr<void> Hold(Element& element) {
        const auto token = std::make_shared<char>();
        element.openToken = token;
        return token;
    }

    HRESULT MayChange(const OLECHAR* name) const {
        if (IsGone()) return STG_E_REVERTED;
        if (!IsValidName(name)) return STG_E_INVALIDNAME;
        return IsWriter(m_mode) ? S_OK : STG_E_ACCESSDENIED;
    }

    unsigned Depth() const {
        unsigned depth = 0;
        for (const Lifeline* line = m_lifeline.get(); line; line = line->parent.get()) {
            ++depth;
        }
        return depth;
    }

    HRESULT Create(const OLECHAR* name, DWORD mode, bool isStorage, ElementRef& element) {
        HRESULT hr = MayChange(name);
        if (hr != S_OK) return hr;
        if (ShareOf(mode) != STGM_SHARE_EXCLUSIVE) return STG_E_INVALIDFLAG;
        if (mode & STGM_DELETEONRELEASE) return STG_E_INVALIDFUNCTION;
        if (Depth() >= MaxDepth) return STG_E_INSUFFICIENTMEMORY;
        const std::u16string key = Utf16Of(name);
        const auto it = m_working->children.find(key);
        if (it != m_working->children.end()) {
            if (!(mode & STGM_CREATE)) return STG_E_FILEALREADYEXISTS;
            MarkGone(*it->second);
            m_working->children.erase(it);
        }
        element = NewElement(isStorage, key);
        m_working->children.emplace(key, element);
        m_document->dirty = true;
        return S_OK;
    }

    HRESULT Find(const OLECHAR* name, DWORD mode, bool isStorage, ElementRef& element) const {
        if (IsGone()) return STG_E_REVERTED;
        if (!IsValidName(name)) return STG_E_INVALIDNAME;
        if (ShareOf(mode) != STGM_SHARE_EXCLUSIVE) return STG_E_INVALIDFLAG;
        if (mode & (STGM_DELETEONRELEASE | STGM_CREATE)) return STG_E_INVALIDFLAG;
        if (IsWriter(mode) && !IsWriter(m_mode)) return STG_E_ACCESSDENIED;
        const auto it = m_working->children.find(Utf16Of(name));
        if (it == m_working->children.end()) return STG_E_FILENOTFOUND;
        if (it->second->isStorage != isStorage) return STG_E_FILENOTFOUND;
        if (!it->second->openToken.expired()) return STG_E_ACCESSDENIED;
        if (it->second->damaged) return STG_E_DOCFILECORRUPT;
        element = it->second;
        return S_OK;
    }

    static HRESULT CopyElement(const Element& from, const std::u16string& name, IStorage& to) {
        constexpr DWORD mode = STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
        const std::wstring wide = WideOf(name);
        if (!from.isStorage) {
            if (from.damaged) return STG_E_DOCFILECORRUPT;
            CReleased<IStream> stream;
            const HRESULT hr = to.CreateStream(wide.c_str(), mode, 0, 0, &stream.p);
            if (hr < 0) return hr;
            ULONG written = 0;
            const auto cb = static_cast<ULONG>(from.bytes->size());
            const HRESULT put = stream.p->Write(from.bytes->data(), cb, &written);
            return put >= 0 && written != cb ? STG_E_MEDIUMFULL : put;
        }
        CReleased<IStorage> storage;
        HRESULT hr = OpenOrCreate(to, wide, storage.p);
        if (hr >= 0) hr = storage.p->SetClass(from.clsid);
        if (hr >= 0) hr = storage.p->SetStateBits(from.stateBits, 0xFFFFFFFF);
        for (auto it = from.children.begin(); it != from.children.end() && hr >= 0; ++it) {
            hr = CopyElement(*it->second, it->first, *storage.p);
        }
        return hr;
    }

    // A storage that is there already takes the copied elements among its own.
    static HRESULT OpenOrCreate(IStorage& in, const std::wstring& name, IStorage*& storage) {
        constexpr DWORD mode = STGM_READWRITE | STGM_SHARE_EXCLUSIVE;
        const HRESULT hr = in.OpenStorage(name.c_str(), nullptr, mode, nullptr, 0, &storage);
        if (hr != STG_E_FILENOTFOUND) return hr;
        return in.CreateStorage(name.c_str(), mode | STGM_CREATE, 0, 0, &storage);
    }

    DocumentRef m_document;
    ElementRef m_committed;
    ElementRef m_working;
    LifelineRef m_lifeline;
    std::shared_ptr<void> m_token;
    DWORD m_mode;
    bool m_isRoot;
};

}  // namespace

HRESULT Document::Flush() {
    if (!dirty) return S_OK;
    std::string bytes;
    HRESULT hr = PrintCompoundFile(*root, bytes);
    if (hr == S_OK) hr = backing->Store(bytes);
    if (hr >= 0) dirty = false;
    return hr;
}

IStorage* NewRootStorage(const DocumentRef& document, DWORD mode) {
    return new CStorage(document, document->root, nullptr, nullptr, mode, true);
}

IStorage* NewStorage(const DocumentRef& document, const ElementRef& element, const LifelineRef& parent,
                     const std::shared_ptr<void>& token, DWORD mode) {
    return new CStorage(document, element, parent, token, mode, false);
}

}  // namespace compound
