// Region family: saliency_seg (kind 60), matting (12), face_pet_detect (71 or 95) and
// skeleton (7). Saliency is OpenCV's spectral-residual detector; matting is the selfie
// segmentation network where people are present, otherwise, like pet matting, GrabCut seeded
// from saliency or from the pet; pets are the NanoDet object detector's cats and dogs, cat
// faces a Haar cascade inside them; the skeleton is the MoveNet network. korvid/README.md
// says what each field holds.
#include <algorithm>
#include <cmath>
#include <string>

#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>
#include <opencv2/saliency.hpp>

#include "Vantor/SegmentationBuffers.h"
#include "dnn/person_segmenter.h"
#include "dnn/pose_estimator.h"
#include "graph/execute_memo.h"
#include "model/model_bundle.h"
#include "model/model_loading.h"
#include "nodes/drawing_gate.h"
#include "nodes/grab_cut.h"
#include "nodes/image_stats.h"
#include "nodes/lazy_wrapper.h"
#include "nodes/node_helpers.h"
#include "nodes/node_types.h"
#include "nodes/pet_detector.h"
#include "nodes/pet_selection.h"
#include "nodes/shared_objects.h"

namespace kv {

using Vantor::AlgorithmType;

namespace {

constexpr int kWorkSide = 256;  // masks are computed at most this large
constexpr size_t kMaxPets = 256;  // the most a pet node returns ("face_pet_detect_max_num")

std::vector<int32_t> typeList(AlgorithmType t) { return {static_cast<int32_t>(t)}; }

struct SalientRegion {
    cv::Mat gray;      // analysed grey image
    cv::Mat saliency;  // 8-bit saliency map, same size
    cv::Mat region;    // 255 on the largest salient component
    cv::Rect box;      // its bounding box (empty when none)
    cv::RotatedRect rotated;
};

// Spectral residual saliency, Otsu threshold, largest 8-connected component.
SalientRegion salientRegion(const cv::Mat& small) {
    SalientRegion s;
    cv::cvtColor(small, s.gray, cv::COLOR_BGR2GRAY);
    cv::saliency::StaticSaliencySpectralResidual detector;
    cv::Mat map;
    if (!detector.computeSaliency(s.gray, map)) throw Error(Vantor::INVALID_NODE, "saliency failed");
    cv::normalize(map, map, 0, 255, cv::NORM_MINMAX);
    map.convertTo(s.saliency, CV_8U);
    cv::Mat binary;
    cv::threshold(s.saliency, binary, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
    cv::Mat labels, stats, centroids;
    const int n = cv::connectedComponentsWithStats(binary, labels, stats, centroids, 8);
    int best = 0, bestArea = 0;
    for (int i = 1; i < n; ++i) {
        if (stats.at<int>(i, cv::CC_STAT_AREA) > bestArea) {
            bestArea = stats.at<int>(i, cv::CC_STAT_AREA);
            best = i;
        }
    }
    s.region = cv::Mat::zeros(s.gray.size(), CV_8U);
    if (best > 0) {
        s.region = labels == best;
        s.box = cv::Rect(stats.at<int>(best, cv::CC_STAT_LEFT), stats.at<int>(best, cv::CC_STAT_TOP),
                         stats.at<int>(best, cv::CC_STAT_WIDTH), stats.at<int>(best, cv::CC_STAT_HEIGHT));
        std::vector<cv::Point> points;
        cv::findNonZero(s.region, points);
        s.rotated = cv::minAreaRect(points);
    }
    return s;
}

// The salient region of `small` (the input image `bgr` shrunk), computed once per execute for
// the saliency and matting nodes.
SalientRegion sharedSalientRegion(const cv::Mat& bgr, const cv::Mat& small, ExecuteMemo* memo) {
    if (!memo) return salientRegion(small);
    const std::string key = "salient:" + std::to_string(small.cols) + 'x' + std::to_string(small.rows) + '@' + imageIdentity(bgr);
    return memo->get<SalientRegion>(key, [&] { return salientRegion(small); });
}

// GrabCut (nodes/grab_cut.h) stops early once an iteration after the first changes fewer
// than 1 in `settled` pixels: pets' masks at 0.1% (30 ms of its 100 ms, the same mask on
// the pet photos), the salient region's at 0.2% checked after the second iteration only
// (later iterations can still move those masks, but by at most 1% of the mask on the
// quality photos; docs/performance.md).
constexpr Convergence kPetSettled{1000};
constexpr Convergence kSalientSettled{500, 1};

cv::Rect boundingBox(const cv::Mat& mask) {
    std::vector<cv::Point> points;
    cv::findNonZero(mask, points);
    return points.empty() ? cv::Rect() : cv::boundingRect(points);
}

class SaliencyNode : public Node {
public:
    void load(const NodeParams&, const ModelSet& models) override {
        if (models.count("saliency_model_key")) {
            cv::FileStorage fs = openParams(models.at("saliency_model_key"), "saliency");
            side_ = static_cast<int>(paramOr(fs, "work_side", kWorkSide));
            if (side_ < 32 || side_ > 1024) throw Error(Vantor::INVALID_MODEL, "saliency work_side out of range");
        }
    }

    std::unique_ptr<NodeOutput> run(const NodeParams& params, const std::vector<NodeOutput*>& inputs) override {
        const cv::Mat& bgr = inputAs<ImageOutput>(inputs, 0).bgr;
        const cv::Mat small = sharedShrink(bgr, side_, memo);
        const SalientRegion s = sharedSalientRegion(bgr, small, memo);
        Glintcore::SharePtr<Vantor::SaliencySegInfo> info(new Vantor::SaliencySegInfo());
        info->valid = !s.box.empty();
        info->realW = float(bgr.cols);
        info->realH = float(bgr.rows);
        info->imgW = float(small.cols);
        info->imgH = float(small.rows);
        if (info->valid) {
            info->bboxCenterX = (s.box.x + s.box.width / 2.f) / small.cols;
            info->bboxCenterY = (s.box.y + s.box.height / 2.f) / small.rows;
            info->bboxWidth = float(s.box.width) / small.cols;
            info->bboxHeight = float(s.box.height) / small.rows;
            info->bboxRotateAngle = s.rotated.angle;
        }
        info->modelIndex = static_cast<int32_t>(params.intOr("saliency_model_type", 0));
        cv::Mat alpha;
        s.saliency.copyTo(alpha, s.region);
        info->alpha = Glintcore::PrimitiveVector<uint8_t>(alpha.datastart, alpha.dataend);
        info->input = Glintcore::PrimitiveVector<uint8_t>(s.gray.datastart, s.gray.dataend);
        auto out = std::make_unique<BufferOutput<Vantor::VantorBuffer>>(
            typeList(AlgorithmType::SaliencySeg), std::make_unique<Vantor::VantorBuffer>(Vantor::BUFFER_TYPE_SALIENCY_SEG));
        out->buffer->infos.push_back(Glintcore::SharePtr<Vantor::VantorBufferInfo>(info));
        return out;
    }

    std::vector<int32_t> producedTypes(const NodeParams&, const std::vector<std::string>&) const override {
        return typeList(AlgorithmType::SaliencySeg);
    }

private:
    int side_ = kWorkSide;
};

// GrabCut seeded from saliency: the border is background, the salient region probable
// foreground, the rest of its (10% enlarged) box probable background. No salient region:
// an empty mask.
cv::Mat salientGrabCut(const cv::Mat& small, const SalientRegion& s, int iterations) {
    if (s.box.empty()) return cv::Mat::zeros(small.size(), CV_8U);
    cv::Mat seed(small.size(), CV_8U, cv::Scalar(cv::GC_BGD));
    const int dx = s.box.width / 10 + 1, dy = s.box.height / 10 + 1;
    cv::Rect grown = cv::Rect(s.box.x - dx, s.box.y - dy, s.box.width + 2 * dx, s.box.height + 2 * dy) &
                     cv::Rect(1, 1, small.cols - 2, small.rows - 2);
    seed(grown).setTo(cv::GC_PR_BGD);
    seed.setTo(cv::GC_PR_FGD, s.region);
    seed.row(0).setTo(cv::GC_BGD);
    seed.row(seed.rows - 1).setTo(cv::GC_BGD);
    seed.col(0).setTo(cv::GC_BGD);
    seed.col(seed.cols - 1).setTo(cv::GC_BGD);
    return grabCut(small, seed, iterations, kSalientSettled);
}

// The segmentation network's mask (probability >= 0.5, scaled bilinearly to size) where
// people are present, otherwise empty. Present: persons detected (score >= 0.4, as the scene
// nodes' "people") whose boxes the mask covers by at least half. The network marks the main
// subject of most photos, people or not (a cat, sushi, a gamepad: 0.97 to 0.995 mean
// probability inside its mask, as on portraits), so its mask alone cannot tell. Cover on the
// quality photos: portraits 0.55 to 0.69, an astronaut on the Moon 0.55; small figures 0.06
// and a group photo 0 (the network misses them: GrabCut there); false persons on a shuttle
// 0.46, on a parrot 0.25.
constexpr float kMinPersonScore = 0.4f;
constexpr double kMinPersonCover = 0.5;

cv::Mat personMask(const cv::Mat& probability, const std::vector<ObjectDetection>& objects, const cv::Size& imageSize,
                   const cv::Size& size) {
    cv::Mat persons = cv::Mat::zeros(probability.size(), CV_8U);
    const double toMask = double(probability.cols) / imageSize.width;
    for (const ObjectDetection& o : objects) {
        if (o.cocoClass != kCocoPerson || o.score < kMinPersonScore) continue;
        const cv::Rect box(cv::Point(int(std::floor(o.box.x * toMask)), int(std::floor(o.box.y * toMask))),
                           cv::Point(int(std::ceil(o.box.br().x * toMask)), int(std::ceil(o.box.br().y * toMask))));
        persons(box & cv::Rect(cv::Point(), probability.size())).setTo(255);
    }
    const int inBoxes = cv::countNonZero(persons);
    const double cover = inBoxes > 0 ? cv::countNonZero((probability >= 0.5f) & persons) / double(inBoxes) : 0;
    if (cover < kMinPersonCover) return cv::Mat();
    cv::Mat scaled;
    cv::resize(probability, scaled, size, 0, 0, cv::INTER_LINEAR);
    return scaled >= 0.5f;
}

// Matting: where people are present, the person segmentation network's mask (the node's
// model is a bundle of "params", "network", the segmentation network, and "objects", the
// object detector); otherwise, and with a bare parameter file or no model, GrabCut seeded
// from saliency.
class MattingNode : public Node {
public:
    std::map<std::string, std::string> defaultModels() const override { return {{"matting_model_key", "qm_matting"}}; }

    void load(const NodeParams&, const ModelSet& models) override {
        if (!models.count("matting_model_key")) return;
        const ModelBlob& blob = models.at("matting_model_key");
        const auto parts = bundleParts(blob);
        if (!parts.empty() && (!parts.count("params") || !parts.count("network") || !parts.count("objects"))) {
            throw Error(Vantor::INVALID_MODEL, "model \"" + blob.name + "\" lacks its params, network or objects");
        }
        cv::FileStorage fs = openParams(parts.empty() ? blob : parts.at("params"), "matting");
        iterations_ = static_cast<int>(paramOr(fs, "iterations", 3));
        if (!parts.empty()) {
            persons_ = std::make_unique<PersonSegmenter>(loadNetwork({{"network", parts.at("network")}}, "network", PersonSegmenter::shape()));
            objects_ = std::make_unique<ObjectDetector>(loadNetwork({{"network", parts.at("objects")}}, "network", ObjectDetector::shape()));
        }
    }

    std::unique_ptr<NodeOutput> run(const NodeParams& params, const std::vector<NodeOutput*>& inputs) override {
        const int iterations = static_cast<int>(params.intOr("matting_iterations", iterations_));
        if (iterations < 1 || iterations > 20) throw Error(Vantor::INVALID_NODE, "matting_iterations out of range");
        const cv::Mat& bgr = inputAs<ImageOutput>(inputs, 0).bgr;
        const cv::Mat small = sharedShrink(bgr, kWorkSide, memo);
        cv::Mat mask;
        if (persons_) {
            // The network runs only when the detector finds a person.
            const std::vector<ObjectDetection> objects = sharedObjects(*objects_, bgr, kMinPersonScore, memo);
            const bool person = std::any_of(objects.begin(), objects.end(),
                                            [](const ObjectDetection& o) { return o.cocoClass == kCocoPerson && o.score >= kMinPersonScore; });
            if (person) mask = personMask(persons_->segment(bgr), objects, bgr.size(), small.size());
        }
        if (mask.empty()) mask = salientGrabCut(small, sharedSalientRegion(bgr, small, memo), iterations);
        auto out = std::make_unique<BufferOutput<Vantor::MattingBuffer>>(typeList(AlgorithmType::Matting));
        Glintcore::SharePtr<Vantor::MattingResult> result(new Vantor::MattingResult());
        result->width = small.cols;
        result->height = small.rows;
        result->mask = Glintcore::PrimitiveVector<uint8_t>(mask.datastart, mask.dataend);
        result->rect = normalised(boundingBox(mask), small.size());
        out->buffer->result = result;
        return out;
    }

    std::vector<int32_t> producedTypes(const NodeParams&, const std::vector<std::string>&) const override {
        return typeList(AlgorithmType::Matting);
    }

private:
    int iterations_ = 3;
    std::unique_ptr<PersonSegmenter> persons_;
    std::unique_ptr<ObjectDetector> objects_;
};

class FacePetNode : public Node {
public:
    void load(const NodeParams&, const ModelSet& models) override {
        const ModelBlob& blob = requireModel(models, "face_pet_detect_model_key");
        pets_.load(blob);
        drawing_ = drawingClassifier(blob);
    }

    std::unique_ptr<NodeOutput> run(const NodeParams& params, const std::vector<NodeOutput*>& inputs) override {
        const cv::Mat& bgr = inputAs<ImageOutput>(inputs, 0).bgr;
        const long maxNum = params.intOr("face_pet_detect_max_num", 5);
        if (maxNum < 1 || maxNum > 256) throw Error(Vantor::INVALID_NODE, "face_pet_detect_max_num out of range");
        // Matting seeds GrabCut with the detector's box alone: cat faces only without one.
        const bool matting = imageMode(params) != 1;
        std::vector<PetDetection> pets = onePetPerAnimal(pets_.detect(bgr, kMaxPets, memo, !matting));
        pets.erase(std::remove_if(pets.begin(), pets.end(),
                                  [&](const PetDetection& p) { return !standsOnPicture(drawing_.get(), bgr, memo, p.score, kStrongPet); }),
                   pets.end());
        if (pets.size() > static_cast<size_t>(maxNum)) pets.resize(static_cast<size_t>(maxNum));

        if (!matting) {
            auto out = std::make_unique<BufferOutput<Vantor::FacePetDetectBuffer>>(typeList(AlgorithmType::FacePetDetect));
            for (size_t k = 0; k < pets.size(); ++k) {
                auto info = Glintcore::makeShared<Vantor::FacePetInfo>();
                info->facePetType = pets[k].type;
                // The face where the cascade found one, otherwise the animal (dogs always).
                info->rect = normalised(pets[k].face ? *pets[k].face : *pets[k].body, bgr.size());
                info->score = pets[k].score;
                info->id = static_cast<int32_t>(k);
                out->buffer->infos.push_back(info);
            }
            return out;
        }

        // Pet matting: GrabCut per pet (at most two). With the detector: its box probable
        // foreground, the face (if any) certain; from a face alone: the face probable
        // foreground inside a box widened sideways and extended downwards for the body.
        const cv::Mat work = sharedShrink(bgr, kWorkSide, memo);
        const double toWork = double(work.cols) / bgr.cols;
        auto scaled = [&](const cv::Rect& r) {
            return cv::Rect(int(r.x * toWork), int(r.y * toWork), int(r.width * toWork), int(r.height * toWork));
        };
        auto out = std::make_unique<BufferOutput<Vantor::PetMattingBuffer>>(typeList(AlgorithmType::PetMatting));
        Glintcore::SharePtr<Vantor::PetMattingInfo> info(new Vantor::PetMattingInfo());
        info->maskWidth = work.cols;
        info->maskHeight = work.rows;
        for (size_t k = 0; k < pets.size() && k < 2; ++k) {
            const cv::Rect inner(1, 1, work.cols - 2, work.rows - 2);
            cv::Mat seed(work.size(), CV_8U, cv::Scalar(cv::GC_BGD));
            if (pets[k].body) {
                seed(scaled(*pets[k].body) & inner).setTo(cv::GC_PR_FGD);
            } else {
                const cv::Rect face = scaled(*pets[k].face);
                const cv::Rect body(face.x - face.width * 6 / 10, face.y - face.height * 4 / 10, face.width * 22 / 10, face.height * 3);
                seed(body & inner).setTo(cv::GC_PR_BGD);
                seed(face & inner).setTo(cv::GC_PR_FGD);
            }
            cv::Mat mask = grabCut(work, seed, 3, kPetSettled);
            (k == 0 ? info->mask0 : info->mask1) = Glintcore::PrimitiveVector<uint8_t>(mask.datastart, mask.dataend);
            ++info->maskCount;
        }
        out->buffer->info = info;
        return out;
    }

    std::vector<int32_t> producedTypes(const NodeParams& params, const std::vector<std::string>&) const override {
        return typeList(imageMode(params) == 1 ? AlgorithmType::FacePetDetect : AlgorithmType::PetMatting);
    }

private:
    static long imageMode(const NodeParams& params) { return params.intOr("face_pet_detect_use_imagemode", 0); }

    // On a drawing only pets the detector is this sure of stand (docs/quality.md).
    static constexpr float kStrongPet = 0.6f;
    PetDetector pets_;
    std::unique_ptr<ContentClassifier> drawing_;
};

// Skeleton: the people MoveNet finds (dnn/pose_estimator.h), strongest first, at most
// skeleton_body_max_count of them; nobody in the image, no skeleton.
class SkeletonNode : public Node {
public:
    void load(const NodeParams&, const ModelSet& models) override {
        const ModelBlob& blob = requireModel(models, "skeleton_model_key");
        estimator_ = std::make_unique<PoseEstimator>(blob);
        // The content classifier and the detector, carried or named (qm_skeleton names them:
        // fetched on the first image that needs them).
        const auto parts = bundleParts(blob);
        if (parts.count("drawing")) drawing_ = LazyWrapper<ContentClassifier>(parts.at("drawing"), ContentClassifier::shape());
        if (parts.count("objects")) objects_ = LazyWrapper<ObjectDetector>(parts.at("objects"), ObjectDetector::shape());
    }

    std::unique_ptr<NodeOutput> run(const NodeParams& params, const std::vector<NodeOutput*>& inputs) override {
        const cv::Mat& bgr = inputAs<ImageOutput>(inputs, 0).bgr;
        const long maxCount = params.intOr("skeleton_body_max_count", 2);
        if (maxCount < 1 || maxCount > 64) throw Error(Vantor::INVALID_NODE, "skeleton_body_max_count out of range");
        auto out = std::make_unique<BufferOutput<Vantor::SkeletonBuffer>>(typeList(AlgorithmType::Skeleton));
        out->buffer->isExecuted = true;
        out->buffer->sourceWidth = bgr.cols;
        out->buffer->sourceHeight = bgr.rows;
        const float w = float(bgr.cols), h = float(bgr.rows);
        // Without a detector in the bundle skeletons stand anywhere; a named one that cannot be
        // fetched sees nobody, as a named classifier that cannot be fetched sees a drawing:
        // without the evidence, no body is claimed.
        bool people = true;
        if (objects_.present()) {
            const ObjectDetector* detector = objects_.get();
            people = detector != nullptr && personSeen(sharedObjects(*detector, bgr, kMinPersonScore, memo));
        }
        // Without a person, MoveNet does not run.
        for (const Pose& pose : people ? estimator_->estimate(bgr) : std::vector<Pose>{}) {
            if (long(out->buffer->infos.size()) >= maxCount) break;
            if (pose.score < kStrongPose && drawing_.present()) {
                const ContentClassifier* drawing = drawing_.get();
                if (drawing == nullptr || !standsOnPicture(drawing, bgr, memo, pose.score, kStrongPose)) continue;
            }
            auto person = Glintcore::makeShared<Vantor::SkeletonInfo>();
            for (size_t k = 0; k < kPoseKeyPoints; ++k) {
                person->keyPoints.push_back(Glintcore::Vector2f{pose.points[k].x / w, pose.points[k].y / h});
                person->keyPointsDetected.push_back(pose.scores[k] >= kMinPointScore ? 1 : 0);
                person->keyPointsScore.push_back(pose.scores[k]);
            }
            const cv::Rect2f box = pose.box & cv::Rect2f(0, 0, w, h);
            person->rect = Glintcore::Rect{box.x / w, box.y / h, box.width / w, box.height / h};
            out->buffer->infos.push_back(person);
        }
        return out;
    }

    std::vector<int32_t> producedTypes(const NodeParams&, const std::vector<std::string>&) const override {
        return typeList(AlgorithmType::Skeleton);
    }

private:
    // Skeletons stand on images where the object detector sees a person: MoveNet draws
    // bodies into the shapes of wallpapers, with key point scores like those of real people
    // seen from behind (docs/quality.md). The skeleton itself need not lie on a detected
    // person: MoveNet finds people the detector misses (one behind a railing, in the ascent).
    static bool personSeen(const std::vector<ObjectDetection>& objects) {
        return std::any_of(objects.begin(), objects.end(), [](const ObjectDetection& o) { return o.cocoClass == kCocoPerson; });
    }

    static constexpr float kMinPointScore = 0.3f;
    // On a drawing only people MoveNet is this sure of stand (docs/quality.md).
    static constexpr float kStrongPose = 0.4f;
    // A person the detector is this sure of confirms the skeletons (real people score 0.41
    // and up, the crowd's small figures from 0.3; the mouse wallpaper has none from 0.2).
    static constexpr float kMinPersonScore = 0.3f;
    std::unique_ptr<PoseEstimator> estimator_;
    LazyWrapper<ObjectDetector> objects_;
    LazyWrapper<ContentClassifier> drawing_;
};

}  // namespace

std::vector<NodeType> regionNodeTypes() {
    const std::vector<SlotSpec> image{{Port::Image, true}};
    return {
        {"saliency_seg", image, Port::None, [] { return std::make_unique<SaliencyNode>(); }},
        {"matting", image, Port::None, [] { return std::make_unique<MattingNode>(); }},
        {"face_pet_detect", image, Port::None, [] { return std::make_unique<FacePetNode>(); }},
        {"skeleton", image, Port::None, [] { return std::make_unique<SkeletonNode>(); }},
    };
}

}  // namespace kv
