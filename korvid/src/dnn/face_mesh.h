// The face mesh network (468 landmarks with depth, 192 x 192): fitted to a face found by
// the detector on a square crop 1.5 times the face box, turned so that the eyes are level.
// Gives the landmarks in image pixels, the head angles and the contours of eyes, eyebrows
// and lips.
#pragma once

#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "network.h"

namespace kv {

struct FaceLandmarks {
    float presence = 0;                  // the network's probability that the crop holds a face
    std::vector<cv::Point2f> points;     // 468, image pixels
    float yaw = 0, pitch = 0, roll = 0;  // degrees, see korvid/README.md
    // Contours, image-left first (so "left" is the person's right): eye outlines, the upper
    // edges of the eyebrows, the outer lip outline (closed, upper lip first).
    std::vector<cv::Point2f> eyeLeft, eyeRight, eyebrowLeft, eyebrowRight, lips;
    // The 106-point layout (korvid/README.md): contour 0-32, eyebrows, nose, eyes, lips,
    // pupils 104-105, taken or resampled from the mesh.
    std::vector<cv::Point2f> points106;
};

class FaceMesh {
public:
    static const NetworkShape& shape();
    explicit FaceMesh(std::shared_ptr<Network> network) : network_(std::move(network)) {}
    // box: the detected face; leftEye, rightEye: its eye centres, image-left first.
    FaceLandmarks fit(const cv::Mat& bgr, const cv::Rect2f& box, cv::Point2f leftEye, cv::Point2f rightEye) const;

private:
    std::shared_ptr<Network> network_;
};

}  // namespace kv
