// A small, turned QR code pasted into a photo is still found: anything that skips the
// detector on photos (a pre-test, a smaller search image) must keep these.
#include "nodes/qr_code_cue.h"

#include <string>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>

namespace kv {
namespace {

// photo with a code of pixelsPerModule pixels a module (and its quiet zone of 4 modules)
// turned by degrees about its centre, which lies a little right of and below the middle.
cv::Mat withCode(const cv::Mat& photo, int pixelsPerModule, double degrees) {
    cv::Mat code, padded, bgr;
    cv::QRCodeEncoder::create()->encode("https://example.org/vqfe", code);
    cv::resize(code, code, code.size() * pixelsPerModule, 0, 0, cv::INTER_NEAREST);
    const int quiet = 4 * pixelsPerModule;
    cv::copyMakeBorder(code, padded, quiet, quiet, quiet, quiet, cv::BORDER_CONSTANT, cv::Scalar(255));
    cv::cvtColor(padded, bgr, cv::COLOR_GRAY2BGR);
    cv::Mat turn = cv::getRotationMatrix2D({bgr.cols / 2.f, bgr.rows / 2.f}, degrees, 1.0);
    turn.at<double>(0, 2) += photo.cols * 0.6 - bgr.cols / 2.0;
    turn.at<double>(1, 2) += photo.rows * 0.55 - bgr.rows / 2.0;
    cv::Mat scene = photo.clone(), turned, mask;
    cv::warpAffine(bgr, turned, turn, photo.size(), cv::INTER_LINEAR);
    cv::warpAffine(cv::Mat(bgr.size(), CV_8U, cv::Scalar(255)), mask, turn, photo.size(), cv::INTER_NEAREST);
    turned.copyTo(scene, mask);
    return scene;
}

TEST(QrCodeCue, SmallTurnedCodeInAPhotoIsFound) {
    for (const std::string name : {"coffee.jpg", "rocket.jpg", "chelsea.jpg"}) {
        const cv::Mat photo = cv::imread(std::string(KORVID_TEST_DATA_DIR) + "/" + name);
        ASSERT_FALSE(photo.empty()) << name;
        EXPECT_EQ(qrCodeCue(photo), 0.0) << name;
        // 29 modules and the quiet zone: 74 px (2 a module) to 148 px (4 a module), a fifth
        // to a third of the 400 x 267 coffee photo.
        EXPECT_EQ(qrCodeCue(withCode(photo, 2, 45)), kFoundCode) << name << " 2 px a module, 45 degrees";
        EXPECT_EQ(qrCodeCue(withCode(photo, 3, 30)), kFoundCode) << name << " 3 px a module, 30 degrees";
        EXPECT_EQ(qrCodeCue(withCode(photo, 4, 15)), kFoundCode) << name << " 4 px a module, 15 degrees";
    }
}

}  // namespace
}  // namespace kv
