// The published interfaces on a compound file in memory. For this room only. Like those of the
// published implementation the objects of one file belong to one thread at a time.
#pragma once
#include "ComObject.h"
#include "CompoundBacking.h"
#include "CompoundTree.h"

#include <new>

namespace compound {

// What all objects of one open file share.
struct Document {
    std::unique_ptr<IBacking> backing;
    ElementRef root;     // as it stands or shall stand in the backing
    bool dirty = false;  // something changed since the last Flush
    HRESULT Flush();
};
using DocumentRef = std::shared_ptr<Document>;

// Whether an object can still be used: it cannot once the storage it came from is released.
struct Lifeline {
    std::shared_ptr<Lifeline> parent;
    bool cut = false;
    bool IsCut() const {
        for (const Lifeline* line = this; line; line = line->parent.get()) {
            if (line->cut) return true;
        }
        return false;
    }
};
using LifelineRef = std::shared_ptr<Lifeline>;

inline bool IsWriter(DWORD mode) {
    return (mode & 3) != STGM_READ;
}
inline bool IsReadable(DWORD mode) {
    return (mode & 3) != STGM_WRITE;
}
inline DWORD ShareOf(DWORD mode) {
    return mode & 0x70;
}

// Every method runs through here, so that lack of memory does not become an exception over the edge
// of an interface.
template <class Body>
HRESULT Guarded(Body body) {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return STG_E_INSUFFICIENTMEMORY;
    } catch (...) {
        return STG_E_UNKNOWN;
    }
}

// Fills `stat`; the name is allocated with CoTaskMemAlloc unless STATFLAG_NONAME is set.
HRESULT FillStat(const Element& element, const std::wstring& name, DWORD flags, STATSTG& stat);

// Each answers an object with one reference.
IStorage* NewRootStorage(const DocumentRef& document, DWORD mode);
IStorage* NewStorage(const DocumentRef& document, const ElementRef& element, const LifelineRef& parent,
                     const std::shared_ptr<void>& token, DWORD mode);
IStream* NewStream(const DocumentRef& document, const ElementRef& element, const LifelineRef& parent,
                   const std::shared_ptr<void>& token, DWORD mode);
IEnumSTATSTG* NewElementEnumerator(const Element& storage);

}  // namespace compound
