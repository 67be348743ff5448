#include "tools/vqfe/staging_cache.h"

#include <cstdlib>
#include <cstring>

namespace vqfe {

void StagingCache::save(const std::vector<std::shared_ptr<VQFeature::Result>>& results) {
    for (const auto& result : results) save(result);
}

void StagingCache::save(const std::shared_ptr<VQFeature::Result>& result) {
    if (!result) return;
    void* blob = nullptr;
    if (result->result != nullptr) {
        blob = std::malloc(result->resultLength > 0 ? result->resultLength : 1);
        if (result->resultLength > 0) std::memcpy(blob, result->result, result->resultLength);
    }
    const int length = static_cast<int>(result->resultLength);
    auto copy = result->algorithmStringType.empty()
                    ? std::make_shared<VQFeature::Result>(result->assetId, result->algorithmKey, result->algorithmType,
                                                          blob, length)
                    : std::make_shared<VQFeature::Result>(result->assetId, result->algorithmKey,
                                                          result->algorithmStringType, blob, length);
    staged_[{result->assetId, result->algorithmKey}] = std::move(copy);
}

std::vector<std::shared_ptr<VQFeature::Result>> StagingCache::take(const std::string& assetId) {
    std::vector<std::shared_ptr<VQFeature::Result>> taken;
    for (auto it = staged_.lower_bound({assetId, ""}); it != staged_.end() && it->first.first == assetId;) {
        taken.push_back(std::move(it->second));
        it = staged_.erase(it);
    }
    return taken;
}

}  // namespace vqfe
