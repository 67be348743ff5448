// The dlib ResNet face recogniser (29 convolutions, face-api's port of Davis King's public
// domain model): a 128-d descriptor of a 150 x 150 RGB face crop (face_chip.h), returned
// L2-normalised so that the dot product of two descriptors is their cosine similarity.
#pragma once

#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "dnn/face_chip.h"
#include "model/network.h"
#include "network_declarations.h"

namespace kv {

class FaceDescriptor {
public:
    static constexpr int kSide = declared::face_descriptor.width;
    static constexpr size_t kLength = 128;
    static const NetworkShape& shape();
    explicit FaceDescriptor(std::shared_ptr<Network> network) : network_(std::move(network)) {}
    std::vector<float> describe(const cv::Mat& bgr, const FacePoints& face) const;

private:
    std::shared_ptr<Network> network_;
};

}  // namespace kv
