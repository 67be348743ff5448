#include "library/staging_cache.h"

#include "cache/stored_result.h"

namespace vqfe {

void StagingCache::save(const std::vector<std::shared_ptr<VQFeature::Result>>& results) {
    for (const auto& result : results) save(result);
}

void StagingCache::save(const std::shared_ptr<VQFeature::Result>& result) {
    if (!result) return;
    staged_[{result->assetId, result->algorithmKey}] = VQFeature::copyResult(*result);
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
