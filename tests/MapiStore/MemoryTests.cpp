#include <MapiStore/Values/MapiMemory.h>
#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

namespace {

bool IsAligned(const void* block) {
    return reinterpret_cast<std::uintptr_t>(block) % 16 == 0;
}

TEST(Memory, ChainKeepsItsBytesApartAndGoesWithTheRoot) {
    void* root = nullptr;
    ASSERT_EQ(S_OK, MAPIAllocateBuffer(10, &root));
    std::vector<std::pair<unsigned char*, ULONG>> blocks;
    for (ULONG i = 0; i < 2000; ++i) {
        void* block = nullptr;
        const ULONG cb = (i * 37) % 5000;
        ASSERT_EQ(S_OK, MAPIAllocateMore(cb, root, &block));
        EXPECT_TRUE(IsAligned(block) || cb == 0);
        std::memset(block, static_cast<int>(i), cb);
        blocks.emplace_back(static_cast<unsigned char*>(block), cb);
    }
    for (ULONG i = 0; i < blocks.size(); ++i)
        for (ULONG k = 0; k < blocks[i].second; k += 97)
            ASSERT_EQ(static_cast<unsigned char>(i), blocks[i].first[k]);
    EXPECT_EQ(0u, MAPIFreeBuffer(root));
}

TEST(Memory, OddRequestsAreAnswered) {
    void* block = &block;
    EXPECT_EQ(S_OK, MAPIAllocateBuffer(0, &block));
    EXPECT_NE(nullptr, block);
    EXPECT_EQ(0u, MAPIFreeBuffer(block));
    EXPECT_EQ(0u, MAPIFreeBuffer(nullptr));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, MAPIAllocateBuffer(1, nullptr));
    EXPECT_EQ(MAPI_E_INVALID_PARAMETER, MAPIAllocateMore(1, nullptr, &block));
    EXPECT_EQ(MAPI_E_NOT_ENOUGH_MEMORY, MAPIAllocateBuffer(0xFFFFFFFF, &block));
    EXPECT_EQ(nullptr, block);
}

TEST(Memory, RowsOutOfAnArenaAreFreedOneByOneOnAnyThread) {
    std::vector<void*> rows;
    {
        CRootArena arena;
        for (std::size_t i = 0; i < 20000; ++i) {
            void* row = nullptr;
            ASSERT_EQ(S_OK, arena.Allocate(i % 900, &row));
            std::memset(row, static_cast<int>(i), i % 900);
            rows.push_back(row);
        }
        void* large = nullptr;
        ASSERT_EQ(S_OK, arena.Allocate(10 * 1024 * 1024, &large));
        rows.push_back(large);
    }
    void* more = nullptr;
    ASSERT_EQ(S_OK, MAPIAllocateMore(100, rows[5], &more));
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < 4; ++t)
        threads.emplace_back([&rows, t] {
            for (std::size_t i = t; i < rows.size(); i += 4)
                MAPIFreeBuffer(rows[i]);
        });
    for (std::thread& thread : threads)
        thread.join();
}

TEST(Memory, RootsOfDifferentThreadsDoNotMeet) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([] {
            for (int i = 0; i < 2000; ++i) {
                void *root = nullptr, *more = nullptr;
                MAPIAllocateBuffer(64, &root);
                for (int k = 0; k < 5; ++k)
                    MAPIAllocateMore(100, root, &more);
                std::memset(more, 1, 100);
                MAPIFreeBuffer(root);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
}

TEST(Memory, DefaultAllocatorKnowsItsSizes) {
    LPMALLOC memory = MAPIGetDefaultMalloc();
    void* block = memory->Alloc(100);
    EXPECT_EQ(100u, memory->GetSize(block));
    block = memory->Realloc(block, 5000);
    EXPECT_EQ(5000u, memory->GetSize(block));
    memory->Free(block);
    memory->Free(nullptr);
}

}  // namespace
