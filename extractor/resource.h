// Resource: one asset to analyse: the caller's id (first half of every cache key), its
// path (carried, never read) and its decoded pixels.
#pragma once

#include <memory>
#include <string>

#include "extractor/image_buffer.h"

namespace VQFeature {

class Resource {
public:
    Resource();
    explicit Resource(const std::string& assetId);
    Resource(const std::string& assetId, const std::string& assetPath, const std::shared_ptr<ImageBuffer>& buffer);

    // True without a buffer, with width or height below 1, length 0 or no data.
    bool isInvalidResource() const;

    std::string assetId;
    std::string assetPath;
    std::shared_ptr<ImageBuffer> buffer;
};

}  // namespace VQFeature
