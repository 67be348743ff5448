// The square input of the image networks: where a landscape or portrait image lands in it
// and how network points map back to image pixels.
#include "dnn/letterbox.h"

#include <gtest/gtest.h>

namespace kv {
namespace {

TEST(Letterbox, CentresTheImageAndMapsPointsBack) {
    const NetworkInput in{"square", 3, 100, 100, true, {1, 1, 1}, {0, 0, 0}};
    const Letterbox wide = letterbox(cv::Mat(100, 200, CV_8UC3, cv::Scalar::all(255)), in);
    EXPECT_EQ(wide.area, cv::Rect(0, 25, 100, 50));
    EXPECT_EQ(wide.toImage(0.5f, 0.5f, 100), cv::Point2f(100, 50));  // the centres match
    EXPECT_EQ(wide.toImage(0, 0.25f, 100), cv::Point2f(0, 0));
    const int above[] = {0, 0, 10, 50}, inside[] = {0, 0, 50, 50};
    EXPECT_EQ(wide.blob.at<float>(above), 0.f);  // black above the image
    EXPECT_EQ(wide.blob.at<float>(inside), 255.f);
    const Letterbox tall = letterbox(cv::Mat(200, 100, CV_8UC3), in);
    EXPECT_EQ(tall.area, cv::Rect(25, 0, 50, 100));
    EXPECT_EQ(tall.toImage(0.25f, 1, 100), cv::Point2f(0, 200));
}

}  // namespace
}  // namespace kv
