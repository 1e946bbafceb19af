// front_test.cpp - the allocation front, linked: the standard names reach the
// heaps, and the edge cases of realloc, calloc, alignment, failure, the heap
// mask and the exit-handler table.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <malloc.h>
#include <unistd.h>

#include "platform/ozmmem.h"
#include "shell/ozmfront.h"

namespace {

// The usable size must come from the size class the block's owner names, and
// the C library's name for it must give the same.
TEST(Front, ServesEverySizeFromItsClass) {
    const struct {
        size_t ask, usable;
    } rows[] = {{0, 16},     {1, 16},       {16, 16},      {17, 32},           {128, 128},
                {129, 160},  {257, 320},    {1000, 1024},  {1u << 20, 1u << 20}, {(1u << 20) + 1, 1310720}};
    for (const auto& r : rows) {
        void* p = malloc(r.ask);
        ASSERT_NE(p, nullptr);
        OzmMemBlockHeader* h = OzmMemHeaderOf(p);
        EXPECT_EQ(g_ozmMemUsableSizes[h->m_owner->m_sizeClass], r.usable) << r.ask;
        EXPECT_EQ(_msize(p), r.usable) << r.ask;
        EXPECT_EQ(_msize_base(p), r.usable);
        EXPECT_EQ(malloc_usable_size(p), r.usable);
        std::memset(p, 0x5A, r.usable);
        free(p);
    }
    std::string* s = new std::string(100, 'x');
    EXPECT_EQ(_msize(s), 32u);
    EXPECT_EQ(_msize(const_cast<char*>(s->data())), 112u);
    delete s;
}

TEST(Front, ReallocEdges) {
    char* p = static_cast<char*>(realloc(nullptr, 100));
    ASSERT_NE(p, nullptr);
    for (int i = 0; i < 100; ++i)
        p[i] = char(i);
    for (size_t size : {size_t(5000), size_t(3) << 20, size_t(40), size_t(100)}) {
        char* q = static_cast<char*>(realloc(p, size));
        ASSERT_NE(q, nullptr);
        EXPECT_NE(q, p);  // always moves
        for (size_t i = 0; i < std::min<size_t>(size, 40); ++i)
            ASSERT_EQ(q[i], char(i)) << size;
        p = q;
    }
    EXPECT_EQ(realloc(p, 0), nullptr);
}

TEST(Front, CallocZeroesReusedBlocksAndRefusesOverflow) {
    for (size_t size : {size_t(48), size_t(5000), size_t(2) << 20}) {
        void* dirty = malloc(size);
        std::memset(dirty, 0xFF, size);
        free(dirty);
        auto* p = static_cast<unsigned char*>(calloc(1, size));
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(p, dirty);  // the block just given back, so zeroing is tested
        for (size_t i = 0; i < size; ++i)
            ASSERT_EQ(p[i], 0) << i;
        free(p);
    }
    volatile size_t wraps = (SIZE_MAX >> 3) + 2;  // times 8 wraps round to 8
    errno = 0;
    EXPECT_EQ(calloc(wraps, 8), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(reallocarray(nullptr, wraps, 8), nullptr);
}

TEST(Front, AlignedForms) {
    for (size_t align : {size_t(16), size_t(64), size_t(4096), size_t(1) << 21}) {
        for (size_t size : {size_t(1), size_t(5000)}) {
            void* p = nullptr;
            ASSERT_EQ(posix_memalign(&p, align, size), 0);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % align, 0u) << align;
            EXPECT_GE(_msize(p), size);
            EXPECT_EQ(malloc_usable_size(p), _msize(p));
            // The usable part ends where the block it lies in ends.
            OzmMemBlockHeader* h = OzmMemHeaderOf(p);
            EXPECT_EQ(static_cast<char*>(p) + _msize(p),
                      static_cast<char*>(p) - h->m_offset + g_ozmMemUsableSizes[h->m_owner->m_sizeClass]);
            std::memset(p, 1, _msize(p));
            void* q = realloc(p, 2 * size);  // an aligned block moves like any other
            ASSERT_NE(q, nullptr);
            free(q);
        }
    }
    // Alignments that are no power of two, in variables: the compilers
    // reject them as constants.
    size_t odd[] = {24, 3, 48};
    void* p = nullptr;
    EXPECT_EQ(posix_memalign(&p, odd[0], 8), EINVAL);
    EXPECT_EQ(aligned_alloc(odd[1], 8), nullptr);
    void* m = memalign(odd[2], 10);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(m) % 64, 0u);
    free(m);
    struct alignas(256) Wide {
        char c[3];
    };
    Wide* w = new Wide[3];
    EXPECT_EQ(reinterpret_cast<uintptr_t>(w) % 256, 0u);
    delete[] w;
}

int g_handlerCalls = 0;
void OneTry() {
    ++g_handlerCalls;
    std::set_new_handler(nullptr);
}

