#include "dnn/face_descriptor.h"

#include <cmath>

#include <opencv2/dnn.hpp>

namespace kv {

const NetworkShape& FaceDescriptor::shape() {
    static const NetworkShape s = declaredShape(declared::face_descriptor, {{declared::face_descriptor_out::descriptor, kLength}});
    return s;
}

std::vector<float> FaceDescriptor::describe(const cv::Mat& bgr, const FacePoints& face) const {
    // RGB 0..255; the network subtracts its training mean and scales by itself.
    const cv::Mat blob = inputBlob(declared::face_descriptor, faceChip(bgr, face, kSide));
    const cv::Mat out = network_->forward(blob)[0];
    std::vector<float> descriptor(out.ptr<float>(), out.ptr<float>() + kLength);
    double norm = 0;
    for (float v : descriptor) norm += double(v) * v;
    norm = std::sqrt(norm);
    if (norm > 0) {
        for (float& v : descriptor) v = static_cast<float>(v / norm);
    }
    return descriptor;
}

}  // namespace kv
