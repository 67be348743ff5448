#include "nodes/qr_code_cue.h"

#include <algorithm>

#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>

#include "nodes/image_stats.h"

namespace kv {

namespace {

// Searched at most this long: a code of a fifth of the width keeps 3 pixels a module up to
// version 6 (41 modules); the detector's time grows with the pixels.
constexpr int kSearchSide = 640;

// How well the 7 x 7 modules at (x0, y0) of a binarised code (one pixel per module, 0 dark)
// match a finder pattern: a dark ring, a light ring, a dark 3 x 3 centre.
double finderMatch(const cv::Mat& modules, int x0, int y0) {
    int agree = 0;
    for (int y = 0; y < 7; ++y) {
        for (int x = 0; x < 7; ++x) {
            const int ring = std::min(std::min(x, y), std::min(6 - x, 6 - y));
            const bool dark = ring != 1;
            agree += (modules.at<uint8_t>(y0 + y, x0 + x) == 0) == dark;
        }
    }
    return agree / 49.0;
}

// The detector's quadrilateral read as a code of some version 1 to 10 (21 to 57 modules):
// finder patterns in three corners and none in the fourth. Without a decoder (Debian's
// OpenCV is built without one) this keeps the detector's chance finds in textures out.
bool looksLikeQrCode(const cv::Mat& grey, const cv::Mat& corners) {
    if (corners.total() != 4) return false;
    std::vector<cv::Point2f> quad;
    corners.reshape(2, 4).copyTo(quad);
    for (int size = 21; size <= 57; size += 4) {
        const int side = size * 4;
        const std::vector<cv::Point2f> square{{0, 0}, {float(side), 0}, {float(side), float(side)}, {0, float(side)}};
        cv::Mat warped, modules;
        cv::warpPerspective(grey, warped, cv::getPerspectiveTransform(quad, square), cv::Size(side, side));
        cv::resize(warped, modules, cv::Size(size, size), 0, 0, cv::INTER_AREA);
        cv::threshold(modules, modules, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
        const int far = size - 7;
        if (std::min({finderMatch(modules, 0, 0), finderMatch(modules, far, 0), finderMatch(modules, 0, far)}) >= 0.9 &&
            finderMatch(modules, far, far) < 0.8) {
            return true;
        }
    }
    return false;
}

}  // namespace

double qrCodeCue(const cv::Mat& bgr) {
    if (bgr.empty() || std::min(bgr.cols, bgr.rows) < 21) return 0;
    cv::Mat grey;
    cv::cvtColor(shrinkToFit(bgr, kSearchSide), grey, cv::COLOR_BGR2GRAY);
    if (std::min(grey.cols, grey.rows) < 21) return 0;
    try {
        cv::QRCodeDetector detector;
        cv::Mat corners;
        if (!detector.detect(grey, corners) || !looksLikeQrCode(grey, corners)) return 0;
        return kFoundCode;
    } catch (const cv::Exception&) {
        return 0;  // a shape the detector cannot handle is no QR code
    }
}

}  // namespace kv
