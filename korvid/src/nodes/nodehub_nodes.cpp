// Node-hub family: nh_image_transform, nh_convert_to_tensor, nh_inference,
// relation_recog and nh_classification (kinds 121 and 130). nh_inference computes a
// colour/texture descriptor and per-class values: from the object detector for the classes
// its model bundle maps onto detected objects, otherwise from the statistic named for each
// class in its model file; relation_recog scores relations from the detected faces.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <optional>

#include <opencv2/imgproc.hpp>

#include "Vantor/SceneBuffers.h"
#include "dnn/object_labels.h"
#include "model/model_bundle.h"
#include "model/model_loading.h"
#include "nodes/content_cues.h"
#include "nodes/cue_math.h"
#include "nodes/drawing_gate.h"
#include "nodes/face_output.h"
#include "nodes/image_stats.h"
#include "nodes/node_helpers.h"
#include "nodes/node_types.h"
#include "nodes/pet_selection.h"
#include "nodes/qr_code_cue.h"
#include "nodes/scene_evidence.h"
#include "nodes/shared_objects.h"
#include "nodes/text_cues.h"

namespace kv {

using Vantor::AlgorithmType;

namespace {

// nh_image_transform output: the converted image, the 8-bit BGR view it came from, and the
// untransformed image (for a network that needs its own input size).
class TransformedOutput : public NodeOutput {
public:
    cv::Mat converted;
    cv::Mat view;
    cv::Mat original;
};

// nh_convert_to_tensor output: CHW floats of the converted image, the view and the original.
class TensorOutput : public NodeOutput {
public:
    std::vector<float> values;
    std::vector<int> shape;  // channels, height, width
    cv::Mat view;
    cv::Mat original;
};

// Named float tensors of an inference step.
class ScoresOutput : public NodeOutput {
public:
    std::map<std::string, std::vector<float>> tensors;
};

float logit(double p) {
    p = std::min(1.0 - 1e-4, std::max(1e-4, p));
    return static_cast<float>(std::log(p / (1.0 - p)));
}

// Steps named in "transforms" (colon list) in order: "cvt_color" ("cvt_color_code" 0
// keeps BGR, 1 gives RGB, 2 grey), "resize" ("resize_width" x "resize_height"),
// "data_convert" (OpenCV depth "data_convert_rtype", value * alpha + beta).
class ImageTransformNode : public Node {
public:
    std::unique_ptr<NodeOutput> run(const NodeParams& params, const std::vector<NodeOutput*>& inputs) override {
        auto out = std::make_unique<TransformedOutput>();
        cv::Mat m = inputAs<ImageOutput>(inputs, 0).bgr;
        cv::Mat view = m;
        // How m stands to view: resizing works on each channel alone, so a view that is m or
        // m with red and blue swapped is resized with it, not a second time.
        enum { Same, Swapped, Apart } relation = Same;
        for (const std::string& step : splitText(params.stringOr("transforms", ""), ':', true)) {
            if (step == "cvt_color") {
                // Never in place: m may still share the input image, which other nodes read.
                const long code = params.intOr("cvt_color_code", 0);
                cv::Mat next;
                if (code == 1) cv::cvtColor(m, next, cv::COLOR_BGR2RGB);
                else if (code == 2) cv::cvtColor(m, next, cv::COLOR_BGR2GRAY);
                else if (code != 0) throw Error(Vantor::INVALID_NODE, "unknown cvt_color_code");
                if (code != 0) m = next;
                if (code == 1) relation = relation == Same ? Swapped : relation == Swapped ? Same : Apart;
                if (code == 2) relation = Apart;
            } else if (step == "resize") {
                const long w = params.intOr("resize_width", 224), h = params.intOr("resize_height", 224);
                if (w < 8 || h < 8 || w > 4096 || h > 4096) throw Error(Vantor::INVALID_NODE, "resize size out of range");
                cv::resize(m, m, cv::Size(int(w), int(h)), 0, 0, cv::INTER_AREA);
                if (relation == Same) view = m;
                else if (relation == Swapped) cv::cvtColor(m, view, cv::COLOR_RGB2BGR);
                else cv::resize(view, view, cv::Size(int(w), int(h)), 0, 0, cv::INTER_AREA);
            } else if (step == "data_convert") {
                const long depth = params.intOr("data_convert_rtype", CV_32F);
                if (depth < CV_8U || depth > CV_64F) throw Error(Vantor::INVALID_NODE, "unknown data_convert_rtype");
                cv::Mat next;
                m.convertTo(next, int(depth), params.floatOr("data_convert_alpha", 1.f), params.floatOr("data_convert_beta", 0.f));
                m = next;
                relation = Apart;
            } else {
                throw Error(Vantor::INVALID_NODE, "unknown transform \"" + step + "\"");
            }
        }
        out->converted = m;
        out->view = view;
        out->original = inputAs<ImageOutput>(inputs, 0).bgr;
        return out;
    }
};

class ToTensorNode : public Node {
public:
    std::unique_ptr<NodeOutput> run(const NodeParams&, const std::vector<NodeOutput*>& inputs) override {
        TransformedOutput& in = inputAs<TransformedOutput>(inputs, 0);
        auto out = std::make_unique<TensorOutput>();
        cv::Mat f;
        in.converted.convertTo(f, CV_32F);
        std::vector<cv::Mat> planes;
        cv::split(f, planes);
        out->shape = {int(planes.size()), f.rows, f.cols};
        for (const cv::Mat& p : planes) {
            for (int r = 0; r < p.rows; ++r) out->values.insert(out->values.end(), p.ptr<float>(r), p.ptr<float>(r) + p.cols);
        }
        out->view = in.view;
        out->original = in.original;
        return out;
    }
};

void normaliseL1(std::vector<float>& v, size_t from, size_t count) {
    double sum = 0;
    for (size_t i = from; i < from + count; ++i) sum += v[i];
    if (sum > 0) {
        for (size_t i = from; i < from + count; ++i) v[i] = static_cast<float>(v[i] / sum);
    }
}

// Counts of the 8-neighbour LBP codes at radius (bit k set where neighbour k, clockwise from
// the upper left, is at least the centre) over the pixels radius away from every edge. Counted
// in integers: a float bin counted up by 1 holds the same number, exactly, below 2^24 pixels.
std::array<uint32_t, 256> lbpCounts(const cv::Mat& gray, int radius) {
    std::array<uint32_t, 256> counts{};
    const int r = radius;
    for (int y = r; y < gray.rows - r; ++y) {
        const uint8_t* up = gray.ptr<uint8_t>(y - r);
        const uint8_t* row = gray.ptr<uint8_t>(y);
        const uint8_t* down = gray.ptr<uint8_t>(y + r);
        for (int x = r; x < gray.cols - r; ++x) {
            const uint8_t c = row[x];
            const int code = (up[x - r] >= c) | (up[x] >= c) << 1 | (up[x + r] >= c) << 2 | (row[x + r] >= c) << 3 |
                             (down[x + r] >= c) << 4 | (down[x] >= c) << 5 | (down[x - r] >= c) << 6 | (row[x - r] >= c) << 7;
            ++counts[static_cast<size_t>(code)];
        }
    }
    return counts;
}

// "stats1280": 256 HSV joint-histogram bins (16 hue x 4 saturation x 4 value), 512
// gradient-orientation bins (8 x 8 cells x 8 orientations, magnitude weighted), and
// two 256-bin LBP histograms (radius 1 and 2), each block L1-normalised.
// "hsv128": 128 HSV bins (8 x 4 x 4).
std::vector<float> descriptor(const cv::Mat& bgr, const std::string& layout) {
    cv::Mat hsv, gray;
    cv::cvtColor(bgr, hsv, cv::COLOR_BGR2HSV);
    cv::cvtColor(bgr, gray, cv::COLOR_BGR2GRAY);
    const int hueBins = layout == "hsv128" ? 8 : 16;
    std::array<uint8_t, 256> hueBin{};
    for (int h = 0; h < 256; ++h) hueBin[size_t(h)] = static_cast<uint8_t>(std::min(hueBins - 1, h * hueBins / 180));
    std::vector<uint32_t> colourCounts(static_cast<size_t>(hueBins * 16), 0);
    for (int y = 0; y < hsv.rows; ++y) {
        const uint8_t* p = hsv.ptr<uint8_t>(y);
        for (int x = 0; x < hsv.cols; ++x, p += 3) ++colourCounts[size_t((hueBin[p[0]] * 4 + p[1] / 64) * 4 + p[2] / 64)];
    }
    std::vector<float> f(colourCounts.begin(), colourCounts.end());
    normaliseL1(f, 0, f.size());
    if (layout == "hsv128") return f;

    cv::Mat gx, gy, mag, angle;
    cv::Sobel(gray, gx, CV_32F, 1, 0);
    cv::Sobel(gray, gy, CV_32F, 0, 1);
    cv::cartToPolar(gx, gy, mag, angle);
    const size_t hogStart = f.size();
    f.resize(hogStart + 512, 0.f);
    // fmod(a, pi) of the angles, 0 to 2 pi: between pi and 2 pi, a - pi is exact (the two lie
    // within a factor of two), so it is fmod's value without fmod's cost.
    const float pi = float(CV_PI);
    const auto halfTurn = [pi](float a) { return a < pi ? a : a < 2 * pi ? a - pi : std::fmod(a, pi); };
    std::vector<int> cellX(static_cast<size_t>(gray.cols));
    for (int x = 0; x < gray.cols; ++x) cellX[size_t(x)] = x * 8 / gray.cols;
    // Each bin adds its magnitudes in raster order, as float sums must to stay the same.
    for (int y = 0; y < gray.rows; ++y) {
        float* row = f.data() + hogStart + size_t(y * 8 / gray.rows) * 64;
        const float* a = angle.ptr<float>(y);
        const float* m = mag.ptr<float>(y);
        for (int x = 0; x < gray.cols; ++x) {
            const int bin = std::min(7, int(halfTurn(a[x]) / pi * 8));
            row[cellX[size_t(x)] * 8 + bin] += m[x];
        }
    }
    for (size_t c = 0; c < 64; ++c) normaliseL1(f, hogStart + c * 8, 8);
    for (int radius : {1, 2}) {
        const size_t start = f.size();
        const std::array<uint32_t, 256> counts = lbpCounts(gray, radius);
        f.insert(f.end(), counts.begin(), counts.end());
        normaliseL1(f, start, 256);
    }
    return f;
}

// With a bundle of "params", "network" (the object detector) and "labels" (object_labels.tsv)
// the classes that name objects, animals, vehicles, food and numbers of people come from the
// detector; the rest from statistics, which alone never make a class more likely than not.
// Numbers of people count only when a body confirms a person (the bundle's "single", MoveNet's
// single-person network; person_evidence.h), as for the scene labels.
class InferenceNode : public Node {
public:
    void load(const NodeParams&, const ModelSet& models) override {
        const ModelBlob& blob = requireModel(models, "model_name");
        const auto parts = bundleParts(blob);
        if (!parts.empty()) {
            if (!parts.count("params") || !parts.count("network") || !parts.count("labels")) {
                throw Error(Vantor::INVALID_MODEL, "model \"" + blob.name + "\" lacks its params, network or labels");
            }
            objects_ = std::make_unique<ObjectDetector>(loadNetwork({{"network", parts.at("network")}}, "network", ObjectDetector::shape()));
            labels_ = ObjectLabels::parse(parts.at("labels"));
            drawing_ = drawingClassifier(blob);
            if (parts.count("single")) bodies_ = BodyCheck(parts.at("single"));
        }
        cv::FileStorage fs = openParams(parts.empty() ? blob : parts.at("params"), "nodehub_inference");
        fs["feature_layout"] >> layout_;
        fs["feature_output"] >> featureName_;
        fs["score_output"] >> scoreName_;
        if (layout_ != "stats1280" && layout_ != "hsv128") throw Error(Vantor::INVALID_MODEL, "unknown feature layout");
        cv::FileNode classes = fs["class_statistic"];
        if (!classes.empty() && classes.type() == cv::FileNode::SEQ) {
            for (const auto& n : classes) cueOf_.push_back(static_cast<std::string>(n));
        }
        const SceneEvidence probe;
        double unused;
        for (const std::string& c : cueOf_) {
            if (c != "none" && c != kQrCode && c != kText && c != kScreenshot && c != kAnime && c != kSketch && !sceneCue(c, probe, unused)) throw Error(Vantor::INVALID_MODEL, "unknown class statistic \"" + c + "\"");
        }
    }