TEST(Front, RequestsTheHeapsCannotServe) {
    // Volatile: the compiler warns of a constant request above the largest
    // object, which is what these are with 32-bit words.
    const volatile size_t huge = SIZE_MAX / 4 * 3, beyond = kOzmMemLargestRequest + 1;
    errno = 0;
    EXPECT_EQ(malloc(huge), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(malloc(beyond), nullptr);
    EXPECT_EQ(operator new(huge, std::nothrow), nullptr);
    EXPECT_EQ(operator new[](huge, std::align_val_t(64), std::nothrow), nullptr);
    EXPECT_THROW((void)operator new(huge, std::align_val_t(64)), std::bad_alloc);
    g_handlerCalls = 0;
    std::set_new_handler(OneTry);
    EXPECT_THROW((void)operator new[](huge), std::bad_alloc);
    EXPECT_EQ(g_handlerCalls, 1);
}

// Blocks a thread frees stay in its cache, without going to a bin; when the
// thread ends they go back to the bin of their heap, where another thread
// allocating from that heap finds every one of them (beside the blocks the
// first thread had taken from the bin but not handed out). A list given
// back whole goes to the heap of its first block, so the check runs in a
// fresh process, where every block came from one heap.
bool EndedThreadGivesItsCachedBlocksBack() {
    std::vector<void*> freed;
    int cached = 0;
    unsigned heap = 0;
    std::thread([&] {
        for (int i = 0; i < 40; ++i)
            freed.push_back(malloc(200));
        for (void* p : freed)
            free(p);
        cached = OzmMemCachedBlocks();
        heap = unsigned(OzmMemThreadNumber()) & OzmHeapMaskFor(OzmMemHeapCount());
    }).join();
    std::vector<void*> taken;
    int cachedAtStart = -1, cachedAtEnd = 0;
    std::thread([&] {
        cachedAtStart = OzmMemCachedBlocks();
        for (int i = 0; i < 120; ++i)
            taken.push_back(g_ozmMemAllocator->Heap(heap).Alloc(200));
        cachedAtEnd = OzmMemCachedBlocks();  // the rest of the last batch
        for (void* p : taken)
            free(p);
    }).join();
    bool all = true;
    for (void* p : freed)
        all = all && std::find(taken.begin(), taken.end(), p) != taken.end();
    return cached >= 40 && cachedAtStart == 0 && cachedAtEnd > 0 && all;
}

TEST(FrontDeathTest, EndedThreadGivesItsCachedBlocksBack) {
#if defined(OZM_TEST_EMULATED)
    // Under an emulator the program cannot start itself again (the kernel
    // does not know its format): the child is forked, from a process of its
    // own under CTest, where only the main thread has allocated.
    GTEST_FLAG_SET(death_test_style, "fast");
#else
    GTEST_FLAG_SET(death_test_style, "threadsafe");
#endif
    EXPECT_EXIT(std::exit(EndedThreadGivesItsCachedBlocksBack() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(Front, HeapMask) {
    const int counts[] = {0, 1, 2, 3, 4, 5, 8, 9, 64};
    const unsigned masks[] = {1, 1, 3, 7, 7, 15, 15, 31, 127};
    for (size_t i = 0; i < sizeof counts / sizeof counts[0]; ++i)
        EXPECT_EQ(OzmHeapMaskFor(counts[i]), masks[i]) << counts[i];
}

std::vector<int> g_ran;
template <int N>
void Record() {
    g_ran.push_back(N);
}

TEST(Front, ExitTableGrowsByFourAndRunsBackwards) {
    OzmExitFn* table = nullptr;
    OzmExitFn* end = nullptr;
    ASSERT_TRUE(OzmExitTableOpen(table, end));
    EXPECT_EQ(OzmExitTableRoom(table), 32u);
    OzmExitFn fns[] = {Record<0>, Record<1>, nullptr, Record<3>};
    std::vector<size_t> rooms;
    for (int i = 0; i < 37; ++i) {
        ASSERT_EQ(OzmExitTableAdd(table, end, fns[i % 4]), fns[i % 4]);
        rooms.push_back(OzmExitTableRoom(table));
    }
    EXPECT_EQ(rooms[31], 32u);
    EXPECT_EQ(rooms[32], 36u);
    EXPECT_EQ(rooms[35], 36u);
    EXPECT_EQ(rooms[36], 40u);
    g_ran.clear();
    OzmExitTableRun(table, end);
    std::vector<int> expected;
    for (int i = 36; i >= 0; --i)
        if (i % 4 != 2)
            expected.push_back(i % 4);
    EXPECT_EQ(g_ran, expected);
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(OzmExitTableAdd(table, end, Record<0>), nullptr);
}

void SayA() { (void)!write(2, "A", 1); }
void SayB() { (void)!write(2, "B", 1); }

// The library's own table runs when the process lets go of the library.
TEST(FrontDeathTest, HandlersRunAtUnloadLastFirst) {
    EXPECT_EXIT(
        {
            OzmAtExit(SayA);
            OzmOnExit(SayB);
            std::exit(3);
        },
        testing::ExitedWithCode(3), "^BA$");
}

}  // namespace
