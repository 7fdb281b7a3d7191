// Dynamic array: the growth schedule at each boundary, SetSize rules,
// random operations against a std::vector model (on the heap and in a
// static pool) and elements that alias the array's own buffer.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <vector>

#include "scrivo/platform.h"

namespace {

using Elem = std::array<int32_t, 3>;

struct Array {
    explicit Array(int32_t es = 4, MHandle h = nullptr) { ADK_DArrayCreate(es, h, &a); }
    ~Array() { ADK_DArrayDestroy(a); }
    void FillTo(int32_t count) {
        for (int32_t i = ADK_DArrayGetCount(a); i < count; ++i) ADK_DArrayAdd(a, &i, nullptr);
    }
    int32_t operator[](int32_t i) const { return static_cast<int32_t*>(ADK_DArrayGetBuffer(a))[i]; }
    ADK_HDArray a = nullptr;
};

TEST(DArray, GrowthScheduleSetSizeAndAliasing) {
    // A full array at capacity c grows by the step for c (0 is the first add).
    const std::pair<int32_t, int32_t> steps[] = {
        {0, 32},        {32, 64},       {64, 96},         {72, 392},       {96, 416},
        {1024, 1344},   {1032, 2056},   {2048, 3072},     {5120, 6144},    {5128, 5640},
        {20480, 20992}, {20488, 20616}, {204800, 204928}, {204808, 204840}};
    for (const auto& [cap, next] : steps) {
        Array full;
        ASSERT_EQ(ADK_DArraySetSize(full.a, cap), MOK);
        full.FillTo(cap + 1);
        EXPECT_EQ(ADK_DArrayGetCapacity(full.a), next) << "from " << cap;
    }
    // Explicit growth: n > 0 adds n, n < 0 takes a step or, if that is not
    // enough, what is asked; capacities round up to multiples of 8.
    Array g;
    for (const auto& [n, cap] :
         {std::pair{8, 8}, {1, 8}, {2, 16}, {-8, 16}, {-9, 48}, {-100, 112}}) {
        EXPECT_EQ(ADK_DArrayGrow(g.a, n), MOK);
        EXPECT_EQ(ADK_DArrayGetCapacity(g.a), cap) << "Grow(" << n << ")";
        g.FillTo(8);
    }

    ADK_HDArray out;
    EXPECT_EQ(ADK_DArrayCreate(6, nullptr, &out), MERR_INVALID_PARAM);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(ADK_DArraySetSize(g.a, -1), MERR_INVALID_PARAM);
    EXPECT_EQ(ADK_DArraySetSize(g.a, INT32_MAX), MERR_NO_MEMORY);
    g.FillTo(10);
    EXPECT_EQ(ADK_DArraySetSize(g.a, 9), MERR_INVALID_PARAM);  // below the count
    EXPECT_EQ(ADK_DArraySetSize(g.a, 0), MERR_INVALID_PARAM);
    EXPECT_EQ(ADK_DArrayFreeExtra(g.a), MOK);
    EXPECT_EQ(ADK_DArrayGetCapacity(g.a), 16);
    EXPECT_EQ(g[9], 9);
    EXPECT_EQ(ADK_DArrayRemoveAll(g.a), MOK);
    EXPECT_EQ(ADK_DArraySetSize(g.a, 0), MOK);  // empty: the buffer goes
    EXPECT_EQ(ADK_DArrayGetBuffer(g.a), nullptr);
    int32_t idx = 5, v = 0;
    for (MRESULT r : {ADK_DArrayAdd(nullptr, &v, &idx), ADK_DArrayRemoveAll(nullptr),
                      ADK_DArraySetSize(nullptr, 0), ADK_DArrayDestroy(nullptr)})
        EXPECT_EQ(r, MERR_INVALID_PARAM);
    EXPECT_EQ(idx, -1);

    // An element may alias the array: a full one moves its buffer on the
    // next add, and inserting element 5 before index 2 shifts it to 6
    // before it is copied.
    Array arr;
    arr.FillTo(32);
    ASSERT_EQ(ADK_DArrayAdd(arr.a, ADK_DArrayGetBuffer(arr.a), &idx), MOK);
    EXPECT_EQ(idx, 32);
    EXPECT_EQ(arr[32], 0);
    ASSERT_EQ(ADK_DArrayInsertAt(arr.a, 2, static_cast<int32_t*>(ADK_DArrayGetBuffer(arr.a)) + 5),
              MOK);
    EXPECT_EQ((std::array{arr[2], arr[3], arr[6]}), (std::array{5, 2, 5}));
}

void RunAgainstModel(MHandle handle, uint32_t seed) {
    Array arr(sizeof(Elem), handle);
    std::vector<Elem> m;
    std::mt19937 rng(seed);
    auto rnd = [&](int32_t n) { return static_cast<int32_t>(rng() % static_cast<uint32_t>(n)); };
    for (int step = 0; step < 6000; ++step) {
        const int32_t n = static_cast<int32_t>(m.size());
        const int32_t i = rnd(n + 2) - 1, j = rnd(n + 1);  // both sometimes out of range
        const bool inI = i >= 0 && i < n, both = inI && j < n;
        const Elem e{step, rnd(5), -step};
        MRESULT want = MERR_INVALID_PARAM, got;
        switch (rnd(8)) {
            case 0:
                got = ADK_DArrayInsertAt(arr.a, i, &e);
                if (i >= 0 && i <= n) want = MOK, m.insert(m.begin() + i, e);
                break;
            case 1:
                got = ADK_DArrayRemoveAt(arr.a, i);
                if (inI) want = MOK, m.erase(m.begin() + i);
                break;
            case 2:
                got = ADK_DArraySwapElement(arr.a, i, j);
                if (both) want = MOK, std::swap(m[i], m[j]);
                break;
            case 3:
                got = ADK_DArrayMoveElement(arr.a, i, j);
                if (both && i < j) std::rotate(m.begin() + i, m.begin() + i + 1, m.begin() + j + 1);
                if (both && i > j) std::rotate(m.begin() + j, m.begin() + i, m.begin() + i + 1);
                if (both) want = MOK;
                break;
            case 4: {
                int32_t at = -2;
                const Elem probe = n > 0 ? m[rnd(n)] : e;
                const auto first =
                    static_cast<int32_t>(std::find(m.begin(), m.end(), probe) - m.begin());
                got = ADK_DArrayFind(arr.a, &probe, &at);
                want = first < n ? MOK : MERR_UNKNOWN;
                EXPECT_EQ(at, first < n ? first : -1);
                break;
            }
            case 5: {
                Elem back{};
                got = ADK_DArraySetAt(arr.a, i, &e);
                EXPECT_EQ(ADK_DArrayGetAt(arr.a, i, &back), got);
                if (inI) want = MOK, m[i] = e;
                EXPECT_TRUE(!inI || back == e);
                break;
            }
            default:
                got = ADK_DArrayAdd(arr.a, &e, nullptr);
                want = MOK;
                m.push_back(e);
        }
        ASSERT_EQ(got, want) << "step " << step;
        ASSERT_EQ(ADK_DArrayGetCount(arr.a), static_cast<int32_t>(m.size()));
        ASSERT_EQ(ADK_DArrayGetCapacity(arr.a) % 8, 0);
        ASSERT_TRUE(m.empty() ||
                    std::equal(m.begin(), m.end(), static_cast<Elem*>(ADK_DArrayGetBuffer(arr.a))));
    }
}

TEST(DArray, MatchesVectorModelOnHeapAndInPool) {
    RunAgainstModel(nullptr, 1);
    std::vector<unsigned char> space(1 << 20);
    MHandle pool = MMemMgrCreate(space.data(), space.size());
    RunAgainstModel(pool, 2);
    // An array in a pool keeps its buffer inside the pool as it grows.
    Array arr(4, pool);
    arr.FillTo(5000);
    auto* buf = static_cast<unsigned char*>(ADK_DArrayGetBuffer(arr.a));
    EXPECT_TRUE(buf >= space.data() && buf + 5000 * 4 <= space.data() + space.size());
    EXPECT_EQ(arr[4999], 4999);
}

}  // namespace
