/// Resource: one asset to analyse: the caller's id (first half of every cache key), its
/// path (carried, never read) and its decoded pixels.
#pragma once

#include <memory>
#include <string>

#include "extractor/image_buffer.h"

namespace VQFeature {

class Resource {
public:
    /// Empty id and path, no buffer.
    Resource();
    /// No path, no buffer.
    explicit Resource(const std::string& assetId);
    /// assetId: the caller's id of the picture, the first half of its cache key (two
    /// different pictures need two ids). assetPath: carried, never read. buffer: the
    /// decoded pixels, shared.
    Resource(const std::string& assetId, const std::string& assetPath, const std::shared_ptr<ImageBuffer>& buffer);

    /// True without a buffer, with width or height below 1, length 0 or no data.
    bool isInvalidResource() const;

    std::string assetId;                  ///< the caller's id, first half of every cache key
    std::string assetPath;                ///< carried, never read
    std::shared_ptr<ImageBuffer> buffer;  ///< the decoded pixels
};

}  // namespace VQFeature
