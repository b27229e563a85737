#include <Platform/Memory.h>

#include <cstdint>
#include <cstdlib>

#ifdef __GLIBC__
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>
#endif

// The heap grows by a wide step at once, of which untouched pages cost nothing, and the system is asked to
// give that step in large pages: a run over ten thousand items spends more time on meeting five thousand
// small ones for the first time than on comparing what is in them.
void PrepareHeap() noexcept {
#if defined __GLIBC__ && defined MADV_HUGEPAGE
    constexpr std::size_t kLargePage = std::size_t{2} << 20, kStep = std::size_t{64} << 20;
    constexpr int kFromSystemDirectly = 8 << 20;
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_MMAP_THRESHOLD, kFromSystemDirectly);
    mallopt(M_TRIM_THRESHOLD, static_cast<int>(2 * kStep));
    mallopt(M_TOP_PAD, static_cast<int>(kStep));
    const auto begin = reinterpret_cast<std::uintptr_t>(sbrk(0));
    void* volatile block = std::malloc(kLargePage / 2);  // more than the heap has yet: takes the step
    std::free(block);
    mallopt(M_TOP_PAD, kFromSystemDirectly);
    const auto end = reinterpret_cast<std::uintptr_t>(sbrk(0));
    const std::uintptr_t first = (begin + kLargePage - 1) / kLargePage * kLargePage;
    if (end > first) madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
#endif
}

void ReturnFreeMemory() noexcept {
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}
