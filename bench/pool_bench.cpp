// Pool allocation against the heap: a burst of small blocks allocated and
// freed in reverse (the tail path), and a churn that frees every other
// block and refills the holes (the free-list path).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

#include "scrivo/platform.h"

namespace {

constexpr int kBurst = 256;

void PoolStack(benchmark::State& state) {
    const size_t size = static_cast<size_t>(state.range(0));
    std::vector<unsigned char> buffer(16 + kBurst * (size + 48));
    MHandle pool = MMemMgrCreate(buffer.data(), buffer.size());
    std::vector<void*> p(kBurst);
    for (auto _ : state) {
        for (auto& q : p) q = MMemAllocStatic(pool, size);
        benchmark::DoNotOptimize(p.data());
        for (int i = kBurst - 1; i >= 0; --i) MMemFreeStatic(pool, p[i]);
    }
    state.SetItemsProcessed(state.iterations() * kBurst);
}

void HeapStack(benchmark::State& state) {
    const size_t size = static_cast<size_t>(state.range(0));
    std::vector<void*> p(kBurst);
    for (auto _ : state) {
        for (auto& q : p) q = std::malloc(size);
        benchmark::DoNotOptimize(p.data());
        for (int i = kBurst - 1; i >= 0; --i) std::free(p[i]);
    }
    state.SetItemsProcessed(state.iterations() * kBurst);
}

template <typename Alloc, typename Free>
void Churn(benchmark::State& state, Alloc alloc, Free free) {
    std::vector<void*> p(kBurst);
    for (auto& q : p) q = alloc(64);
    for (auto _ : state) {
        for (int i = 0; i < kBurst; i += 2) free(p[i]);
        for (int i = 0; i < kBurst; i += 2) p[i] = alloc(64);
        benchmark::DoNotOptimize(p.data());
    }
    for (void* q : p) free(q);
    state.SetItemsProcessed(state.iterations() * kBurst / 2);
}

void PoolChurn(benchmark::State& state) {
    std::vector<unsigned char> buffer(16 + kBurst * 128);
    MHandle pool = MMemMgrCreate(buffer.data(), buffer.size());
    Churn(
        state, [pool](size_t n) { return MMemAllocStatic(pool, n); },
        [pool](void* q) { MMemFreeStatic(pool, q); });
}

void HeapChurn(benchmark::State& state) {
    Churn(
        state, [](size_t n) { return std::malloc(n); }, [](void* q) { std::free(q); });
}

BENCHMARK(PoolStack)->Arg(16)->Arg(200);
BENCHMARK(HeapStack)->Arg(16)->Arg(200);
BENCHMARK(PoolChurn);
BENCHMARK(HeapChurn);

}  // namespace
