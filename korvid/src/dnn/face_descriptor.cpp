#include "face_descriptor.h"

#include <cmath>

#include <opencv2/dnn.hpp>

namespace kv {

const NetworkShape& FaceDescriptor::shape() {
    static const NetworkShape s{{1, 3, kSide, kSide}, {{"descriptor", kLength}}};
    return s;
}

std::vector<float> FaceDescriptor::describe(const cv::Mat& bgr, const FacePoints& face) const {
    // RGB 0..255; the network subtracts its training mean and scales by itself.
    const cv::Mat blob = cv::dnn::blobFromImage(faceChip(bgr, face, kSide), 1.0, cv::Size(), cv::Scalar(), true, false, CV_32F);
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
