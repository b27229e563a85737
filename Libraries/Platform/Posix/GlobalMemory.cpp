// Global memory and the task allocator. A moveable block is known by its handle, which has a low bit
// set that no address of a block has; a fixed block's handle is its address.
#include <Platform/Machine.h>

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

struct Moveable {
    void* bytes;
    SIZE_T cb;
    UINT locks;
};

// Stands before the bytes of a fixed block and keeps their alignment.
struct alignas(std::max_align_t) FixedHeader {
    SIZE_T cb;
};

constexpr std::uintptr_t MoveableBit = 2;

Moveable* MoveableOf(HGLOBAL mem) {
    const auto value = reinterpret_cast<std::uintptr_t>(mem);
    return value & MoveableBit ? reinterpret_cast<Moveable*>(value & ~MoveableBit) : nullptr;
}

HGLOBAL HandleOf(Moveable* block) {
    return reinterpret_cast<HGLOBAL>(reinterpret_cast<std::uintptr_t>(block) | MoveableBit);
}

FixedHeader* HeaderOf(HGLOBAL mem) {
    return static_cast<FixedHeader*>(mem) - 1;
}

bool FitsWithHeader(SIZE_T cb) {
    return cb <= SIZE_MAX / 2;
}

void ZeroGrowth(void* bytes, SIZE_T before, SIZE_T after, UINT flags) {
    if ((flags & GMEM_ZEROINIT) && after > before) {
        std::memset(static_cast<char*>(bytes) + before, 0, after - before);
    }
}

HGLOBAL AllocFixed(SIZE_T cb, UINT flags) {
    auto* header = static_cast<FixedHeader*>(std::malloc(sizeof(FixedHeader) + cb));
    if (!header) return nullptr;
    header->cb = cb;
    ZeroGrowth(header + 1, 0, cb, flags);
    return header + 1;
}

HGLOBAL AllocMoveable(SIZE_T cb, UINT flags) {
    auto* block = new (std::nothrow) Moveable{};
    if (!block) return nullptr;
    block->bytes = std::malloc(cb ? cb : 1);
    if (!block->bytes) {
        delete block;
        return nullptr;
    }
    block->cb = cb;
    ZeroGrowth(block->bytes, 0, cb, flags);
    return HandleOf(block);
}

}  // namespace

HGLOBAL GlobalAlloc(UINT flags, SIZE_T cb) {
    if (!FitsWithHeader(cb)) return nullptr;
    return flags & GMEM_MOVEABLE ? AllocMoveable(cb, flags) : AllocFixed(cb, flags);
}

HGLOBAL GlobalReAlloc(HGLOBAL mem, SIZE_T cb, UINT flags) {
    if (!mem || !FitsWithHeader(cb)) return nullptr;
    if (Moveable* block = MoveableOf(mem)) {
        void* bytes = std::realloc(block->bytes, cb ? cb : 1);
        if (!bytes) return nullptr;
        ZeroGrowth(bytes, block->cb, cb, flags);
        block->bytes = bytes;
        block->cb = cb;
        return mem;
    }
    const SIZE_T before = HeaderOf(mem)->cb;
    auto* header = static_cast<FixedHeader*>(std::realloc(HeaderOf(mem), sizeof(FixedHeader) + cb));
    if (!header) return nullptr;
    header->cb = cb;
    ZeroGrowth(header + 1, before, cb, flags);
    return header + 1;
}

void* GlobalLock(HGLOBAL mem) {
    Moveable* block = mem ? MoveableOf(mem) : nullptr;
    if (!block) return mem;
    ++block->locks;
    return block->bytes;
}

BOOL GlobalUnlock(HGLOBAL mem) {
    Moveable* block = mem ? MoveableOf(mem) : nullptr;
    if (!block || block->locks == 0) return FALSE;
    return --block->locks != 0;
}

SIZE_T GlobalSize(HGLOBAL mem) {
    if (!mem) return 0;
    const Moveable* block = MoveableOf(mem);
    return block ? block->cb : HeaderOf(mem)->cb;
}

HGLOBAL GlobalFree(HGLOBAL mem) {
    if (!mem) return nullptr;
    if (Moveable* block = MoveableOf(mem)) {
        std::free(block->bytes);
        delete block;
    } else {
        std::free(HeaderOf(mem));
    }
    return nullptr;
}

void* CoTaskMemAlloc(SIZE_T cb) {
    return std::malloc(cb ? cb : 1);
}
void CoTaskMemFree(void* pv) {
    std::free(pv);
}

HRESULT CoCreateGuid(GUID* pguid) {
    if (!pguid) return E_INVALIDARG;
    *pguid = NewGuid();
    return S_OK;
}
