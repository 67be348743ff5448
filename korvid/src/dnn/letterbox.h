// The input of an image network: the image scaled to fit a square side x side (aspect kept,
// centred, the rest padded with black), RGB, as an NCHW float blob of value * scale + offset.
#pragma once

#include <opencv2/core.hpp>

namespace kv {

struct Letterbox {
    cv::Mat blob;          // 1 x 3 x side x side
    double scale = 1;      // network pixels per image pixel
    cv::Point2d pad;       // network pixels left of and above the image
    cv::Rect area;         // the image's part of the square

    // A point in network units (0..1 of side) back to image pixels.
    cv::Point2f toImage(float nx, float ny, int side) const {
        return cv::Point2f(static_cast<float>((nx * side - pad.x) / scale), static_cast<float>((ny * side - pad.y) / scale));
    }
};

Letterbox letterbox(const cv::Mat& bgr, int side, double valueScale, double valueOffset);

}  // namespace kv
