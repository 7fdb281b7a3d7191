// Static pool: block rules, creation limits, bad frees, and a long random run
// checked step by step against a plain model of the tail and free list.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <random>
#include <vector>

#include "scrivo/platform.h"

namespace {

// Pool header {tail index, tail count, head index, head length}, or a run
// header {first block, length, next index, next length}.
using Words = std::array<uint32_t, 4>;
using Run = std::pair<uint32_t, uint32_t>;  // first block, length

Words Read(const void* p) {
    Words w;
    std::memcpy(w.data(), p, sizeof w);
    return w;
}

// Address handed out for a run starting at block `idx`.
char* At(MHandle pool, uint32_t idx) {
    return static_cast<char*>(pool) + 32 + 32 * size_t{idx};
}

struct Arena {
    explicit Arena(uint32_t blocks) : bytes(16 + 32 * size_t{blocks}) {
        pool = MMemMgrCreate(bytes.data(), bytes.size());
    }
    std::vector<unsigned char> bytes;  // vector data is suitably aligned
    MHandle pool;
};

// The pool's rules stated on a block map: the free list is exactly the
// maximal free ranges below the tail, highest first; the tail swallows any
// free blocks just below it; allocation takes the tail, else first fit.
struct Model {
    std::vector<bool> used;
    uint32_t tail = 0;
    std::map<uint32_t, uint32_t> live;

