// The decoded messages of one image's blobs, by kind name, for the summary and the
// pictures. Each message is released with its free function when the object dies.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vqfe_results.pb-c.h"

namespace vqfe {

using BlobMap = std::map<std::string, std::pair<const void*, unsigned long>>;

class DecodedBlobs {
public:
    explicit DecodedBlobs(const BlobMap& blobs);

    const CFaceBuffer* faces() const { return get<CFaceBuffer>("face"); }
    const CFacePetDetectBuffer* pets() const { return get<CFacePetDetectBuffer>("pet-face"); }
    const CSkeletonBuffer* skeleton() const { return get<CSkeletonBuffer>("skeleton"); }
    const CSaliencySegInfo* saliency() const { return get<CSaliencySegInfo>("saliency"); }
    const CMattingResult* matting() const { return get<CMattingResult>("matting"); }

    // Up to n labels with their scores, best first, from scene recognition, then the
    // third scene generation, then the 208-class classification.
    std::vector<std::pair<std::string, float>> topLabels(size_t n) const;

private:
    template <typename T>
    const T* get(const std::string& name) const {
        auto found = messages_.find(name);
        return found == messages_.end() ? nullptr : reinterpret_cast<const T*>(found->second.get());
    }

    std::map<std::string, std::shared_ptr<ProtobufCMessage>> messages_;
};

}  // namespace vqfe
