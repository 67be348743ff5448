// Results with a blob for the store tests, and a blob's bytes back as a string.
#pragma once

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "extractor/result.h"

namespace VQFeature {

inline std::shared_ptr<Result> makeResult(const std::string& asset, const std::string& key,
                                          Vantor::AlgorithmType type, const std::string& bytes) {
    void* blob = std::malloc(bytes.size() + 1);
    std::memcpy(blob, bytes.data(), bytes.size());
    return std::make_shared<Result>(asset, key, type, blob, static_cast<int>(bytes.size()));
}

inline std::string blobOf(const std::shared_ptr<Result>& result) {
    return std::string(static_cast<const char*>(result->result), result->resultLength);
}

}  // namespace VQFeature
