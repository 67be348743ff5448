#include "nodes/image_stats.h"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

#include "graph/execute_memo.h"
#include "nodes/cue_math.h"

namespace kv {

namespace {

double fraction(const cv::Mat& mask) { return mask.empty() ? 0.0 : cv::countNonZero(mask) / double(mask.total()); }

}  // namespace

cv::Mat skinMask(const cv::Mat& bgr) {
    cv::Mat ycrcb, mask;
    cv::cvtColor(bgr, ycrcb, cv::COLOR_BGR2YCrCb);
    cv::inRange(ycrcb, cv::Scalar(0, 133, 77), cv::Scalar(255, 173, 127), mask);
    return mask;
}

double sharpnessScore(double v) { return v <= 0 ? 0.0 : v / (v + 100.0); }

cv::Mat shrinkToFit(const cv::Mat& image, int side) {
    const int longest = std::max(image.cols, image.rows);
    if (longest <= side) return image;
    const double scale = double(side) / longest;
    const cv::Size size(std::max(1, int(std::lround(image.cols * scale))), std::max(1, int(std::lround(image.rows * scale))));
    cv::Mat small;
    cv::resize(image, small, size, 0, 0, cv::INTER_AREA);
    return small;
}

cv::Mat sharedShrink(const cv::Mat& image, int side, ExecuteMemo* memo) {
    if (memo == nullptr) return shrinkToFit(image, side);
    return memo->get<cv::Mat>("shrunk:" + std::to_string(side) + '@' + imageIdentity(image), [&] { return shrinkToFit(image, side); });
}

ImageStats computeImageStats(const cv::Mat& input, ExecuteMemo* memo) {
    ImageStats s;
    const cv::Mat bgr = sharedShrink(input, 256, memo);

    cv::Mat hsv, gray;
    cv::cvtColor(bgr, hsv, cv::COLOR_BGR2HSV);
    cv::cvtColor(bgr, gray, cv::COLOR_BGR2GRAY);
    cv::Scalar hsvMean = cv::mean(hsv);
    s.saturation = hsvMean[1] / 255.0;
    s.brightness = hsvMean[2] / 255.0;
    cv::Scalar grayMean, grayStd;
    cv::meanStdDev(gray, grayMean, grayStd);
    s.contrast = clamp01(grayStd[0] / 128.0);

    // Hasler & Suesstrunk: rg = R - G, yb = (R + G) / 2 - B.
    cv::Mat f;
    bgr.convertTo(f, CV_32F);
    std::vector<cv::Mat> ch;
    cv::split(f, ch);
    cv::Mat rg = ch[2] - ch[1], yb = 0.5 * (ch[2] + ch[1]) - ch[0];
    cv::Scalar rgMean, rgStd, ybMean, ybStd;
    cv::meanStdDev(rg, rgMean, rgStd);
    cv::meanStdDev(yb, ybMean, ybStd);
    double m = std::sqrt(rgStd[0] * rgStd[0] + ybStd[0] * ybStd[0]) +
               0.3 * std::sqrt(rgMean[0] * rgMean[0] + ybMean[0] * ybMean[0]);
    s.colourfulness = clamp01(m / 100.0);

    cv::Mat lap;
    cv::Laplacian(gray, lap, CV_64F);
    cv::Scalar lapMean, lapStd;
    cv::meanStdDev(lap, lapMean, lapStd);
    s.sharpness = lapStd[0] * lapStd[0];

    cv::Mat edges;
    cv::Canny(gray, edges, 80, 160);
    s.edgeDensity = fraction(edges);
    s.skinRatio = fraction(skinMask(bgr));

    cv::Mat mask;
    const cv::Rect top(0, 0, hsv.cols, std::max(1, hsv.rows / 3));
    const cv::Rect topHalf(0, 0, hsv.cols, std::max(1, hsv.rows / 2));
    const cv::Rect bottomHalf(0, hsv.rows / 2, hsv.cols, hsv.rows - hsv.rows / 2);
    cv::inRange(hsv(top), cv::Scalar(90, 40, 80), cv::Scalar(130, 255, 255), mask);
    s.skyRatio = fraction(mask);
    cv::inRange(hsv, cv::Scalar(35, 50, 40), cv::Scalar(85, 255, 255), mask);
    s.greenRatio = fraction(mask);
    cv::Mat warmLow, warmHigh;
    cv::inRange(hsv(topHalf), cv::Scalar(0, 100, 100), cv::Scalar(25, 255, 255), warmLow);
    cv::inRange(hsv(topHalf), cv::Scalar(170, 100, 100), cv::Scalar(180, 255, 255), warmHigh);
    s.warmRatio = fraction(warmLow | warmHigh);
    cv::inRange(hsv(bottomHalf), cv::Scalar(90, 50, 40), cv::Scalar(130, 255, 255), mask);
    s.waterRatio = fraction(mask);
    cv::inRange(hsv, cv::Scalar(0, 0, 0), cv::Scalar(180, 255, 49), mask);
    s.darkRatio = fraction(mask);
    cv::inRange(hsv, cv::Scalar(0, 0, 201), cv::Scalar(180, 29, 255), mask);
    s.whiteRatio = fraction(mask);

    cv::Mat hist;
    const int bins = 256;
    const float range[] = {0, 256};
    const float* ranges[] = {range};
    cv::calcHist(&gray, 1, nullptr, cv::Mat(), hist, 1, &bins, ranges);
    double e = 0;
    for (int i = 0; i < bins; ++i) {
        double p = hist.at<float>(i) / double(gray.total());
        if (p > 0) e -= p * std::log2(p);
    }
    s.entropy = e / 8.0;
    return s;
}

ImageStats sharedImageStats(const cv::Mat& bgr, ExecuteMemo* memo) {
    if (memo == nullptr) return computeImageStats(bgr);
    return memo->get<ImageStats>("image-stats:" + imageIdentity(bgr), [&] { return computeImageStats(bgr, memo); });
}

}  // namespace kv
