// The engine's own cost per asset, with a framework that answers at once
// (InstantAlgorithmSystem, kind 33):
// - extractFeatures over 1,000 assets without cache use, against calling the same
//   framework system (execute, getResult) and resultConvert directly in a loop;
// - the all-cached walk (extractFeatures with every asset in the MemoryCache), against
//   looking the same keys up in the textbook LRU and collecting the hits;
// - the all-cached walk at 1k, 10k and 100k assets: the time per asset must stay flat;
//   against it, the memory floor of any walk: per asset, hash its asset id and share a
//   Result made for it, with no cache at all. What the floor loses from 1k to 100k assets
//   is the memory hierarchy's, and no index can win it back.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "bench/bench_assets.h"
#include "bench/instant_algorithm_system.h"
#include "bench/textbook_lru.h"
#include "cache/memory_cache.h"
#include "extractor/extractor.h"
#include "extractor/extractor_impl.h"
#include "vantor/cover_util.h"

namespace VQFeature {
namespace {

constexpr Vantor::AlgorithmType kKind = bench::InstantAlgorithmSystem::kKind;

// A request for the instant kind over n assets of 4 x 4 RGBA pixels each.
std::shared_ptr<Input> request(size_t n) {
    ResourceList resources;
    resources.reserve(n);
    const std::string pixels(4 * 4 * 4, '\x40');
    for (size_t i = 0; i < n; ++i) {
        auto buffer = std::make_shared<ImageBuffer>();
        buffer->width = 4;
        buffer->height = 4;
        buffer->format = 1;
        buffer->setData(pixels.data(), pixels.size());
        buffer->length = pixels.size();
        const std::string id = bench::assetId(i);
        resources.push_back(std::make_shared<Resource>(id, id + ".jpg", buffer));
    }
    return std::make_shared<Input>(resources, CoverUtil::getAlgorithmConf(kKind), IntParams{}, kKind);
}

// An initialised Extractor over the instant framework with a MemoryCache of `capacity`.
struct Engine {
    explicit Engine(size_t capacity) : cache(std::make_shared<MemoryCache>(static_cast<int>(capacity))) {
        if (extractor.init() != 0) std::abort();
    }
    bench::InstantSystemScope framework;
    std::shared_ptr<Config> config = std::make_shared<Config>();
    std::shared_ptr<MemoryCache> cache;
    Extractor extractor{config, cache, nullptr, "", "vantor.json", false};
};

void perAsset(benchmark::State& state, size_t assets) {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * assets));
}

void engineRun(benchmark::State& state, size_t assets) {
    Engine engine(assets);
    const auto input = request(assets);
    ErrorPair error{0, ""};
    for (auto _ : state) benchmark::DoNotOptimize(engine.extractor.extractFeatures(input, false, &error));
    if (error.first != 0) state.SkipWithError(error.second.c_str());
    perAsset(state, assets);
}

void directRun(benchmark::State& state, size_t assets) {
    bench::InstantAlgorithmSystem framework;
    const auto input = request(assets);
    for (auto _ : state) {
        for (const auto& resource : input->resList) {
            const ImageBuffer& pixels = *resource->buffer;
            Vantor::VantorImageBuffer image;
            image.width = pixels.width;
            image.height = pixels.height;
            image.data = pixels.data;
            image.format = pixels.format;
            image.dataLength = pixels.length;
            if (framework.execute(image, kKind) != Vantor::NO_ERROR) std::abort();
            unsigned long length = 0;
            void* blob = Extractor::ExtractorImpl::resultConvert(kKind, framework.getResult(kKind), &length);
            benchmark::DoNotOptimize(blob);
            std::free(blob);
        }
    }
    perAsset(state, assets);
}

void engineCachedWalk(benchmark::State& state, size_t assets) {
    Engine engine(assets);
    const auto input = request(assets);
    ErrorPair error{0, ""};
    engine.extractor.extractFeatures(input, true, &error);  // fills the cache
    for (auto _ : state) benchmark::DoNotOptimize(engine.extractor.extractFeatures(input, true, &error));
    perAsset(state, assets);
}

void lookupWalk(benchmark::State& state, size_t assets) {
    const auto input = request(assets);
    const std::string key = input->algorithmKey(Vantor::AlgorithmType::AllNodes);
    bench::TextbookLru cache(assets);
    for (const auto& resource : input->resList) {
        cache.save(std::make_shared<Result>(resource->assetId, key, kKind));
    }
    for (auto _ : state) {
        std::vector<std::shared_ptr<Result>> hits;
        hits.reserve(input->resList.size());
        for (const auto& resource : input->resList) hits.push_back(cache.query(resource->assetId, key));
        benchmark::DoNotOptimize(hits.data());
    }
    perAsset(state, assets);
}

void floorWalk(benchmark::State& state, size_t assets) {
    const auto input = request(assets);
    const std::string key = input->algorithmKey(Vantor::AlgorithmType::AllNodes);
    std::vector<std::shared_ptr<Result>> results;
    results.reserve(assets);
    for (const auto& resource : input->resList) results.push_back(std::make_shared<Result>(resource->assetId, key, kKind));
    for (auto _ : state) {
        std::vector<std::shared_ptr<Result>> hits;
        hits.reserve(input->resList.size());
        size_t i = 0;
        for (const auto& resource : input->resList) {
            benchmark::DoNotOptimize(std::hash<std::string>()(resource->assetId));
            hits.push_back(results[i++]);
        }
        benchmark::DoNotOptimize(hits.data());
    }
    perAsset(state, assets);
}

const bool kRegistered = [] {
    const size_t n = bench::scaled(1000);
    benchmark::RegisterBenchmark("extractor/run_1k/vqfe", engineRun, n);
    benchmark::RegisterBenchmark("extractor/run_1k/direct", directRun, n);
    benchmark::RegisterBenchmark("extractor/cached_1k/vqfe", engineCachedWalk, n);
    benchmark::RegisterBenchmark("extractor/cached_1k/lookup", lookupWalk, n);
    benchmark::RegisterBenchmark("extractor/cached_1k/floor", floorWalk, n);
    for (const auto& [name, assets] : {std::pair<const char*, size_t>{"10k", 10000}, {"100k", 100000}}) {
        benchmark::RegisterBenchmark((std::string("extractor/cached_") + name + "/vqfe").c_str(), engineCachedWalk,
                                     bench::scaled(assets));
        benchmark::RegisterBenchmark((std::string("extractor/cached_") + name + "/lookup").c_str(), lookupWalk,
                                     bench::scaled(assets));
        benchmark::RegisterBenchmark((std::string("extractor/cached_") + name + "/floor").c_str(), floorWalk,
                                     bench::scaled(assets));
    }
    return true;
}();

}  // namespace
}  // namespace VQFeature

BENCHMARK_MAIN();
