// Whole-image statistics shared by the statistics-based nodes (aesthetics, sensitive content,
// the scene-v3 feature, the scene evidence's colour measures).
// Everything is computed on a copy scaled to at most 256 pixels on its longer side, so
// the values hardly depend on the input resolution. Pure functions, thread-safe.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

namespace kv {

struct ImageStats {
    double brightness = 0;     // mean HSV value, 0..1
    double contrast = 0;       // standard deviation of grey / 128, clamped to 1
    double saturation = 0;     // mean HSV saturation, 0..1
    double colourfulness = 0;  // Hasler-Suesstrunk colourfulness / 100, clamped to 1
    double sharpness = 0;      // variance of the Laplacian of grey (raw)
    double edgeDensity = 0;    // fraction of Canny edge pixels
    double skinRatio = 0;      // fraction of skin-coloured pixels (see skinMask)
    double skyRatio = 0;       // fraction of the top third that is sky blue
    double greenRatio = 0;     // fraction of vegetation green
    double warmRatio = 0;      // fraction of the top half in saturated red/orange/yellow
    double waterRatio = 0;     // fraction of the bottom half that is blue
    double darkRatio = 0;      // fraction with value below 50/255
    double whiteRatio = 0;     // fraction bright (value > 200) and unsaturated (< 30)
    double entropy = 0;        // grey histogram entropy in bits / 8
};

class ExecuteMemo;

// memo: where bgr's 256-pixel copy is shared (sharedShrink); none: made here.
ImageStats computeImageStats(const cv::Mat& bgr, ExecuteMemo* memo = nullptr);

// computeImageStats(bgr), computed once per execute with a memo (aesthetics, scene v3 and
// the scene evidence ask for the same image's).
ImageStats sharedImageStats(const cv::Mat& bgr, ExecuteMemo* memo);

// image scaled down (INTER_AREA) so that its longer side is at most side pixels, or image
// itself when it fits; extreme shapes (1 x 16384) keep one row or column.
cv::Mat shrinkToFit(const cv::Mat& image, int side);

// shrinkToFit(image, side), computed once per execute with a memo (the statistics, the scene
// evidence, saliency and both mattings shrink the same image to 256 pixels). The copy is
// shared: read it, never write into it.
cv::Mat sharedShrink(const cv::Mat& image, int side, ExecuteMemo* memo);

// Skin-coloured pixels (255) by the YCrCb rule 133 <= Cr <= 173, 77 <= Cb <= 127.
cv::Mat skinMask(const cv::Mat& bgr);

// The variance of the Laplacian mapped to 0..1 as v / (v + 100).
double sharpnessScore(double laplacianVariance);

}  // namespace kv
