#include <Platform/Memory.h>

#include <cstdlib>

#ifdef __GLIBC__
#include <malloc.h>
#endif

void ReturnFreeMemory() noexcept {
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}
