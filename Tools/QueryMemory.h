// The memory behind one compiled restriction: a chain of blocks that live and die together.
#pragma once
#include <Platform/MapiHeaders.h>

#include <cstddef>
#include <string>

// Owns one chain of MAPIAllocateBuffer and MAPIAllocateMore. Blocks are zeroed and stay valid until
// Free or the destruction. Every Allocate throws std::bad_alloc when there is no memory.
class CQueryMemory {
public:
    CQueryMemory() = default;
    ~CQueryMemory() { Free(); }
    CQueryMemory(const CQueryMemory&) = delete;
    CQueryMemory& operator=(const CQueryMemory&) = delete;

    void* Allocate(size_t cb);
    SRestriction* AllocateNodes(size_t count);
    char* AllocateString(const std::string& text);
    void Free();

private:
    void* m_root = nullptr;
};
