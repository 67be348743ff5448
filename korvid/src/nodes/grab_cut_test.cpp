#include "nodes/grab_cut.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

namespace kv {
namespace {

// A gradient with an ellipse of a near colour, a darker stripe through it, and strong noise:
// a scene where dropping or misplacing a single edge of the graph changes the cut.
cv::Mat scene() {
    cv::Mat image(120, 160, CV_8UC3);
    for (int y = 0; y < image.rows; ++y) {
        for (int x = 0; x < image.cols; ++x) image.at<cv::Vec3b>(y, x) = cv::Vec3b(uchar(60 + x / 2), uchar(120 + y / 3), 90);
    }
    cv::ellipse(image, cv::Point(85, 62), cv::Size(38, 28), 15, 0, 360, cv::Scalar(90, 130, 170), cv::FILLED);
    cv::line(image, cv::Point(50, 40), cv::Point(120, 85), cv::Scalar(30, 40, 120), 4);
    cv::Mat noise(image.size(), CV_8UC3);
    cv::RNG rng(7);
    rng.fill(noise, cv::RNG::UNIFORM, 0, 90);
    return image + noise;
}

cv::Mat opencvMask(const cv::Mat& image, cv::Mat seed, int iterations) {
    cv::theRNG().state = 0x4b6f72766964ULL;
    cv::Mat bg, fg;
    cv::grabCut(image, seed, cv::Rect(), bg, fg, iterations, cv::GC_INIT_WITH_MASK);
    return (seed == cv::GC_FGD) | (seed == cv::GC_PR_FGD);
}

// The graph over the free pixels gives OpenCV's masks, whichever way the fixed pixels lie:
// background outside a box (the salient seed), a certain foreground core (its edges fold
// into the source side), and fixed pixels inside the free region; over three iterations each
// cut starts from the flow of the one before (with colour terms of speckles that underflow).
void expectSameMasksAsOpenCv(const cv::Mat& image) {
    cv::Mat boxed(image.size(), CV_8U, cv::Scalar(cv::GC_BGD));
    boxed(cv::Rect(30, 20, 110, 85)).setTo(cv::GC_PR_BGD);
    cv::ellipse(boxed, cv::Point(85, 62), cv::Size(30, 20), 15, 0, 360, cv::Scalar(cv::GC_PR_FGD), cv::FILLED);
    cv::Mat cored = boxed.clone();
    cored(cv::Rect(80, 58, 10, 8)).setTo(cv::GC_FGD);
    cv::Mat holed = cored.clone();
    holed(cv::Rect(40, 30, 6, 6)).setTo(cv::GC_BGD);
    size_t grown = 0;  // masks larger than their certain core
    for (const cv::Mat& seed : {boxed, cored, holed}) {
        for (int iterations : {1, 3}) {
            const cv::Mat expected = opencvMask(image, seed.clone(), iterations);
            const cv::Mat mask = grabCut(image, seed.clone(), iterations);
            ASSERT_EQ(mask.size(), image.size());
            ASSERT_EQ(mask.type(), CV_8U);
            EXPECT_EQ(cv::countNonZero(mask != expected), 0) << iterations << " iterations";
            EXPECT_EQ(mask.at<uchar>(5, 5), 0);
            grown += cv::countNonZero(mask) > 80;
        }
    }
    EXPECT_GE(grown, 3u);  // the masks compared are not all empty
}

// On the noisy scene, and on it posterised to 16 levels a channel, most colours shared by many
// pixels of either side (the models learn and weigh a colour once, with its count of pixels).
TEST(GrabCut, SameMasksAsOpenCv) {
    const cv::Mat posterised = scene() & cv::Scalar(0xf0, 0xf0, 0xf0);
    for (const cv::Mat& image : {scene(), posterised}) {
        SCOPED_TRACE(image.data == posterised.data ? "posterised" : "noisy");
        expectSameMasksAsOpenCv(image);
    }
}

TEST(GrabCut, EdgeSeedsAndConvergence) {
    const cv::Mat image = scene();
    // One side missing: nothing to separate.
    EXPECT_EQ(cv::countNonZero(grabCut(image, cv::Mat(image.size(), CV_8U, cv::Scalar(cv::GC_PR_FGD)), 3)), 0);
    EXPECT_EQ(cv::countNonZero(grabCut(image, cv::Mat(image.size(), CV_8U, cv::Scalar(cv::GC_BGD)), 3)), 0);
    // Nothing free: the certain foreground as it was seeded.
    cv::Mat fixed(image.size(), CV_8U, cv::Scalar(cv::GC_BGD));
    fixed(cv::Rect(10, 10, 20, 20)).setTo(cv::GC_FGD);
    EXPECT_EQ(cv::countNonZero(grabCut(image, fixed, 2)), 400);
    // Stopping early on a settled mask gives the mask of the iteration it stopped after,
    // and the same mask on every call.
    cv::Mat seed(image.size(), CV_8U, cv::Scalar(cv::GC_BGD));
    seed(cv::Rect(30, 20, 110, 85)).setTo(cv::GC_PR_FGD);
    const cv::Mat early = grabCut(image, seed.clone(), 10, Convergence{100});
    EXPECT_EQ(cv::countNonZero(early != grabCut(image, seed.clone(), 10, Convergence{100})), 0);
    bool matchesSome = false;
    for (int n = 2; n <= 10 && !matchesSome; ++n) matchesSome = cv::countNonZero(early != grabCut(image, seed.clone(), n)) == 0;
    EXPECT_TRUE(matchesSome);
}

}  // namespace
}  // namespace kv
