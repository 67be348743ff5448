#include "nodes/pet_detector.h"

#include <algorithm>
#include <cmath>
#include <tuple>

#include <opencv2/imgproc.hpp>

#include "model/model_bundle.h"
#include "model/model_loading.h"
#include "nodes/pet_selection.h"
#include "nodes/shared_objects.h"

namespace kv {

namespace {

// Cats and dogs score 0.5 to 0.8 on clear photos; the best false candidates on the samples
// (the coffee cup, the rocket, the portraits) stay below 0.2.
constexpr float kMinPetScore = 0.35f;
constexpr int kWorkSide = 640;  // the cascade alone runs on at most this many pixels
constexpr int kCatSide = 128;   // a detected cat's size for the cascade

cv::Mat grayWork(const cv::Mat& bgr, double& scale) {
    scale = std::min(1.0, double(kWorkSide) / std::max(bgr.cols, bgr.rows));
    cv::Mat small, gray;
    if (scale < 1) {
        // Extreme shapes (1 x 16384) keep one row or column.
        const cv::Size size(std::max(1, int(bgr.cols * scale)), std::max(1, int(bgr.rows * scale)));
        cv::resize(bgr, small, size, 0, 0, cv::INTER_AREA);
    } else {
        small = bgr;
    }
    cv::cvtColor(small, gray, cv::COLOR_BGR2GRAY);
    return gray;
}

cv::Rect unscale(const cv::Rect& r, double scale, const cv::Size& size) {
    const cv::Rect full(int(r.x / scale), int(r.y / scale), int(r.width / scale), int(r.height / scale));
    return full & cv::Rect(cv::Point(), size);
}

}  // namespace

void PetDetector::load(const ModelBlob& blob) {
    const auto parts = bundleParts(blob);
    if (!parts.empty() && (!parts.count("cascade") || !parts.count("network"))) {
        throw Error(Vantor::INVALID_MODEL, "model \"" + blob.name + "\" lacks its cascade or network");
    }
    const ModelBlob& cascade = parts.empty() ? blob : parts.at("cascade");
    cats_ = sharedCascade(cascade);
    if (!parts.empty()) {
        objects_ = std::make_unique<ObjectDetector>(loadNetwork({{"network", parts.at("network")}}, "network", ObjectDetector::shape()));
    }
}

std::vector<PetDetection> PetDetector::detect(const cv::Mat& bgr, size_t maxCount, ExecuteMemo* memo, bool faces) const {
    std::vector<PetDetection> pets;
    if (!faces && objects_) {
        pets = find(bgr, memo, false);  // the detector's pass is shared through the memo
    } else if (memo != nullptr) {
        // Pet nodes loading the same cascade bytes hold the same SharedCascade.
        const std::string key = "pets:" + identity(objects_ ? objects_->network() : nullptr) + ":" + identity(cats_.get()) + "@" +
                                imageIdentity(bgr);
        pets = memo->get<std::vector<PetDetection>>(key, [&] { return find(bgr, memo, true); });
    } else {
        pets = find(bgr, nullptr, true);
    }
    if (pets.size() > maxCount) pets.resize(maxCount);
    return pets;
}

// Every pet, best first.
std::vector<PetDetection> PetDetector::find(const cv::Mat& bgr, ExecuteMemo* memo, bool faces) const {
    if (!objects_) return cascadeOnly(bgr);
    std::vector<PetDetection> pets;
    const std::vector<ObjectDetection> all = sharedObjects(*objects_, bgr, kMinPetScore, memo);
    for (const ObjectDetection& o : withoutPetsThatArePersons(all)) {
        if (o.cocoClass != kCocoCat && o.cocoClass != kCocoDog) continue;
        PetDetection pet;
        pet.type = o.cocoClass == kCocoCat ? 1 : 2;
        pet.score = o.score;
        const cv::Rect body = cv::Rect(o.box) & cv::Rect(cv::Point(), bgr.size());
        if (body.empty()) continue;
        pet.body = body;
        if (pet.type == 1 && faces) pet.face = catFace(bgr, body);
        pets.push_back(pet);
    }
    return pets;
}

// The largest cat face inside the cat's box. The cascade finds the faces of whole cats
// reliably only when they are small and framed: the cat's box is scaled to kCatSide pixels
// and surrounded by a third of that of mid grey (on the unframed cat photo, larger sizes or
// no frame find nothing or the nose alone).
std::optional<cv::Rect> PetDetector::catFace(const cv::Mat& bgr, const cv::Rect& cat) const {
    const double scale = double(kCatSide) / std::max(cat.width, cat.height);
    cv::Mat small, gray, framed;
    cv::resize(bgr(cat), small, cv::Size(std::max(1, int(std::lround(cat.width * scale))), std::max(1, int(std::lround(cat.height * scale)))),
               0, 0, scale < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
    cv::cvtColor(small, gray, cv::COLOR_BGR2GRAY);
    const int border = kCatSide / 3;
    cv::copyMakeBorder(gray, framed, border, border, border, border, cv::BORDER_CONSTANT, cv::Scalar::all(128));
    std::vector<cv::Rect> faces;
    cats_->detect([&](cv::CascadeClassifier& cats) { cats.detectMultiScale(framed, faces, 1.05, 3, 0, cv::Size(24, 24)); });
    for (cv::Rect& f : faces) f = (f - cv::Point(border, border)) & cv::Rect(cv::Point(), gray.size());
    faces.erase(std::remove_if(faces.begin(), faces.end(), [](const cv::Rect& f) { return f.empty(); }), faces.end());
    if (faces.empty()) return std::nullopt;
    const cv::Rect best = *std::max_element(faces.begin(), faces.end(), [](const cv::Rect& a, const cv::Rect& b) {
        return std::tuple(a.area(), -a.y, -a.x) < std::tuple(b.area(), -b.y, -b.x);
    });
    return unscale(best, scale, cat.size()) + cat.tl();
}

std::vector<PetDetection> PetDetector::cascadeOnly(const cv::Mat& bgr) const {
    double scale = 1;
    const cv::Mat gray = grayWork(bgr, scale);
    std::vector<cv::Rect> rects;
    std::vector<int> neighbours;
    cats_->detect([&](cv::CascadeClassifier& cats) { cats.detectMultiScale(gray, rects, neighbours, 1.05, 3, 0, cv::Size(24, 24)); });
    std::vector<size_t> order(rects.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) {
        if (rects[a].area() != rects[b].area()) return rects[a].area() > rects[b].area();
        return std::tie(rects[a].y, rects[a].x) < std::tie(rects[b].y, rects[b].x);
    });
    std::vector<PetDetection> pets;
    for (size_t k = 0; k < order.size(); ++k) {
        PetDetection pet;
        const int n = order[k] < neighbours.size() ? neighbours[order[k]] : 0;
        pet.score = n / (n + 10.f);
        pet.face = unscale(rects[order[k]], scale, bgr.size());
        pets.push_back(pet);
    }
    return pets;
}

}  // namespace kv
