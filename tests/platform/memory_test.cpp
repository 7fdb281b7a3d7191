// Heap dispatch, byte-block helpers on bad input, and code memory.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "scrivo/platform.h"

namespace {

TEST(Memory, HandleDispatchAndByteHelpers) {
    EXPECT_EQ(MMemAlloc(nullptr, 0), nullptr);  // heap and pool agree on zero bytes
    std::vector<unsigned char> buffer(16 + 32 * 8);
    MHandle pool = MMemMgrCreate(buffer.data(), buffer.size());
    void* p = MMemAlloc(pool, 20);
    EXPECT_EQ(p, buffer.data() + 32);  // a pool run, not heap memory
    MMemFree(pool, p);
    EXPECT_EQ(MMemAlloc(pool, 20), p);  // back in the tail, handed out again
    // MMemRealloc is the heap's, whatever the handle; size 0 frees.
    auto* h = static_cast<char*>(MMemAlloc(nullptr, 8));
    std::memcpy(h, "abcdefg", 8);
    h = static_cast<char*>(MMemRealloc(pool, h, 1 << 16));
    ASSERT_NE(h, nullptr);
    EXPECT_STREQ(h, "abcdefg");
    EXPECT_EQ(MMemRealloc(nullptr, h, 0), nullptr);
    MHugeMemFree(pool, MHugeMemReAlloc(pool, nullptr, 1 << 20));

    char a[8] = "abcdefg", b[8] = "abcdxfg";
    EXPECT_LT(MMemCmp(a, b, 5), 0);
    EXPECT_EQ(MMemCmp(nullptr, b, 0), 0);
    EXPECT_LT(MMemCmp(nullptr, b, 3), 0);
    EXPECT_GT(MMemCmp(a, nullptr, 3), 0);
    EXPECT_EQ(MMemMove(a + 1, a, 6), a + 1);
    EXPECT_STREQ(a, "aabcdef");
    EXPECT_EQ(MMemCpy(a, nullptr, 4), a);
    for (void* p : {MMemCpy(nullptr, a, 4), MMemMove(nullptr, a, 4), MMemSet(nullptr, 0, 4)})
        EXPECT_EQ(p, nullptr);
}

TEST(Memory, CodePagesRunLockAndFree) {
    EXPECT_EQ(MCodeAlloc(0), nullptr);
    EXPECT_EQ(MCodeAlloc(SIZE_MAX - 10), nullptr);
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    auto* code = static_cast<unsigned char*>(MCodeAlloc(page + 1));  // two pages
    ASSERT_NE(code, nullptr);
    std::memset(code, 0xC3, page + 1);  // writable through the last byte
    rlimit limit{};
    if (getrlimit(RLIMIT_MEMLOCK, &limit) == 0 && limit.rlim_cur >= 4 * page) {
        EXPECT_EQ(MCodeLock(code), code);
        MCodeUnlock(code);
    }
    // Pointers that are not code blocks are ignored, not unmapped.
    unsigned char local[64];
    EXPECT_EQ(MCodeLock(local), nullptr);
    MCodeFree(code + 1);
    MCodeFree(local);
    MCodeFree(nullptr);
    code[0] = 0x90;  // still mapped
    MCodeFree(code);
}

}  // namespace
