// The QR-code evidence of the classification: OpenCV's QR detector (objdetect) on the
// image. Thread-safe (a detector per call).
#pragma once

#include <opencv2/core.hpp>

namespace kv {

// kFoundCode when the detector finds a code whose modules show its three finder patterns,
// 0 otherwise. Images smaller than a QR code's 21 modules give 0 without running the
// detector; larger ones are searched at most 640 pixels long.
constexpr double kFoundCode = 0.9;
double qrCodeCue(const cv::Mat& bgr);

}  // namespace kv
