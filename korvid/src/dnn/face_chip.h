// The face crop the identity and age/gender networks take: face-api's dlib-style alignment
// (the crop's side is the eye-to-mouth distance / 0.45, the centroid of the eyes and the mouth
// sits at 50 % across and 43 % down), turned so that the eyes are level.
#pragma once

#include <opencv2/core.hpp>

namespace kv {

// Where a face is: its box, and its eye centres (image-left first) and mouth centre when found.
struct FacePoints {
    cv::Rect box;
    bool hasEyes = false;
    cv::Point2f leftEye, rightEye;
    bool hasMouth = false;
    cv::Point2f mouth;
    cv::Rect2f landmarkBox;  // the bounding box of the face's landmarks; empty without them
};

// The crop of bgr, side x side pixels, BGR; outside the image is black.
cv::Mat faceChip(const cv::Mat& bgr, const FacePoints& face, int side);

// face-api's default face crop: the landmarks' bounding box (the detector's box without
// landmarks) grown by 20 %, cut at the image's edges, made square by black bands on both
// sides of its short side, side x side pixels, BGR. Not turned.
cv::Mat paddedFaceCrop(const cv::Mat& bgr, const FacePoints& face, int side);

}  // namespace kv