    std::unique_ptr<NodeOutput> run(const NodeParams& params, const std::vector<NodeOutput*>& inputs) override {
        TensorOutput& tensor = inputAs<TensorOutput>(inputs, 0);
        if (tensor.values.empty()) throw Error(Vantor::INVALID_NODE, "empty tensor");
        auto out = std::make_unique<ScoresOutput>();
        std::vector<float> scores;
        const cv::Mat& image = tensor.original.empty() ? tensor.view : tensor.original;
        const SceneEvidence evidence = sceneEvidence(image, memo);
        std::vector<ObjectDetection> objects;
        if (objects_) objects = withoutPetsThatArePersons(sharedObjects(*objects_, image, kMinObjectScore, memo));
        ContentScores content{};
        if (drawing_) {
            content = sharedContent(*drawing_, image, memo);
            // People and animals on a drawing count only when strongly detected.
            objects.erase(std::remove_if(objects.begin(), objects.end(),
                                         [&](const ObjectDetection& o) {
                                             return (o.cocoClass == kCocoPerson || (o.cocoClass >= kCocoBird && o.cocoClass <= kCocoGiraffe)) &&
                                                    !standsOnPicture(content, o.score, kStrongOnDrawing);
                                         }),
                          objects.end());
        }
        std::optional<double> people;  // the people cue, found once some count of people needs it
        for (size_t i = 0; i < cueOf_.size(); ++i) {
            const std::string& cue = cueOf_[i];
            double v = 0;
            if (objects_ && labels_.covers(i)) {
                v = labels_.probability(i, objects, image.size());
                if (v > 0 && labels_.countsPersons(i)) {
                    if (!people) people = sharedPeopleCue(*objects_, &bodies_, image, memo);
                    v = confirmedCount(v, *people);
                }
                // A screen is a screen photographed (the detector) or captured (a screenshot).
                if (cue == kScreenshot) v = std::max(v, screenshotCue(sharedText(image, memo)));
            } else if (cue == kText || cue == kScreenshot) {
                const TextScene text = sharedText(image, memo);
                v = cue == kText ? textCue(text) : screenshotCue(text);
            } else if (cue == kAnime || cue == kSketch) {
                // Without the classifier nothing measures a drawing.
                if (drawing_) v = (cue == kAnime ? animeCue : sketchCue)(content, evidence.colourfulness);
            } else if (cue == kQrCode) {
                v = qrCodeCue(image);
            } else if (cue != "none") {
                // Scene evidence tells a sky or a lawn, never with a class's certainty.
                sceneCue(cue, evidence, v);
                // A cue under the scene labels' threshold did not find its scene (a portrait's
                // blue backdrop is "sky" 0.33): its class is halved at most, a found one keeps it,
                // and stays under the confidence from which a class is shown.
                const double measured = v;
                v *= 0.5 + 0.5 * rise(v, kSceneWeak, kSceneFound);
                if (objects_) v *= kSceneClassScale;
                if (measured < kSceneFound) v = std::min(v, kShownClass * measured / kSceneFound);
                if (cue == kFlowers) v = flowerClassCue(v, drawing_ ? drawnShare(content) : 0.0, objects);
            }
            scores.push_back(logit(v));
        }
        std::vector<std::string> wanted = splitText(params.stringOr("output_names", featureName_ + ":" + scoreName_), ':', true);
        for (const std::string& name : wanted) {
            if (name == featureName_) out->tensors[name] = descriptor(tensor.view, layout_);
            else if (name == scoreName_ && !scoreName_.empty()) out->tensors[name] = scores;
            else throw Error(Vantor::INVALID_NODE, "the model has no output \"" + name + "\"");
        }
        return out;
    }

private:
    static constexpr const char* kQrCode = "qr_code";  // OpenCV's QR detector, not a scene cue
    // The text reader (text_cues.h): words read, and text on a drawn screen.
    static constexpr const char* kText = "text";
    static constexpr const char* kScreenshot = "screenshot";
    // The content classifier's drawings (content_cues.h), in colour and in grey.
    static constexpr const char* kAnime = "drawing_colour";
    static constexpr const char* kSketch = "drawing_grey";
    static constexpr const char* kFlowers = "flowers";  // scene_evidence.h
    // COCO's animals: bird (14) to giraffe (23).
    static constexpr int kCocoBird = 14, kCocoGiraffe = 23;
    static constexpr float kStrongOnDrawing = 0.6f;  // docs/quality.md
    static constexpr float kMinObjectScore = 0.2f;  // weaker detections are no evidence
    static constexpr double kSceneClassScale = 0.9;  // scene cues (at most 0.85) stay below 0.8
    static constexpr double kSceneFound = kFoundFloor;  // the scene labels' threshold unless the graph sets one
    static constexpr double kSceneWeak = 0.25;

