#include "model/network_input.h"

#include <cstdint>
#include <stdexcept>

namespace kv {

std::vector<int> inputShape(const NetworkInput& in) { return {1, in.channels, in.height, in.width}; }

cv::Mat inputBlob(const NetworkInput& in, const cv::Mat& image) {
    if (image.depth() != CV_8U || image.channels() != in.channels || image.rows != in.height || image.cols != in.width) {
        throw std::invalid_argument(std::string("image does not fit the input of ") + in.model);
    }
    const std::vector<int> shape = inputShape(in);
    cv::Mat blob(4, shape.data(), CV_32F);
    const int area = in.height * in.width;
    for (int k = 0; k < in.channels; ++k) {
        // Each value as the double pixel * scale + offset rounded once to float, through a
        // table of the 256 pixel values (what the reference scripts compute).
        float table[256];
        for (int v = 0; v < 256; ++v) table[v] = static_cast<float>(v * in.scale[k] + in.offset[k]);
        // Image channels are blue, green, red.
        const int channel = in.channels == 1 || in.bgr ? k : 2 - k;
        float* out = blob.ptr<float>() + size_t(k) * size_t(area);
        for (int y = 0; y < in.height; ++y) {
            const uint8_t* row = image.ptr<uint8_t>(y);
            for (int x = 0; x < in.width; ++x) *out++ = table[row[x * in.channels + channel]];
        }
    }
    return blob;
}

}  // namespace kv
