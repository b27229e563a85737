#include "MapiMemory.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// Under the address sanitizer every block gets an allocation of its own, so that an overrun shows.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kPool = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kPool = false;
#else
constexpr bool kPool = true;
#endif
#else
constexpr bool kPool = true;
#endif

constexpr std::size_t kAlign = 16;
constexpr std::size_t kFirstChunk = 512;
constexpr std::size_t kLargestChunk = 64 * 1024;
constexpr std::size_t kLargestSlab = 256 * 1024;
constexpr std::size_t kLargestRequest = 0x7FFFFFFF;
constexpr std::uint32_t kLiveRoot = 0x4D415049;
constexpr std::uint32_t kFreedRoot = 0xDEADF4EE;

constexpr std::size_t RoundUp(std::size_t cb) {
    return (cb + kAlign - 1) & ~(kAlign - 1);
}

struct alignas(kAlign) Chunk {
    Chunk* next;
};

// Shared by the blocks cut out of it and by the arena while that still cuts.
struct alignas(kAlign) Slab {
    std::atomic<std::uint32_t> users;
};

// Stands before each root.
struct alignas(kAlign) Root {
    std::uint32_t magic;
    std::uint32_t cbChunk;  // size of the newest chunk; the next one is twice that
    Chunk* chunks;
    Slab* slab;  // null for a root of its own
    char* next;  // free room in the newest chunk
    char* end;
};

void DropSlab(Slab* slab) {
    if (slab->users.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        slab->~Slab();
        std::free(slab);
    }
}

void* MakeRoot(void* memory, Slab* slab) {
    Root* root = new (memory) Root{kLiveRoot, 0, nullptr, slab, nullptr, nullptr};
    return root + 1;
}

Root* RootOf(void* block) {
    Root* root = static_cast<Root*>(block) - 1;
    return root->magic == kLiveRoot ? root : nullptr;
}

void* AddChunk(Root* root, std::size_t cb) {
    std::size_t room = cb;
    const bool shared = kPool && cb <= kLargestChunk / 4;
    if (shared) {
        room = root->cbChunk == 0 ? kFirstChunk : root->cbChunk * std::size_t{2};
        while (room < cb)
            room *= 2;
        if (room > kLargestChunk) room = kLargestChunk;
    }
    auto* chunk = static_cast<Chunk*>(std::malloc(sizeof(Chunk) + room));
    if (!chunk) return nullptr;
    chunk->next = root->chunks;
    root->chunks = chunk;
    char* data = reinterpret_cast<char*>(chunk + 1);
    if (shared) {
        root->cbChunk = static_cast<std::uint32_t>(room);
        root->next = data + cb;
        root->end = data + room;
    }
    return data;
}

void FreeRoot(Root* root) {
    for (Chunk* chunk = root->chunks; chunk;) {
        Chunk* next = chunk->next;
        std::free(chunk);
        chunk = next;
    }
    root->magic = kFreedRoot;
    if (root->slab)
        DropSlab(root->slab);
    else
        std::free(root);
}

}  // namespace

SCODE AllocateRoot(std::size_t cb, void** block) {
    *block = nullptr;
    if (cb > kLargestRequest) return MAPI_E_NOT_ENOUGH_MEMORY;
    void* memory = std::malloc(sizeof(Root) + cb);
    if (!memory) return MAPI_E_NOT_ENOUGH_MEMORY;
    *block = MakeRoot(memory, nullptr);
    return S_OK;
}

SCODE AllocateOn(void* object, std::size_t cb, void** block) {
    *block = nullptr;
    if (cb > kLargestRequest) return MAPI_E_NOT_ENOUGH_MEMORY;
    Root* root = RootOf(object);
    if (!root) return MAPI_E_INVALID_PARAMETER;
    const std::size_t rounded = kPool ? RoundUp(cb ? cb : 1) : cb;
    if (kPool && static_cast<std::size_t>(root->end - root->next) >= rounded && root->next) {
        *block = root->next;
        root->next += rounded;
        return S_OK;
    }
    *block = AddChunk(root, rounded);
    return *block ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
}

CRootArena::~CRootArena() {
    if (m_slab) DropSlab(static_cast<Slab*>(m_slab));
}

