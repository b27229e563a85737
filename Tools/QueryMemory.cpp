#include <Tools/QueryMemory.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

void* CQueryMemory::Allocate(size_t cb) {
    if (cb > std::numeric_limits<ULONG>::max()) throw std::bad_alloc();
    const ULONG size = std::max<ULONG>(static_cast<ULONG>(cb), 1);
    void* block = nullptr;
    const HRESULT hr = m_root ? MAPIAllocateMore(size, m_root, &block) : MAPIAllocateBuffer(size, &block);
    if (hr < 0 || !block) throw std::bad_alloc();
    if (!m_root) m_root = block;
    std::memset(block, 0, size);
    return block;
}

SRestriction* CQueryMemory::AllocateNodes(size_t count) {
    if (count > std::numeric_limits<ULONG>::max() / sizeof(SRestriction)) throw std::bad_alloc();
    return static_cast<SRestriction*>(Allocate(count * sizeof(SRestriction)));
}

char* CQueryMemory::AllocateString(const std::string& text) {
    char* copy = static_cast<char*>(Allocate(text.size() + 1));
    std::memcpy(copy, text.data(), text.size());
    return copy;
}

void CQueryMemory::Free() {
    if (m_root) MAPIFreeBuffer(m_root);
    m_root = nullptr;
}
