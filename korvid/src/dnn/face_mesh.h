// The face mesh network (468 landmarks with depth, 192 x 192): fitted to a face found by
// the detector on a square crop 1.5 times the face box, turned so that the eyes are level.
// Gives the landmarks in image pixels, the head angles and the contours of eyes, eyebrows
// and lips; with the iris network (64 x 64, on a square around each eye of the levelled
// crop), the irises and pupils.
#pragma once

#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "model/network.h"

namespace kv {

struct FaceLandmarks {
    float presence = 0;                  // the network's probability that the crop holds a face
    std::vector<cv::Point2f> points;     // 468, image pixels
    float yaw = 0, pitch = 0, roll = 0;  // degrees, see korvid/README.md
    // Contours, image-left first (so "left" is the person's right): eye outlines, the upper
    // edges of the eyebrows, the outer lip outline (closed, upper lip first).
    std::vector<cv::Point2f> eyeLeft, eyeRight, eyebrowLeft, eyebrowRight, lips;
    // With the iris network: per eye, image-left first, the iris centre then four points on
    // its edge (towards the eye's inner corner, above, towards the outer corner, below).
    std::vector<cv::Point2f> irisLeft, irisRight;
    // The 106-point layout (korvid/README.md): contour 0-32, eyebrows, nose, eyes, lips,
    // pupils 104-105 (the iris centres, or the eye centres without the iris network), taken
    // or resampled from the mesh.
    std::vector<cv::Point2f> points106;
};

class FaceMesh {
public:
    // Presence below which the crop holds no face (no contours, no irises).
    static constexpr float kMinPresence = 0.5f;
    static const NetworkShape& shape();
    static const NetworkShape& irisShape();
    // iris: the iris network, or null.
    explicit FaceMesh(std::shared_ptr<Network> network, std::shared_ptr<Network> iris = nullptr)
        : network_(std::move(network)), iris_(std::move(iris)) {}
    // box: the detected face; leftEye, rightEye: its eye centres, image-left first.
    FaceLandmarks fit(const cv::Mat& bgr, const cv::Rect2f& box, cv::Point2f leftEye, cv::Point2f rightEye) const;

private:
    std::vector<cv::Point2f> iris(const cv::Mat& crop, const std::vector<cv::Point2f>& cropPoints, int first, int second,
                                  bool mirrored, const cv::Mat& toImage) const;

    std::shared_ptr<Network> network_;
    std::shared_ptr<Network> iris_;
};

}  // namespace kv
