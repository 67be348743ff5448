// The aligned face crop: a tilted face comes out level at the anchor, and points a network
// could give (NaN, far outside the image) or faces at the image's edges still give a crop.
#include "dnn/face_chip.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

namespace kv {
namespace {

// The centre of the pixels brighter than 128 in the given channel of a crop.
cv::Point2f centreOf(const cv::Mat& chip, int channel) {
    cv::Mat plane;
    cv::extractChannel(chip, plane, channel);
    const cv::Moments m = cv::moments(plane > 128, true);
    return m.m00 > 0 ? cv::Point2f(float(m.m10 / m.m00), float(m.m01 / m.m00)) : cv::Point2f(-1, -1);
}

TEST(FaceChip, TiltedFaceComesOutLevelAtTheAnchor) {
    // Eyes (blue, green) and mouth (red) of a face turned by 30 degrees, as marks on black.
    cv::Mat image(600, 800, CV_8UC3, cv::Scalar::all(0));
    const cv::Point2f centre(400, 300);
    const double a = 30 * CV_PI / 180;
    auto at = [&](double x, double y) {
        return centre + cv::Point2f(float(x * std::cos(a) - y * std::sin(a)), float(x * std::sin(a) + y * std::cos(a)));
    };
    FacePoints face;
    face.box = cv::Rect(250, 150, 300, 300);
    face.hasEyes = face.hasMouth = true;
    face.leftEye = at(-60, -40);
    face.rightEye = at(60, -40);
    face.mouth = at(0, 80);
    cv::circle(image, face.leftEye, 8, cv::Scalar(255, 0, 0), cv::FILLED);
    cv::circle(image, face.rightEye, 8, cv::Scalar(0, 255, 0), cv::FILLED);
    cv::circle(image, face.mouth, 8, cv::Scalar(0, 0, 255), cv::FILLED);
    const cv::Mat chip = faceChip(image, face, 150);
    ASSERT_EQ(chip.size(), cv::Size(150, 150));
    const cv::Point2f left = centreOf(chip, 0), right = centreOf(chip, 1), mouth = centreOf(chip, 2);
    EXPECT_NEAR(left.y, right.y, 1.0);  // level
    EXPECT_LT(left.x, right.x);         // not mirrored
    EXPECT_GT(mouth.y, left.y + 30);    // upright
    // The centroid of the three at 50 % across, 43 % down; eye-to-mouth 45 % of the side.
    const cv::Point2f ref = (left + right + mouth) * (1.f / 3.f);
    EXPECT_NEAR(ref.x, 75, 1.5);
    EXPECT_NEAR(ref.y, 0.43 * 150, 1.5);
    EXPECT_NEAR(std::hypot(mouth.x - left.x, mouth.y - left.y), 0.45 * 150, 2.0);
}

TEST(FaceChip, WildPointsAndEdgesStillGiveACrop) {
    const cv::Mat image(480, 640, CV_8UC3, cv::Scalar(40, 80, 120));
    const float nan = std::numeric_limits<float>::quiet_NaN();
    FacePoints face;
    face.box = cv::Rect(600, 440, 40, 40);  // in the corner
    face.hasEyes = face.hasMouth = true;
    for (const cv::Point2f& p : {cv::Point2f(nan, 10), cv::Point2f(1e30f, -1e30f), cv::Point2f(610, 450)}) {
        face.leftEye = p;
        face.rightEye = p;  // the same point: no eye line
        face.mouth = p;
        EXPECT_EQ(faceChip(image, face, 150).size(), cv::Size(150, 150));
        EXPECT_EQ(paddedFaceCrop(image, face, 112).size(), cv::Size(112, 112));
    }
    face.box = cv::Rect(0, 0, 640, 480);  // a face filling the image: shrunk first
    face.hasEyes = face.hasMouth = false;
    EXPECT_EQ(faceChip(image, face, 150).size(), cv::Size(150, 150));
}

}  // namespace
}  // namespace kv