SCODE CRootArena::Allocate(std::size_t cb, void** block) {
    *block = nullptr;
    if (cb > kLargestRequest) return MAPI_E_NOT_ENOUGH_MEMORY;
    const std::size_t needed = RoundUp(sizeof(Root) + cb);
    if (!kPool || needed > kLargestSlab / 8) return AllocateRoot(cb, block);
    if (m_cbLeft < needed) {
        while (m_cbSlab < kLargestSlab && m_cbSlab < needed * 8)
            m_cbSlab *= 2;
        void* memory = std::malloc(sizeof(Slab) + m_cbSlab);
        if (!memory) return MAPI_E_NOT_ENOUGH_MEMORY;
        if (m_slab) DropSlab(static_cast<Slab*>(m_slab));
        m_slab = new (memory) Slab{{1}};
        m_next = static_cast<char*>(memory) + sizeof(Slab);
        m_cbLeft = m_cbSlab;
        if (m_cbSlab < kLargestSlab) m_cbSlab *= 2;
    }
    auto* slab = static_cast<Slab*>(m_slab);
    slab->users.fetch_add(1, std::memory_order_relaxed);
    *block = MakeRoot(m_next, slab);
    m_next += needed;
    m_cbLeft -= needed;
    return S_OK;
}

// --- the published entry points ---------------------------------------------------------------------

extern "C" SCODE WINAPI MAPIAllocateBuffer(ULONG cbSize, LPVOID* lppBuffer) {
    if (!lppBuffer) return MAPI_E_INVALID_PARAMETER;
    return AllocateRoot(cbSize, lppBuffer);
}

extern "C" SCODE WINAPI MAPIAllocateMore(ULONG cbSize, LPVOID lpObject, LPVOID* lppBuffer) {
    if (!lppBuffer || !lpObject) return MAPI_E_INVALID_PARAMETER;
    return AllocateOn(lpObject, cbSize, lppBuffer);
}

extern "C" ULONG WINAPI MAPIFreeBuffer(LPVOID lpBuffer) {
    if (!lpBuffer) return S_OK;
    Root* root = RootOf(lpBuffer);
    if (!root) return static_cast<ULONG>(MAPI_E_INVALID_PARAMETER);
    FreeRoot(root);
    return S_OK;
}

namespace {

// The allocator that OpenIMsgSession and its callers pass around. Lives as long as the process.
class CDefaultMalloc final : public IMalloc {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
        if (!object) return E_POINTER;
        const bool known = IsEqualGUID(riid, IID_IUnknown) || IsEqualGUID(riid, IID_IMalloc);
        *object = known ? static_cast<IMalloc*>(this) : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    void* STDMETHODCALLTYPE Alloc(SIZE_T cb) override {
        if (cb > kLargestRequest) return nullptr;
        auto* memory = static_cast<Header*>(std::malloc(sizeof(Header) + cb));
        if (!memory) return nullptr;
        memory->cb = cb;
        return memory + 1;
    }
    void* STDMETHODCALLTYPE Realloc(void* pv, SIZE_T cb) override {
        if (!pv) return Alloc(cb);
        if (cb == 0 || cb > kLargestRequest) {
            if (cb == 0) Free(pv);
            return nullptr;
        }
        auto* grown = static_cast<Header*>(std::realloc(HeaderOf(pv), sizeof(Header) + cb));
        if (!grown) return nullptr;
        grown->cb = cb;
        return grown + 1;
    }
    void STDMETHODCALLTYPE Free(void* pv) override {
        if (pv) std::free(HeaderOf(pv));
    }
    SIZE_T STDMETHODCALLTYPE GetSize(void* pv) override {
        return pv ? HeaderOf(pv)->cb : static_cast<SIZE_T>(-1);
    }
    int STDMETHODCALLTYPE DidAlloc(void*) override { return -1; }  // cannot tell
    void STDMETHODCALLTYPE HeapMinimize() override {}

private:
    struct alignas(kAlign) Header {
        SIZE_T cb;
    };
    static Header* HeaderOf(void* pv) { return static_cast<Header*>(pv) - 1; }
};

}  // namespace

STDAPI_(LPMALLOC) MAPIGetDefaultMalloc(VOID) {
    static CDefaultMalloc instance;
    return &instance;
}
