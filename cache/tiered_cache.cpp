#include "cache/tiered_cache.h"

#include <utility>

#include "cache/stored_result.h"

namespace VQFeature {

TieredCache::TieredCache(int memoryEntries, std::shared_ptr<CacheAdapter> store)
    : memory_(memoryEntries), store_(std::move(store)) {}

TieredCache::~TieredCache() = default;

void TieredCache::remember(const Result& result) {
    memory_.set(result.assetId + result.algorithmKey, copyResult(result));
}

std::shared_ptr<Result> TieredCache::lookup(const std::string& assetId, const std::string& algorithmKey,
                                            Tier* tier) {
    if (auto stored = memory_.get(assetId + algorithmKey)) {
        *tier = MEMORY;
        return copyResult(*stored);
    }
    *tier = MISS;
    if (!store_) return nullptr;
    auto hit = store_->query(assetId, algorithmKey);
    if (!hit) return nullptr;
    *tier = STORE;
    remember(*hit);  // read through: the next query is answered from memory
    return copyResult(*hit);  // the caller's own, as from memory (a store may keep what it hands out)
}

std::vector<std::shared_ptr<Result>> TieredCache::query(const std::shared_ptr<Input>& input) {
    std::vector<std::shared_ptr<Result>> hits;
    if (!input) return hits;
    const std::string key = input->algorithmKey(Vantor::AlgorithmType::AllNodes);
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& resource : input->resList) {
        if (!resource) continue;
        Tier tier;
        if (auto hit = lookup(resource->assetId, key, &tier)) hits.push_back(std::move(hit));
    }
    return hits;
}

std::shared_ptr<Result> TieredCache::query(const std::string& assetId, const std::string& algorithmKey) {
    std::lock_guard<std::mutex> lock(mutex_);
    Tier tier;
    return lookup(assetId, algorithmKey, &tier);
}

TieredCache::Tier TieredCache::find(const std::string& assetId, const std::string& algorithmKey) {
    std::lock_guard<std::mutex> lock(mutex_);
    Tier tier;
    lookup(assetId, algorithmKey, &tier);
    return tier;
}

void TieredCache::save(const std::vector<std::shared_ptr<Result>>& results) {
    for (const auto& result : results) save(result);
}

void TieredCache::save(const std::shared_ptr<Result>& result) {
    if (!result) return;
    std::lock_guard<std::mutex> lock(mutex_);
    if (store_) store_->save(result);  // first: a store that throws leaves memory as it was
    remember(*result);
}

void TieredCache::clear(const std::vector<std::string>& assetIds) {
    std::lock_guard<std::mutex> lock(mutex_);
    memory_.clear();
    if (store_) store_->clear(assetIds);
}

void TieredCache::clearTypes(const std::vector<Vantor::AlgorithmType>& types) {
    std::lock_guard<std::mutex> lock(mutex_);
    memory_.clear();
    if (store_) store_->clearTypes(types);
}

void TieredCache::clearTypes(const std::vector<std::string>& types) {
    std::lock_guard<std::mutex> lock(mutex_);
    memory_.clear();
    if (store_) store_->clearTypes(types);
}

void TieredCache::clearAll() {
    std::lock_guard<std::mutex> lock(mutex_);
    memory_.clear();
    if (store_) store_->clearAll();
}

int TieredCache::memoryCount() {
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<int>(memory_.size());
}

}  // namespace VQFeature
