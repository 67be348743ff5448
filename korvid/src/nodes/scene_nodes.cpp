// Whole-image family: after_effect (kind 30), scene_recognition (25), scene_recog_v3
// (58), porn_cls (33) and similarity (29). The scene labels come from the regions of the
// scene (scene_evidence.h) and the object detector's persons; the others are image
// statistics (image_stats.h) or a perceptual hash. korvid/README.md gives every formula.
#include <algorithm>
#include <cmath>

#include <opencv2/img_hash.hpp>
#include <opencv2/imgproc.hpp>

#include "Vantor/SceneBuffers.h"
#include "dnn/object_detector.h"
#include "dnn/pose_estimator.h"
#include "model/model_bundle.h"
#include "model/model_loading.h"
#include "nodes/body_check.h"
#include "nodes/content_cues.h"
#include "nodes/cue_math.h"
#include "nodes/face_output.h"
#include "nodes/image_stats.h"
#include "nodes/lazy_wrapper.h"
#include "nodes/node_helpers.h"
#include "nodes/node_types.h"
#include "nodes/person_evidence.h"
#include "nodes/scene_evidence.h"
#include "nodes/sensitive_content.h"
#include "nodes/shared_objects.h"
#include "nodes/text_cues.h"

namespace kv {

using Vantor::AlgorithmType;

namespace {

std::vector<int32_t> typeList(AlgorithmType t) { return {static_cast<int32_t>(t)}; }

class AfterEffectNode : public Node {
public:
    std::unique_ptr<NodeOutput> run(const NodeParams&, const std::vector<NodeOutput*>& inputs) override {
        const cv::Mat& bgr = inputAs<ImageOutput>(inputs, 0).bgr;
        const ImageStats s = sharedImageStats(bgr, memo);
        Vantor::AEScoreInfo info;
        info.sharpnessScore = static_cast<float>(sharpnessScore(s.sharpness));
        const double exposure = 1.0 - std::abs(s.brightness - 0.5) * 2.0;
        info.qualityScore = static_cast<float>(0.4 * info.sharpnessScore + 0.3 * exposure + 0.3 * s.contrast);
        double largest = 0, bestScore = 0;
        if (inputs.size() > 1 && inputs[1] != nullptr) {
            for (const DetectedFace& f : inputAs<FaceOutput>(inputs, 1).faces) {
                double ratio = double(f.box.area()) / double(bgr.total());
                if (ratio > largest) {
                    largest = ratio;
                    bestScore = f.score;
                }
            }
        }
        info.portraitScore = static_cast<float>(clamp01(largest / 0.15));
        info.faceScore = static_cast<float>(bestScore * info.portraitScore);
        info.meaninglessScore = static_cast<float>(clamp01(1.0 - s.edgeDensity / 0.08) * (1.0 - s.entropy));
        info.score = static_cast<float>(clamp01(0.5 * info.qualityScore + 0.2 * s.colourfulness +
                                                0.3 * std::max<double>(info.faceScore, 1.0 - info.meaninglessScore)));
        auto out = std::make_unique<BufferOutput<Vantor::AfterEffectBuffer>>(typeList(AlgorithmType::AfterEffect));
        out->buffer->scores.push_back(info);
        return out;
    }

    std::vector<int32_t> producedTypes(const NodeParams&, const std::vector<std::string>&) const override {
        return typeList(AlgorithmType::AfterEffect);
    }
};

// The labels (cue names) and thresholds a scene node reports, from its parameters
// "scene_labels" and "scene_thresholds" (comma lists); all cues at 0.5 by default.
struct LabelSet {
    std::vector<std::string> labels;
    std::vector<float> thresholds;
};

LabelSet sceneLabels(const NodeParams& params) {
    LabelSet set;
    set.labels = splitText(params.stringOr("scene_labels", ""), ',');
    if (set.labels.empty()) set.labels = sceneLabelNames();
    const SceneEvidence probe;
    double unused;
    for (const std::string& l : set.labels) {
        if (!sceneCue(l, probe, unused)) throw Error(Vantor::INVALID_NODE, "unknown scene label \"" + l + "\"");
    }
    std::vector<std::string> thresholds = splitText(params.stringOr("scene_thresholds", ""), ',');
    if (!thresholds.empty() && thresholds.size() != set.labels.size()) {
        throw Error(Vantor::INVALID_NODE, "scene_thresholds and scene_labels differ in length");
    }
    for (size_t i = 0; i < set.labels.size(); ++i) {
        float t = 0.5f;
        if (!thresholds.empty()) {
            char* end = nullptr;
            t = std::strtof(thresholds[i].c_str(), &end);
            if (end == thresholds[i].c_str() || *end != '\0' || !std::isfinite(t)) {
                throw Error(Vantor::INVALID_NODE, "bad scene threshold \"" + thresholds[i] + "\"");
            }
        }
        set.thresholds.push_back(t);
    }
    return set;
}

class SceneNode : public Node {
public:
    std::map<std::string, std::string> defaultModels() const override { return {{"scene_model_key", "qm_c1_small"}}; }

