#include "dnn/letterbox.h"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

namespace kv {

Letterbox letterbox(const cv::Mat& bgr, const NetworkInput& in) {
    const int side = in.width;
    Letterbox box;
    box.scale = double(side) / std::max(bgr.cols, bgr.rows);
    // Extreme shapes (1 x 16384) still keep one row or column.
    const int w = std::clamp(static_cast<int>(std::lround(bgr.cols * box.scale)), 1, side);
    const int h = std::clamp(static_cast<int>(std::lround(bgr.rows * box.scale)), 1, side);
    box.pad = cv::Point2d((side - w) / 2, (side - h) / 2);
    box.area = cv::Rect((side - w) / 2, (side - h) / 2, w, h);
    cv::Mat square(side, side, CV_8UC3, cv::Scalar::all(0)), resized;
    cv::resize(bgr, resized, cv::Size(w, h), 0, 0, box.scale < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
    resized.copyTo(square(box.area));
    box.blob = inputBlob(in, square);
    return box;
}

}  // namespace kv
