// rgbaImage: an OpenCV BGR picture as the ImageBuffer an app hands over (RGBA8888,
// format 0, packed rows, a copy the buffer owns). Test-only.
#pragma once

#include <memory>
#include <opencv2/imgproc.hpp>

#include "extractor/image_buffer.h"

namespace VQFeature::testing {

inline std::shared_ptr<ImageBuffer> rgbaImage(const cv::Mat& bgr) {
    cv::Mat rgba;
    cv::cvtColor(bgr, rgba, cv::COLOR_BGR2RGBA);
    auto buffer = std::make_shared<ImageBuffer>();
    buffer->width = rgba.cols;
    buffer->height = rgba.rows;
    buffer->format = 0;
    buffer->length = rgba.total() * rgba.elemSize();
    buffer->setData(reinterpret_cast<const char*>(rgba.data), buffer->length);
    return buffer;
}

}  // namespace VQFeature::testing