    void load(const NodeParams&, const ModelSet& models) override {
        if (!models.count("scene_model_key")) return;
        const ModelBlob& blob = models.at("scene_model_key");
        const auto parts = bundleParts(blob);
        if (parts.empty()) {
            openParams(blob, "scene");
            return;
        }
        if (!parts.count("params") || !parts.count("network")) {
            throw Error(Vantor::INVALID_MODEL, "model \"" + blob.name + "\" lacks its params or network");
        }
        openParams(parts.at("params"), "scene");
        objects_ = std::make_unique<ObjectDetector>(loadNetwork({{"network", parts.at("network")}}, "network", ObjectDetector::shape()));
        if (parts.count("single")) bodies_ = BodyCheck(parts.at("single"));
    }

    std::unique_ptr<NodeOutput> run(const NodeParams& params, const std::vector<NodeOutput*>& inputs) override {
        const cv::Mat& bgr = inputAs<ImageOutput>(inputs, 0).bgr;
        const LabelSet set = sceneLabels(params);
        const std::vector<double> values = labelValues(set, bgr);
        auto out = std::make_unique<BufferOutput<Vantor::SceneRecogBuffer>>(typeList(AlgorithmType::SceneRecog));
        float best = -1.f;
        for (size_t i = 0; i < set.labels.size(); ++i) {
            const double v = values[i];
            auto info = Glintcore::makeShared<Vantor::SceneRecogInfo>();
            info->name = set.labels[i];
            info->prob = static_cast<float>(v);
            info->satisfied = info->prob >= set.thresholds[i];
            if (info->satisfied && info->prob > best) {
                best = info->prob;
                out->buffer->choose = static_cast<int32_t>(i);
            }
            out->buffer->infos.push_back(info);
        }
        return out;
    }

    std::vector<int32_t> producedTypes(const NodeParams&, const std::vector<std::string>&) const override {
        return typeList(AlgorithmType::SceneRecog);
    }

protected:
    // The value of each label from the scene's evidence; "people" from the detector's
    // persons that a body confirms (0 without a detector: nothing else is evidence of people).
    std::vector<double> labelValues(const LabelSet& set, const cv::Mat& bgr) {
        const SceneEvidence evidence = sceneEvidence(bgr, memo);
        std::vector<double> values;
        for (const std::string& label : set.labels) {
            double v = 0;
            if (label == "people") v = objects_ ? sharedPeopleCue(*objects_, &bodies_, bgr, memo) : 0.0;
            else if (label == "document") v = documentCue(sharedText(bgr, memo));  // the words Tesseract reads
            else sceneCue(label, evidence, v);
            values.push_back(v);
        }
        return values;
    }

private:
    std::unique_ptr<ObjectDetector> objects_;
    BodyCheck bodies_;  // MoveNet's single-person network: bodies confirm persons
};

class SceneV3Node : public SceneNode {
public:
    std::map<std::string, std::string> defaultModels() const override { return {{"scene_model_key", "qm_c1_det"}}; }

    std::unique_ptr<NodeOutput> run(const NodeParams& params, const std::vector<NodeOutput*>& inputs) override {
        const cv::Mat& bgr = inputAs<ImageOutput>(inputs, 0).bgr;
        const ImageStats s = sharedImageStats(bgr, memo);
        const LabelSet set = sceneLabels(params);
        const std::vector<double> values = labelValues(set, bgr);
        auto out = std::make_unique<BufferOutput<Vantor::SceneRecogV3Buffer>>(typeList(AlgorithmType::SceneRecogV3));
        for (size_t i = 0; i < set.labels.size(); ++i) {
            const double v = values[i];
            auto info = Glintcore::makeShared<Vantor::SceneRecogV3Info>();
            info->id = static_cast<int32_t>(i);
            info->name = set.labels[i];
            info->confidence = static_cast<float>(v);
            info->thres = set.thresholds[i];
            info->satisfied = info->confidence >= info->thres;
            out->buffer->infos.push_back(info);
        }
        // The statistics themselves, in ImageStats field order (sharpness mapped to 0..1).
        for (double v : {s.brightness, s.contrast, s.saturation, s.colourfulness, sharpnessScore(s.sharpness),
                         s.edgeDensity, s.skinRatio, s.skyRatio, s.greenRatio, s.warmRatio, s.waterRatio,
                         s.darkRatio, s.whiteRatio, s.entropy}) {
            out->buffer->c3Feature.push_back(static_cast<float>(v));
        }
        return out;
    }

