// Merging faces from overlapping searches, on made-up boxes: which of two overlapping faces
// survives, where the overlap thresholds lie, and the order of what is kept.
#include "dnn/face_suppression.h"

#include <gtest/gtest.h>

namespace kv {
namespace {

FaceDetection face(float x, float y, float side, float score) {
    FaceDetection d;
    d.box = cv::Rect2f(x, y, side, side);
    d.score = score;
    return d;
}

std::vector<float> scores(const std::vector<FaceDetection>& faces) {
    std::vector<float> s;
    for (const auto& f : faces) s.push_back(f.score);
    return s;
}

TEST(FaceSuppression, DropsTheWeakerOfTwoFacesOverlappingByMoreThanTheThreshold) {
    using S = std::vector<float>;
    EXPECT_TRUE(suppressOverlappingFaces({}).empty());
    // Shifted by 4.5 of 10: IoU 55 / 145 = 0.38, dropped (shared area over the sum of both
    // areas would be only 0.275).
    EXPECT_EQ(scores(suppressOverlappingFaces({face(0, 0, 10, 0.6f), face(4.5f, 0, 10, 0.9f)})), S({0.9f}));
    // Shifted by 5.5: IoU 45 / 155 = 0.29, both kept, best first.
    EXPECT_EQ(scores(suppressOverlappingFaces({face(0, 0, 10, 0.6f), face(5.5f, 0, 10, 0.9f)})), S({0.9f, 0.6f}));
    // A face mostly inside another (IoU only 0.09) goes, whichever of the two is better.
    EXPECT_EQ(scores(suppressOverlappingFaces({face(0, 0, 100, 0.8f), face(0, 0, 30, 0.7f)})), S({0.8f}));
    EXPECT_EQ(scores(suppressOverlappingFaces({face(0, 0, 100, 0.7f), face(0, 0, 30, 0.8f)})), S({0.8f}));
    // Half of the smaller face inside: kept.
    EXPECT_EQ(suppressOverlappingFaces({face(0, 0, 100, 0.7f), face(85, 0, 30, 0.8f)}).size(), 2u);
}

TEST(FaceSuppression, OnlyKeptFacesSuppressAndTiesKeepTheirOrder) {
    // b overlaps both a and c, which do not overlap each other: once a drops b, c stays.
    const auto kept = suppressOverlappingFaces({face(0, 0, 10, 0.9f), face(3, 0, 10, 0.8f), face(6.5f, 0, 10, 0.7f)});
    EXPECT_EQ(scores(kept), std::vector<float>({0.9f, 0.7f}));
    // Equal scores in input order, so the same image gives the same faces.
    const auto tied = suppressOverlappingFaces({face(0, 0, 10, 0.5f), face(20, 0, 10, 0.9f), face(40, 0, 10, 0.5f)});
    ASSERT_EQ(tied.size(), 3u);
    EXPECT_EQ(tied[0].box.x, 20);
    EXPECT_EQ(tied[1].box.x, 0);
    EXPECT_EQ(tied[2].box.x, 40);
}

}  // namespace
}  // namespace kv
