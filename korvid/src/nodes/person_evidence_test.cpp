#include "nodes/person_evidence.h"

#include <gtest/gtest.h>

namespace kv {
namespace {

// A standing body of 17 key points filling box (head at the top, ankles at the bottom), each
// of score pointScore.
Pose standing(const cv::Rect2f& box, float pointScore) {
    Pose p;
    for (size_t k = 0; k < kPoseKeyPoints; ++k) {
        const float row = float(k) / (kPoseKeyPoints - 1);
        p.points[k] = {box.x + box.width * (k % 2 ? 0.3f : 0.7f), box.y + box.height * (0.05f + 0.9f * row)};
        p.scores[k] = pointScore;
    }
    p.score = pointScore;
    return p;
}

TEST(PersonEvidence, ABodyConfirmsOnlyWhenItFillsThePersonsBox) {
    const cv::Rect2f box(100, 50, 120, 300);
    EXPECT_TRUE(bodyConfirms(standing(box, 0.4f), box));
    // The space shuttle: a body of confident points folded into a corner of a large box.
    EXPECT_FALSE(bodyConfirms(standing({300, 200, 20, 70}, 0.4f), {86, 86, 420, 419}));
    // Head and shoulders of a portrait: few points, but spanning the box's width.
    Pose portrait = standing(box, 0.1f);
    for (size_t k : {0, 1, 2, 3, 4, 5, 6}) portrait.scores[k] = 0.6f;
    portrait.points[5].x = box.x;
    portrait.points[6].x = box.br().x;
    portrait.score = 0.3f;
    EXPECT_TRUE(bodyConfirms(portrait, box));
    // Too few points, too weak a body, or an empty box: no confirmation.
    Pose four = portrait;
    four.scores[0] = four.scores[1] = four.scores[2] = 0.1f;
    EXPECT_FALSE(bodyConfirms(four, box));
    EXPECT_FALSE(bodyConfirms(standing(box, 0.19f), box));
    Pose weakMean = standing(box, 0.4f);
    weakMean.score = 0.15f;
    EXPECT_FALSE(bodyConfirms(weakMean, box));
    EXPECT_FALSE(bodyConfirms(standing(box, 0.4f), {100, 50, 0, 0}));
    Pose nan = standing(box, 0.4f);
    nan.score = NAN;
    EXPECT_FALSE(bodyConfirms(nan, box));
}

TEST(PersonEvidence, PeopleNeedAPersonThatABodyConfirms) {
    const cv::Rect2f box(100, 50, 120, 300);
    const ObjectDetection strong{box, kCocoPerson, 0.8f}, middling{box, kCocoPerson, 0.45f};
    const BodyFinder body = [](const cv::Rect2f& b) { return std::optional<Pose>(standing(b, 0.4f)); };
    const BodyFinder noBody = [](const cv::Rect2f&) { return std::optional<Pose>(); };
    EXPECT_GE(peopleCue({middling}, body), kConfirmedPeople);
    EXPECT_LT(peopleCue({middling}, body), peopleCue({strong}, body));
    EXPECT_LE(peopleCue({strong}, body), 0.95);
    // However strong, a person without a body (or without a body network) is no evidence.
    EXPECT_LT(peopleCue({strong}, noBody), kConfirmedPeople);
    EXPECT_LE(peopleCue({strong}, nullptr), 0.35);
    EXPECT_EQ(peopleCue({{box, kCocoCat, 0.9f}}, body), 0.0);
    EXPECT_EQ(peopleCue({}, body), 0.0);

    // Persons are checked best first, at most kMaxBodyChecks of them, none under
    // kConfirmablePerson; a confirmed one further down still counts.
    std::vector<ObjectDetection> crowd(5, ObjectDetection{{0, 0, 50, 50}, kCocoPerson, 0.5f});
    crowd.push_back({box, kCocoPerson, 0.42f});
    size_t checks = 0;
    const BodyFinder onlyInBox = [&](const cv::Rect2f& b) {
        ++checks;
        return b == box ? std::optional<Pose>(standing(b, 0.4f)) : std::nullopt;
    };
    EXPECT_LT(peopleCue(crowd, onlyInBox), kConfirmedPeople);
    EXPECT_EQ(checks, kMaxBodyChecks);
    checks = 0;
    EXPECT_GE(peopleCue({{{0, 0, 50, 50}, kCocoPerson, 0.5f}, {box, kCocoPerson, 0.42f}}, onlyInBox), kConfirmedPeople);
    EXPECT_EQ(checks, 2u);
    checks = 0;
    EXPECT_LT(peopleCue({{box, kCocoPerson, 0.3f}}, onlyInBox), kConfirmedPeople);
    EXPECT_EQ(checks, 0u);
}

TEST(PersonEvidence, NumbersOfPeopleNeedAConfirmedPerson) {
    const cv::Rect2f box(100, 50, 120, 300);
    const BodyFinder body = [](const cv::Rect2f& b) { return std::optional<Pose>(standing(b, 0.4f)); };
    // The space shuttle: two persons of 0.51 and 0.50, a body folded into a corner of each.
    const std::vector<ObjectDetection> shuttle{{{86, 86, 420, 419}, kCocoPerson, 0.51f}, {{90, 90, 400, 400}, kCocoPerson, 0.5f}};
    const BodyFinder folded = [](const cv::Rect2f& b) { return std::optional<Pose>(standing({b.x, b.y, 20, 70}, 0.4f)); };
    EXPECT_LT(confirmedCount(0.5, peopleCue(shuttle, folded)), 0.18);
    EXPECT_LT(confirmedCount(0.9, peopleCue(shuttle, nullptr)), 0.18);  // no body network
    // A crowd of 29 where only the third person checked shows a body: the count stands.
    std::vector<ObjectDetection> crowd(29, ObjectDetection{{0, 0, 50, 50}, kCocoPerson, 0.6f});
    crowd[2].box = box;
    const BodyFinder onlyInBox = [&](const cv::Rect2f& b) { return b == box ? body(b) : std::nullopt; };
    EXPECT_DOUBLE_EQ(confirmedCount(0.6, peopleCue(crowd, onlyInBox)), 0.6);
    // Confirmation believes a count, never makes one: no count stays none, a weak one stays weak.
    EXPECT_EQ(confirmedCount(0, 0.95), 0.0);
    EXPECT_DOUBLE_EQ(confirmedCount(0.42, 0.9), 0.42);
    EXPECT_DOUBLE_EQ(confirmedCount(0.1, 0.3), 0.1);
}

}  // namespace
}  // namespace kv
