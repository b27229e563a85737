#include <Platform/Memory.h>
#include <malloc.h>

void ReturnFreeMemory() noexcept {
    _heapmin();
}
