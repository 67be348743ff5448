// The PostgreSQL store against the SQLite store (the baseline), same results, same keys:
// - writes: save of one 2 KiB result per call (one transaction each), and of 16 at once
//   (one transaction per call), results per second;
// - the cached walk: query of stored results by asset id and key, one by one.
// The server is the one named by VQFE_BENCH_PG_URI (or VQFE_TEST_PG_URI); without one the
// PostgreSQL figures are skipped. For figures that mean anything the server must commit
// durably (fsync on): bench/store_throughput.sh starts such a server for this binary.
// The SQLite store runs as the tool runs it (WAL, synchronous=NORMAL) on a local file.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>

#include "bench/bench_assets.h"
#include "cache/pg_cache.h"
#include "cache/sqlite_cache.h"
#include "testing/temp_dir.h"

namespace VQFeature {
namespace {

constexpr size_t kBlobBytes = 2048;

std::shared_ptr<Result> blobResult(size_t i) {
    void* blob = std::malloc(kBlobBytes);
    std::memset(blob, static_cast<int>(i & 0xff), kBlobBytes);
    return std::make_shared<Result>(bench::assetId(i), bench::benchKey(), Vantor::AlgorithmType::Face, blob,
                                    static_cast<int>(kBlobBytes));
}

// A fresh, empty store of each kind for each benchmark.
std::unique_ptr<CacheAdapter> openStore(benchmark::State& state, bool postgres, const TempDir& dir) {
    if (!postgres) return std::make_unique<SqliteCache>(dir.path() + "/bench.db");
    const char* uri = std::getenv("VQFE_BENCH_PG_URI");
    if (uri == nullptr) uri = std::getenv("VQFE_TEST_PG_URI");
    if (uri == nullptr || *uri == '\0') {
        state.SkipWithError("no PostgreSQL server: set VQFE_BENCH_PG_URI");
        return nullptr;
    }
    auto store = std::make_unique<PgCache>(uri);
    store->clearAll();
    return store;
}

void saveOne(benchmark::State& state, bool postgres) {
    TempDir dir;
    auto store = openStore(state, postgres, dir);
    if (!store) return;
    size_t i = 0;
    for (auto _ : state) store->save(blobResult(i++));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

void saveBatch(benchmark::State& state, bool postgres) {
    TempDir dir;
    auto store = openStore(state, postgres, dir);
    if (!store) return;
    size_t i = 0;
    for (auto _ : state) {
        std::vector<std::shared_ptr<Result>> batch;
        for (int b = 0; b < 16; ++b) batch.push_back(blobResult(i++));
        store->save(batch);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 16);
}

void cachedWalk(benchmark::State& state, bool postgres) {
    TempDir dir;
    auto store = openStore(state, postgres, dir);
    if (!store) return;
    const size_t assets = bench::scaled(1000);
    std::vector<std::shared_ptr<Result>> all;
    for (size_t i = 0; i < assets; ++i) all.push_back(blobResult(i));
    store->save(all);
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(store->query(bench::assetId(i % assets), bench::benchKey()));
        ++i;
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

BENCHMARK_CAPTURE(saveOne, sqlite, false)->UseRealTime();
BENCHMARK_CAPTURE(saveOne, postgres, true)->UseRealTime();
BENCHMARK_CAPTURE(saveBatch, sqlite, false)->UseRealTime();
BENCHMARK_CAPTURE(saveBatch, postgres, true)->UseRealTime();
BENCHMARK_CAPTURE(cachedWalk, sqlite, false)->UseRealTime();
BENCHMARK_CAPTURE(cachedWalk, postgres, true)->UseRealTime();

}  // namespace
}  // namespace VQFeature

BENCHMARK_MAIN();