    std::string layout_, featureName_, scoreName_;
    std::vector<std::string> cueOf_;  // statistic per class, "none" when none applies
    std::unique_ptr<ObjectDetector> objects_;
    std::unique_ptr<ContentClassifier> drawing_;
    BodyCheck bodies_;  // MoveNet's single-person network: bodies confirm persons
    ObjectLabels labels_;
};

// Relation scores from the faces: "people" (any face), "couple" (two faces of similar
// size), "friend" (two to four faces, raised by smiles), "family" (three or more faces
// of clearly different sizes); every other relation of the model is "none" (0).
class RelationNode : public Node {
public:
    void load(const NodeParams&, const ModelSet& models) override {
        cv::FileStorage fs = openParams(requireModel(models, "model_name"), "relation");
        fs["score_output"] >> output_;
        for (const auto& n : fs["class_rule"]) rules_.push_back(static_cast<std::string>(n));
        for (const std::string& r : rules_) {
            if (r != "people" && r != "couple" && r != "friend" && r != "family" && r != "none") {
                throw Error(Vantor::INVALID_MODEL, "unknown relation rule \"" + r + "\"");
            }
        }
    }

    std::unique_ptr<NodeOutput> run(const NodeParams& params, const std::vector<NodeOutput*>& inputs) override {
        inputAs<TensorOutput>(inputs, 0);
        std::vector<double> sizes, scores;
        if (inputs.size() > 1 && inputs[1] != nullptr) {
            for (const DetectedFace& f : inputAs<FaceOutput>(inputs, 1).faces) {
                sizes.push_back(f.box.width);
                scores.push_back(f.score);
            }
        }
        double happy = 0;
        if (inputs.size() > 2 && inputs[2] != nullptr) {
            auto& attrs = inputAs<BufferOutput<Vantor::FaceAttributeBuffer>>(inputs, 2).buffer->attributes;
            for (const auto& a : attrs) happy += a->happyScore;
            if (!attrs.empty()) happy /= double(attrs.size());
        }
        const size_t n = sizes.size();
        const double maxSize = n ? *std::max_element(sizes.begin(), sizes.end()) : 0;
        const double minSize = n ? *std::min_element(sizes.begin(), sizes.end()) : 0;
        const double spread = maxSize > 0 ? 1.0 - minSize / maxSize : 0;
        std::vector<float> logits;
        for (const std::string& r : rules_) {
            double p = 0;
            if (r == "people" && n > 0) p = *std::max_element(scores.begin(), scores.end());
            else if (r == "couple" && n == 2) p = 1.0 - spread;
            else if (r == "friend" && n >= 2 && n <= 4) p = 0.5 + 0.5 * happy;
            else if (r == "family" && n >= 3) p = std::min(1.0, spread * 2);
            logits.push_back(logit(p));
        }
        auto out = std::make_unique<ScoresOutput>();
        for (const std::string& name : splitText(params.stringOr("output_names", output_), ':', true)) {
            if (name != output_) throw Error(Vantor::INVALID_NODE, "the model has no output \"" + name + "\"");
            out->tensors[name] = logits;
        }
        return out;
    }

private:
    std::string output_;
    std::vector<std::string> rules_;
};

std::vector<float> parseFloats(const std::string& text) {
    std::vector<float> out;
    for (const std::string& item : splitText(text, ',')) {
        char* end = nullptr;
        float v = std::strtof(item.c_str(), &end);
        if (end == item.c_str() || *end != '\0' || !std::isfinite(v)) throw Error(Vantor::INVALID_NODE, "bad threshold \"" + item + "\"");
        out.push_back(v);
    }
    return out;
}

class ClassificationNode : public Node {
public:
    std::unique_ptr<NodeOutput> run(const NodeParams& params, const std::vector<NodeOutput*>& inputs) override {
        ScoresOutput& in = inputAs<ScoresOutput>(inputs, 0);
        const long numClasses = params.intOr("num_classes", 0);
        const std::string scoreName = params.stringOr("output_names", "");
        auto scores = in.tensors.find(scoreName);
        if (scores == in.tensors.end()) throw Error(Vantor::INVALID_NODE, "no input tensor \"" + scoreName + "\"");
        std::vector<float> conf = scores->second;
        if (numClasses <= 0 || static_cast<size_t>(numClasses) != conf.size()) {
            throw Error(Vantor::INVALID_NODE, "num_classes does not match the scores");
        }
        // The labels are read from "class_labels" only.
        std::vector<std::string> labels = splitText(params.stringOr("class_labels", ""), ',');
        std::vector<float> thresholds = parseFloats(params.stringOr("class_thresholds", ""));
        if ((!labels.empty() && labels.size() != conf.size()) || (!thresholds.empty() && thresholds.size() != conf.size())) {
            throw Error(Vantor::INVALID_NODE, "class labels or thresholds do not match num_classes");
        }
        const long activation = params.intOr("do_soft_max", 0);
        if (activation == 1) {
            const float top = *std::max_element(conf.begin(), conf.end());
            double sum = 0;
            for (float& c : conf) sum += (c = std::exp(c - top));
            for (float& c : conf) c = static_cast<float>(c / sum);
        } else if (activation == 2) {
            for (float& c : conf) c = 1.f / (1.f + std::exp(-c));
        }
        auto info = Glintcore::makeShared<Vantor::NHClassificationInfo>();
        info->numClasses = static_cast<int32_t>(numClasses);
        std::vector<int32_t> order(conf.size());
        std::iota(order.begin(), order.end(), 0);
        auto exceeds = [&](int32_t i) { return !thresholds.empty() && conf[size_t(i)] >= thresholds[size_t(i)]; };
        if (params.intOr("sort_by_threshold", 0) == 1) {
            std::stable_sort(order.begin(), order.end(), [&](int32_t a, int32_t b) {
                if (exceeds(a) != exceeds(b)) return exceeds(a);
                return conf[size_t(a)] > conf[size_t(b)];
            });
        }
        for (int32_t i : order) {
            info->id.push_back(i);
            info->confidence.push_back(conf[size_t(i)]);
            info->exceedThresh.push_back(exceeds(i) ? 1 : 0);
        }
        const bool fedByRelation = producesRelation(upstreamTypes);
        auto out = std::make_unique<BufferOutput<Vantor::NHClassificationBuffer>>(
            std::vector<int32_t>{fedByRelation ? 130 : 121},
            std::make_unique<Vantor::NHClassificationBuffer>(fedByRelation ? 130 : 121));
        Vantor::NHClassificationBuffer& buf = *out->buffer;
        buf.bufferSize = 1;
        buf.infos[0] = info;
        if (params.intOr("feature_mode", 0) == 1) {
            const std::string featureName = params.stringOr("feature_name", "");
            auto feature = in.tensors.find(featureName);
            if (feature == in.tensors.end() || feature->second.size() != static_cast<size_t>(params.intOr("feature_dim", 0))) {
                throw Error(Vantor::INVALID_NODE, "feature \"" + featureName + "\" missing or not feature_dim long");
            }
            auto f = Glintcore::makeShared<Vantor::NHClassificationFeature>();
            f->features = Glintcore::PrimitiveVector<float>(feature->second.begin(), feature->second.end());
            buf.features[0] = f;
        }
        buf.labels = labels;
        buf.thresh = Glintcore::PrimitiveVector<float>(thresholds.begin(), thresholds.end());
        return out;
    }

