// A network's input as declared in networks/networks.json (read through the generated
// header network_declarations.h): size, channels, the order of its input planes, and the
// value each pixel becomes (pixel * scale + offset, per plane).
#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace kv {

struct NetworkInput {
    const char* model;
    int channels;
    int height;
    int width;
    bool bgr;          // planes blue, green, red (otherwise red, green, blue)
    double scale[3];   // per input plane
    double offset[3];
    // The runtime tried first at load: XNNPACK where the declaration says "runtime":
    // "xnnpack" (its 1 x 1 convolutions are the faster on MobileNet v2), oneDNN otherwise.
    bool xnnpackFirst = false;
};

// 1 x channels x height x width.
std::vector<int> inputShape(const NetworkInput& in);

// The NCHW float blob of an 8-bit image of the input's size: BGR for three channels, grey
// for one.
cv::Mat inputBlob(const NetworkInput& in, const cv::Mat& image);

}  // namespace kv
