// BlazeFace (the full-range "back" model, 256 x 256): faces with the network's score, box
// and six key points, decoded from its 896 anchors and merged by non-maximum suppression.
// A large image is searched whole and in overlapping tiles, so that faces too small to
// survive shrinking the whole image to 256 px are found as well.
#pragma once

#include <array>
#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "model/network.h"

namespace kv {

struct FaceDetection {
    cv::Rect2f box;                       // pixels of the image
    float score = 0;                      // the network's probability
    // Right eye, left eye (of the person), nose tip, mouth centre, right ear, left ear.
    std::array<cv::Point2f, 6> keyPoints;
};

class FaceDetector {
public:
    static const NetworkShape& shape();
    explicit FaceDetector(std::shared_ptr<Network> network) : network_(std::move(network)) {}
    // Faces of at least minScore, best first; a face found in a tile and at most a quarter of
    // its side (the faces tiles are for) counts from minTileScore.
    std::vector<FaceDetection> detect(const cv::Mat& bgr, float minScore, float minTileScore) const;
    // The regions the network runs on: the whole image first, then tiles of the image, at
    // most maxTiles() of them, in a fixed order.
    static std::vector<cv::Rect> regions(cv::Size image);
    static constexpr size_t maxTiles() { return 24; }

private:
    void search(const cv::Mat& bgr, const cv::Rect& region, float minScore, float minTileScore,
                std::vector<FaceDetection>& found) const;
    std::shared_ptr<Network> network_;
};

}  // namespace kv
