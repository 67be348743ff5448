// One person's pose as the MoveNet networks give it: 17 key points in COCO order (nose, left
// and right eye, left and right ear, shoulders, elbows, wrists, hips, knees, ankles; left
// before right, the person's sides) with the network's scores, a box and a person score.
#pragma once

#include <array>

#include <opencv2/core.hpp>

namespace kv {

constexpr int kPoseKeyPoints = 17;

struct Pose {
    std::array<cv::Point2f, kPoseKeyPoints> points;  // pixels of the image
    std::array<float, kPoseKeyPoints> scores{};
    cv::Rect2f box;                                  // pixels of the image
    float score = 0;
};

}  // namespace kv
