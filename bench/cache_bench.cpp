// MemoryCache against the textbook list + hash-map LRU of the same capacity:
// - a 90/10 query/save mix over 125k keys on a cache of 100k entries (hits, misses,
//   promotions, replacements and evictions), time per operation;
// - heap bytes per entry, keys and nodes included (the results exist beforehand);
// - the same mix over a fixed 1,000-key working set on caches holding 1k, 100k and 1M
//   entries: the cost of an operation must not depend on how much the cache holds.
//   (For comparison, the mix over all the entries of each size is measured too; there
//   the working set outgrows the processor caches.)
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <atomic>
#include <new>

#include "bench/bench_assets.h"
#include "bench/textbook_lru.h"
#include "cache/memory_cache.h"

// Heap accounting for the bytes-per-entry figures: every allocation of this program
// passes here; usable sizes count what the allocator really hands out.
// (operator new takes its memory from malloc, so free is the matching release.)
namespace {
std::atomic<int64_t> liveBytes{0};
}
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void* operator new(size_t size) {
    void* p = std::malloc(size == 0 ? 1 : size);
    if (p == nullptr) throw std::bad_alloc();
    liveBytes.fetch_add(static_cast<int64_t>(malloc_usable_size(p)), std::memory_order_relaxed);
    return p;
}
void operator delete(void* p) noexcept {
    if (p == nullptr) return;
    liveBytes.fetch_sub(static_cast<int64_t>(malloc_usable_size(p)), std::memory_order_relaxed);
    std::free(p);
}
void operator delete(void* p, size_t) noexcept { operator delete(p); }

namespace VQFeature {
namespace {

using bench::CacheOp;

template <typename Cache>
void runOps(benchmark::State& state, Cache& cache, const std::vector<std::shared_ptr<Result>>& results,
            const std::vector<CacheOp>& ops) {
    size_t i = 0;
    for (auto _ : state) {
        const CacheOp& op = ops[i++ % ops.size()];
        const auto& result = results[op.key];
        if (op.save) {
            cache.save(result);
        } else {
            benchmark::DoNotOptimize(cache.query(result->assetId, result->algorithmKey));
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

// entries: what the cache holds (and its capacity); keys: how many distinct keys the
// operations use (the first `keys` of the results).
template <typename Cache>
void mixedOps(benchmark::State& state, size_t entries, size_t keys) {
    const auto results = bench::makeResults(std::max(entries, keys));
    Cache cache(static_cast<int>(entries));
    for (size_t i = 0; i < entries; ++i) cache.save(results[i]);
    runOps(state, cache, results, bench::mixedOps(1 << 16, keys));
}

template <typename Cache>
void bytesPerEntry(benchmark::State& state, size_t entries) {
    const auto results = bench::makeResults(entries);
    double perEntry = 0;
    for (auto _ : state) {
        const int64_t before = liveBytes.load();
        {
            Cache cache(static_cast<int>(entries));
            for (const auto& result : results) cache.save(result);
            perEntry = static_cast<double>(liveBytes.load() - before) / static_cast<double>(entries);
        }
    }
    state.counters["bytes_per_entry"] = perEntry;
}

const bool kRegistered = [] {
    const size_t k100 = bench::scaled(100000);
    benchmark::RegisterBenchmark("cache/mixed_100k/vqfe", mixedOps<MemoryCache>, k100, k100 * 5 / 4);
    benchmark::RegisterBenchmark("cache/mixed_100k/textbook", mixedOps<bench::TextbookLru>, k100, k100 * 5 / 4);
    benchmark::RegisterBenchmark("cache/bytes_per_entry/vqfe", bytesPerEntry<MemoryCache>, k100)->Iterations(1);
    benchmark::RegisterBenchmark("cache/bytes_per_entry/textbook", bytesPerEntry<bench::TextbookLru>, k100)
        ->Iterations(1);
    for (const auto& [name, entries] : {std::pair<const char*, size_t>{"1k", 1000}, {"100k", 100000}, {"1M", 1000000}}) {
        const size_t n = bench::scaled(entries);
        benchmark::RegisterBenchmark((std::string("cache/hot_set/") + name).c_str(), mixedOps<MemoryCache>, n,
                                     std::min<size_t>(n, 1000));
        benchmark::RegisterBenchmark((std::string("cache/uniform/") + name).c_str(), mixedOps<MemoryCache>, n, n);
    }
    return true;
}();

}  // namespace
}  // namespace VQFeature

BENCHMARK_MAIN();
