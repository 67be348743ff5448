#include "nodes/person_evidence.h"

#include <algorithm>
#include <cmath>

#include "nodes/cue_math.h"

namespace kv {

namespace {

// NanoDet's persons: portraits 0.73 to 0.88, small figures 0.3 to 0.6; false ones a space
// shuttle 0.51, a parrot 0.46, art 0.40 to 0.44, an owl 0.37 (docs/quality.md).
constexpr float kFullPerson = kConfirmablePerson + 0.5f;
constexpr float kStrongPerson = 0.55f;  // an unconfirmed person this strong reaches 0.35

}  // namespace

bool bodyConfirms(const Pose& body, const cv::Rect2f& person) {
    if (person.width <= 0 || person.height <= 0 || !(body.score >= kMinBodyScore)) return false;
    int points = 0;
    float left = INFINITY, top = INFINITY, right = -INFINITY, bottom = -INFINITY;
    for (size_t k = 0; k < kPoseKeyPoints; ++k) {
        if (!(body.scores[k] >= kBodyPointScore)) continue;
        const cv::Point2f p = body.points[k];
        ++points;
        left = std::min(left, p.x), top = std::min(top, p.y), right = std::max(right, p.x), bottom = std::max(bottom, p.y);
    }
    if (points < kMinBodyPoints) return false;
    const double span = std::max((right - left) / person.width, (bottom - top) / person.height);
    return span >= kMinBodySpan;
}

double peopleCue(const std::vector<ObjectDetection>& objects, const BodyFinder& bodyIn) {
    double best = 0;
    size_t checks = 0;
    for (const ObjectDetection& o : objects) {
        if (o.cocoClass != kCocoPerson || !(o.score >= kMinPersonScore)) continue;
        if (o.score >= kConfirmablePerson && checks < kMaxBodyChecks) {
            ++checks;
            const std::optional<Pose> body = bodyIn ? bodyIn(o.box) : std::nullopt;
            if (body && bodyConfirms(*body, o.box)) {
                // Persons come best first: no later one scores higher.
                return std::max(best, 0.5 + 0.45 * clamp01((o.score - kConfirmablePerson) / (kFullPerson - kConfirmablePerson)));
            }
        }
        best = std::max(best, 0.35 * clamp01(o.score / kStrongPerson));
    }
    return best;
}

bool needsBodyCheck(const std::vector<ObjectDetection>& objects) {
    return std::any_of(objects.begin(), objects.end(), [](const ObjectDetection& o) { return o.cocoClass == kCocoPerson && o.score >= kConfirmablePerson; });
}

double confirmedCount(double countScore, double cue) {
    return cue >= kConfirmedPeople ? countScore : std::min(countScore, kUnconfirmedCount * cue);
}

}  // namespace kv
