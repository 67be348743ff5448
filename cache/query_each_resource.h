// The bulk query of the persistent stores: one lookup per resource of the request under its
// algorithm key, hits in resource order, empty resources skipped.
#pragma once

#include <memory>
#include <vector>

#include "extractor/input.h"
#include "extractor/result.h"

namespace VQFeature {

template <class QueryOne>
std::vector<std::shared_ptr<Result>> queryEachResource(const std::shared_ptr<Input>& input, QueryOne&& queryOne) {
    std::vector<std::shared_ptr<Result>> hits;
    if (!input || input->resList.empty()) return hits;
    const std::string key = input->algorithmKey(Vantor::AlgorithmType::AllNodes);
    for (const auto& resource : input->resList) {
        if (!resource) continue;
        if (auto hit = queryOne(resource->assetId, key)) hits.push_back(std::move(hit));
    }
    return hits;
}

}  // namespace VQFeature