    explicit Model(uint32_t blocks) : used(blocks) {}
    uint32_t TailCount() const { return static_cast<uint32_t>(used.size()) - tail; }
    std::vector<Run> Free() const {
        std::vector<Run> runs;
        for (uint32_t i = tail; i-- > 0;) {
            if (used[i]) continue;
            if (runs.empty() || runs.back().first != i + 1) runs.push_back({i, 0});
            runs.back() = {i, runs.back().second + 1};
        }
        return runs;
    }
    Words Header() const {
        const auto f = Free();
        return {tail, TailCount(), f.empty() ? 0 : f[0].first, f.empty() ? 0 : f[0].second};
    }
    void Mark(uint32_t at, uint32_t len, bool v) {
        std::fill(used.begin() + at, used.begin() + at + len, v);
        while (tail > 0 && !used[tail - 1]) --tail;
    }
    int64_t Alloc(size_t n) {
        const auto b = static_cast<uint32_t>((n + 47) / 32);
        int64_t at = -1;
        if (TailCount() >= b) {
            at = tail;
            tail += b;
        }
        for (Run r : Free())
            if (at < 0 && r.second >= b) at = r.first;
        if (at >= 0) Mark(static_cast<uint32_t>(at), live[static_cast<uint32_t>(at)] = b, true);
        return at;
    }
    void Free(uint32_t at) {
        Mark(at, live[at], false);
        live.erase(at);
    }
    int64_t Realloc(uint32_t at, size_t n) {
        const uint32_t len = live[at], b = static_cast<uint32_t>((n + 47) / 32), end = at + len;
        if (b <= len) {
            Mark(at + b, len - b, false);
        } else if (end == tail && TailCount() >= b - len) {
            tail += b - len;
        } else if (at + b > tail ||
                   std::count(used.begin() + end, used.begin() + at + b, true) > 0) {
            const int64_t moved = Alloc(n);
            if (moved >= 0) Free(at);
            return moved;
        }
        Mark(at, live[at] = b, true);
        return at;
    }
};

// Walks the free list through the run headers in the buffer.
std::vector<Run> FreeList(MHandle pool) {
    std::vector<Run> runs;
    for (Words w = Read(pool); w[3] != 0 && runs.size() < 100000;) {
        const Run r{w[2], w[3]};
        w = Read(At(pool, r.first) - 16);
        EXPECT_EQ(Run(w[0], w[1]), r);
        runs.push_back(r);
    }
    return runs;
}

TEST(Pool, CreationBlockRulesTailFirstAndBadPointers) {
    alignas(16) unsigned char buf[16 + 32 * 4 + 8] = {};
    EXPECT_EQ(MMemMgrCreate(nullptr, 4096), nullptr);
    EXPECT_EQ(MMemMgrCreate(buf, 19), nullptr);  // usable length 16: header only
    EXPECT_EQ(MMemAllocStatic(MMemMgrCreate(buf, 47), 1), nullptr);
    // A misaligned start loses its slack: buf+1 starts at buf+4.
    ASSERT_EQ(MMemMgrCreate(buf + 1, 16 + 128 + 3), buf + 4);
    EXPECT_EQ(Read(buf + 4), (Words{0, 4, 0, 0}));
    EXPECT_EQ(Read(MMemMgrCreate(buf + 1, 16 + 128 + 2)), (Words{0, 3, 0, 0}));

    Arena a(16);
    for (size_t bad : {size_t{0}, SIZE_MAX, SIZE_MAX - 40, size_t{16 * 32 - 15}})
        EXPECT_EQ(MMemAllocStatic(a.pool, bad), nullptr) << bad;
    void* p16 = MMemAllocStatic(a.pool, 16);
    EXPECT_EQ(p16, At(a.pool, 0));
    void* p17 = MMemAllocStatic(a.pool, 17);
    EXPECT_EQ(p17, At(a.pool, 1));
    EXPECT_EQ(Read(a.pool), (Words{3, 13, 0, 0}));  // 1 block + 2 blocks
    // Freeing the latest run hands it back to the tail: same address again.
    MMemFreeStatic(a.pool, p17);
    EXPECT_EQ(Read(a.pool), (Words{1, 15, 0, 0}));
    EXPECT_EQ(MMemAllocStatic(a.pool, 40), p17);
    // The tail is used before a freed run that would fit; then the list.
    MMemFreeStatic(a.pool, p16);
    EXPECT_EQ(Read(a.pool), (Words{3, 13, 0, 1}));
    EXPECT_EQ(MMemAllocStatic(a.pool, 1), At(a.pool, 3));
    EXPECT_EQ(MMemAllocStatic(a.pool, 12 * 32 - 16), At(a.pool, 4));
    EXPECT_EQ(MMemAllocStatic(a.pool, 16), At(a.pool, 0));
    EXPECT_EQ(MMemAllocStatic(a.pool, 16), nullptr);

    // Pointers that are not live runs are ignored and change nothing.
    Arena c(16);
    char* x = At(c.pool, 0);
    MMemAllocStatic(c.pool, 40);            // x: blocks 0-1
    void* y = MMemAllocStatic(c.pool, 16);  // block 2
    MMemAllocStatic(c.pool, 16);            // block 3
    MMemFreeStatic(c.pool, y);
    const std::vector<unsigned char> before = c.bytes;
    unsigned char outside[64] = {};
    for (void* bad : {(void*)outside, (void*)c.bytes.data(), (void*)(x + 4), (void*)(x + 32),
                      (void*)At(c.pool, 5), (void*)At(c.pool, 16), y}) {
        MMemFreeStatic(c.pool, bad);
        EXPECT_EQ(MMemReallocStatic(c.pool, bad, 64), nullptr);
        ASSERT_TRUE(c.bytes == before) << "pool changed by " << bad;
    }
    MMemFreeStatic(nullptr, x);
    EXPECT_EQ(MMemReallocStatic(nullptr, x, 16), nullptr);
    EXPECT_EQ(MMemAllocStatic(nullptr, 16), nullptr);
}

// Thousands of random steps; after each, every address, the header and the
// free list must match the model, and at intervals every live block must
// still hold its own pattern. Second frees, also of runs a merge absorbed,
// must change nothing.
TEST(Pool, RandomSequenceMatchesModel) {
    Arena a(600);
    Model model(600);
    struct Live {
        unsigned char* p;
        size_t size;
        unsigned char fill;
    };
    std::vector<Live> live;
    std::mt19937 rng(20240611);
    auto size = [&] {
        const uint32_t r = rng() % 100;
        return r < 70 ? rng() % 64 + 1 : r < 95 ? rng() % 600 + 1 : rng() % 4000 + 1;
    };
    auto start = [&](const void* p) {
        return static_cast<uint32_t>((static_cast<const char*>(p) - At(a.pool, 0)) / 32);
    };
    auto holds = [](const Live& l, size_t n) {
        return std::all_of(l.p, l.p + n, [&](unsigned char c) { return c == l.fill; });
    };
    auto addr = [&](int64_t idx) {
        return idx < 0 ? nullptr : At(a.pool, static_cast<uint32_t>(idx));
    };
    unsigned char next = 1;
    int moves = 0, refusals = 0;
    for (int step = 0; step < 20000; ++step) {
        const uint32_t op = rng() % 10;
        if (live.empty() || op < 4) {
            const size_t n = size();
            auto* p = static_cast<unsigned char*>(op == 3 ? MMemReallocStatic(a.pool, nullptr, n)
                                                          : MMemAllocStatic(a.pool, n));
            ASSERT_EQ((char*)p, addr(model.Alloc(n))) << step;
            refusals += p == nullptr;
            if (p != nullptr) live.push_back({(unsigned char*)std::memset(p, next, n), n, next++});
        } else if (op < 7) {
            const size_t k = rng() % live.size();
            model.Free(start(live[k].p));
            op == 4 ? (void)MMemReallocStatic(a.pool, live[k].p, 0)  // size 0 frees
                    : MMemFreeStatic(a.pool, live[k].p);
            if (op == 6) MMemFreeStatic(a.pool, live[k].p);  // a second free is ignored
            live.erase(live.begin() + k);
        } else {
            Live& l = live[rng() % live.size()];
            const size_t n = size();
            auto* p = static_cast<unsigned char*>(MMemReallocStatic(a.pool, l.p, n));
            ASSERT_EQ((char*)p, addr(model.Realloc(start(l.p), n))) << step;
            if (p != nullptr) {
                ASSERT_TRUE(holds({p, 0, l.fill}, std::min(n, l.size))) << step;
                moves += p != l.p;
                l = {(unsigned char*)std::memset(p, l.fill, n), n, l.fill};
            }
        }
        ASSERT_EQ(Read(a.pool), model.Header()) << step;
        ASSERT_EQ(FreeList(a.pool), model.Free()) << step;
        for (size_t k = 0; step % 250 == 0 && k < live.size(); ++k)
            ASSERT_TRUE(holds(live[k], live[k].size)) << step;
    }
    EXPECT_GT(moves, 50);  // the run went through every path
    EXPECT_GT(refusals, 50);
    EXPECT_GT(model.Free().size(), 3u);
}

}  // namespace
