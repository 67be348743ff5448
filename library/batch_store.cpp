#include "library/batch_store.h"

#include "cache/stored_result.h"

namespace vqfe {

BatchStore::BatchStore(std::shared_ptr<VQFeature::CacheAdapter> inner, VQFeature::StoreIndex* index)
    : inner_(std::move(inner)), index_(index) {}

void BatchStore::begin(const std::vector<VQFeature::ImageRecord>& records) {
    finish();
    records_.clear();
    for (const auto& record : records) records_.emplace(record.assetId, record);
    firstSeen_.clear();
    current_.clear();
}

void BatchStore::finish() {
    flush();
    current_.clear();
    if (index_ != nullptr) {
        for (const auto& [asset, record] : records_) index_->saveIndexed({}, record);
    }
    records_.clear();
}

const std::string& BatchStore::storedKey(const std::string& algorithmKey) const {
    auto alias = aliases_.find(algorithmKey);
    return alias == aliases_.end() ? algorithmKey : alias->second;
}

void BatchStore::touch(const std::string& assetId) {
    if (assetId == current_) return;
    flush();
    current_ = assetId;
    firstSeen_.emplace(assetId, Clock::now());
}

void BatchStore::flush() {
    if (pending_.empty()) return;
    auto pending = std::move(pending_);
    pending_.clear();
    auto record = records_.find(pending.front()->assetId);
    if (record == records_.end()) {
        inner_->save(pending);
        return;
    }
    index_->saveIndexed(pending, record->second);
    records_.erase(record);
}

std::vector<std::shared_ptr<VQFeature::Result>> BatchStore::query(const std::shared_ptr<VQFeature::Input>& input) {
    return inner_->query(input);
}

std::shared_ptr<VQFeature::Result> BatchStore::query(const std::string& assetId, const std::string& algorithmKey) {
    touch(assetId);
    const std::string& key = storedKey(algorithmKey);
    for (const auto& result : pending_) {
        if (result->algorithmKey == key) return VQFeature::copyResult(*result);
    }
    return inner_->query(assetId, key);
}

void BatchStore::save(const std::vector<std::shared_ptr<VQFeature::Result>>& results) {
    for (const auto& result : results) save(result);
}

void BatchStore::save(const std::shared_ptr<VQFeature::Result>& result) {
    if (!result) return;
    ++saved_;
    touch(result->assetId);
    const std::string& key = storedKey(result->algorithmKey);
    if (index_ == nullptr && key == result->algorithmKey) {
        inner_->save(result);
        return;
    }
    // A copy under the stored key, the caller's result left as it is. With an index the
    // copy also outlives the blob, which the extractor may take back once saved, until
    // the image is done.
    auto stored = VQFeature::copyResult(*result);
    stored->algorithmKey = key;
    if (index_ == nullptr) {
        inner_->save(stored);
        return;
    }
    pending_.push_back(std::move(stored));
}

}  // namespace vqfe