    std::vector<int32_t> producedTypes(const NodeParams&, const std::vector<std::string>&) const override {
        return typeList(AlgorithmType::SceneRecogV3);
    }
};

// The content classifier's probabilities (nodes/content_cues.h): porn and hentai count whole,
// sexy by the model's sexy_weight; porn and sexy on an image without a confirmed person only
// as far as the network is sure (nodes/sensitive_content.h).
class PornClsNode : public Node {
public:
    void load(const NodeParams&, const ModelSet& models) override {
        const ModelBlob& blob = requireModel(models, "model_name");
        const auto bundle = paramsAndNetwork(blob);
        if (!bundle) throw Error(Vantor::INVALID_MODEL, "the sensitive-content model lacks its network");
        classifier_ = std::make_unique<ContentClassifier>(loadNetwork({{"network", bundle->network}}, "network", ContentClassifier::shape()));
        // The object detector and MoveNet's single-person network, when the bundle has them
        // (carried or named), tell whether a person is there.
        const auto parts = bundleParts(blob);
        if (parts.count("objects")) objects_ = LazyWrapper<ObjectDetector>(parts.at("objects"), ObjectDetector::shape());
        if (parts.count("single")) bodies_ = BodyCheck(parts.at("single"));
        cv::FileStorage fs = openParams(bundle->params, "porn_cls");
        sexyWeight_ = paramOr(fs, "sexy_weight", 0.3);
        threshold_ = static_cast<float>(paramOr(fs, "threshold", 0.5));
    }

    std::unique_ptr<NodeOutput> run(const NodeParams& params, const std::vector<NodeOutput*>& inputs) override {
        const cv::Mat& bgr = inputAs<ImageOutput>(inputs, 0).bgr;
        auto out = std::make_unique<BufferOutput<Vantor::PornClsBuffer>>(typeList(AlgorithmType::PornCls));
        const ContentScores scores = sharedContent(*classifier_, bgr, memo);
        const float withPerson = sensitiveConfidence(scores, sexyWeight_, true);
        const float alone = sensitiveConfidence(scores, sexyWeight_, false);
        // The detector (and MoveNet) are fetched and run only when a person would change an
        // answer that reads as sensitive: a person can only lower the confidence, and under
        // kWorthChecking it reads as not sensitive either way, so the network's values stand
        // there (a skin-toned drawing of a face gave 0.17 against 0.04 without a person).
        // Without a detector in the bundle nothing contradicts the network and its values
        // stand; a named detector that cannot be fetched confirms no person.
        bool personSeen = withPerson < kWorthChecking || alone >= withPerson - kNegligible || !objects_.present();
        if (!personSeen) {
            const ObjectDetector* detector = objects_.get();
            personSeen = detector != nullptr && sharedPeopleCue(*detector, &bodies_, bgr, memo) >= kConfirmedPeople;
        }
        out->buffer->confidence = personSeen ? withPerson : alone;
        out->buffer->isPorn = out->buffer->confidence >= params.floatOr("porn_cls_thres", threshold_) ? 1 : 0;
        return out;
    }

    std::vector<int32_t> producedTypes(const NodeParams&, const std::vector<std::string>&) const override {
        return typeList(AlgorithmType::PornCls);
    }

private:
    std::unique_ptr<ContentClassifier> classifier_;
    LazyWrapper<ObjectDetector> objects_;  // made on first need (null when it cannot be fetched)
    BodyCheck bodies_;
    static constexpr float kNegligible = 0.01f;
    static constexpr float kWorthChecking = 0.2f;  // the lowest confidence the quality figures count
    double sexyWeight_ = 0.3;
    float threshold_ = 0.5f;
};

class SimilarityNode : public Node {
public:
    void load(const NodeParams&, const ModelSet& models) override {
        cv::FileStorage fs = openParams(requireModel(models, "model_name"), "similarity");
        std::string hash;
        fs["hash"] >> hash;
        if (hash != "phash") throw Error(Vantor::INVALID_MODEL, "unsupported similarity hash \"" + hash + "\"");
    }

    // The feature is the 64-bit DCT perceptual hash (8 bytes); similarity is pairwise, so
    // a single image has no score.
    std::unique_ptr<NodeOutput> run(const NodeParams&, const std::vector<NodeOutput*>& inputs) override {
        cv::Mat hash;
        cv::img_hash::pHash(inputAs<ImageOutput>(inputs, 0).bgr, hash);
        auto out = std::make_unique<BufferOutput<Vantor::SimilarityBuffer>>(typeList(AlgorithmType::Similarity));
        out->buffer->feature = Glintcore::PrimitiveVector<uint8_t>(hash.ptr<uint8_t>(), hash.ptr<uint8_t>() + hash.total());
        return out;
    }

    std::vector<int32_t> producedTypes(const NodeParams&, const std::vector<std::string>&) const override {
        return typeList(AlgorithmType::Similarity);
    }
};

}  // namespace

std::vector<NodeType> sceneNodeTypes() {
    const std::vector<SlotSpec> image{{Port::Image, true}};
    return {
        {"after_effect", {{Port::Image, true}, {Port::Faces, false}}, Port::None,
         [] { return std::make_unique<AfterEffectNode>(); }},
        {"scene_recognition", image, Port::None, [] { return std::make_unique<SceneNode>(); }},
        {"scene_recog_v3", image, Port::None, [] { return std::make_unique<SceneV3Node>(); }},
        {"porn_cls", image, Port::None, [] { return std::make_unique<PornClsNode>(); }},
        {"similarity", image, Port::None, [] { return std::make_unique<SimilarityNode>(); }},
    };
}

}  // namespace kv