    std::vector<int32_t> producedTypes(const NodeParams&, const std::vector<std::string>& upstream) const override {
        return {producesRelation(upstream) ? static_cast<int32_t>(AlgorithmType::RelationRecog)
                                           : static_cast<int32_t>(AlgorithmType::NHClassification)};
    }

private:
    static bool producesRelation(const std::vector<std::string>& upstream) {
        return std::find(upstream.begin(), upstream.end(), "relation_recog") != upstream.end();
    }
};

}  // namespace

std::vector<NodeType> nodeHubNodeTypes() {
    return {
        {"nh_image_transform", {{Port::Image, true}}, Port::Transformed, [] { return std::make_unique<ImageTransformNode>(); }},
        {"nh_convert_to_tensor", {{Port::Transformed, true}}, Port::Tensor, [] { return std::make_unique<ToTensorNode>(); }},
        {"nh_inference", {{Port::Tensor, true}}, Port::Scores, [] { return std::make_unique<InferenceNode>(); }},
        {"relation_recog", {{Port::Tensor, true}, {Port::Faces, false}, {Port::FaceAttributes, false}}, Port::Scores,
         [] { return std::make_unique<RelationNode>(); }},
        {"nh_classification", {{Port::Scores, true}}, Port::None, [] { return std::make_unique<ClassificationNode>(); }},
    };
}

}  // namespace kv
