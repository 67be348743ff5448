#include "extractor/resource.h"

namespace VQFeature {

Resource::Resource() = default;

Resource::Resource(const std::string& assetId) : assetId(assetId) {}

Resource::Resource(const std::string& assetId, const std::string& assetPath,
                   const std::shared_ptr<ImageBuffer>& buffer)
    : assetId(assetId), assetPath(assetPath), buffer(buffer) {}

bool Resource::isInvalidResource() const {
    return buffer == nullptr || buffer->width < 1 || buffer->height < 1 || buffer->length == 0 ||
           buffer->data == nullptr;
}

}  // namespace VQFeature
