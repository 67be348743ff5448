// The input of an image network: the image scaled to fit the network's square input (aspect
// kept, centred, the rest padded with black), as the NCHW float blob the network declares.
#pragma once

#include <opencv2/core.hpp>

#include "model/network_input.h"

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

// in: a square input of three channels.
Letterbox letterbox(const cv::Mat& bgr, const NetworkInput& in);

}  // namespace kv
