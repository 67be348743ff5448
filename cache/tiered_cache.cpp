#include "cache/tiered_cache.h"

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace VQFeature {

// A result as the memory tier keeps it: its own copy of everything.
struct TieredCache::Stored {
    std::string assetId;
    std::string algorithmKey;
    std::string stringType;
    Vantor::AlgorithmType type;
    std::string blob;
    bool hasBlob;
};

namespace {

std::string blobOf(Result& result) {
    if (result.result == nullptr || result.resultLength == 0) return {};
    std::string bytes(result.resultLength, '\0');
    result.memcpyStructResult(bytes.data(), bytes.size());  // never reads past the blob
    return bytes;
}

std::shared_ptr<Result> resultOf(const std::string& assetId, const std::string& algorithmKey,
                                 const std::string& stringType, Vantor::AlgorithmType type, const std::string& blob,
                                 bool hasBlob) {
    void* copy = nullptr;
    if (hasBlob) {
        copy = std::malloc(blob.empty() ? 1 : blob.size());
        if (copy == nullptr) throw std::bad_alloc();
        if (!blob.empty()) std::memcpy(copy, blob.data(), blob.size());
    }
    const int length = static_cast<int>(blob.size());
    if (!stringType.empty() || type == Vantor::AlgorithmType::AllNodes) {
        return std::make_shared<Result>(assetId, algorithmKey, stringType, copy, length);
    }
    return std::make_shared<Result>(assetId, algorithmKey, type, copy, length);
}

}  // namespace

TieredCache::TieredCache(int memoryEntries, std::shared_ptr<CacheAdapter> store)
    : memory_(memoryEntries), store_(std::move(store)) {}

TieredCache::~TieredCache() = default;

void TieredCache::remember(const Result& result) {
    auto stored = std::make_shared<Stored>();
    stored->assetId = result.assetId;
    stored->algorithmKey = result.algorithmKey;
    stored->stringType = result.algorithmStringType;
    stored->type = result.algorithmType;
    stored->blob = blobOf(const_cast<Result&>(result));
    stored->hasBlob = result.result != nullptr;
    memory_.set(result.assetId + result.algorithmKey, stored);
}

std::shared_ptr<Result> TieredCache::lookup(const std::string& assetId, const std::string& algorithmKey,
                                            Tier* tier) {
    if (auto stored = memory_.get(assetId + algorithmKey)) {
        *tier = MEMORY;
        return resultOf(stored->assetId, stored->algorithmKey, stored->stringType, stored->type, stored->blob,
                        stored->hasBlob);
    }
    *tier = MISS;
    if (!store_) return nullptr;
    auto hit = store_->query(assetId, algorithmKey);
    if (!hit) return nullptr;
    *tier = STORE;
    remember(*hit);  // read through: the next query is answered from memory
    auto& stored = *memory_.get(assetId + algorithmKey);
    return resultOf(stored.assetId, stored.algorithmKey, stored.stringType, stored.type, stored.blob, stored.hasBlob);
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
