#include <Platform/Memory.h>
#include <malloc.h>

void ReturnFreeMemory() noexcept {
    _heapmin();
}

// Large pages need a privilege here that people do not have.
void PrepareHeap() noexcept {}
