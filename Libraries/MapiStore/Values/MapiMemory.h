// MAPI memory inside the store. A block from MAPIAllocateBuffer is a root; MAPIAllocateMore hangs blocks
// on it, and MAPIFreeBuffer on the root frees all of them. Different roots may be used by different
// threads at once; one root belongs to one thread at a time. All blocks are aligned for any value.
#pragma once
#include <Platform/MapiHeaders.h>

#include <cstddef>

// Hands out roots that a caller frees one by one with MAPIFreeBuffer, as FreeProws does with the rows
// of a set, but takes them from large slabs: ten thousand rows cost a few dozen calls of malloc. A slab
// goes back to the system with the last block in it, so one row kept alive keeps up to 256 KB alive;
// use it for blocks that live and die together. Not for several threads at once; the blocks may be
// freed on any thread.
class CRootArena {
public:
    CRootArena() = default;
    ~CRootArena();
    CRootArena(const CRootArena&) = delete;
    CRootArena& operator=(const CRootArena&) = delete;

    // S_OK, or MAPI_E_NOT_ENOUGH_MEMORY with `*block` null. The block is not zeroed.
    SCODE Allocate(std::size_t cb, void** block);

private:
    void* m_slab = nullptr;
    char* m_next = nullptr;
    std::size_t m_cbLeft = 0;
    std::size_t m_cbSlab = 4096;
};

// A root of the right size for a structure, or MAPI_E_NOT_ENOUGH_MEMORY. `cb` may pass 32 bits; such a
// request fails instead of being cut.
SCODE AllocateRoot(std::size_t cb, void** block);
// A block hung on `root`.
SCODE AllocateOn(void* root, std::size_t cb, void** block);
