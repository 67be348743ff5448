#include "dnn/object_labels.h"

#include <gtest/gtest.h>

namespace kv {
namespace {

ObjectLabels table(const std::string& text) {
    ModelBlob blob;
    blob.name = "labels";
    blob.data = reinterpret_cast<const uint8_t*>(text.data());
    blob.size = text.size();
    return ObjectLabels::parse(blob);
}

ObjectDetection object(const std::string& name, float score, cv::Rect2f box) {
    ObjectDetection o;
    for (int c = 0; !cocoClassName(c).empty(); ++c) {
        if (cocoClassName(c) == name) o.cocoClass = c;
    }
    o.score = score;
    o.box = box;
    return o;
}

const cv::Size kImage(100, 100);

TEST(ObjectLabels, WeakDetectionsStayUnderTheShownConfidence) {
    const ObjectLabels labels = table("index\tlabel\tcount\tclasses\tshown from\tleast share\n"
                                      "110\t2201_dessert\t1+\tcake,donut\t0.7\t0\n"
                                      "193\tcat_c1_c2\t1+\tcat\t0.5\t0\n"
                                      "45\t2252_alone\t1-1\tperson\n");
    // A "cake" of 0.54 on a goldfish is no dessert shown; a clear cake is.
    EXPECT_LT(labels.probability(110, {object("cake", 0.54f, {0, 0, 60, 60})}, kImage), kShownClass);
    EXPECT_GT(labels.probability(110, {object("cake", 0.85f, {0, 0, 60, 60})}, kImage), 0.6);
    // The score shown from is the display floor; the ramp keeps the order of the scores.
    EXPECT_NEAR(labels.probability(193, {object("cat", 0.5f, {0, 0, 50, 50})}, kImage), kShownClass, 1e-6);
    EXPECT_GT(labels.probability(193, {object("cat", 0.58f, {0, 0, 50, 50})}, kImage), kShownClass);
    EXPECT_LT(labels.probability(193, {object("cat", 0.4f, {0, 0, 50, 50})}, kImage), kShownClass);
    EXPECT_NEAR(labels.probability(193, {object("cat", 1.f, {0, 0, 50, 50})}, kImage), 1.0, 1e-6);
    EXPECT_EQ(labels.probability(193, {object("dog", 0.9f, {0, 0, 50, 50})}, kImage), 0.0);
    // A row without the columns keeps the detector's score (numbers of people).
    EXPECT_FLOAT_EQ(static_cast<float>(labels.probability(45, {object("person", 0.45f, {0, 0, 50, 50})}, kImage)), 0.45f);
    for (double s = 0.05; s < 1; s += 0.05) EXPECT_LT(shownConfidence(s, 0.6), shownConfidence(s + 0.05, 0.6));
}

TEST(ObjectLabels, SceneSizedClassesNeedALargeBox) {
    const ObjectLabels labels = table("160\t2314_subway\t1+\ttrain\t0.5\t0.25\n");
    // A "train" on a sixth of a sunset over hills is none; the larger, weaker box counts.
    EXPECT_EQ(labels.probability(160, {object("train", 0.5f, {10, 10, 41, 41})}, kImage), 0.0);
    const double big = labels.probability(160, {object("train", 0.5f, {10, 10, 41, 41}), object("train", 0.45f, {0, 0, 60, 60})}, kImage);
    EXPECT_NEAR(big, shownConfidence(0.45, 0.5), 1e-6);
    EXPECT_EQ(labels.probability(160, {}, cv::Size(0, 0)), 0.0);
}

TEST(ObjectLabels, BadCalibrationColumnsAreRejected) {
    for (const std::string row : {"193\tcat_c1_c2\t1+\tcat\t0.5\n", "193\tcat_c1_c2\t1+\tcat\t1.5\t0\n", "193\tcat_c1_c2\t1+\tcat\t0\t0\n",
                                  "193\tcat_c1_c2\t1+\tcat\t0.5\t-0.1\n", "193\tcat_c1_c2\t1+\tcat\t0.5\tx\n", "193\tcat_c1_c2\t1+\tcat\t1\t0\n"}) {
        try {
            table(row);
            ADD_FAILURE() << row;
        } catch (const Error& e) {
            EXPECT_EQ(e.code, Vantor::INVALID_MODEL) << row;
        }
    }
}

}  // namespace
}  // namespace kv
